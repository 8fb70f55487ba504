// Functions: which ops a term becomes, on a database with all columns and on one without any; the lists that
// two of them take.
#include "os/os_test_support.h"
#include "query/db_query_internal.h"
#include "support/test_db.h"

namespace findwright {
namespace {

constexpr u32 TRUE = DB_OP_TRUE, FALSE = DB_OP_FALSE, SAME = DB_OP_COUNT;

struct query_t {
    db_t *db;
    db_query_t *query;

    explicit query_t(u32 flags)
        : db(test_db_create({test_volume_from_paths({"a\\b", "c"})}, flags)),
          query(db_query_create(db, false, nullptr, nullptr)) {}
    ~query_t() {
        db_destroy_query(query);
        db_destroy(db);
    }
    void run(const char *text) {
        db_query_params_t params = {};
        params.search = text;
        params.filter_search = "";
        db_query_search(query, &params);
        db_wait(db, "test");
    }
};

TEST(DbQueryFunction, WhichOps) {
    const struct {
        const char *text;
        u32 folder_op, file_op;                         // with all columns
        u32 bare_folder_op = SAME, bare_file_op = SAME; // with none, where that is another one
    } cases[] = {
        {"ext:a", FALSE, 162},
        {"!ext:a", TRUE, 166},
        {"case:diacritics:ext:a", FALSE, 165},
        {"diacritics:ext:a", FALSE, 170},
        {"!diacritics:ext:a", TRUE, 171},
        {"diacritics:noascii:ext:a", FALSE, 164},
        {"diacritics:ext:\xC3\xA9", FALSE, 164},
        {"ext:a;;b", FALSE, 352},
        {"diacritics:ext:;b", FALSE, 360},
        {"ext:a;", FALSE, 162},
        {"filelist:a", 362, 362},
        {"!filelist:a\\b", 365, 365},
        {"fsi:1", 188, 188},
        {"!len:1", 192, 192},
        {"path:len:1", 191, 191},
        {"depth:1", 196, 196},
        {"size:1", 200, 200, FALSE, 198},
        {"!size:1", 201, 201, TRUE, 199},
        {"type:zqx", FALSE, 222},
        {"!type:zqx", TRUE, 223},
        {"content:a", FALSE, 334},
        {"!wcharcontent:a", TRUE, 337},
        {"utf16becontent:a", FALSE, 338},
        {"contenta:a", FALSE, 340},
        {"utf8content:a", FALSE, 342},
        {"child:a", 344, FALSE},
        {"!childcount:1", 347, TRUE},
        {"childfilecount:1", 348, FALSE},
        {"childfoldercount:1", 350, FALSE},
        {"dm:2020", 202, 202, 212, 212},
        {"!dc:2020", 205, 205, 221, 221},
        {"da:2020", 206, 206, 332, 332},
        {"drc:2020", 326, 326},
        {"runcount:1", 328, 328},
        {"dr:2020", 330, 330},
        {"attrib:a", 208, 208, 210, 210},
        {"startwith:a*", 122, 122},
        {"!path:case:startwith:a", 135, 135},
        {"diacritics:startwith:a", 138, 138},
        {"diacritics:endwith:a", 158, 158},
        {"endwith:a", 142, 142},
        {"parent:q", 280, 280},
        {"parent:c:\\a", 282, 282},
        {"!parent:", 283, 283},
        {"filelistfilename:a", 224, 224},
        {"root:", 172, 172},
        {"empty:", 194, FALSE},
        {"!empty:", 195, TRUE},
        {"dupe:", 174, 174},
        {"dupenamepart:", 176, 176},
        {"dupesize:", 178, 178, FALSE, FALSE},
        {"!dcdupe:", 181, 181, TRUE, TRUE},
        {"dupedm:", 182, 182, FALSE, FALSE},
        {"dadupe:", 184, 184, FALSE, FALSE},
        {"attributesdupe:", 186, 186, FALSE, FALSE},
        {"file:root:", FALSE, 172},
        {"!folder:size:1", 201, TRUE, TRUE, TRUE},
        {"nofunction:a", DB_OP_FIND, DB_OP_FIND},
        {"\"ext:a\"", DB_OP_FIND, DB_OP_FIND},
    };
    query_t full(TEST_FLAGS_ALL), bare(0);
    for (const auto &c : cases) {
        full.run(c.text);
        EXPECT_EQ(c.folder_op, full.query->folder_terms->op) << c.text;
        EXPECT_EQ(c.file_op, full.query->file_terms->op) << c.text;
        EXPECT_FALSE(full.query->needs_disk_information) << c.text;
        bool differs = c.bare_folder_op != SAME;
        bare.run(c.text);
        EXPECT_EQ(differs ? c.bare_folder_op : c.folder_op, bare.query->folder_terms->op) << c.text;
        EXPECT_EQ(differs ? c.bare_file_op : c.file_op, bare.query->file_terms->op) << c.text;
    }
}

TEST(DbQueryFunction, TheFolderSizesAreAColumnOfTheirOwn) {
    query_t query(DB_FLAG_SIZE | DB_FLAG_FAST_SIZE);
    query.run("size:1");
    EXPECT_EQ(FALSE, query.query->folder_terms->op);
    EXPECT_EQ(200u, query.query->file_terms->op);
    query.run("sizedupe:");
    EXPECT_EQ(FALSE, query.query->folder_terms->op);
    EXPECT_EQ(178u, query.query->file_terms->op);
    query_t no_sort(DB_FLAG_SIZE);
    no_sort.run("sizedupe:");
    EXPECT_EQ(FALSE, no_sort.query->file_terms->op);
}

TEST(DbQueryFunction, LettersOfAttributes) {
    query_t query(TEST_FLAGS_ALL);
    const struct {
        const char *text;
        u32 mask;
    } cases[] = {
        {"attrib:", 0},
        {"attrib:rhsdavntplcoie", 0x7FF7},
        {"attrib:ACDEHILNOPRSTV", 0x7FF7},
        {"attributes:r r", 1},
        {"attrib:x1*z", 0},
        {"attrib:h!s", 6},
        {"attrib:p", 0x0200},
        {"attrib:l", 0x0400},
        {"attrib:v", 0x0040},
        {"attrib:ncote", 0x5980},
    };
    for (auto c : cases) {
        query.run(c.text);
        EXPECT_EQ(c.mask, query.query->folder_terms->mask) << c.text;
        EXPECT_EQ(c.mask, query.query->file_terms->mask) << c.text;
    }
}

template<class list_t>
std::string join(const list_t *list) {
    std::string text;
    for (u32 i = 0; i < list->count; i++)
        text += "[" + std::string(list->items[i].text, list->items[i].length) + "]";
    return text;
}

TEST(DbQueryFunction, ExtensionsAreSplitFoldedAndSorted) {
    const struct {
        const char *text;
        utf8_mode_t mode;
        const char *expected;
        bool has_empty;
    } cases[] = {
        {"", UTF8_MODE_FOLD, "", true},
        {";", UTF8_MODE_FOLD, "", true},
        {";;", UTF8_MODE_FOLD, "", true},
        {"b;A;B", UTF8_MODE_FOLD, "[a][b]", false},
        {"b;A;B", UTF8_MODE_EXACT, "[A][B][b]", false},
        {"A;\xC3\xA9;", UTF8_MODE_LOWER, "[a][\xC3\xA9]", false},
        {"\xC3\x89;e", UTF8_MODE_FOLD, "[e]", false},
        {"a;;b", UTF8_MODE_FOLD, "[a][b]", true},
        {";a", UTF8_MODE_FOLD, "[a]", true},
    };
    for (auto c : cases) {
        db_extensions_t *list = db_extensions_create(c.mode, c.text);
        EXPECT_EQ(c.expected, join(list)) << c.text;
        EXPECT_EQ(c.has_empty, list->has_empty) << c.text;
        list->free(list);
    }
}

// Writes a record of that name, its head and all, into a block.
static const db_item_t *_make_item(std::vector<u64> *block, const char *name) {
    u32 length = static_cast<u32>(std::strlen(name));
    block->assign(length / 8 + 4, 0x2E2E2E2E2E2E2E2E); // dots around it are none of the name
    return db_item_write_head(reinterpret_cast<char *>(block->data() + 1), 0x2E2E2E2E, false, 0, name,
                              length);
}

// Extensions of many lengths beside names of all sorts, against a look at the end of the name.
TEST(DbQueryFunction, ExtensionsMatchTheEndOfAName) {
    const struct {
        const char *extensions;
        const char *name;
        bool expected;
    } cases[] = {
        {"a;tar.gz;.x", "x.a", true},
        {"a;tar.gz;.x", ".A", true},
        {"a;tar.gz;.x", "a", false},
        {"a;tar.gz;.x", "x.tar.gz", true},
        {"a;tar.gz;.x", "x.gz", false},
        {"a;tar.gz;.x", "x..x", true},
        {"a;tar.gz;.x", "x.x", false},
        {"a;tar.gz;.x", "x.a.b", false},
        {"a;tar.gz;.x", "", false},
        {"a;gz;c++", "x.A", true},
        {"a;gz;c++", ".a", true},
        {"a;gz;c++", "a", false},
        {"a;gz;c++", "xgz", false},
        {"a;gz;c++", "a long name.C++", true},
        {"a;gz;c++", "a long name.c", false},
        {"a;gz;c++", "x.", false},
        {"a;gz;c++", "a long name.", false},
        {"a;gz;c++", "", false},
        {"a;gz;c++", "x.b.a", true},
        {"a;gz;c++", "x.a.b", false},
        {"a;gz;c++", "a.longextension", false},
        {"a;;gz", "without", true},
        {"a;;gz", "without one", true},
        {"a;;gz", "x.longextension", false},
        {"a;;gz", "x.b", false},
        {"sevenab;eightabc;ninechars", "x.SEVENAB", true},
        {"sevenab;eightabc;ninechars", "x.eightabc", true},
        {"sevenab;eightabc;ninechars", "xeightabc", false},
        {"sevenab;eightabc;ninechars", "x.ninechars", true},
        {"sevenab;eightabc;ninechars", "x.evenabc", false},
        {"[;`", "x.{", false}, // beside the letters
        {"[;`", "x.@", false},
        {"[;`", "x.[", true},
        {"k;\xC3\xA9t\xC3\xA9", "x.\xC3\x89T\xC3\xA9", true},
        {"k;\xC3\xA9t\xC3\xA9", "x.ete", false},
        {"k;\xC3\xA9t\xC3\xA9", "x.\xE2\x84\xAA", true}, // the sign for kelvin
        {"k;\xC3\xA9t\xC3\xA9", "\xC3\x89\xC3\x89\xC3\x89.k", true},
    };
    for (auto c : cases) {
        db_extensions_t *list = db_extensions_create(UTF8_MODE_LOWER, c.extensions);
        std::vector<u64> block;
        const db_item_t *item = _make_item(&block, c.name);
        EXPECT_EQ(c.expected, db_extensions_match<UTF8_MODE_LOWER>(list, item))
            << c.extensions << " " << c.name;
        u32 length;
        const char *name = db_item_get_name(item, &length);
        EXPECT_EQ(c.expected, db_extensions_match_text<UTF8_MODE_LOWER>(list, name, length))
            << c.extensions << " " << c.name;
        list->free(list);
    }
}

TEST(DbQueryFunction, NamesOfAFileList) {
    const struct {
        const char *text;
        const char *expected;
    } cases[] = {
        {"", ""},
        {"||", ""},
        {"b|A|a", "[a][b]"},
        {"a\x01"
         "b|c",
         "[a|b][c]"},
        {"c:\\X|x", "[c:\\x][x]"},
        {"\xEF\xBD\x9C", "[|]"}, // a wide bar folds to one that separates nothing
    };
    for (auto c : cases) {
        db_file_list_names_t *list = db_file_list_names_create(UTF8_MODE_FOLD, c.text);
        EXPECT_EQ(c.expected, join(list)) << c.text;
        list->free(list);
    }
}

} // namespace
} // namespace findwright
