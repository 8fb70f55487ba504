// Files that are more than files: links, pipes, names that no other system has.
#include "http_test_support.h"

#include <algorithm>
#include <fstream>
#include <sys/stat.h>
#include <unistd.h>

namespace findwright {
namespace {

struct HttpServerPosix : testing::Test {
    HttpServerPosix() {
        std::filesystem::create_directories(files.path / "top" / "in");
        std::filesystem::create_directories(files.path / "home");
        std::filesystem::create_directories(files.path / "outside");
        write_file(files / "outside\\secret", "secret");
        write_file(files / "top\\in\\open", "open");
    }
    void start() {
        home = files / "home";
        params.home = home.c_str();
        settings.paths = {files / "top"};
        settings.flags = TEST_FLAGS_ALL;
        db = folder_db_create(&settings);
        utf8_buf_t error;
        utf8_buf_init(&error);
        ASSERT_TRUE(http_server_start(db, &params, &error)) << error.data;
        utf8_buf_kill(&error);
    }
    ~HttpServerPosix() override {
        http_server_stop();
        folder_db_destroy(db);
    }
    std::string path(const std::string &name) const { return (files.path / "top" / name).string(); }

    temp_folder_t files;
    std::string home;
    folder_settings_t settings;
    db_t *db = nullptr;
    http_server_params_t params = http_test_params();
};

// What a link leads to is sent only if the index has it, too; of the home folder, if it lies in that.
TEST_F(HttpServerPosix, FollowsNoLinkOut) {
    namespace fs = std::filesystem;
    const fs::path top = files.path / "top", outside = files.path / "outside";
    fs::create_symlink(outside / "secret", top / "out");
    fs::create_symlink("../outside/secret", top / "out-relative");
    fs::create_symlink("in/open", top / "inside");
    fs::create_symlink("inside", top / "twice");
    fs::create_symlink("missing", top / "nowhere");
    fs::create_symlink("loop", top / "loop");
    fs::create_symlink(outside, top / "folder");
    fs::create_symlink("/proc/self/environ", top / "process");
    fs::create_symlink(outside / "secret", files.path / "home" / "out");
    write_file(files / "home\\page", "page");
    fs::create_symlink("page", files.path / "home" / "other");
    fs::create_symlink("in/other-case", top / "case");
    write_file(files / "top\\in\\OTHER-CASE", "indexed");
    write_file(files / "top\\changed", "as it was");
    write_file(files / "top\\in\\moved", "as it was");
    start();
    // Behind the index's back: a file becomes a link, a folder on the way does.
    fs::remove(top / "changed");
    fs::create_symlink(outside / "secret", top / "changed");
    fs::rename(top / "in", files.path / "in");
    write_file(files / "outside\\moved", "secret");
    fs::create_symlink(outside, top / "in");
    for (const char *name : {"out", "out-relative", "nowhere", "loop", "folder", "folder/secret", "process",
                             "changed", "in/moved", "inside", "../outside/secret"}) {
        const http_answer_t answer = http_fetch(path(name));
        EXPECT_EQ(answer.status, 404u) << name << answer.body;
    }
    EXPECT_EQ(http_fetch("/out").status, 404u);
    EXPECT_EQ(http_fetch("/other").body, "page");
    fs::remove(top / "in");
    fs::rename(files.path / "in", top / "in");
    write_file(files / "top\\in\\other-case", "secret"); // the index does not have this one
    EXPECT_EQ(http_fetch(path("case")).status, 404u);
    EXPECT_EQ(http_fetch(path("inside")).body, "open");
    EXPECT_EQ(http_fetch(path("twice")).body, "open");
}

// The top of a source is where its user says, be it a link.
TEST_F(HttpServerPosix, ServesATopThatIsALink) {
    std::filesystem::rename(files.path / "top", files.path / "real");
    std::filesystem::create_directory_symlink("real", files.path / "top");
    start();
    EXPECT_EQ(http_fetch(path("in/open")).body, "open");
}

// None of them is opened, so none can hang.
TEST_F(HttpServerPosix, ReadsOnlyFiles) {
    ASSERT_EQ(mkfifo(path("pipe").c_str(), 0600), 0);
    std::filesystem::create_symlink("pipe", path("to-pipe"));
    std::filesystem::create_symlink("/dev/zero", path("device"));
    write_file(files / "top\\locked", "x");
    start();
    for (const char *name : {"pipe", "to-pipe", "device"})
        EXPECT_EQ(http_fetch(path(name)).status, 404u) << name;
    if (geteuid() != 0) {
        chmod(path("locked").c_str(), 0);
        EXPECT_EQ(http_fetch(path("locked")).status, 404u);
    }
}

// Each name's address, as the page has it, brings its own content.
TEST_F(HttpServerPosix, LinksOfHostileNamesLeadToThem) {
    const std::vector<std::string> names = {"<script>alert(1)<script>.txt",
                                            "\"onclick=\"x",
                                            "a&amp;b",
                                            "100%41",
                                            "a\\b.txt",
                                            "new\nline",
                                            "bad\xE9\xFF.txt",
                                            " blank ",
                                            "c#d?e=f",
                                            "C:",
                                            "\xE2\x80\xAE"
                                            "abc.txt",
                                            "+plus+",
                                            "%",
                                            "..."};
    for (const std::string &name : names)
        std::ofstream(files.path / "top" / "in" / name) << "content of " << name;
    start();
    const http_answer_t page = http_fetch(path("in"));
    std::vector<std::string> links;
    const std::string begin = "<td class=\"file\"><span class=\"nobr\"><nobr><a href=\"";
    for (size_t at = page.body.find(begin); at != std::string::npos; at = page.body.find(begin, at + 1))
        links.push_back(
            page.body.substr(at + begin.size(), page.body.find('"', at + begin.size()) - at - begin.size()));
    ASSERT_EQ(links.size(), names.size() + 1) << page.body; // and "open"
    std::vector<std::string> contents, expected = {"open"};
    for (const std::string &link : links)
        contents.push_back(http_fetch(link).body);
    for (const std::string &name : names)
        expected.push_back("content of " + name);
    std::sort(contents.begin(), contents.end());
    std::sort(expected.begin(), expected.end());
    EXPECT_EQ(contents, expected);
    EXPECT_EQ(page.body.find("<script>alert"), std::string::npos);
    EXPECT_EQ(page.body.find("\"onclick"), std::string::npos);
}

} // namespace
} // namespace findwright
