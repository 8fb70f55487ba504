// The rebuild of a volume that is cut down: one folder as its root, or some of its folders as roots.
#include "db/db_folder.h"
#include "os/os_test_support.h"
#include "support/test_db.h"

#include <gtest/gtest.h>

namespace findwright {
namespace {

const std::vector<std::string> ALL_PATHS = {"x", "a\\y", "a\\b\\z", "a\\b\\c\\w", "other\\b\\v"};

db_t *create_cut(test_volume_t volume, const std::string &root, const std::string &include_only) {
    volume.root = root;
    volume.include_only = include_only;
    return test_db_create({volume}, TEST_FLAGS_ALL);
}

// Folders, then files.
std::vector<std::string> all_paths(db_t *db) {
    std::vector<std::string> paths = test_array_paths(&db->folder_path_array);
    for (const std::string &path : test_array_paths(&db->file_path_array))
        paths.push_back(path);
    return paths;
}

struct cut_t {
    std::string root, include_only;
    std::vector<std::string> expected;
};

void check_cuts(const test_volume_t &volume, const std::vector<cut_t> &cuts) {
    for (const cut_t &cut : cuts) {
        db_t *db = create_cut(volume, cut.root, cut.include_only);
        EXPECT_EQ(cut.expected, all_paths(db)) << cut.root << "|" << cut.include_only;
        db_destroy(db);
    }
}

TEST(DbCreateTree, OneFolderAsTheRoot) {
    test_volume_t volume = test_volume_from_paths({"x", "a\\y", "a\\\xC3\xA9t\xC3\xA9\\z", "b\\ete\\v"});
    volume.records.push_back({900, 901, u"ete", true}); // in a circle, where its name is wanted
    volume.records.push_back({901, 900, u"a", true});
    volume.records.push_back({902, 999, u"C:", true}); // without a parent, and named like the root
    volume.records.push_back({903, 902, u"lost", true});
    const std::vector<std::string> whole = {
        "C:",    "C:\\a",    "C:\\a\\\xC3\xA9t\xC3\xA9",    "C:\\b",        "C:\\b\\ete",
        "C:\\x", "C:\\a\\y", "C:\\a\\\xC3\xA9t\xC3\xA9\\z", "C:\\b\\ete\\v"};
    const std::vector<std::string> a = {"C:", "C:\\\xC3\xA9t\xC3\xA9", "C:\\y", "C:\\\xC3\xA9t\xC3\xA9\\z"};
    check_cuts(volume, {
                           {"", "", whole},
                           {"a", "", a},
                           {"\\/A\\", "", a},
                           {"A\\ETE", "", {"C:", "C:\\z"}},
                           {"a/\xC3\x89te/", "", {"C:", "C:\\z"}},
                           {"b\\ete", "", {"C:", "C:\\v"}},
                           // Not there, or only in parts.
                           {"\\", "", whole},
                           {"ete", "", whole},
                           {"lost", "", whole},
                           {"a\\\\ete", "", whole},
                           {"C:\\a", "", whole},
                           {"x", "", whole},
                       });
}

TEST(DbCreateTree, SomeFoldersAsRoots) {
    const std::vector<std::string> whole = {
        "C:",    "C:\\a",    "C:\\a\\b",    "C:\\a\\b\\c",    "C:\\other",       "C:\\other\\b",
        "C:\\x", "C:\\a\\y", "C:\\a\\b\\z", "C:\\a\\b\\c\\w", "C:\\other\\b\\v",
    };
    const std::vector<std::string> b = {"C:\\a\\b", "C:\\a\\b\\c", "C:\\a\\b\\z", "C:\\a\\b\\c\\w"};
    check_cuts(test_volume_from_paths(ALL_PATHS),
               {
                   {"", "C:\\a\\b", b},
                   {"", "c:/A/B/ ; ;C:\\none", b},
                   {"", "C:\\A\\B\\\\;C:\\a\\b", b}, // the second finds nothing
                   {"",
                    "C:\\other\\b,C:\\a\\b\\c",
                    {"C:\\a\\b\\c", "C:\\other\\b", "C:\\a\\b\\c\\w", "C:\\other\\b\\v"}},
                   // The volume's root by itself, and one root below another.
                   {"", "C:\\", whole},
                   {"", "C:\\a\\b;C:", whole},
                   // Nothing to keep to.
                   {"", " ; ", whole},
                   // Nothing that there is.
                   {"", "C:\\none;C:\\x;D:\\a;b;\\", {}},
                   // Of what is left below a folder that is the root.
                   {"a", "C:\\b\\c", {"C:\\b\\c", "C:\\b\\c\\w"}},
                   {"a", "C:\\a\\b", {}},
                   {"none", "C:\\other\\b", {"C:\\other\\b", "C:\\other\\b\\v"}},
               });
}

TEST(DbCreateTree, ListElementsMayBeQuoted) {
    test_volume_t volume = test_volume_from_paths({"a;b\\x", "a\\y", "b, c\\z", "other\\v"});
    const std::vector<std::string> expected = {"C:\\a;b", "C:\\b, c", "C:\\a;b\\x", "C:\\b, c\\z"};
    check_cuts(volume, {{"", "\"C:\\\\a;b\"; \"C:\\\\b, c\\\\\"", expected}});
}

TEST(DbCreateTree, TheVolumesPathMayHaveSeveralComponents) {
    test_volume_t volume = test_volume_from_paths({"a\\x", "b\\a\\y", "z"});
    volume.path = "\\\\server\\share";
    check_cuts(volume,
               {
                   {"b", "", {"\\\\server\\share", "\\\\server\\share\\a", "\\\\server\\share\\a\\y"}},
                   {"", "\\\\server\\share\\b\\a", {"\\\\server\\share\\b\\a", "\\\\server\\share\\b\\a\\y"}},
                   {"b",
                    "\\\\SERVER\\SHARE",
                    {"\\\\server\\share", "\\\\server\\share\\a", "\\\\server\\share\\a\\y"}},
               });
}

// Names that differ in case only, as a system with such names writes them: the first number wins.
TEST(DbCreateTree, OfEqualPathsTheFirstIsTaken) {
    test_volume_t volume;
    volume.records = {{40, NTFS_FRN_ROOT, u"A", true},
                      {39, NTFS_FRN_ROOT, u"a", true},
                      {50, 40, u"upper", false},
                      {51, 39, u"lower", false}};
    check_cuts(volume,
               {{"A", "", {"C:", "C:\\lower"}}, {"", "C:\\A;C:\\A;C:\\a", {"C:\\a", "C:\\a\\lower"}}});
}

// A root keeps the number and the columns of its folder, and what lies below a nested one belongs to that.
TEST(DbCreateTree, ARootKeepsWhatItsFolderWas) {
    test_volume_t volume = test_volume_from_paths(ALL_PATHS);
    for (test_record_t &record : volume.records)
        record.date = record.frn * 1000;
    db_t *db = create_cut(volume, "", "C:\\a;C:\\a\\b");
    const db_index_t *index = db_index_get(db, 0);
    EXPECT_FALSE(db_folder_find_by_frn(db, index, NTFS_FRN_ROOT));
    std::string tops;
    for (const test_record_t &record : volume.records) {
        const db_folder_t *folder = record.is_folder ? db_folder_find_by_frn(db, index, record.frn) : nullptr;
        if (!folder)
            continue;
        EXPECT_EQ(index, db_get_index(folder));
        EXPECT_EQ(record.date, db_folder_get_date_modified(db, folder));
        u32 length;
        const char *name = db_item_get_name(db_get_root(folder), &length);
        tops += std::string(name, length) + ";";
    }
    EXPECT_EQ("C:\\a;C:\\a\\b;C:\\a\\b;", tops); // of a, b and c
    EXPECT_EQ((std::vector<std::string>{"C:\\a", "C:\\a\\b", "C:\\a\\b\\c", "C:\\a\\y", "C:\\a\\b\\z",
                                        "C:\\a\\b\\c\\w"}),
              all_paths(db));
    db_destroy(db);
}

TEST(DbCreateTree, ALogTellsWhatWasFound) {
    log_capture_t log;
    test_volume_t volume = test_volume_from_paths(ALL_PATHS);
    db_destroy(create_cut(volume, "A", "C:\\none;C:\\B"));
    std::string text = log.take();
    for (const char *line : {"found root A\n", "find root: ", "include only C:\\b\n",
                             "could not find root 1 C:\\none\n", "new root count 1\n"})
        EXPECT_NE(std::string::npos, text.find(line)) << line << text;
}

TEST(DbCreateTree, CirclesReachNoRoot) {
    test_volume_t volume = test_volume_from_paths({"a\\x", "b\\y"});
    u64 a = volume.records[0].frn;
    volume.records.push_back({900, 901, u"a", true});
    volume.records.push_back({901, 900, u"a", true});
    volume.records.push_back({902, 902, u"a", true});
    volume.records.push_back({903, 902, u"file", false});
    volume.records.push_back({904, a, u"a", true});
    std::string deep = "C:";
    for (u32 i = 0; i < 1000; i++)
        deep += "\\a";
    check_cuts(
        volume,
        {{"a\\a", "", {"C:"}}, {"a\\a\\a", deep, {}}, {"", "C:\\a\\a\\a;C:\\a\\a;" + deep, {"C:\\a\\a"}}});
}

// Every name fits, and no walk may go all the way up from each.
TEST(DbCreateTree, AChainOfTwoHundredThousandFolders) {
    constexpr u32 DEPTH = 200000;
    test_volume_t volume;
    for (u64 i = 0; i < DEPTH; i++)
        volume.records.push_back({100 + i, i == 0 ? NTFS_FRN_ROOT : 99 + i, u"a", true});
    volume.root = "b\\a";
    volume.include_only = "C:\\a\\a;C:\\a;C:\\b\\a";
    db_t *db = test_db_create({volume}, 0);
    EXPECT_EQ(DEPTH, db->folder_name_array.count); // all but the volume's root
    db_destroy(db);
}

} // namespace
} // namespace findwright
