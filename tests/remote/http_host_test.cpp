// Which hosts a request may name.
#include "remote/http_request.h"

#include "os/network.h"

#include <gtest/gtest.h>

namespace findwright {
namespace {

TEST(HttpHost, OwnNamesAndAddresses) {
    ASSERT_TRUE(network_start(nullptr));
    // Bound to the loopback address; to one address and a name of the network; to all addresses.
    const http_host_rule_t loopback = {"", "127.0.0.1", true, false};
    const http_host_rule_t loopback6 = {"", "::1", true, false};
    const http_host_rule_t network = {"pc; \"Pc.Example.\" ,10.0.0.5", "192.168.1.2", false, false};
    const http_host_rule_t zone = {"", "fe80::1%eth0", false, false};
    const http_host_rule_t all = {"pc", "192.168.1.2", false, true};
    const struct {
        const http_host_rule_t *rule;
        const char *host;
        bool is_own;
    } cases[] = {
        {&loopback, "127.0.0.1", true},
        {&loopback, "127.0.0.1:8080", true},
        {&loopback, "LocalHost:8080", true},
        {&loopback, "localhost.", true},
        {&loopback, "[::ffff:127.0.0.1]:80", true},
        {&loopback, "127.0.0.2", false},
        {&loopback, "evil.example", false},
        {&loopback, "localhost.evil.example", false},
        {&loopback, "127.0.0.1.evil.example", false},
        {&loopback, "evil.example:127.0.0.1", false},
        {&loopback, "user@localhost", false},
        {&loopback, "localhost,evil.example", false},
        {&loopback, "", false},
        {&loopback, ":80", false},
        {&loopback, ".", false},
        {&loopback, "[", false},
        {&loopback, "[127.0.0.1", false},
        {&loopback, "[::1]", false},
        {&loopback6, "[::1]:8080", true},
        {&loopback6, "[0:0:0:0:0:0:0:1]", true},
        {&loopback6, "[::1]evil.example", false},
        {&loopback6, "::1", true},
        {&loopback6, "localhost", true},
        {&network, "192.168.1.2:80", true},
        {&network, "10.0.0.5", true},
        {&network, "PC:80", true},
        {&network, "pc.example", true},
        {&network, "pc.example.evil", false},
        {&network, "p", false},
        {&network, "localhost", false},
        {&network, "127.0.0.1", false},
        {&zone, "[fe80::1]:80", true},
        {&zone, "[fe80::1%25eth0]", true},
        {&zone, "[fe80::2]", false},
        {&all, "10.1.2.3:8080", true},
        {&all, "[2001:db8::1]", true},
        {&all, "pc", true},
        {&all, "evil.example", false},
        {&all, "1.2.3.4.5", false},
    };
    for (const auto &c : cases)
        EXPECT_EQ(c.is_own, http_host_is_own(c.host, c.rule)) << c.host << " of " << c.rule->local;
    network_stop();
}

} // namespace
} // namespace findwright
