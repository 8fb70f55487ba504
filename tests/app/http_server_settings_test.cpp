#include "app/http_server_settings.h"

#include <gtest/gtest.h>
#include <string>

namespace findwright {
namespace {

TEST(HttpServerSettings, OthersNeedAPassword) {
    static const struct {
        const char *bindings;
        bool has_password;
        const char *out;     // of a private platform; 0: refused,
        const char *refused; // because of this one
        const char *open;    // of another platform
    } rows[] = {
        {"", false, "127.0.0.1", nullptr, ""},
        {"", true, "127.0.0.1", nullptr, ""},
        {" ; ", false, "127.0.0.1", nullptr, ""},
        {"127.0.0.1", false, "127.0.0.1", nullptr, "127.0.0.1"},
        {"127.8.9.1; localhost", false, "127.8.9.1; localhost", nullptr, "127.8.9.1; localhost"},
        {"[::1]", false, "[::1]", nullptr, "[::1]"},
        {"*", false, nullptr, "*", ""},
        {"*", true, "", nullptr, ""},
        {"127.0.0.1;*", false, nullptr, "*", ""},
        {"127.0.0.1;*", true, "", nullptr, ""},
        {"0.0.0.0", false, nullptr, "0.0.0.0", "0.0.0.0"},
        {"::", false, nullptr, "::", "::"},
        {"127.0.0.1,192.168.1.5", false, nullptr, "192.168.1.5", "127.0.0.1,192.168.1.5"},
        {"192.168.1.5", true, "192.168.1.5", nullptr, "192.168.1.5"},
        {"localhost.example.org", false, nullptr, "localhost.example.org", "localhost.example.org"},
        {"1270.0.0.1", false, nullptr, "1270.0.0.1", "1270.0.0.1"},
        {"::ffff:192.168.1.5", false, nullptr, "::ffff:192.168.1.5", "::ffff:192.168.1.5"},
    };
    utf8_buf_t out;
    utf8_buf_init(&out);
    for (const auto &row : rows) {
        SCOPED_TRACE(std::string(row.bindings) + (row.has_password ? " with a password" : ""));
        EXPECT_EQ(row.out != nullptr, http_server_get_bindings(row.bindings, row.has_password, true, &out));
        std::string text = out.data;
        if (text == "127.0.0.1;::1") // where the machine has it
            text = "127.0.0.1";
        EXPECT_EQ(row.out ? row.out : row.refused, text);
        EXPECT_TRUE(http_server_get_bindings(row.bindings, row.has_password, false, &out));
        EXPECT_STREQ(row.open, out.data);
    }
    utf8_buf_kill(&out);
}

} // namespace
} // namespace findwright
