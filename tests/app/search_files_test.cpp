// The lists of searches as files of the program: where they lie, and what is said when one cannot be written.
#include "app/search_files.h"

#include "app/config.h"
#include "os/os_test_support.h"
#include "query/bookmark.h"
#include "query/filter.h"
#include "query/search_history.h"

namespace findwright {
namespace {

struct search_files_test : testing::Test {
    temp_folder_t folder;
    utf8_buf_t text;

    void SetUp() override {
        utf8_buf_init(&text);
        config_init(96);
    }
    void TearDown() override {
        search_files_free();
        config_kill();
        utf8_buf_kill(&text);
    }
    std::string filename(search_file_t file) {
        return search_files_get_filename(file, &text) ? text.data : "(none)";
    }
};

TEST_F(search_files_test, LieBesideTheSettings) {
    config_set_place("a/b", (folder / "sub\\other.ini").c_str());
    EXPECT_EQ(folder / "sub\\Filters-a%2fb.csv", filename(SEARCH_FILE_FILTERS));
    EXPECT_EQ(folder / "sub\\Search History-a%2fb.csv", filename(SEARCH_FILE_HISTORY));
    config_set_place("", "name.ini");
    EXPECT_EQ("Bookmarks.csv", filename(SEARCH_FILE_BOOKMARKS));
    config_set_place("", "\\name.ini");
    EXPECT_EQ("\\Bookmarks.csv", filename(SEARCH_FILE_BOOKMARKS));
    config_set_place("", "");
    ASSERT_TRUE(config_get_path(false, &text));
    std::string expected = text.data;
    expected.replace(expected.size() - 14, 14, "Filters.csv"); // "Findwright.ini"
    EXPECT_EQ(expected, filename(SEARCH_FILE_FILTERS));
}

TEST_F(search_files_test, AllThreeComeBack) {
    config_set_place("", (folder / "x.ini").c_str());
    search_files_load();
    EXPECT_EQ(nullptr, search_history); // not kept
    search_history_enabled = 1;
    search_files_load();
    ASSERT_TRUE(search_history);
    filter_add(&filter_head, &filter_tail, "mine", 0, "x", "", 0, 0);
    bookmark_add("mine");
    // A history without a change is not written.
    EXPECT_TRUE(search_files_save(SEARCH_FILE_HISTORY, &text));
    EXPECT_FALSE(os_file_exists(filename(SEARCH_FILE_HISTORY).c_str()));
    search_history_add("x");
    for (auto file : {SEARCH_FILE_FILTERS, SEARCH_FILE_BOOKMARKS, SEARCH_FILE_HISTORY}) {
        EXPECT_TRUE(search_files_save(file, &text)) << text.data;
        if (os_path_separator == '/') { // no other user's business
            auto mode = std::filesystem::status(folder.path / filename(file).substr(folder.name.size() + 1));
            EXPECT_EQ(std::filesystem::perms(0600), mode.permissions());
        }
    }
    search_files_free();
    search_files_load();
    EXPECT_TRUE(filter_find_by_name("mine"));
    EXPECT_TRUE(bookmark_find_by_name("mine"));
    EXPECT_EQ(1u, search_history->by_date.count);
    // What is kept for days only is left out when it is older.
    write_file(filename(SEARCH_FILE_HISTORY), "Search,Last Search Date\nold,1\n");
    for (u32 days : {90u, 0u}) {
        search_history_keep_forever = 0;
        search_history_days_to_keep = static_cast<i32>(days);
        search_files_load();
        EXPECT_EQ(days != 0 ? 0u : 1u, search_history->by_date.count);
    }
}

TEST_F(search_files_test, AFailureNamesTheFile) {
    config_set_place("", (folder / "x.ini").c_str());
    search_files_load_lists();
    std::filesystem::create_directories(folder.path / "Filters.csv.tmp");
    EXPECT_FALSE(search_files_save(SEARCH_FILE_FILTERS, &text));
    std::string message = text.data;
    EXPECT_EQ(0u, message.find("Unable to write ")) << message;
    EXPECT_NE(std::string::npos, message.find("Filters.csv: ")) << message;
    EXPECT_EQ("(none)", read_file(folder / "Filters.csv"));
}

} // namespace
} // namespace findwright
