#include "app/command_line.h"

#include "app/command_line_internal.h"
#include "base/mem.h"
#include "os/os_test_support.h"

#include <gtest/gtest.h>

namespace findwright {
namespace {

constexpr const char *BASE = "C:\\base";

class command_line : public testing::Test {
  protected:
    void TearDown() override {
        free();
        EXPECT_EQ(mem_live_count(), live_count);
    }
    command_line_t *parse(const std::string &text) {
        free();
        parsed = command_line_parse(text.c_str(), BASE, true);
        return parsed;
    }
    void free() {
        if (parsed)
            command_line_free(parsed);
        parsed = nullptr;
    }
    static std::string text(const char *value) { return value ? value : "(none)"; }

    size_t live_count = mem_live_count();
    command_line_t *parsed = nullptr;
};

TEST_F(command_line, flags_and_options) {
    const struct {
        const char *line;
        u32 flags, on, off;
    } cases[] = {
        {"", 0, 0, 0},
        {"-no-db", COMMAND_LINE_NO_DB, 0, 0},
        {"-nodb --read_only -readonly", COMMAND_LINE_NO_DB | COMMAND_LINE_READ_ONLY, 0, 0},
        {"-regex", 0, COMMAND_LINE_OPTION_REGEX, 0},
        {"-no-regex", 0, 0, COMMAND_LINE_OPTION_REGEX},
        {"-regex -noregex -case", 0, COMMAND_LINE_OPTION_CASE, COMMAND_LINE_OPTION_REGEX},
        {"-noregex -regex", 0, COMMAND_LINE_OPTION_REGEX, 0},
        {"-n", 0, COMMAND_LINE_OPTION_NEW_WINDOW, 0},
        {"-no-n -case", COMMAND_LINE_HELP, 0, 0}, // and the parse ends there
        {"-isrunas -is_run_as", COMMAND_LINE_IS_RUN_AS, 0, 0},
        {"-install-url-protocol", 0, COMMAND_LINE_OPTION_URL_PROTOCOL, 0},
        {"-installurlprotocol -uninstallfwlassociation", 0, COMMAND_LINE_OPTION_URL_PROTOCOL,
         COMMAND_LINE_OPTION_FWL_ASSOCIATION},
        {"-url-protocol", COMMAND_LINE_HELP, 0, 0},
        {"-enable-run-as-admin -disable-update-notification", 0, COMMAND_LINE_OPTION_RUN_AS_ADMIN,
         COMMAND_LINE_OPTION_UPDATE_NOTIFICATION},
        {"-run-as-admin", COMMAND_LINE_HELP, 0, 0},
        {"-install-run-as-admin", COMMAND_LINE_HELP, 0, 0},
        {"-Search x", COMMAND_LINE_HELP, 0, 0},
        {"-searc x", COMMAND_LINE_HELP, 0, 0},
        {"-read-onlyx", COMMAND_LINE_HELP, 0, 0},
        {"---help", COMMAND_LINE_HELP, 0, 0},
        {"-", COMMAND_LINE_HELP, 0, 0},
        {"-? -verbose", COMMAND_LINE_HELP, COMMAND_LINE_OPTION_VERBOSE, 0},
        {"-thumbnails -details", COMMAND_LINE_DETAILS, 0, 0},
        {"-s", COMMAND_LINE_HELP, 0, 0},
    };
    for (const auto &row : cases) {
        parse(row.line);
        EXPECT_EQ(parsed->flags, row.flags) << row.line;
        EXPECT_EQ(parsed->on, row.on) << row.line;
        EXPECT_EQ(parsed->off, row.off) << row.line;
    }
}

TEST_F(command_line, texts) {
    char *command_line_t::*const search = &command_line_t::search;
    char *command_line_t::*const file_list = &command_line_t::file_list;
    const struct {
        const char *line;
        char *command_line_t::*field;
        const char *expected;
    } cases[] = {
        {"--search foo", search, "foo"},
        {"-s a -s b", search, "b"},
        {"-s \"a  b\"c\t-case", search, "a  bc"},
        {"-s \"\"\"x\"\"\"", search, "\"x\""},
        {"-s \"\"", search, ""},
        {"-s \"never closed -case", search, "never closed -case"},
        {"-s -case", search, "-case"},
        {"-url fw:%41b%4g%", search, "Ab%4g%"},
        {"-url \"a%20b\"", search, "a b"},
        {"-path sub", search, "\"C:\\base\\sub\\\""},
        {"-p D:\\", search, "\"D:\\\""},
        {"-parent-path D:\\a\\b\\", search, "\"D:\\a\\\""},
        {"-parent-path D:", search, ""},
        {"-filename \"D:\\no such folder\\a b\"", search, "\"D:\\no such folder\\a b\""},
        {"-path ::{20D04FE0-3AEA-1069-A2D8-08002B30309D}", search, ""},
        {"-parent ::{20D04FE0-3AEA-1069-A2D8-08002B30309D}", search, "parent:"},
        {"-parent D:\\a", search, "parent:\"D:\\a\""},
        {"-path D:\\a\"\"\"b", search, "\"D:\\a\"quot:\"b\\\""},
        {"\"-search\"", file_list, "C:\\base\\-search"},
        {"-sea\"rch\"", file_list, "C:\\base\\-search"},
        {"sub\\..\\a.fwl", file_list, "C:\\base\\a.fwl"},
        {"-f a -local", file_list, nullptr},
        {"-local -f a", file_list, "C:\\base\\a"},
        {"-f a -connect host", file_list, nullptr},
        {"-connect host -f a", &command_line_t::connect, nullptr},
        {"-connect host", &command_line_t::connect, "host"},
        {"-config x.ini", &command_line_t::config, "C:\\base\\x.ini"},
        {"-db /x.db", &command_line_t::db, "C:\\x.db"},
        {"-instance \"a b\"", &command_line_t::instance, "a b"},
        {"-create-file-list out.fwl dir", &command_line_t::create_file_list_file, "C:\\base\\out.fwl"},
        {"-create-file-list out.fwl dir", &command_line_t::create_file_list_folder, "C:\\base\\dir"},
        {"-installoptions -admin", &command_line_t::install_options, "-admin"},
        {"-uninstall", &command_line_t::install, nullptr},
    };
    for (const auto &row : cases) {
        parse(row.line);
        EXPECT_EQ(text(parsed->*row.field), text(row.expected)) << row.line;
        EXPECT_EQ(parsed->flags & COMMAND_LINE_HELP, 0u) << row.line;
    }
    utf8_buf_t program;
    utf8_buf_init(&program);
    utf8_buf_get_exe_path(&program);
    EXPECT_EQ(text(parsed->uninstall), program.data);
    utf8_buf_kill(&program);
    EXPECT_TRUE(parse("-path a")->search_is_path);
    EXPECT_FALSE(parse("-path a -s b")->search_is_path);
}

TEST_F(command_line, numbers_and_orders) {
    parse("-language 1031 -load-delay 0x10 -linktype 3 -thumbnail-size 64 -start_service "
          "-uninstallclientservice");
    EXPECT_EQ(parsed->language, 1031u);
    EXPECT_EQ(parsed->load_delay, 16u);
    EXPECT_EQ(parsed->link_type, 3u);
    EXPECT_EQ(parsed->thumbnail_size, 64u);
    EXPECT_EQ(parsed->service_action, COMMAND_LINE_SERVICE_START);
    EXPECT_EQ(parsed->client_service_action, COMMAND_LINE_SERVICE_UNINSTALL);
    const struct {
        const char *line;
        i32 sort, direction;
    } cases[] = {
        {"", -1, 0},
        {"-sort name-descending", 0, -1},
        {"-sort Size-ascending", 4, 1},
        {"-sort date-modifiedascending", 12, 1},
        {"-sort no-such-column", 0, 0},
        {"-sort path -sort-descending", 2, -1},
        {"-sort \"\"", 0, 0},
    };
    for (const auto &row : cases) {
        parse(row.line);
        EXPECT_EQ(parsed->sort, row.sort) << row.line;
        EXPECT_EQ(parsed->sort_direction, row.direction) << row.line;
        EXPECT_EQ(parsed->link_type, 1u);
    }
}

TEST_F(command_line, actions_on_volumes_in_order) {
    parse("-create-usn-journal C: 0x100000000 4096 -delete-usn-journal D: -create-usn-journal E: 1 2");
    ASSERT_EQ(parsed->volume_action_count, 3u);
    EXPECT_STREQ(parsed->volume_actions[0].volume, "C:");
    EXPECT_EQ(parsed->volume_actions[0].max_size, 0x100000000u);
    EXPECT_EQ(parsed->volume_actions[0].allocation_delta, 4096u);
    EXPECT_EQ(parsed->volume_actions[1].type, COMMAND_LINE_VOLUME_DELETE_JOURNAL);
    EXPECT_STREQ(parsed->volume_actions[1].volume, "D:");
    EXPECT_STREQ(parsed->volume_actions[2].volume, "E:");
}

TEST_F(command_line, log_of_what_is_wrong) {
    log_capture_t log;
    const struct {
        const char *line, *expected;
    } cases[] = {
        {"-case -regexp", "unknown command line switch regexp\n"},
        {"-db", "expected argument for switch\n"},
        {"-create-file-list a", "expected argument for switch\n"},
        {"-create-usn-journal", "expected volume\n"},
        {"-create-usn-journal C:", "expected max-size\n"},
        {"-create-usn-journal C: 1", "expected allocation-delta\n"},
    };
    for (const auto &row : cases) {
        EXPECT_EQ(parse(row.line)->flags, COMMAND_LINE_HELP);
        EXPECT_EQ(log.take(), row.expected);
        EXPECT_EQ(parsed->volume_action_count, 0u);
    }
}

TEST_F(command_line, a_slash_is_a_switch_where_it_is_no_path) {
    free();
    parsed = command_line_parse("prog/ram /s x", "\\home\\u", false);
    EXPECT_EQ(text(parsed->search), os_path_separator == '/' ? "(none)" : "x");
    if (os_path_separator == '/') {
        EXPECT_EQ(text(parsed->file_list), "\\home\\u\\x"); // the last of the two
        free();
        parsed = command_line_parse("/a/../b -db \\c -config d", "\\home\\u", true);
        EXPECT_EQ(text(parsed->file_list), "\\b");
        EXPECT_EQ(text(parsed->db), "\\c");
        EXPECT_EQ(text(parsed->config), "\\home\\u\\d");
    }
}

TEST_F(command_line, names_out_of_a_file) {
    temp_folder_t folder;
    write_file(folder / "names.txt", "one\r\ntwo\r\n");
    free();
    parsed = command_line_parse("-searchfilelist names.txt", folder.name.c_str(), true);
    EXPECT_EQ(text(parsed->search), "filelist:\"one|two\"");
    free();
    parsed = command_line_parse("-filename .", folder.name.c_str(), true);
    EXPECT_EQ(text(parsed->search), "\"" + folder.name + "\\\"");
}

TEST_F(command_line, huge_lines) {
    const std::string megabyte(1 << 20, 'x');
    EXPECT_EQ(text(parse("-s " + megabyte)->search), megabyte);
    EXPECT_EQ(parse("-" + megabyte)->flags, COMMAND_LINE_HELP);
    EXPECT_EQ(text(parse("-s \"" + std::string(1 << 20, '"'))->search).size(), (1u << 20) / 3);
    std::string many;
    for (u32 i = 0; i < 20000; i++)
        many += "-delete-usn-journal C: ";
    EXPECT_EQ(parse(many)->volume_action_count, 20000u);
}

// Words that are put together come out again, whatever is in them.
TEST(command_line_words, come_back) {
    const char *const words[] = {"a",      "",    "a b", "\"",    "\"\"",
                                 "\"\"\"", "a\"", "\"a", "\" \"", "a\tb\"c \"\" d"};
    utf8_buf_t line, word;
    utf8_buf_init(&line);
    utf8_buf_init(&word);
    for (const char *text : words) {
        utf8_buf_cat_byte(&line, ' ');
        command_line_cat_word(&line, text, static_cast<u32>(std::strlen(text)));
    }
    const char *cursor = line.data;
    bool quoted;
    for (const char *text : words) {
        ASSERT_TRUE(_command_line_next_word(&cursor, &word, &quoted));
        EXPECT_STREQ(word.data, text);
    }
    EXPECT_FALSE(_command_line_next_word(&cursor, &word, &quoted));
    // Those of this process: its options have no blanks.
    command_line_get_arguments(&line);
    const std::vector<std::string> options = testing::internal::GetArgvs();
    cursor = line.data;
    for (size_t i = 1; i < options.size(); i++) {
        ASSERT_TRUE(_command_line_next_word(&cursor, &word, &quoted));
        EXPECT_EQ(word.data, options[i]);
    }
    EXPECT_FALSE(_command_line_next_word(&cursor, &word, &quoted));
    utf8_buf_kill(&word);
    utf8_buf_kill(&line);
}

TEST_F(command_line, what_this_build_lacks) {
    utf8_buf_t lacking;
    utf8_buf_init(&lacking);
    command_line_get_lacking(parse("-db a -svc -ww -no-verbose -reindex"), &lacking);
    EXPECT_STREQ(lacking.data, "-svc: needs the privileged service, which this build does not have\n"
                               "-ww: needs search windows, which this build does not have\n");
    command_line_get_lacking(parse("-db a -update -exit -filelist x -language 7"), &lacking);
    EXPECT_STREQ(lacking.data, "");
    utf8_buf_kill(&lacking);
}

// The page is made from the table; this says when it is out of date.
TEST(command_line_page, has_each_switch) {
    utf8_buf_t page, usage;
    utf8_buf_init(&page);
    utf8_buf_init(&usage);
    ASSERT_TRUE(utf8_buf_read_file(&page, FINDWRIGHT_TEST_DATA "/../../docs/switches.md"));
    for (const command_line_switch_t &row : command_line_switches) {
        utf8_buf_printf(&usage, "%s` | %s | %s%s |\n", "", localization_english.strings[row.help],
                        row.works ? "" : localization_english.strings[row.lacks],
                        row.works_on_posix && !row.works ? " (on Windows)" : "");
        EXPECT_NE(std::strstr(page.data, usage.data), nullptr) << row.name;
        EXPECT_NE(std::strstr(page.data, (std::string(row.name)).c_str()), nullptr) << row.name;
    }
    utf8_buf_kill(&usage);
    utf8_buf_kill(&page);
}

} // namespace
} // namespace findwright
