// Orders and columns of the console client: over an index that holds them, and over databases that do not.
#include "base/utf8.h"
#include "fw/fw_output.h"
#include "fw/fw_test_support.h"
#include "track/db_recent_change.h"
#include "track/db_run_history.h"

#include <utime.h>

namespace findwright {
namespace {

std::vector<std::string> split(const std::string &text, char separator) {
    std::vector<std::string> parts;
    size_t start = 0;
    for (size_t end; (end = text.find(separator, start)) != text.npos; start = end + 1)
        parts.push_back(text.substr(start, end - start));
    if (start != text.size())
        parts.push_back(text.substr(start));
    return parts;
}

std::string join(const std::vector<std::string> &parts) {
    std::string text;
    for (const std::string &part : parts)
        text += part + "\n";
    return text;
}

// A database that lacks all columns, "names.db", and files whose columns differ.
struct fw_rows : fw_sources {
    static constexpr time_t DAY = 86400, START = 1700000000;

    void SetUp() override {
        fw_sources::SetUp();
        set_times("tree/alpha.txt", 2, 3);
        set_times("tree/sub/beta.txt", 3, 1);
        set_times("tree/sub/deep/gamma.pdf", 1, 4);
        set_times("tree/skipped/delta.txt", 4, 2);
        save("names.db", 0, false);
    }
    void set_times(const std::string &name, int modified, int accessed) const {
        utimbuf times = {START + accessed * DAY, START + modified * DAY};
        EXPECT_EQ(0, utime(at(name).c_str(), &times));
    }
    static std::string file_time(int day) {
        return std::to_string(static_cast<u64>(START + day * DAY + 11644473600) * 10000000);
    }
    std::string from(const std::vector<std::string> &source, std::vector<std::string> arguments) const {
        arguments.insert(arguments.begin(), source.begin(), source.end());
        run_t result = run(arguments);
        EXPECT_EQ("", result.error);
        return result.output;
    }
};

TEST_F(fw_rows, EveryOrderBothWays) {
    std::filesystem::permissions(folder.path / "tree/sub/beta.txt", std::filesystem::perms::owner_read);
    const struct {
        const char *order;
        std::vector<std::string> names;
    } cases[] = {
        {"name", {"alpha.txt", "beta.txt", "delta.txt", "gamma.pdf"}},
        {"path", {"alpha.txt", "delta.txt", "beta.txt", "gamma.pdf"}},
        {"size", {"delta.txt", "beta.txt", "gamma.pdf", "alpha.txt"}},
        {"extension", {"gamma.pdf", "alpha.txt", "beta.txt", "delta.txt"}},
        {"date-modified", {"gamma.pdf", "alpha.txt", "beta.txt", "delta.txt"}},
        {"date-accessed", {"beta.txt", "delta.txt", "alpha.txt", "gamma.pdf"}},
        {"attributes", {"alpha.txt", "delta.txt", "gamma.pdf", "beta.txt"}}, // "N" or "A", "R..."
        {"file-list-filename", {"alpha.txt", "beta.txt", "delta.txt", "gamma.pdf"}},
        // Nothing was run, and nothing seen to change; these orders begin with what is largest.
        {"run-count", {"gamma.pdf", "delta.txt", "beta.txt", "alpha.txt"}},
        {"date-run", {"gamma.pdf", "delta.txt", "beta.txt", "alpha.txt"}},
        {"date-recently-changed", {"gamma.pdf", "delta.txt", "beta.txt", "alpha.txt"}},
    };
    for (const auto &source :
         std::vector<std::vector<std::string>>{{"--folder", at("tree")}, {"--db", at("names.db")}}) {
        for (const auto &c : cases) {
            std::string order = c.order;
            auto print = [&](const std::string &sort) {
                return split(from(source, {"--files", "--columns", "name", "--sort", sort}), '\n');
            };
            EXPECT_EQ(c.names, print(order)) << source[0] << " " << order;
            EXPECT_EQ(c.names, print(order + "-ascending")) << source[0] << " " << order;
            std::vector<std::string> reversed(c.names.rbegin(), c.names.rend());
            EXPECT_EQ(reversed, print(order + "-descending")) << source[0] << " " << order;
        }
    }
    // Days of creation cannot be set, and types are the system's: they are what is printed.
    for (const char *order : {"date-created", "type"}) {
        std::vector<std::string> rows = split(
            from({"--folder", at("tree")}, {"--files", "--csv", "--columns", order + std::string(",name")}),
            '\n');
        std::stable_sort(rows.begin() + 1, rows.end(), [](const std::string &a, const std::string &b) {
            u32 length = static_cast<u32>(a.find(',')), other = static_cast<u32>(b.find(','));
            return utf8_compare_fold(a.data(), length, b.data(), other) < 0;
        });
        EXPECT_EQ(join(rows),
                  from({"--db", at("names.db")},
                       {"--files", "--csv", "--columns", order + std::string(",name"), "--sort", order}));
    }
}

// An image's files are not to be had from the file system: what an order needs was read with the names.
TEST(Fw, OrdersOfAVolumeAreReadWithIt) {
    for (const char *order : {"size", "date-created", "date-modified", "date-accessed", "attributes"}) {
        std::string sort = std::string(order) + "-descending";
        std::vector<std::string> rows =
            split(run_sample({"--files", "--csv", "--columns", std::string(order) + ",name", "--sort", sort})
                      .output,
                  '\n');
        ASSERT_LT(100u, rows.size());
        EXPECT_EQ(std::string::npos, rows[1].find(",,")) << order;
        EXPECT_NE(rows[1].substr(0, rows[1].find(',')), rows.back().substr(0, rows.back().find(',')))
            << order;
        std::string names = run_sample({"--files", "--csv", "--columns", "name", "--sort", sort}).output;
        for (std::string &row : rows)
            row.erase(0, row.find(',') + 1);
        EXPECT_EQ(join(rows), names) << order;
    }
}

TEST_F(fw_rows, WhatADatabaseLacksIsReadFromTheFiles) {
    db_wanted_t wanted;
    db_wanted_init(&wanted);
    db_wanted_add_file_list(&wanted, (folder / "twin.csv").c_str(), false);
    db_wanted_add_folder(&wanted, (folder / "tree").c_str());
    save("names.db", &wanted, 0, false);
    save("sizes.db", DB_FLAG_SIZE, false);
    std::filesystem::remove(folder.path / "tree/skipped/delta.txt");
    put("tree/alpha.txt", "123456789");
    set_times("tree/alpha.txt", 7, 8);

    const std::string letters =
        split(from({"--folder", at("tree")}, {"--csv", "--columns", "attributes", "gamma"}), '\n')[1].substr(
            0, 3);
    const std::string alpha = "9," + file_time(7) + "," + file_time(8) + ",";
    auto print = [&](const char *database) {
        return from({"--db", at(database)},
                    {"--csv", "--columns", "name,size,dm,da,attributes", "--files", "!beta"});
    };
    // The first alpha.txt is of the list: there is no such file to read.
    EXPECT_EQ("name,size,dm,da,attributes,type\n"
              "\"alpha.txt\",,,,,file\n"
              "\"alpha.txt\"," +
                  alpha + letters +
                  ",file\n"
                  "\"delta.txt\",,,,,file\n"
                  "\"gamma.pdf\",3," +
                  file_time(1) + "," + file_time(4) + "," + letters + ",file\n",
              print("names.db"));
    // What the database holds is as it was saved.
    EXPECT_EQ("name,size,dm,da,attributes,type\n"
              "\"alpha.txt\",5" +
                  alpha.substr(1) + letters +
                  ",file\n"
                  "\"delta.txt\",0,,,,file\n"
                  "\"gamma.pdf\",3," +
                  file_time(1) + "," + file_time(4) + "," + letters + ",file\n",
              print("sizes.db"));
    EXPECT_EQ("[\n{\"size\":null,\"dm\":null,\"attributes\":null,\"type\":\"file\"}\n]\n",
              from({"--db", at("names.db"), "--json", "--columns", "size,dm,attributes"}, {"delta"}));
    // A folder has no size unless it is indexed; all else is read.
    std::string sub = from({"--db", at("names.db"), "--csv", "--columns", "size,dc,attributes"}, {"wfn:sub"});
    EXPECT_EQ(from({"--folder", at("tree"), "--csv", "--columns", "size,dc,attributes"}, {"wfn:sub"}), sub);
    EXPECT_EQ("size,dc,attributes,type\n,1", sub.substr(0, 26));
}

TEST_F(fw_rows, ManyAreReadInParts) {
    std::string expected = "size,name,type\n";
    for (int i = 1000; i < 2300; i++) {
        std::string name = "many" + std::to_string(i), size = std::to_string(i % 17);
        put("tree/" + name, std::string(static_cast<size_t>(i % 17), 'x'));
        expected += size + ",\"" + name + "\",file\n";
    }
    put("tree/many9", std::string(12345, 'x')); // the last one, and the widest
    expected += "12345,\"many9\",file\n";
    save("names.db", 0, false);
    const std::vector<std::string> source = {"--db", at("names.db"), "many", "--columns", "size,name"};
    EXPECT_TRUE(expected == from(source, {"--csv"}));
    std::string text;
    for (const std::string &row : split(expected.substr(expected.find('\n') + 1), '\n')) {
        std::vector<std::string> fields = split(row, ',');
        text += std::string(5 - fields[0].size(), ' ') + fields[0] + "  " +
                fields[1].substr(1, fields[1].size() - 2) + "\n";
    }
    EXPECT_TRUE(text == from(source, {}));
    EXPECT_EQ("9  many1777\n", from(source, {"--offset", "777", "-n", "1", "--threads", "1"}));
    // A terminal is told how far it is, on a line that goes before the results stand there.
    std::vector<std::string> arguments = source;
    arguments.insert(arguments.end(), {"--color", "never"});
    run_t result = run(arguments, ~static_cast<size_t>(0), true);
    EXPECT_TRUE(text == result.output);
    EXPECT_NE(std::string::npos, result.error.find("\rReading columns... 39%\x1b[K")) << result.error;
    EXPECT_TRUE(result.error.ends_with("\r\x1b[K"));
}

TEST_F(fw_rows, TextsInAllForms) {
    put("kinds.csv", "Filename\nD:\\a.zzq\nD:\\b.c\\noext\n");
    const std::string list = at("kinds.csv"), quoted = this->quoted("kinds.csv");
    const std::vector<std::string> source = {"--folder", at("tree"), "--file-list", list, "--columns"};
    const struct {
        std::vector<std::string> arguments;
        std::string output;
    } cases[] = {
        {{"extension,file-list,name", "--json", "a.zzq|gamma"},
         "[\n{\"extension\":\"zzq\",\"file-list\":" + quoted +
             ",\"name\":\"a.zzq\",\"type\":\"file\"},\n"
             "{\"extension\":\"pdf\",\"file-list\":null,\"name\":\"gamma.pdf\",\"type\":\"file\"}\n]\n"},
        {{"extension,file-list-filename", "--csv", "b.c|wfn:noext|gamma"},
         "extension,file-list,type\n\"\",\"" + list + "\",folder\n\"pdf\",,file\n\"\",\"" + list +
             "\",file\n"},
        // The first column that is text.
        {{"size,dm,extension,name", "-0", "gamma|wfn:noext"}, std::string("pdf\0\0", 5)},
        {{"size,dm", "-0", "wfn:noext"}, std::string("D:\\b.c\\noext\0", 13)},
    };
    for (const auto &c : cases)
        EXPECT_EQ(c.output, from(source, c.arguments)) << testing::PrintToString(c.arguments);
    // Columns of text are as wide as the widest cell, up to a bound.
    std::vector<std::string> lines = split(from(source, {"extension,name,size", "a.zzq|gamma"}), '\n');
    EXPECT_EQ((std::vector<std::string>{"zzq  a.zzq       ", "pdf  gamma.pdf  3"}), lines);
    // A type is called what the system calls it, and "type" tells files from folders.
    std::string types = from(source, {"type,name", "--json", "--sort", "name", "wfn:b.c|gamma"});
    EXPECT_EQ(types, from(source, {"type-name,name", "--json", "wfn:b.c|gamma"}));
    EXPECT_EQ(std::string::npos, types.find("\"type-name\":\"\"")) << types;
    for (const char *kind : {"\"b.c\",\"type\":\"folder\"}", "\"gamma.pdf\",\"type\":\"file\"}"})
        EXPECT_NE(std::string::npos, types.find(kind)) << types;
}

// What the tables of a database know, and which rows are read.
TEST_F(fw_rows, RunsAndChanges) {
    db_t *db = db_create();
    db_wanted_t wanted;
    db_wanted_init(&wanted);
    db_wanted_add_folder(&wanted, (folder / "tree").c_str());
    db_rebuild_start(db, &wanted, nullptr);
    db_query_t *query = db_query_create(db, false, nullptr, nullptr);
    auto wait = [&] {
        while (!db_is_ready(db))
            event_wait_and_dispatch(OS_INFINITE);
        event_dispatch();
    };
    wait();
    db_query_params_t params = {};
    params.search = "file:";
    db_query_search(query, &params);
    wait();
    const u64 date = std::stoull(file_time(2));
    db_run_history_set_item(db, db_get_result_item(query, 0), false, 12, date);
    db_run_history_set_item(db, db_get_result_item(query, 1), false, 3, 0);
    db_recent_change_set(db, false, db_get_result_item(query, 0), date);

    std::string output;
    fw_io_t io = {&output,
                  [](void *user_data, int, const void *bytes, u32 size) {
                      static_cast<std::string *>(user_data)->append(static_cast<const char *>(bytes), size);
                      return true;
                  },
                  false, false};
    fw_progress_t progress = {&io, false};
    fw_options_t options;
    auto print = [&](const char *columns, fw_format_t format) {
        options.columns.clear();
        EXPECT_EQ("", fw_column_parse_list(columns, &options.columns));
        options.format = format;
        output.clear();
        EXPECT_TRUE(fw_output_results(&options, query, &io, &progress));
        return output;
    };
    options.max = 3;
    EXPECT_EQ("name,run-count,dr,drc,type\n\"alpha.txt\",12," + file_time(2) + "," + file_time(2) +
                  ",file\n\"beta.txt\",3,,,file\n\"delta.txt\",0,,,file\n",
              print("name,run-count,date-run,date-recently-changed", FW_FORMAT_CSV));
    EXPECT_NE(std::string::npos, print("dr,run-count", FW_FORMAT_JSON).find("{\"dr\":null,\"run-count\":3,"));
    const std::string blank(19, ' ');
    std::string modified = split(print("dm", FW_FORMAT_TEXT), '\n')[0];
    EXPECT_EQ("12  " + modified + "  " + modified + "  alpha.txt\n 3  " + blank + "  " + blank +
                  "  beta.txt\n 0  " + blank + "  " + blank + "  delta.txt\n",
              print("run-count,dr,drc,name", FW_FORMAT_TEXT));

    // Three of four files were read for their date.
    std::filesystem::remove_all(folder.path / "tree");
    options.max = 4;
    std::vector<std::string> dates = split(print("dm", FW_FORMAT_TEXT), '\n');
    EXPECT_EQ((std::vector<size_t>{19, 19, 19, 0}),
              (std::vector<size_t>{dates[0].size(), dates[1].size(), dates[2].size(), dates[3].size()}));
    db_destroy_query(query);
    db_destroy(db);
}

} // namespace
} // namespace findwright
