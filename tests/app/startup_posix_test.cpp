// The service of the user's systemd: its text, and what is done to install it and to take it away.
#include "app/program_test_support.h"
#include "app/startup.h"

#include "app/config.h"

namespace findwright {
namespace {

struct line_t {
    command_line_t *line;
    explicit line_t(const char *text) : line(command_line_parse(text, nullptr, true)) {}
    ~line_t() { command_line_free(line); }
};

TEST(Startup, NamesAndTextOfTheUnit) {
    utf8_buf_t out;
    utf8_buf_init(&out);
    const struct {
        const char *instance, *unit;
    } names[] = {
        {nullptr, "findwright.service"},
        {"", "findwright.service"},
        {"Work_1.a-b", "findwright-Work_1.a-b.service"},
        {"a b@/%", "findwright-a\\x20b\\x40\\x2f\\x25.service"},
    };
    for (auto name : names) {
        startup_get_unit_name(name.instance, &out);
        EXPECT_STREQ(out.data, name.unit);
    }
    line_t line("-instance \"two words\" -config /tmp/a$b%c.ini");
    startup_get_unit("/opt/the \"best\"\\findwright", line.line, &out);
    EXPECT_NE(
        std::strstr(out.data,
                    "ExecStart=\"/opt/the \\\"best\\\"\\\\findwright\" -startup -instance \"two words\" "
                    "-config \"/tmp/a$$b%%c.ini\"\n"),
        nullptr)
        << out.data;
    utf8_buf_kill(&out);
}

// A user with a systemctl that writes down what it is asked.
struct startup : Program {
    void SetUp() override {
        Program::SetUp();
        std::filesystem::create_directories(at("bin"));
    }
    void put_systemctl(const std::string &script) {
        program_write(at("bin/systemctl"),
                      "#!/bin/sh\necho \"$@\" >> " + at("asked").string() + "\n" + script + "\n");
        std::filesystem::permissions(at("bin/systemctl"), std::filesystem::perms::owner_all);
    }
    std::string asked() {
        std::string text = program_read(at("asked"));
        std::filesystem::remove(at("asked"));
        return text;
    }
    program_t run(const std::vector<std::string> &arguments) {
        std::string old = getenv("PATH");
        setenv("PATH", at("bin").c_str(), 1);
        program_t program = start(arguments);
        setenv("PATH", old.c_str(), 1);
        program->end();
        return program;
    }
};

TEST_F(startup, InstallsAndUninstalls) {
    std::string unit = at("config/systemd/user/findwright.service").string();
    put_systemctl("");
    program_t program = run({"-install-run-on-system-startup"});
    EXPECT_EQ(program->code, 0) << program->log();
    EXPECT_EQ(asked(), "--user daemon-reload\n--user --quiet enable findwright.service\n"
                       "--user --quiet restart findwright.service\n");
    EXPECT_NE(program_read(unit).find(std::string("ExecStart=\"") + FINDWRIGHT_PROGRAM), std::string::npos);
    EXPECT_NE(program_read(unit).find("Environment=\"XDG_CONFIG_HOME=" + at("config").string()),
              std::string::npos);
    EXPECT_EQ(run({"-install-run-on-system-startup", "-instance", "a b"})->code, 0);
    EXPECT_NE(program_read(at("config/systemd/user/findwright-a\\x20b.service")), "(none)");
    asked();

    EXPECT_EQ(run({"-uninstall-run-on-system-startup"})->code, 0);
    EXPECT_EQ(asked(), "--user --quiet disable --now findwright.service\n--user daemon-reload\n");
    EXPECT_EQ(program_read(unit), "(none)");
    EXPECT_NE(program_read(at("config/systemd/user/findwright-a\\x20b.service")), "(none)");
    EXPECT_EQ(run({"-uninstall-run-on-system-startup"})->code, 0); // there is none

    // Without a systemd that answers the file is there, and the user is told what is left to do.
    put_systemctl("echo 'no bus' >&2; exit 1");
    program = run({"-install-run-on-system-startup"});
    EXPECT_EQ(program->code, 1);
    EXPECT_NE(program->log().find("systemctl: no bus"), std::string::npos) << program->log();
    EXPECT_NE(program->log().find("systemctl --user enable --now 'findwright.service'"), std::string::npos);
    EXPECT_NE(program_read(unit), "(none)");
    std::filesystem::remove(at("bin/systemctl"));
    program = run({"-uninstall-run-on-system-startup"});
    EXPECT_NE(program->log().find("there is no systemctl"), std::string::npos) << program->log();
    EXPECT_EQ(program_read(unit), "(none)");
}

} // namespace
} // namespace findwright
