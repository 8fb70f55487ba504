#include "app/config_internal.h"
#include "base/utf8.h"
#include "os/os_test_support.h"
#include "query/db_term.h"

#include <set>
#include <vector>

namespace findwright {
namespace {

struct text_t : utf8_buf_t {
    text_t() { utf8_buf_init(this); }
    ~text_t() { utf8_buf_kill(this); }
    std::string string() const { return std::string(data, static_cast<size_t>(length)); }
};

const bool is_posix = os_path_separator == '/';

class config : public testing::Test {
  protected:
    void SetUp() override { config_init(96); }
    void TearDown() override { config_kill(); }

    static void reset() {
        config_kill();
        config_init(96);
    }
    static bool read(const std::string &lines) {
        const std::string text = "[Findwright]\r\n" + lines;
        return config_read(text.data(), static_cast<u32>(text.size()), "test");
    }
    static std::string written() {
        text_t out;
        config_write(&out, false);
        return out.string();
    }
    // The value that a key is written with.
    static std::string written(const std::string &key) {
        const std::string text = written();
        const size_t at = text.find("\n" + key + "=");
        if (at == std::string::npos)
            return "(none)";
        const size_t start = at + key.size() + 2;
        return text.substr(start, text.find("\r\n", start) - start);
    }
};

std::vector<config_row_t> all_rows() {
    std::vector<config_row_t> rows;
    config_for_each_row([](const config_row_t *row,
                           void *param) { static_cast<std::vector<config_row_t> *>(param)->push_back(*row); },
                        &rows);
    return rows;
}

TEST_F(config, table_is_complete) {
    std::set<std::string> keys;
    std::set<void *> variables;
    u32 numbers = 0, smalls = 0, texts = 0;
    for (const config_row_t &row : all_rows()) {
        EXPECT_TRUE(keys.insert(row.key).second) << row.key;
        EXPECT_TRUE(variables.insert(row.variable).second) << row.key;
        numbers += row.type == CONFIG_NUMBER;
        smalls += row.type == CONFIG_SMALL;
        texts += row.type == CONFIG_TEXT || row.type == CONFIG_PATH;
    }
    EXPECT_EQ(keys.size(), CONFIG_ROW_COUNT);
    EXPECT_EQ(numbers, 104u);
    EXPECT_EQ(smalls, 197u);
    EXPECT_EQ(texts, 47u);
    EXPECT_EQ(written("db_update_thread_priority"), "-15");
    EXPECT_EQ(written("size_huge"), "134217728");
    EXPECT_EQ(written("max_threads"), "0");
    EXPECT_EQ(written("name_column_visible"), "(none)");
    EXPECT_EQ(written("header_font"), "(none)");
    EXPECT_EQ(written("header_font_size"), "0");
}

const char odd_text[] = "a \"b\", c;\\ %s=#[x] \xC3\xA9\xFF\t";

void set_odd(const config_row_t *row, void *param) {
    i32 *number = static_cast<i32 *>(param);
    ++*number;
    switch (row->type) {
    case CONFIG_NUMBER: *static_cast<i32 *>(row->variable) = *number % 2 ? -*number * 100003 : *number; break;
    case CONFIG_SMALL: *static_cast<i32 *>(row->variable) = 1 + *number % 255; break;
    case CONFIG_COLOR:
        *static_cast<u32 *>(row->variable) = CONFIG_COLOR_SET | (*number % 3 ? 0 : 0xABCDEF);
        break;
    case CONFIG_BOLD: *static_cast<u32 *>(row->variable) = static_cast<u32>(*number % 3); break;
    default: {
        char **text = static_cast<char **>(row->variable);
        *text = utf8_replace_string(*text, (odd_text + std::to_string(*number)).c_str());
    }
    }
}

void set_all_odd() {
    i32 number = 0;
    for (auto *pass : {config_for_each_row, config_for_each_column, config_for_each_frame_color,
                       config_for_each_font, config_for_each_color})
        pass(set_odd, &number);
    for (u32 i = 0; i < config_family_count; i++) {
        for (u32 j = 0; j < 10; j++) {
            char *item = static_cast<char *>(config_list_add(config_families[i].list));
            for (u32 k = 0; k < config_families[i].field_count; k++) {
                const config_field_t *field = &config_families[i].fields[k];
                config_row_t row = {field->type, field->key, item + field->offset, ""};
                set_odd(&row, &number);
            }
        }
    }
    config_ntfs_volumes[0].include_only =
        utf8_replace_string(config_ntfs_volumes[0].include_only, " line\r\nline \\n\"");
    config_keys_set("edit_copy_keys", " Ctrl+C, \"Ins\" ");
    config_keys_set("a_b_c_keys", "");
}

TEST_F(config, all_settings_survive_a_round) {
    const std::string defaults = written();
    set_all_odd();
    const std::string first = written();
    reset();
    EXPECT_EQ(written(), defaults);
    ASSERT_TRUE(config_read(first.data(), static_cast<u32>(first.size()), "test"));
    EXPECT_EQ(written(), first);
    // The bytes alone could hide what neither direction knows of.
    i32 wrong = 0;
    for (const config_row_t &row : all_rows()) {
        const bool is_text = row.type == CONFIG_TEXT || row.type == CONFIG_PATH;
        wrong += is_text ? std::string(*static_cast<char **>(row.variable)).find(odd_text) != 0
                         : *static_cast<i32 *>(row.variable) == 0;
    }
    EXPECT_EQ(wrong, 0);
    EXPECT_EQ(config_folders.count, 10u);
    EXPECT_STREQ(config_ntfs_volumes[0].include_only, " line\r\nline \\n\"");
    EXPECT_STREQ(config_keys_get("edit_copy_keys"), " Ctrl+C, \"Ins\" ");
    EXPECT_STREQ(config_keys_get("a_b_c_keys"), "");
    EXPECT_EQ(config_keys_get("a_keys"), nullptr);
}

TEST_F(config, values) {
    struct {
        const char *key;
        const char *value;
        const char *read;
    } const rows[] = {
        {"thumbnail_size", "12", "12"},
        {"thumbnail_size", "-7", "-7"},
        {"thumbnail_size", "0x1F", "31"},
        {"thumbnail_size", "0xFFFFFFFF", "-1"},
        {"thumbnail_size", "0x100000000", "64"},
        {"thumbnail_size", "2147483647", "2147483647"},
        {"thumbnail_size", "2147483648", "64"},
        {"thumbnail_size", "-2147483648", "-2147483648"},
        {"thumbnail_size", "99999999999999999999999999", "64"},
        {"thumbnail_size", "12abc", "12"},
        {"thumbnail_size", "abc", "0"},
        {"thumbnail_size", "", "0"},
        {"THUMBNAIL_Size", "5", "5"},
        {"db_update_thread_priority", "-128", "-128"},
        {"db_update_thread_priority", "-129", "-15"},
        {"show_copy_name", "255", "255"},
        {"show_copy_name", "256", "2"},
        {"fast_ascii_search", "0", "0"},
        {"search", " a=b \\n\"x ", " a=b \\n\"x "},
        {"date_format", "", ""},
        {"normal_foreground_color", "#000000", "#000000"},
        {"normal_foreground_color", "#FfA001", "#ffa001"},
        {"normal_foreground_color", "", ""},
        {"normal_foreground_color", "#12345", ""},
        {"normal_foreground_color", "#1234567", ""},
        {"normal_foreground_color", "red", ""},
        {"thumbnail_mouseover_border_color", "#0000ff", "#0000ff"},
        {"hot_bold", "", ""},
        {"hot_bold", "0", "0"},
        {"hot_bold", "7", "1"},
        {"header_font", "Sans", "Sans"},
        {"path_column_width", "11", "11"},
        {"date_run_column_visible", "1", "1"},
    };
    for (const auto &row : rows) {
        reset();
        std::string key = row.key;
        ASSERT_TRUE(read(key + "=" + row.value + "\r\n"));
        for (char &c : key)
            c = static_cast<char>(utf8_to_lower(static_cast<u32>(c)));
        EXPECT_EQ(written(key), row.read) << row.key << "=" << row.value;
    }
}

TEST_F(config, black_is_not_unset) {
    EXPECT_EQ(config_colors[0].foreground, 0u);
    read("normal_foreground_color=#000000\n");
    EXPECT_EQ(config_colors[0].foreground, CONFIG_COLOR_SET);
    read("normal_foreground_color=\n");
    EXPECT_EQ(config_colors[0].foreground, 0u);
}

TEST_F(config, text_ends_at_a_line_feed) {
    config_search = utf8_replace_string(config_search, "one\nthumbnail_size=1");
    config_keys_set("x_y_keys", "F1\nview=1");
    EXPECT_EQ(written("search"), "one");
    EXPECT_EQ(written("x_y_keys"), "F1");
    EXPECT_EQ(written("thumbnail_size"), "64");
}

TEST_F(config, what_a_file_lacks_stays) {
    ASSERT_TRUE(
        read("text_size=3\nfolders=\"x\"\nhot_bold=1\nb_a_keys=1\na_b_keys=2\nsize_column_width=9\n"));
    ASSERT_TRUE(read("dpi=120\na_b_keys=3\n"));
    EXPECT_EQ(text_size, 3);
    EXPECT_EQ(config_dpi, 120);
    EXPECT_EQ(config_folders.count, 1u);
    EXPECT_EQ(written("hot_bold"), "1");
    EXPECT_EQ(config_columns[2].width, 9);
    ASSERT_EQ(config_keys.count, 2u);
    EXPECT_STREQ(config_keys[0].key, "b_a_keys");
    EXPECT_STREQ(config_keys[1].keys, "3");
    ASSERT_TRUE(read("folders=\n"));
    EXPECT_EQ(config_folders.count, 0u);
}

TEST_F(config, older_commands) {
    read("open_file_command=old\nopen_folder_path_command=path\nexplore_command=\nexplore_command2=new\n");
    EXPECT_STREQ(open_file_command2, "old");
    EXPECT_STREQ(open_path_command2, "path");
    EXPECT_STREQ(explore_command2, "new");
    EXPECT_EQ(written("open_file_command"), "(none)");
}

TEST_F(config, lists_of_unequal_length) {
    read("folders=\"a,b\"; c ,,\"d\"\n"
         "folder_monitor_changes=0\n"
         "folder_update_ats=,7,8,99999999999,5,6\n"
         "folder_update_types=x\n");
    ASSERT_EQ(config_folders.count, 3u);
    EXPECT_STREQ(config_folders[0].path, "a,b");
    EXPECT_STREQ(config_folders[1].path, "c");
    EXPECT_STREQ(config_folders[2].path, "d");
    const config_folder_t &first = config_folders[0], &second = config_folders[1], &last = config_folders[2];
    EXPECT_EQ(first.monitor_changes, 0u);
    EXPECT_EQ(second.monitor_changes, 1u);
    EXPECT_EQ(first.update_at, 3);
    EXPECT_EQ(second.update_at, 7);
    EXPECT_EQ(last.update_at, 3);
    EXPECT_EQ(first.update_type, CONFIG_FOLDER_UPDATE_NEVER);
    EXPECT_EQ(last.update_type, CONFIG_FOLDER_UPDATE_AT);
    EXPECT_EQ(last.buffer_size, 65536);
    EXPECT_EQ(last.update_interval, 6);
    EXPECT_EQ(last.update_interval_type, 1);

    read("connect_history_hosts=h\nqtp_client_rewrite_patterns=\"C:\\\\x\",\"\",y\n"
         "qtp_client_rewrite_substitutions=1,2,3\n");
    ASSERT_EQ(config_connect_history.count, 1u);
    EXPECT_EQ(config_connect_history[0].port, 21);
    ASSERT_EQ(config_rewrites.count, 2u);
    EXPECT_STREQ(config_rewrites[0].pattern, "C:\\x");
    EXPECT_STREQ(config_rewrites[1].substitution, "3");
}

TEST_F(config, volumes_are_known_by_their_names) {
    for (const char *kind : {"ntfs", "refs"}) {
        const std::string key = std::string(kind) + "_volume_";
        read(key + "guids=g,g,g,,g,h\n" + key + "paths=C:,D:,C:,E:,C:,\n" + key + "roots=r,r,s,r,r,r\n" +
             key + "includes=1,0,1,1,0,1\n");
    }
    ASSERT_EQ(config_ntfs_volumes.count, 3u);
    const config_volume_t *volume = config_ntfs_volume_find("g", "C:", "r");
    ASSERT_EQ(volume, &config_ntfs_volumes[0]);
    EXPECT_EQ(volume->include, 0u); // of the last of the two
    EXPECT_EQ(volume->monitor, 1u);
    EXPECT_STREQ(config_ntfs_volumes[2].root, "s");
    EXPECT_EQ(config_ntfs_volume_find("g", "c:", "r"), nullptr);
    ASSERT_EQ(config_refs_volumes.count, 2u);
    ASSERT_EQ(config_refs_volume_find("g", "C:"), &config_refs_volumes[0]);
    config_list_remove(&config_ntfs_volumes, 0);
    EXPECT_STREQ(config_ntfs_volumes[0].path, "D:");
}

TEST_F(config, paths_of_this_system) {
    struct {
        const char *text;
        const char *inside;
        const char *written;
    } const rows[] = {
        {"/home/u/a b", "\\home\\u\\a b", "/home/u/a b"},
        {"/a\\b",
         "\\a\xEF\x81\x9C"
         "b",
         "/a\\b"},
        {"//a", "\\a", "/a"},
        {"a/b", "a/b", "a/b"},
        {"C:\\a", "C:\\a", "C:\\a"},
        {"\\\\server\\share", "\\\\server\\share", "\\\\server\\share"},
        {"", "", ""},
    };
    for (const auto &row : rows) {
        reset();
        text_t item;
        utf8_buf_cat_list_item(&item, row.text, utf8_length(row.text));
        read(std::string("db_location=") + row.text + "\nfilelists=\"x\"," + item.string() + "\n");
        EXPECT_STREQ(db_location, is_posix ? row.inside : row.text);
        EXPECT_EQ(written("db_location"), is_posix ? row.written : row.text);
        if (*row.text) {
            ASSERT_EQ(config_file_lists.count, 2u);
            EXPECT_STREQ(config_file_lists[1].filename, db_location);
        }
    }
}

TEST_F(config, what_is_wrong_is_logged) {
    temp_folder_t folder;
    const std::string log = folder / "log";
    debug_log_open(log.c_str());
    read("nonsense\r\nmystery=1\r\n; comment\r\nthumbnail_size=99999999999\r\ntext_size=x\r\n\r\n"
         "text_size=2\r\nhot_bold=999\r\nhot_foreground_color=?\r\nfolders=a,\"\"\r\nfolder_update_ats=1,2,"
         "3\r\n"
         "run_as_admin=1\r\na_b_keys=1\r\nexplore_command=x\r\n");
    debug_log_open(nullptr);
    const std::string lines = read_file(log);
    for (const char *line :
         {"line 2: no setting", "line 3: unknown key mystery", "line 5: thumbnail_size: 999",
          "line 6: text_size: \"x\" is no number, taken for 0", "line 8: text_size stands above already",
          "line 9: hot_bold: 999", "line 10: hot_foreground_color: \"?\" is no colour",
          "line 11: folders: an entry is empty", "folder_update_ats is longer than folders",
          "lists shorter than folders"})
        EXPECT_NE(lines.find(line), std::string::npos) << line;
    EXPECT_EQ(std::count(lines.begin(), lines.end(), '\n'), 10) << lines;
}

// --- Files -------------------------------------------------------------------------------------------------

class config_files : public config {
  protected:
    void SetUp() override {
        config::SetUp();
        root = &folder;
        platform.exe_path = [](char *out, u32 size) { return give(out, size, "program"); };
        platform.app_data_path = [](char *out, u32 size) { return give(out, size, "roaming"); };
        platform.local_app_data_path = [](char *out, u32 size) { return give(out, size, "local"); };
        user = is_posix ? "roaming\\findwright\\" : "roaming\\Findwright\\";
        first = is_posix ? user : "program\\";
        std::filesystem::create_directory(folder.path / "program");
    }
    void TearDown() override {
        platform = before;
        config::TearDown();
    }
    static bool give(char *out, u32 size, const char *name) {
        return std::snprintf(out, size, "%s", (*root / name).c_str()) > 0;
    }
    static bool save(bool program_folder) {
        text_t error;
        const bool done = config_save(program_folder, &error);
        EXPECT_EQ(error.string(), "");
        return done;
    }

    temp_folder_t folder;
    platform_t before = platform;
    std::string user;  // where the settings are with app_data on
    std::string first; // where they are looked for first
    static const temp_folder_t *root;
};
const temp_folder_t *config_files::root;

TEST_F(config_files, save_and_load) {
    EXPECT_FALSE(config_load_default());
    text_size = 5;
    run_as_admin = 1;
    ASSERT_TRUE(save(false));
    const std::string text = read_file(folder / (first + "Findwright.ini"));
    EXPECT_EQ(text.find("; Please make sure Findwright is not running before modifying this file.\r\n"
                        "[Findwright]\r\nrun_as_admin=1\r\n"),
              0u);
    EXPECT_EQ(read_file(folder / (first + "Findwright.ini.tmp")), "(none)");
    reset();
    ASSERT_TRUE(config_load_default());
    EXPECT_EQ(text_size, 5);
    EXPECT_EQ(run_as_admin, 1u);
    ASSERT_TRUE(save(false));
    EXPECT_EQ(read_file(folder / (first + "Findwright.ini")), text);
    config_is_saved = true;
    text_size = 6;
    ASSERT_TRUE(save(false));
    EXPECT_EQ(read_file(folder / (first + "Findwright.ini")), text);
}

TEST_F(config_files, instance_has_a_file_of_its_own) {
    config_set_place("a:b%\xC3\xA9", nullptr);
    ASSERT_TRUE(save(false));
    EXPECT_NE(read_file(folder / (first + "Findwright-a%3ab%\xC3\xA9.ini")), "(none)");
    EXPECT_EQ(read_file(folder / (first + "Findwright.ini")), "(none)");
    EXPECT_TRUE(config_load_default());
}

TEST_F(config_files, file_of_the_command_line) {
    const std::string name = folder / "own.ini";
    config_set_place(nullptr, name.c_str());
    text_size = 4;
    ASSERT_TRUE(save(false));
    EXPECT_NE(read_file(name).find("\r\ntext_size=4\r\n"), std::string::npos);
    text_size = 0;
    ASSERT_TRUE(config_load_default());
    EXPECT_EQ(text_size, 4);
}

TEST_F(config_files, settings_in_the_application_data) {
    app_data = 1;
    run_as_admin = 1;
    text_size = 5;
    ASSERT_TRUE(save(false));
    ASSERT_TRUE(save(true));
    const std::string pointer = read_file(folder / (first + "Findwright.ini"));
    if (is_posix) {
        // There is one place alone, and nothing may shorten the file that lies there.
        EXPECT_NE(pointer.find("text_size=5"), std::string::npos);
        return;
    }
    EXPECT_EQ(pointer, "; Please make sure Findwright is not running before modifying this file.\r\n"
                       "[Findwright]\r\n"
                       "; settings stored in %APPDATA%\\Findwright\\Findwright.ini\r\n"
                       "app_data=1\r\n"
                       "run_as_admin=1\r\n");
    const std::string real = read_file(folder / (user + "Findwright.ini"));
    EXPECT_EQ(real.find("run_as_admin"), std::string::npos);
    write_file(folder / (user + "Findwright.ini"), real + "run_as_admin=0\r\napp_data=0\r\n");
    write_file(folder / (first + "Findwright.ini"), pointer + "dpi=200\r\n");
    reset();
    ASSERT_TRUE(config_load_default());
    EXPECT_EQ(app_data, 1u);
    EXPECT_EQ(run_as_admin, 1u);
    EXPECT_EQ(text_size, 5);
    EXPECT_EQ(config_dpi, 96);
    // Laid over, the pointer leads nowhere.
    app_data = 0;
    EXPECT_TRUE(config_load((folder / (first + "Findwright.ini")).c_str(), false, false));
    EXPECT_EQ(app_data, 0u);
    EXPECT_EQ(config_dpi, 200);
}

TEST_F(config_files, failed_save_leaves_the_old_file) {
    ASSERT_TRUE(save(false));
    const std::string name = folder / (first + "Findwright.ini");
    const std::string old = read_file(name);
    text_size = 9;
    // A folder that has the name of the file to write first.
    std::filesystem::path temp = folder.path;
    for (const char *part :
         {is_posix ? "roaming" : "program", is_posix ? "findwright" : ".", "Findwright.ini.tmp"})
        temp /= part;
    std::filesystem::create_directory(temp);
    text_t error;
    EXPECT_FALSE(config_save(false, &error));
    text_t shown;
    config_path_to_text(&shown, name.c_str());
    EXPECT_EQ(error.string().find("Unable to write " + shown.string() + ": "), 0u) << error.string();
    EXPECT_GT(error.string().size(), shown.string().size() + 18) << error.string();
    EXPECT_EQ(read_file(name), old);
    std::filesystem::remove(temp);
    // A folder in the place of the settings: what was written first goes away again.
    os_delete_file(name.c_str());
    std::filesystem::create_directories(temp.parent_path() / "Findwright.ini" / "x");
    EXPECT_FALSE(config_save(false, &error));
    EXPECT_FALSE(std::filesystem::exists(temp));
    platform.app_data_path = platform.exe_path = [](char *, u32) { return false; };
    EXPECT_FALSE(config_save(false, &error));
    EXPECT_NE(error.string().find("Findwright.ini"), std::string::npos);
}

TEST_F(config, page_is_up_to_date) {
    FILE *file = std::fopen(FINDWRIGHT_TEST_DATA "/../../docs/settings.md", "rb");
    ASSERT_NE(file, nullptr);
    std::string text(200000, 0);
    text.resize(std::fread(text.data(), 1, text.size(), file));
    std::fclose(file);
    text_t page;
    config_write_page(&page);
    EXPECT_EQ(text, page.string()) << "make_settings_page > docs/settings.md";
}

} // namespace
} // namespace findwright
