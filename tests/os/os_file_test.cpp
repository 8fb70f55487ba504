#include "os_test_support.h"

using namespace findwright;

namespace {

TEST(os_file, write_read_and_info_by_any_name) {
    temp_folder_t folder;
    for (const char *file :
         {"plain.txt",
          "gr\xC3\xB6\xC3\x9F"
          "e \xD0\xB6.txt",
          "\xE4\xB8\xAD\xE6\x96\x87", "\xF0\x9F\x98\x80 smile", "with  blanks .x", "e\xCC\x81"}) {
        std::string name = folder / file;
        EXPECT_FALSE(os_file_exists(name.c_str())) << file;
        std::string text(70000, 'x');
        text += file;
        u64 before = os_get_file_time();
        write_file(name, text);
        EXPECT_EQ(read_file(name), text) << file;
        EXPECT_TRUE(os_file_exists(name.c_str()));
        EXPECT_FALSE(os_folder_exists(name.c_str()));
        os_file_info_t info;
        EXPECT_TRUE(os_get_file_info(name.c_str(), &info));
        EXPECT_EQ(info.size, text.size());
        EXPECT_LT(info.date_modified - before + 50000000, 200000000u) << file; // within seconds
        EXPECT_TRUE(os_delete_file(name.c_str()));
        EXPECT_FALSE(os_file_exists(name.c_str()));
    }
}

TEST(os_file, absent_file) {
    temp_folder_t folder;
    log_capture_t log;
    EXPECT_EQ(os_open_read((folder / "absent").c_str(), false), PLATFORM_FILE_NONE);
    EXPECT_TRUE(os_error_is_not_found(os_get_last_error()));
    EXPECT_EQ(log.take(), ""); // is no failure worth a line
    char text[256];
    os_error_text(os_get_last_error(), text, sizeof(text));
    EXPECT_GT(std::strlen(text), 5u);
    os_file_info_t info;
    EXPECT_FALSE(os_get_file_info((folder / "absent").c_str(), &info));
    EXPECT_EQ(info.size, VALUE_UNKNOWN);
    EXPECT_EQ(info.date_modified, VALUE_UNKNOWN);
    EXPECT_FALSE(os_delete_file((folder / "absent").c_str()));
}

TEST(os_file, folder_is_no_file) {
    temp_folder_t folder;
    log_capture_t log;
    EXPECT_EQ(os_open_read(folder.name.c_str(), false), PLATFORM_FILE_NONE);
    u32 error = os_get_last_error();
    std::string expected =
        "CreateFileW(): " + std::to_string(error) + ": Failed to open file " + folder.name + "\n";
    EXPECT_EQ(log.take(), expected);
    EXPECT_FALSE(os_file_exists(folder.name.c_str()));
    EXPECT_TRUE(os_folder_exists(folder.name.c_str()));
}

TEST(os_file, dispositions) {
    struct {
        os_disposition_t disposition;
        bool exists;
        bool opens;
        const char *after; // one byte, "B", is written at the start
    } cases[] = {
        {OS_OPEN_EXISTING, true, true, "Bld"}, {OS_OPEN_EXISTING, false, false, "(none)"},
        {OS_OPEN_ALWAYS, true, true, "Bld"},   {OS_OPEN_ALWAYS, false, true, "B"},
        {OS_CREATE_ALWAYS, true, true, "B"},   {OS_CREATE_ALWAYS, false, true, "B"},
        {OS_CREATE_NEW, true, false, "old"},   {OS_CREATE_NEW, false, true, "B"},
    };
    for (const auto &entry : cases) {
        temp_folder_t folder;
        std::string name = folder / "f";
        if (entry.exists)
            write_file(name, "old");
        platform_file_t file = os_open(name.c_str(), OS_OPEN_READ | OS_OPEN_WRITE, 0, entry.disposition, 0);
        EXPECT_EQ(file != PLATFORM_FILE_NONE, entry.opens) << entry.disposition << entry.exists;
        if (file != PLATFORM_FILE_NONE) {
            EXPECT_TRUE(os_write(file, "B", 1));
            os_close(file);
        }
        EXPECT_EQ(read_file(name), entry.after) << entry.disposition << entry.exists;
    }
}

TEST(os_file, move) {
    struct {
        bool target_exists;
        bool replace;
        bool moves;
    } cases[] = {{false, false, true}, {false, true, true}, {true, true, true}, {true, false, false}};
    for (const auto &entry : cases) {
        temp_folder_t folder;
        log_capture_t log;
        std::string from = folder / "von \xC3\xA4";
        std::string to = folder / "nach \xC3\xB6";
        write_file(from, "new");
        if (entry.target_exists)
            write_file(to, "old");
        EXPECT_EQ(os_move_replace(from.c_str(), to.c_str(), entry.replace, false), entry.moves);
        u32 error = os_get_last_error();
        EXPECT_EQ(read_file(to), entry.moves ? "new" : "old");
        EXPECT_EQ(os_file_exists(from.c_str()), !entry.moves);
        EXPECT_EQ(log.take(), entry.moves ? ""
                                          : "MoveFileExW(): GetLastError(): " + std::to_string(error) +
                                                ": Failed to move file from " + from + " to " + to + "\n");
    }
    temp_folder_t folder;
    ASSERT_TRUE(os_create_folder((folder / "a").c_str()));
    write_file(folder / "a\\f", "x");
    EXPECT_TRUE(os_move_replace((folder / "a").c_str(), (folder / "b").c_str(), false, true));
    EXPECT_EQ(read_file(folder / "b\\f"), "x");
}

TEST(os_file, replace_puts_the_finished_file_in_place) {
    temp_folder_t folder;
    std::string target = folder / "settings.ini";
    utf8_buf_t temp;
    utf8_buf_init(&temp);
    os_get_temp_name(target.c_str(), &temp);
    EXPECT_EQ(temp.data, target + ".tmp");
    for (const char *text : {"first", "second"}) {
        write_file(temp.data, text);
        EXPECT_TRUE(os_replace_file(temp.data, target.c_str()));
        EXPECT_EQ(read_file(target), text);
        EXPECT_FALSE(os_file_exists(temp.data));
    }
    EXPECT_FALSE(os_replace_file(temp.data, target.c_str()));
    EXPECT_EQ(read_file(target), "second");
    utf8_buf_kill(&temp);
}

TEST(os_file, make_folders) {
    temp_folder_t folder;
    write_file(folder / "file", "");
    struct {
        std::string name;
        bool made;
        std::string last; // the folder that is there then
    } cases[] = {
        {folder / "f", true, folder.name},
        {folder / "one\\f", true, folder / "one"},
        {folder / "one\\two\\\xC3\xBC\\four\\f", true, folder / "one\\two\\\xC3\xBC\\four"},
        {folder / "one/slash/f", true, folder / "one\\slash"},
        {folder / "x\\y\\", true, folder / "x\\y"},
        {folder / "file\\below\\f", false, folder.name},
        {"relative", true, folder.name},
    };
    for (const auto &entry : cases) {
        EXPECT_EQ(os_make_folders_for(entry.name.c_str()), entry.made) << entry.name;
        EXPECT_TRUE(os_folder_exists(entry.last.c_str())) << entry.last;
        EXPECT_FALSE(os_file_exists(entry.name.c_str())) << entry.name;
    }
    EXPECT_FALSE(os_delete_folder((folder / "one").c_str())); // not empty
    EXPECT_TRUE(os_delete_folder((folder / "one\\slash").c_str()));
}

// Through the table that the modules below use.
TEST(os_file, platform_table) {
    temp_folder_t folder;
    std::string name = folder / "t";
    platform_file_t file = platform.file_create(name.c_str());
    ASSERT_NE(file, PLATFORM_FILE_NONE);
    EXPECT_TRUE(platform.file_write(file, "abc", 3));
    platform.file_close(file);
    file = platform.file_open_read(name.c_str(), true);
    char bytes[8];
    EXPECT_EQ(platform.file_read(file, bytes, 8), 3);
    EXPECT_EQ(platform.file_read(file, bytes, 8), 0);
    platform.file_close(file);
    EXPECT_EQ(platform.file_open_read((folder / "absent").c_str(), false), PLATFORM_FILE_NONE);
    EXPECT_TRUE(os_error_is_not_found(platform.last_error()));

    for (auto *path : {platform.exe_path, platform.app_data_path, platform.local_app_data_path,
                       platform.current_directory}) {
        char text[2048];
        ASSERT_TRUE(path(text, sizeof(text)));
        size_t length = std::strlen(text);
        EXPECT_TRUE(std::strchr(text, '\\') && !std::strchr(text, '/') && text[length - 1] != '\\') << text;
        char small[2] = "x";
        EXPECT_FALSE(path(small, sizeof(small)));
        EXPECT_STREQ(small, "");
    }
    char exe[2048];
    platform.exe_path(exe, sizeof(exe));
    EXPECT_TRUE(os_folder_exists(exe)) << exe;

    auto *range = static_cast<char *>(platform.reserve(1 << 20));
    ASSERT_TRUE(range && platform.commit(range + 65536, 65536));
    std::memset(range + 65536, 1, 65536);
    platform.decommit(range + 65536, 65536);
    ASSERT_TRUE(platform.commit(range + 65536, 65536));
    EXPECT_EQ(range[65536], 0);
    platform.unreserve(range, 1 << 20);
}

TEST(os_file, platform_text) {
    const char16_t text[] = u"a1 Zz"; // the same in any code page
    char bytes[8] = "#######";
    EXPECT_EQ(platform.ansi_from_wchar(nullptr, 0, text, 5), 5u);
    EXPECT_EQ(platform.ansi_from_wchar(bytes, 2, text, 5), 5u);
    EXPECT_STREQ(bytes, "a1#####");
    EXPECT_EQ(platform.ansi_from_wchar(bytes, 8, text, 5), 5u);
    EXPECT_EQ(std::memcmp(bytes, "a1 Zz##", 7), 0);
    char16_t units[8] = u"#######";
    EXPECT_EQ(platform.wchar_from_ansi(units, 3, "a1 Zz", 5), 5u);
    EXPECT_EQ(std::u16string(units), u"a1 ####");
    EXPECT_EQ(platform.wchar_from_ansi(units, 8, "a1 Zz", 5), 5u);
    EXPECT_EQ(std::u16string(units), u"a1 Zz##");

    char number[64];
    for (i64 value : {i64(0), i64(-7), i64(1234567), INT64_MIN}) {
        u32 length = platform.format_number(number, sizeof(number), value);
        EXPECT_EQ(length, std::strlen(number));
        std::string digits;
        for (char c : std::string(number))
            if ((c >= '0' && c <= '9') || c == '-')
                digits += c;
        EXPECT_EQ(digits, std::to_string(value));
    }
    EXPECT_EQ(platform.format_number(number, 3, 1234567), 2u);
    EXPECT_GT(platform.decimal_separator(number, sizeof(number)), 0u);
}

TEST(os_file, arguments) {
    const char *argv[] = {"test", nullptr};
    const char *const *arguments;
    u32 count = os_get_arguments(1, const_cast<char **>(argv), &arguments);
    ASSERT_GE(count, 1u);
    EXPECT_GT(std::strlen(arguments[0]), 0u);
    utf8_buf_t line;
    utf8_buf_init(&line);
    os_get_command_line(&line);
    EXPECT_NE(std::string(line.data).find("os_tests"), std::string::npos) << line.data;
    utf8_buf_kill(&line);
}

} // namespace
