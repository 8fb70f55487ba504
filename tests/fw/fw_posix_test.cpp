// What is of Linux alone in the console client: paths with `/`, and where the user's own settings lie.
#include "fw/fw_path.h"
#include "fw/fw_test_support.h"

#include <optional>

namespace findwright {
namespace {

// The user's own settings are those in the test's folder.
struct fw_posix : fw_sources {
    static constexpr const char *variables[] = {"XDG_CONFIG_HOME", "XDG_DATA_HOME", "XDG_STATE_HOME"};
    std::optional<std::string> values[std::size(variables)];

    void SetUp() override {
        fw_sources::SetUp();
        for (size_t i = 0; i < std::size(variables); i++) {
            if (const char *value = getenv(variables[i]))
                values[i] = value;
            std::string path = at(variables[i]);
            std::filesystem::create_directories(path + "/findwright");
            setenv(variables[i], path.c_str(), 1);
        }
    }
    void TearDown() override {
        for (size_t i = 0; i < std::size(variables); i++)
            values[i] ? setenv(variables[i], values[i]->c_str(), 1) : unsetenv(variables[i]);
    }
};

TEST(FwPath, ForUsers) {
    const struct {
        const char *inside, *outside;
    } cases[] = {
        {"", "/"},
        {"\\", "/"},
        {"\\home\\u", "/home/u"},
        {"\\a\xEF\x81\x9C"
         "b\\c",
         "/a\\b/c"},
        {"C:\\a", "C:\\a"},
        {"C:\\a\xEF\x81\x9C"
         "b",
         "C:\\a\xEF\x81\x9C"
         "b"},
        {"\\\\server\\share", "\\\\server\\share"},
        {"ftp://host/a", "ftp://host/a"},
    };
    for (auto c : cases)
        EXPECT_EQ(c.outside, fw_path_for_user(c.inside));
}

TEST(FwPath, FromUsers) {
    std::string current = std::filesystem::current_path().string();
    std::replace(current.begin(), current.end(), '/', '\\');
    EXPECT_EQ("\\a\\b", fw_path_from_user("///a/./c/../b/"));
    EXPECT_EQ("\\a\xEF\x81\x9C"
              "b",
              fw_path_from_user("/a\\b"));
    EXPECT_EQ(current + "\\x\xEF\x81\x9Cy", fw_path_from_user("x\\y"));
}

TEST_F(fw_posix, PathsHaveSlashes) {
    std::filesystem::create_directories(folder.path / "tree/o\\dd");
    put("tree/o\\dd/na\\me", "");
    const std::string root = at("tree"), odd = root + "/o\\dd";
    std::string escaped = root + "/o\\\\dd";
    const struct {
        std::vector<std::string> arguments;
        std::string output;
    } cases[] = {
        {{"na?me"}, odd + "/na\\me\n"},
        {{"--columns", "path", "na?me"}, odd + "\n"},
        {{"--columns", "name", "na?me"}, "na\\me\n"},
        {{"-0", "na?me"}, odd + "/na\\me" + std::string(1, '\0')},
        {{"--csv", "--columns", "name,path", "na?me"}, "name,path,type\n\"na\\me\",\"" + odd + "\",file\n"},
        {{"--json", "--columns", "full,path", "na?me"},
         "[\n{\"full\":\"" + escaped + "/na\\\\me\",\"path\":\"" + escaped + "\",\"type\":\"file\"}\n]\n"},
        {{"--csv", "--columns", "name,path,full", "-n", "1"},
         "name,path,full,type\n\"" + root + "\",\"\",\"" + root + "\",folder\n"},
        {{"deep/"}, root + "/sub/deep\n" + root + "/sub/deep/gamma.pdf\n"},
    };
    for (const auto &c : cases) {
        std::vector<std::string> arguments = c.arguments;
        arguments.insert(arguments.begin(), {"--folder", root});
        EXPECT_EQ(c.output, run(arguments).output);
    }
    // What comes from elsewhere stays.
    EXPECT_EQ("\\\\server\\share\\s.txt\n", run({"--file-list", at("list.fwl"), "s.txt"}).output);
    EXPECT_EQ("D:\\Photos\n", run({"--file-list", at("list.fwl"), "--columns", "path", "alpha"}).output);
    EXPECT_EQ(at("tree/alpha.txt") + "\n", run({"--file-list", at("twin.csv"), "alpha"}).output);
}

// The root of the file system has an empty name, and names of it begin behind the `/`.
TEST_F(fw_posix, TheRootFolderIsASlash) {
    db_wanted_t wanted;
    db_wanted_init(&wanted);
    db_wanted_add_volume(&wanted, sample().name.c_str(), "", "", "");
    save("root.db", &wanted, 0, false);
    EXPECT_EQ("name,path,full,type\n\"/\",\"\",\"/\",folder\n",
              run({"--db", at("root.db"), "--csv", "--columns", "name,path,full", "-n", "1"}).output);
    EXPECT_EQ("/Documents  /\n",
              run({"--db", at("root.db"), "--columns", "full,path", "wfn:Documents"}).output);
}

TEST_F(fw_posix, ColoursOfATerminal) {
    put("tree/sub/re\\d\x1b[2J\n.txt", "");
    const std::string path = at("tree/sub/re");
    auto print = [&](std::vector<std::string> more) {
        more.insert(more.begin(), {"--folder", at("tree"), "--max", "1"});
        return run(more, ~static_cast<size_t>(0), true).output;
    };
    std::optional<std::string> before;
    if (const char *value = getenv("NO_COLOR"))
        before = value;
    unsetenv("NO_COLOR");
    // A `\` of the name is another character inside, and longer.
    EXPECT_EQ(path + "\\d?[\x1b[1;31m2J\x1b[0m?.txt\n", print({"2J"}));
    EXPECT_EQ(at("tree/su") + "\x1b[1;31mb/r\x1b[0me\\d?[2J?.txt\n", print({"path:b/r"}));
    EXPECT_EQ("re\\\x1b[1;31md?\x1b[0m[2J?.txt\n",
              print({"--columns", "name", "--regex", "d[^2.][^a]?(?=\\[)"}));
    EXPECT_EQ(path + "\\d?[2J?.txt\n", print({"2J", "--color", "never"}));
    setenv("NO_COLOR", "1", 1);
    EXPECT_EQ(path + "\\d?[2J?.txt\n", print({"2J"}));
    EXPECT_EQ(path + "\\d?[\x1b[1;31m2J\x1b[0m?.txt\n", print({"2J", "--color", "always"}));
    setenv("NO_COLOR", "", 1); // an empty one asks for nothing
    EXPECT_EQ(path + "\\d?[\x1b[1;31m2J\x1b[0m?.txt\n", print({"2J"}));
    before ? setenv("NO_COLOR", before->c_str(), 1) : unsetenv("NO_COLOR");
}

TEST_F(fw_posix, TheUsersOwnSettings) {
    std::string before = snapshot();
    put("XDG_CONFIG_HOME/findwright/Findwright.ini", "[Findwright]\nauto_include_fixed_volumes=0\n");
    expect_error(run({"alpha"}), "or run findwright once");

    put("XDG_CONFIG_HOME/findwright/Findwright.ini",
        "[Findwright]\nauto_include_fixed_volumes=0\nmatch_case=1\nfolders=" + quoted("tree") + "\n");
    before = snapshot();
    EXPECT_EQ(at("tree/alpha.txt") + "\n",
              run({"ALPHA"}).output); // the last search's state is not taken over
    EXPECT_EQ(before, snapshot());

    save("XDG_DATA_HOME/findwright/Findwright.db", DB_FLAG_SIZE, true);
    std::filesystem::remove(folder.path / "tree/alpha.txt");
    before = snapshot();
    EXPECT_EQ("5  " + at("tree/alpha.txt") + "\n", run({"--columns", "size,full", "alpha"}).output);
    EXPECT_EQ(FW_NOT_FOUND, run({"--folder", at("tree"), "alpha"}).status); // named sources come first
    EXPECT_EQ(before, snapshot());
}

// Lists beside the user's own settings, and those of the instance that these name, also where the settings do
// not count for the rest of the run.
TEST_F(fw_posix, ListsLieBesideTheSettings) {
    put("XDG_CONFIG_HOME/findwright/Filters.csv", "Name,Search,Macro\nFINDWRIGHT,,\nmine,beta,mine\n");
    put("XDG_CONFIG_HOME/findwright/Filters-second.csv",
        "Name,Search,Macro\nFINDWRIGHT,,\nmine,gamma,mine\n");
    const std::string beta = at("tree/sub/beta.txt") + "\n", gamma = at("tree/sub/deep/gamma.pdf") + "\n";
    EXPECT_EQ(beta, run({"--folder", at("tree"), "--filter", "mine"}).output);
    EXPECT_EQ(beta, run({"--folder", at("tree"), "mine:"}).output);
    put("XDG_CONFIG_HOME/findwright/Findwright.ini",
        settings("instance_name=second\r\nallow_literal_operators=1\r\nfolders=" + quoted("tree") + "\r\n"));
    EXPECT_EQ(gamma, run({"--filter", "mine"}).output);
    EXPECT_EQ(gamma, run({"--folder", at("tree"), "mine:"}).output);
    EXPECT_EQ("", run({"--folder", at("tree"), "mine: OR mine:"}).output);
    EXPECT_EQ(gamma, run({"mine: OR mine:"}).output);
    // Another settings file, with lists beside it or none.
    put("state/other.ini", settings(""));
    EXPECT_EQ("", run({"--config", at("state/other.ini"), "--folder", at("tree"), "mine:"}).output);
}

// A desktop whose opener writes down what it is given, and can be told to fail.
struct fw_opener : fw_posix {
    std::string old_path = getenv("PATH");

    void SetUp() override {
        fw_posix::SetUp();
        std::filesystem::create_directories(at("bin"));
        put_opener("printf '%s\\0' \"$1\" >> '" + at("opened") + "'");
    }
    void TearDown() override {
        setenv("PATH", old_path.c_str(), 1);
        fw_posix::TearDown();
    }
    void put_opener(const std::string &script) {
        std::ofstream(at("bin/xdg-open")) << "#!/bin/sh\n" << script << "\n";
        std::filesystem::permissions(at("bin/xdg-open"), std::filesystem::perms::owner_all);
        setenv("PATH", (at("bin") + ":" + old_path).c_str(), 1);
    }
    std::string opened() {
        std::ifstream file(at("opened"), std::ios::binary);
        std::string text{std::istreambuf_iterator<char>(file), {}};
        std::filesystem::remove(at("opened"));
        return text;
    }
    std::string history() {
        std::ifstream file(at("XDG_CONFIG_HOME/findwright/Run History.csv"), std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }
};

TEST_F(fw_opener, OpensAndCounts) {
    // Names of every kind reach the opener as the bytes that they are, and come back from the history.
    const std::string names[] = {"-a.txt", "b \"q\".txt", "c\xFF\xC3.txt", "d\ne.txt", "f\\g.txt", "h.txt"};
    std::string place = at("run");
    std::filesystem::create_directories(place);
    for (const std::string &name : names)
        std::ofstream(place + "/" + name) << "x";
    for (size_t i = 0; i < std::size(names); i++) {
        run_t result = run({"--folder", place, "-0", ".txt", "--run", std::to_string(i + 1)});
        EXPECT_EQ(result.status, 0) << result.error;
        EXPECT_EQ(result.output, place + "/" + names[i] + '\0');
        EXPECT_EQ(opened(), place + "/" + names[i] + '\0');
    }
    EXPECT_EQ(run({"--folder", place, "-0", "runcount:1", "--offset", "4", "-n", "1", "--run", "1"}).output,
              place + "/" + names[4] + '\0');
    EXPECT_EQ(run({"--folder", place, "--columns", "run-count,name", "--sort", "run-count-descending", "-n",
                   "1", ".txt"})
                  .output,
              "2  " + names[4] + "\n");
    EXPECT_EQ(run({"--folder", place, "--count", "runcount:1"}).output, "5\n");
    EXPECT_EQ(run({"--folder", place, "--count", "daterun:today", "file:"}).output, "6\n");
    opened();

    // What cannot be opened is not counted.
    std::string before = history();
    EXPECT_EQ(run({"--folder", place, "--offset", "2", "--run", "5", ".txt"}).status, 1);
    EXPECT_EQ(run({"--folder", place, "-n", "2", "--run", "3", ".txt"}).status, 1);
    EXPECT_EQ(run({"--folder", place, "--run", "1", "nothing"}).status, 1);
    EXPECT_EQ(run({"--folder", place, "--run", "0"}).status, 2);
    put_opener("exit 3");
    run_t failed = run({"--folder", place, "--run", "1", "h.txt"});
    EXPECT_EQ(failed.status, 2);
    EXPECT_NE(failed.error.find("/h.txt: xdg-open failed (status 3)"), std::string::npos) << failed.error;
    setenv("PATH", at("nowhere").c_str(), 1);
    failed = run({"--folder", place, "--run", "1", "h.txt"});
    EXPECT_EQ(failed.status, 2);
    EXPECT_NE(failed.error.find("xdg-utils"), std::string::npos) << failed.error;
    EXPECT_EQ(opened(), "");
    EXPECT_EQ(history(), before);
    put_opener("exit 0");
    std::ofstream(at("XDG_CONFIG_HOME/findwright/Findwright.ini")) << "[Findwright]\nrun_history_enabled=0\n";
    EXPECT_EQ(run({"--folder", place, "--run", "1", "h.txt"}).status, 0);
    EXPECT_EQ(history(), before);
}

} // namespace
} // namespace findwright
