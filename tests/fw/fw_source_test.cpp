// The console client over lists, folders, settings and databases as findwright keeps them.
#include "fw/fw_test_support.h"

namespace findwright {
namespace {

constexpr u32 ALL_COLUMNS = DB_FLAG_SIZE | DB_FLAG_DATE_MODIFIED | DB_FLAG_FAST_SIZE | DB_FLAG_FAST_PATH;

TEST_F(fw_sources, AllKindsAtOnceInAFixedOrder) {
    int sum = 0;
    std::vector<std::string> all;
    for (std::vector<std::string> source :
         std::vector<std::vector<std::string>>{{"--folder", at("tree")},
                                               {"--file-list", at("twin.csv")},
                                               {"--file-list", at("list.fwl")},
                                               {"--ntfs", sample().name}}) {
        all.insert(all.end(), source.begin(), source.end());
        source.push_back("--count");
        sum += std::stoi(run(source).output);
    }
    auto with = [&all](std::vector<std::string> more) {
        more.insert(more.begin(), all.begin(), all.end());
        return run(more).output;
    };
    EXPECT_EQ(std::to_string(sum) + "\n", with({"--count"}));
    // The columns are those of every source. Of two items of one path that of the list comes first, wherever
    // the options stand.
    EXPECT_EQ("name,size,type\n\"alpha lake.jpg\",77,file\n\"alpha.txt\",999,file\n\"alpha.txt\",5,file\n",
              with({"--csv", "--columns", "name,size", "--files", "alpha"}));
    EXPECT_EQ("alpha.txt\nalpha lake.jpg\nalpha.txt\n",
              with({"--columns", "name", "--sort", "size", "--files", "alpha"}));
}

TEST_F(fw_sources, PathsOfArgumentsAreCleaned) {
    std::string expected = at("tree/sub/beta.txt") + "\n";
    for (const char *name : {"tree", "tree/", "./tree/sub/../", "state/../tree"})
        EXPECT_EQ(expected, run({"--folder", (folder.path / name).string(), "beta"}).output) << name;
    std::filesystem::path before = std::filesystem::current_path();
    std::filesystem::current_path(folder.path);
    EXPECT_EQ(expected, run({"--folder", "tree", "beta"}).output);
    EXPECT_EQ(expected, run({"--folder", ".", "beta"}).output);
    EXPECT_EQ("s.txt\n", run({"--file-list", "list.fwl", "--columns", "name", "s.txt"}).output);
    std::filesystem::current_path(before);
}

TEST_F(fw_sources, WhatASearchForAPathFinds) {
    const struct {
        std::string text;
        std::vector<std::string> found;
    } cases[] = {
        {at("tree/al"), {"alpha.txt"}},
        {at("tree/sub/deep"), {"deep", "gamma.pdf"}},
        {at("sub/").substr(at("").size()), {"deep", "sub", "beta.txt", "gamma.pdf"}},
        {at("tree/*.pdf"), {"gamma.pdf"}},
        {at("tree/nothing"), {}},
    };
    for (const auto &c : cases) {
        std::string expected;
        for (const std::string &name : c.found)
            expected += name + "\n";
        EXPECT_EQ(expected, run({"--folder", at("tree"), "--columns", "name", c.text}).output) << c.text;
    }
}

TEST_F(fw_sources, WhatCannotBeReadIsNamed) {
    put("bare.ini", "nothing=1\n");
    put("empty.ini", settings(""));
    put("gone.ini",
        settings("folders=" + quoted("gone") + "\r\nfilelists=" + quoted("headless.csv") + "\r\n"));
    put("empty.db", "");
    put("text.db", "no database\n");
    put("old.db", std::string("FWDb\1\2\3\4", 8));
    put("bzip2.db", unpack("sample.ntfs.bz2").substr(0, 100));
    std::filesystem::copy_file(std::string(FINDWRIGHT_TEST_DATA) + "/sample.ntfs.bz2",
                               folder.path / "volume.bz2");
    for (bool compress : {false, true}) {
        std::string name = compress ? "cut compressed.db" : "cut.db";
        save(name, ALL_COLUMNS, compress);
        std::filesystem::resize_file(folder.path / name, std::filesystem::file_size(folder.path / name) / 2);
    }
    const struct {
        const char *option, *name;
        std::string error;
    } cases[] = {
        {"--folder", "gone", "cannot read the folder " + at("gone") + ": "},
        {"--folder", "tree/alpha.txt", "it is a file, not a folder"},
        {"--file-list", "gone.fwl", "cannot read the file list " + at("gone.fwl") + ": "},
        {"--file-list", "tree", "it is a folder, not a file list"},
        {"--file-list", "empty.db", "it is empty"},
        {"--file-list", "headless.csv", "it has no column Filename"},
        {"--config", "gone.ini.bak", "cannot read the settings " + at("gone.ini.bak") + ": "},
        {"--config", "bare.ini", "it has no section [Findwright]"},
        {"--config", "empty.ini", "there is nothing to search: name a source with --folder DIR"},
        {"--config", "gone.ini", at("headless.csv") + ": it has no column Filename"},
        {"--db", "gone.db", "cannot load the database " + at("gone.db") + ": "},
        {"--db", "tree", "it is a folder"},
        {"--db", "empty.db", "it is no database of Findwright"},
        {"--db", "text.db", "it is no database of Findwright"},
        {"--db", "volume.bz2", "it is no database of Findwright"},
        {"--db", "old.db", "it was written by another version"},
        {"--db", "cut.db", ": it is damaged"},
        {"--db", "cut compressed.db", ": it is damaged"},
    };
    for (const auto &c : cases)
        expect_error(run({c.option, at(c.name)}), c.error);
    for (const char *option : {"--folder", "--file-list", "--ntfs", "--db", "--config"})
        expect_error(run({option, "", "x"}), std::string(option) + ": a name is missing");
    expect_error(run({"--db", at("cut.db"), "--folder", at("tree")}), "excludes");
}

TEST_F(fw_sources, ADatabaseGivesWhatItsSourcesDo) {
    const std::vector<std::string> listing = {"--csv", "--columns", "full,size,dm", "--sort",
                                              "size-descending"};
    auto list = [&listing](std::vector<std::string> arguments) {
        arguments.insert(arguments.end(), listing.begin(), listing.end());
        return run(arguments);
    };
    std::string expected = list({"--folder", at("tree")}).output;
    for (bool compress : {false, true}) {
        save("saved.db", ALL_COLUMNS, compress);
        std::string before = snapshot();
        run_t result = list({"--db", at("saved.db")});
        EXPECT_EQ(expected, result.output);
        EXPECT_EQ("", result.error);
        EXPECT_EQ(before, snapshot());
    }
    std::string stats = run({"--db", at("saved.db"), "--stats", "--count"}).error;
    EXPECT_NE(std::string::npos, stats.find("\nload 0.")) << stats;
    EXPECT_EQ(std::string::npos, stats.find("sort")) << stats;
}

TEST_F(fw_sources, SettingsOfAFile) {
    const std::string sources = "folders=" + quoted("tree") + "\r\nfilelists=" + quoted("list.fwl") + "," +
                                quoted("gone.fwl") + "\r\nexclude_folders=" + quoted("tree/skipped") + "\r\n";
    put("plain.ini", settings(sources));
    put("strict.ini", settings(sources + "match_case=1\r\n"));
    put("instance.ini", settings(sources + "instance_name=second\r\n"));
    std::string before = snapshot();
    const struct {
        const char *settings;
        std::vector<std::string> arguments;
        const char *names;
    } cases[] = {
        {"plain.ini", {"ALPHA"}, "alpha lake.jpg\nalpha.txt\n"},
        {"plain.ini", {"delta"}, ""},
        {"plain.ini",
         {"--folder", at("tree"), "alpha|delta"},
         "alpha.txt\n"}, // the exclusions, not the sources
        {"strict.ini", {"ALPHA"}, ""},
        {"strict.ini", {"alpha"}, "alpha lake.jpg\nalpha.txt\n"},
        {nullptr,
         {"--folder", at("tree"), "ALPHA|DELTA"},
         "alpha.txt\ndelta.txt\n"}, // nothing of them is left
        {"instance.ini", {"alpha"}, "alpha lake.jpg\nalpha.txt\n"},
    };
    auto search = [this](const char *settings, std::vector<std::string> arguments) {
        if (settings)
            arguments.insert(arguments.begin(), {"--config", at(settings)});
        arguments.insert(arguments.begin(), {"--columns", "name"});
        return run(arguments);
    };
    for (const auto &c : cases) {
        run_t result = search(c.settings, c.arguments);
        EXPECT_EQ(c.names, result.output) << c.settings;
        bool warned = c.settings && c.arguments.size() == 1;
        EXPECT_EQ(warned, result.error.find("fw: cannot read the file list " + at("gone.fwl")) == 0)
            << result.error;
    }
    EXPECT_EQ(before, snapshot());

    // Once there is a database it is searched, as it was saved.
    save("state/Findwright.db", ALL_COLUMNS, false);
    std::filesystem::remove(folder.path / "tree/alpha.txt");
    save("state/Findwright-second.db", ALL_COLUMNS, true);
    EXPECT_EQ("alpha.txt\ndelta.txt\n", search("plain.ini", {"alpha|delta"}).output);
    EXPECT_EQ("delta.txt\n", search("instance.ini", {"alpha|delta"}).output);
    EXPECT_EQ("delta.txt\n",
              search("plain.ini", {"--db", at("state/Findwright-second.db"), "alpha|delta"}).output);
    put("state/Findwright.db", "FWDb");
    expect_error(search("plain.ini", {"alpha"}), at("state/Findwright.db") + ": it is damaged");
}

} // namespace
} // namespace findwright
