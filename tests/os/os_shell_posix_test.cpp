// What the desktop knows: a made-up shared MIME database and home folder, in an environment of the test's
// own.
#include "os/os_shell.h"

#include "os/os_shell_text.h"
#include "os_test_support.h"

#include <cstdlib>
#include <map>
#include <optional>
#include <sys/stat.h>
#include <thread>
#include <vector>

using namespace findwright;

namespace {

struct desktop_t {
    desktop_t() {
        set("HOME", path("home"));
        set("XDG_DATA_HOME", path("own"));
        set("XDG_DATA_DIRS", "relative:" + path("first") + ":" + path("second") + "/");
        set("XDG_CONFIG_HOME", path("config"));
        for (const char *name : {"LC_ALL", "LC_MESSAGES", "LANG"})
            set(name, "");
        os_shell_kill();
    }
    ~desktop_t() {
        for (const auto &[name, value] : saved) {
            if (value)
                setenv(name.c_str(), value->c_str(), 1);
            else
                unsetenv(name.c_str());
        }
        os_shell_kill();
    }
    void set(const char *name, const std::string &value) {
        const char *old = std::getenv(name);
        saved.try_emplace(name, old ? std::optional<std::string>(old) : std::nullopt);
        setenv(name, value.c_str(), 1);
    }
    std::string path(const std::string &name) const { return (folder.path / name).string(); }
    void write(const std::string &name, const std::string &text) const {
        std::filesystem::create_directories((folder.path / name).parent_path());
        write_file(folder / name, text);
    }
    // A type's description, with lines for other languages.
    void describe(const std::string &name, const std::string &comment, const std::string &others = "") const {
        write(name + ".xml", "<?xml version='1.0'?>\n<mime-type type='x'>\n<comment>" + comment +
                                 "</comment>\n" + others + "</mime-type>");
    }

    temp_folder_t folder;
    std::map<std::string, std::optional<std::string>> saved;
};

std::string type_name(const std::string &extension) {
    utf8_buf_t out;
    utf8_buf_init(&out);
    os_get_type_name(extension.data(), static_cast<u32>(extension.size()), &out);
    std::string name = out.data;
    utf8_buf_kill(&out);
    return name;
}

std::string folder_type_name() {
    utf8_buf_t out;
    utf8_buf_init(&out);
    os_get_folder_type_name(&out);
    std::string name = out.data;
    utf8_buf_kill(&out);
    return name;
}

// "(none)" when there is no such path.
std::string shell_path(const std::string &text) {
    utf8_buf_t out;
    utf8_buf_init(&out);
    bool found = os_shell_get_path(text.data(), static_cast<u32>(text.size()), &out);
    std::string path = found ? out.data : "(none)";
    EXPECT_EQ(found, out.length != 0);
    utf8_buf_kill(&out);
    return path;
}

TEST(os_shell_posix, types_of_extensions) {
    desktop_t desktop;
    desktop.write("own/mime/globs", "# old form\ntext/own:*.own\r\ntext/own:*.both\ntext/nothing:*.bare\n");
    desktop.write("first/mime/globs2",
                  "50:text/low:*.w\n80:text/high:*.W\n50:text/first:*.own\n"
                  "60:text/first:*.both\n50:text/big:*.C:cs\n50:text/small:*.c:cs\n"
                  "50:text/part:*.tar.gz\n50:text/glob:x*.g\n50:text/set:*.[g]\n"
                  "50:text/../low:*.up\n50:/etc:*.root\n50:text/.low:*.dot\n50:text/noend:*.last");
    desktop.write("first/mime/globs", "text/wrong:*.wrong\n");
    desktop.write("second/mime/globs2", "x:text/first:*.noweight\n\n50:::\n50:text/second:*.\xC3\x84\n");
    for (const char *type : {"low", "high", "big", "small", "part", "glob", "set", "wrong", "noend"})
        desktop.describe(std::string("first/mime/text/") + type, type);
    desktop.describe("own/mime/text/own", "mine");
    desktop.describe("own/mime/text/first", "");       // says nothing: the next one counts
    desktop.describe("second/mime/text/first", "1st"); // another folder than that of the pattern
    desktop.describe("second/mime/text/second", "2nd");
    const struct {
        const char *extension;
        const char *name;
    } cases[] = {
        {"w", "high"},        {"W", "high"},       {"own", "mine"},   {"OWN", "mine"},
        {"both", "1st"},      {"c", "small"},      {"C", "small"},    {"bare", "bare"},
        {"tar.gz", "tar.gz"}, {"gz", "gz"},        {"g", "g"},        {"up", "up"},
        {"root", "root"},     {"dot", "dot"},      {"last", "noend"}, {"wrong", "wrong"},
        {"noweight", "1st"},  {"\xC3\xA4", "2nd"}, {"", ""},          {"zzz", "zzz"},
    };
    for (const auto &item : cases)
        EXPECT_EQ(type_name(item.extension), item.name) << item.extension;
    EXPECT_EQ(folder_type_name(), "Folder");
    desktop.describe("second/mime/inode/directory", "Place");
    EXPECT_EQ(folder_type_name(), "Place");
}

TEST(os_shell_posix, descriptions_in_the_users_language) {
    desktop_t desktop;
    desktop.write("own/mime/globs2", "50:a/b:*.x\n");
    desktop.describe("own/mime/a/b", "plain",
                     "<comment xml:lang=\"de\">deutsch</comment><comment xml:lang='de_AT'>&#xF6;st</comment>"
                     "<comment xml:lang=\"pt_BR\">brasil</comment>");
    const struct {
        const char *all, *messages, *lang;
        const char *name;
    } cases[] = {
        {"", "", "", "plain"},
        {"", "", "de_DE.UTF-8", "deutsch"},
        {"", "", "de_AT@euro", "\xC3\xB6st"},
        {"", "de", "pt_BR", "deutsch"},
        {"pt_BR", "de", "de", "brasil"},
        {"", "", "pt_PT", "plain"},
        {"", "", "C.UTF-8", "plain"},
    };
    for (const auto &item : cases) {
        desktop.set("LC_ALL", item.all);
        desktop.set("LC_MESSAGES", item.messages);
        desktop.set("LANG", item.lang);
        EXPECT_EQ(type_name("x"), item.name) << item.all << ' ' << item.messages << ' ' << item.lang;
    }
}

std::string comment(const std::string &xml) {
    utf8_buf_t out;
    utf8_buf_init(&out);
    bool found = os_shell_find_comment(xml.data(), static_cast<u32>(xml.size()), "de", 2, &out);
    std::string text = found ? out.data : "(none)";
    EXPECT_LE(out.length, static_cast<i32>(OS_SHELL_COMMENT_MAX));
    utf8_buf_kill(&out);
    return text;
}

TEST(os_shell_posix, descriptions_as_xml_writes_them) {
    const struct {
        const char *xml;
        const char *text;
    } cases[] = {
        {"<comment>a &amp; b &lt;c&gt; &#65;&#x42;&unknown;&#0;&</comment>", "a & b <c> AB&unknown;&#0;&"},
        {"<comment>\n  two\t\n words&#10; </comment>", "two words"},
        {"<!-- <comment>no</comment> --><comment>yes</comment>", "yes"},
        {"<![CDATA[<comment>no</comment>]]><comment>yes</comment>", "yes"},
        {"<comment/><a b='<comment>no'/><comment>yes</comment>", "yes"},
        {"<comments>no</comments><comment a = \">\" xml:lang = 'de' >ja</comment><comment>yes</comment>",
         "ja"},
        {"<comment xml:lang='de_DE'>no</comment>", "(none)"},
        {"<comment xml:lang=de>odd</comment>", "odd"},
        {"<comment>cut", "cut"},
        {"<comment>a\xE0\n\tb</comment>", "a\xE0 b"}, // no character of three bytes
        {"<comment xml:lang='de", "(none)"},
        {"<!-- <comment>no</comment>", "(none)"},
        {"", "(none)"},
    };
    for (const auto &item : cases)
        EXPECT_EQ(comment(item.xml), item.text) << item.xml;
    std::string umlauts;
    for (int i = 0; i < 1000; i++)
        umlauts += "\xC3\xA4";
    std::string cut = comment("<comment>" + umlauts + "</comment>");
    EXPECT_EQ(cut, umlauts.substr(0, cut.size()));
    EXPECT_EQ(cut.size() % 2, 0u);
    EXPECT_GT(cut.size(), OS_SHELL_COMMENT_MAX - 4u);
}

TEST(os_shell_posix, files_that_are_none) {
    desktop_t desktop;
    std::filesystem::create_directories(desktop.folder.path / "own/mime/text/x.xml");
    ASSERT_EQ(mkfifo(desktop.path("own/mime/globs2").c_str(), 0600), 0); // nobody writes into it
    desktop.write("first/mime/globs2", "50:text/x:*.x\n50:text/y:*.y\n");
    desktop.describe("first/mime/text/x", "found");
    desktop.describe("first/mime/text/y", std::string(5000000, 'y'));
    EXPECT_EQ(type_name("x"), "found");
    EXPECT_EQ(type_name("y"), "y");
}

TEST(os_shell_posix, several_threads_begin_at_once) {
    desktop_t desktop;
    std::string globs;
    for (int i = 0; i < 3000; i++)
        globs += "50:text/t" + std::to_string(i) + ":*.e" + std::to_string(i) + "\n";
    desktop.write("own/mime/globs2", globs);
    desktop.describe("own/mime/text/t1234", "the one");
    std::vector<std::thread> threads;
    std::string names[4];
    for (std::string &name : names)
        threads.emplace_back([&name] { name = type_name("e1234"); });
    for (std::thread &thread : threads)
        thread.join();
    for (const std::string &name : names)
        EXPECT_EQ(name, "the one");
}

TEST(os_shell_posix, paths_of_the_users_folders) {
    desktop_t desktop;
    for (const char *name : {"home/Desktop", "home/Music", "home/tunes/new", "pics/a\\b", "home/Public"})
        std::filesystem::create_directories(desktop.folder.path / name);
    desktop.write("home/tunes/song", "x");
    desktop.write("config/user-dirs.dirs",
                  "# XDG_DESKTOP_DIR=\"$HOME/no\"\nXDG_MUSIC_DIR=\"$HOME/old\"\n"
                  "  XDG_MUSIC_DIR = \"$HOME/tunes/\" \r\n"
                  "XDG_PICTURES_DIR=\"" +
                      desktop.path("pics") +
                      "/a\\\\b\"\n"
                      "XDG_TEMPLATES_DIR=\"$HOME/\"\nXDG_PUBLICSHARE_DIR=\"relative\"\n"
                      "XDG_DOWNLOAD_DIR=\"$HOME/gone\"\nXDG_DESKTOP_DIR=\"$HOME/noend\n");
    const std::string home = desktop.folder / "home";
    const struct {
        const char *text;
        std::string path;
    } cases[] = {
        {"shell:home", home},
        {"SHELL:Profile", home},
        {"shell:desktop", home + "\\Desktop"}, // the list has no valid line for it
        {"shell:Music", home + "\\tunes"},
        {"shell:my music\\NEW", "(none)"},
        {"shell:my music\\new", home + "\\tunes\\new"},
        {"shell:music/new/..//song", home + "\\tunes\\song"},
        {"shell:music\\", home + "\\tunes"},
        {"shell:pictures", desktop.folder / "pics\\a\xEF\x81\x9C"
                                            "b"},
        {"shell:templates", home},
        {"shell:public", home + "\\Public"},
        {"shell:downloads", "(none)"},
        {"shell:videos", "(none)"},
        {"shell:", "(none)"},
        {"shell:nothing", "(none)"},
        {"shell:musical", "(none)"},
        {"music", "(none)"},
    };
    for (const auto &item : cases)
        EXPECT_EQ(shell_path(item.text), item.path) << item.text;
    desktop.set("HOME", "/");
    EXPECT_EQ(shell_path("shell:home"), "\\");
    EXPECT_EQ(shell_path("shell:home" + desktop.folder.name), desktop.folder.name);
    desktop.set("HOME", "");
    EXPECT_EQ(shell_path("shell:home"), "(none)");
    EXPECT_EQ(shell_path("shell:music"), "(none)");
}

TEST(os_shell, content_types_come_from_the_system_or_a_short_list) {
    desktop_t desktop;
    desktop.write("own/mime/globs2", "50:text/x-own:*.own\n50:image/x-other:*.png\n");
    utf8_buf_t type;
    utf8_buf_init(&type);
    const char *cases[][2] = {{"own", "text/x-own"},
                              {"OWN", "text/x-own"},
                              {"png", "image/x-other"},
                              {"Html", "text/html"},
                              {"css", "text/css"},
                              {"", "application/octet-stream"},
                              {"htmlx", "application/octet-stream"}};
    for (const auto &c : cases) {
        os_get_content_type(c[0], static_cast<u32>(std::strlen(c[0])), &type);
        EXPECT_STREQ(type.data, c[1]) << c[0];
    }
    utf8_buf_kill(&type);
}

} // namespace
