// Exclusions: how patterns are compiled, what they leave out, and when a change asks for a new reading.
#include "db/db_exclude.h"

#include "base/bz2.h"
#include "base/utf8_buf.h"
#include "db/db.h"
#include "db/db_folder.h"
#include "os/os.h"
#include "support/memory_file.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace findwright {
namespace {

struct set_t : db_exclude_set_t {
    set_t(std::vector<const char *> folders, const char *include_only, const char *files,
          bool enabled = true) {
        db_exclude_init(this);
        const db_exclude_settings_t settings = {
            enabled, true, false, folders.data(), static_cast<u32>(folders.size()), include_only, files};
        db_exclude_compile_settings(this, &settings);
    }
    ~set_t() { db_exclude_kill(this); }
};

std::string list_text(const db_exclude_list_t &list) {
    std::string text;
    u32 count = 0;
    for (const db_exclude_t *entry = list.first; entry; entry = entry->next, count++)
        text += std::to_string(entry->kind) + ":" + std::string(entry->text, entry->length) + "|";
    EXPECT_EQ(count, list.count);
    return text;
}

TEST(DbExclude, PatternsAreCompiled) {
    const struct {
        const char *patterns;
        const char *compiled;
    } rows[] = {
        {nullptr, ""},
        {" ; ;\"\";", ""},
        {"C:\\Temp;c:\\", "0:c:\\temp|0:c:\\|"},
        {"Thumbs.DB", "1:thumbs.db|"},
        {"a*b;?;a?*;*?;*a*b*;**a", "2:a*b|2:?|2:a?*|2:*?|2:*a*b*|2:**a|"},
        {"*;**", "4:|7:|"},
        {"*.TMP;.tmp*;*Cache*", "5:.tmp|6:.tmp|7:cache|"},
        {"*\\.git;C:\\*\\", "8:*\\.git|8:c:\\*\\|"},
        {"  a b \t; \" c;d \"x ;e,f", "1:a b|1: c;d x|1:e,f|"},
        {"\xC3\x84*;FTP://A/b", "6:\xC3\xA4|1:ftp://a/b|"},
    };
    for (const auto &row : rows) {
        set_t set({}, nullptr, row.patterns);
        EXPECT_EQ(list_text(set.exclude_files), row.compiled);
    }
    // Where paths are written with `/`, so are the patterns.
    set_t set({}, nullptr, "/Home/U;*/x");
    EXPECT_EQ(list_text(set.exclude_files),
              os_path_separator == '/' ? "0:\\home\\u|8:*\\x|" : "1:/home/u|5:/x|");
}

TEST(DbExclude, EachKindMatchesWhatItSays) {
    const struct {
        const char *pattern;
        std::vector<const char *> out, in; // full paths
    } rows[] = {
        {"C:\\Temp", {"C:\\Temp", "C:\\TEMP\\a", "c:\\temp\\a\\b"}, {"C:\\Temporary", "C:", "D:\\Temp"}},
        {"C:\\Temp\\", {"C:\\Temp", "C:\\TEMP\\a"}, {"C:\\Temporary", "C:\\Tem"}},
        {"C:\\", {"C:", "C:\\a"}, {"D:", "C"}},
        {"thumbs.db", {"C:\\THUMBS.db"}, {"C:\\thumbs.dbx", "C:\\thumbs.d", "C:\\xthumbs.db"}},
        {"\xC3\xA4.txt", {"C:\\\xC3\x84.TXT"}, {"C:\\a.txt"}},
        {"a*b", {"C:\\ab", "C:\\AxB"}, {"C:\\abc", "C:\\a\\c"}},
        {"?.c", {"C:\\\xC3\xA4.c"}, {"C:\\aa.c", "C:\\.c"}},
        {"*", {"C:\\a", ""}, {}},
        {"*.tmp", {"C:\\a.TMP", "C:\\.tmp"}, {"C:\\a.tmp.x", "C:\\tmp"}},
        {".tmp*", {"C:\\.tmpa"}, {"C:\\a.tmp"}},
        {"*cache*", {"C:\\my Caches", "C:\\cache"}, {"C:\\cach", "C:\\cache\\a"}},
        {"*\\.git", {"C:\\a\\.git"}, {"C:\\a\\.git\\x", ".git", "C:\\a.git"}},
        {"C:\\*\\x?", {"C:\\a\\xy", "C:\\a\\b\\xy"}, {"C:\\a\\x", "C:\\xy", "D:\\a\\xy"}},
    };
    for (const auto &row : rows) {
        set_t set({row.pattern}, nullptr, nullptr);
        for (const char *path : row.out)
            EXPECT_FALSE(db_folder_path_is_included(&set, path, static_cast<u32>(std::strlen(path))))
                << row.pattern << " " << path;
        for (const char *path : row.in)
            EXPECT_TRUE(db_folder_path_is_included(&set, path, static_cast<u32>(std::strlen(path))))
                << row.pattern << " " << path;
    }
}

TEST(DbExclude, ItemsAreTestedByTheirChain) {
    db_t *db = db_create();
    db_index_t *index = db_index_alloc(DB_INDEX_TYPE_NTFS);
    _db_index_add(db, index, 0);
    const mem_ref_t root = mem_ref(db_folder_alloc(db, index, 0, "C:", 2));
    const mem_ref_t temp = mem_ref(db_folder_alloc(db, index, root, "Temp", 4));
    const auto file = [](const set_t &set, mem_ref_t parent, const std::string &name) {
        return db_file_is_included(&set, parent, name.data(), static_cast<u32>(name.size()));
    };
    const auto folder = [](const set_t &set, mem_ref_t parent, const std::string &name) {
        return db_folder_is_included(&set, parent, name.data(), static_cast<u32>(name.size()));
    };

    set_t paths({"c:\\temp"}, "*.c;C:\\TEMP\\keep", "*x*");
    EXPECT_TRUE(paths.files_need_path && paths.folders_need_path);
    EXPECT_FALSE(folder(paths, root, "TEMP"));
    EXPECT_FALSE(folder(paths, temp, "a"));
    EXPECT_TRUE(folder(paths, root, "Temporary"));
    EXPECT_TRUE(folder(paths, 0, "Temp"));
    EXPECT_TRUE(file(paths, root, "a.c"));
    EXPECT_TRUE(file(paths, temp, "Keep"));
    EXPECT_FALSE(file(paths, root, "keep")); // not wanted by any entry
    EXPECT_FALSE(file(paths, root, "x.c"));  // wanted, and left out
    EXPECT_TRUE(file(paths, temp, std::string(300, 'a') + ".C"));

    set_t nothing_matches({}, "no such name", nullptr);
    EXPECT_FALSE(nothing_matches.files_need_path);
    EXPECT_FALSE(file(nothing_matches, root, "a"));
    EXPECT_TRUE(folder(nothing_matches, root, "a"));

    set_t off({"c:\\temp"}, "*.c", "*x*", false);
    EXPECT_TRUE(file(off, root, "x") && folder(off, root, "temp"));
    EXPECT_TRUE(off.exclude_hidden); // a switch of its own
    EXPECT_FALSE(off.exclude_system || off.folders_need_path);
    db_destroy(db);
}

TEST(DbExclude, OnlyAWiderWishReadsTheSources) {
    const struct {
        set_t content, wanted;
        bool narrower, differs;
    } rows[] = {
        {{{"a"}, "i", "x"}, {{"A"}, "I", "X"}, false, false},
        {{{}, "", ""}, {{"a"}, "", "x"}, false, true}, // adding
        {{{"a"}, "", ""}, {{}, "", ""}, true, true},   // removing
        {{{}, "", "x;y"}, {{}, "", "x"}, true, true},
        {{{"a", "b"}, "", "x;y"}, {{"b", "a"}, "", "y;x"}, false, true}, // in another order
        {{{}, "", "*.tmp"}, {{}, "", ".tmp*"}, true, true},              // the same text
        {{{}, "", "*.tmp"}, {{}, "", "*.tmp*"}, true, true},
        // The other way round: what is added here may be missing.
        {{{}, "", ""}, {{}, "*.c", ""}, false, true},
        {{{}, "*.c", ""}, {{}, "", ""}, true, true},
        {{{}, "*.c", ""}, {{}, "*.c;*.h", ""}, true, true},
        {{{}, "*.c;*.h", ""}, {{}, "*.h", ""}, false, true},
        {{{}, "*.c", ""}, {{}, ".c*", ""}, true, true},
        // Without lists, what the settings hold does not count.
        {{{"a"}, "", ""}, {{"a"}, "", "", false}, true, true},
    };
    for (const auto &row : rows) {
        const size_t number = static_cast<size_t>(&row - rows);
        EXPECT_EQ(db_exclude_is_narrower(&row.content, &row.wanted), row.narrower) << number;
        EXPECT_EQ(db_exclude_differs(&row.content, &row.wanted), row.differs) << number;
    }
    set_t a({}, "", ""), b({}, "", "");
    for (bool db_exclude_set_t::*flag :
         {&db_exclude_set_t::exclude_hidden, &db_exclude_set_t::exclude_system}) {
        a.*flag = !(b.*flag);
        EXPECT_TRUE(db_exclude_is_narrower(&a, &b) && db_exclude_is_narrower(&b, &a));
        a.*flag = b.*flag;
    }
}

TEST(DbExclude, WrittenListsComeBackAsTheyWere) {
    memory_file_scope_t scope;
    const std::string long_name(300, 'n');
    set_t set({"C:\\Temp", "*\\.git"}, "*.c;?", ("*;*.tmp;.tmp*;*x*;" + long_name).c_str());
    bz2_stream_t *out = bz2_write_open("db");
    for (const auto *list : {&set.exclude_folders, &set.include_only_files, &set.exclude_files})
        db_exclude_write(out, list);
    ASSERT_TRUE(bz2_write_close(out));

    db_exclude_set_t read, copy;
    db_exclude_init(&read);
    db_exclude_init(&copy);
    bz2_stream_t *in = bz2_read_open("db");
    for (auto *list : {&read.exclude_folders, &read.include_only_files, &read.exclude_files})
        db_exclude_read(in, list);
    EXPECT_TRUE(bz2_read_close(in));
    db_exclude_update_needs(&read);
    EXPECT_FALSE(db_exclude_differs(&read, &set));
    EXPECT_EQ(list_text(read.exclude_files), list_text(set.exclude_files));
    EXPECT_TRUE(read.folders_need_path && !read.files_need_path);

    db_exclude_copy(&copy, &read);
    db_exclude_kill(&read);
    EXPECT_EQ(list_text(copy.exclude_folders), list_text(set.exclude_folders));
    EXPECT_TRUE(copy.folders_need_path);
    db_exclude_kill(&copy);
}

TEST(DbExclude, DamagedListsEndTheReading) {
    memory_file_scope_t scope;
    const struct {
        std::string bytes;
        std::string read;
    } rows[] = {
        {std::string("\x02\x01\x01"
                     "a\x03\x01"
                     "b"),
         "1:a|"}, // no such kind
        {std::string("\x01\x09\x00", 3), ""},
        {std::string("\xFF\xFF\xFF\xFF\xFF\x01\x01"
                     "a"),
         "1:a|"}, // no end to the count
        {std::string("\x01\x01\xFF\xFF\xFF\xFF\xFF"
                     "a"),
         ""}, // nor to the text
    };
    for (const auto &row : rows) {
        memory_file.bytes = row.bytes;
        bz2_stream_t *in = bz2_read_open_plain("db");
        db_exclude_list_t list = {};
        db_exclude_read(in, &list);
        EXPECT_EQ(list_text(list), row.read);
        EXPECT_FALSE(bz2_read_close(in));
        db_exclude_list_kill(&list);
    }
}

} // namespace
} // namespace findwright
