// Whose name a Host line has. A page from elsewhere that has its name point to this machine sends its own
// name here, and is refused; a numeric address cannot be pointed anywhere.
#include "remote/http_request.h"

#include "base/utf8.h"
#include "os/network.h"

namespace findwright {

struct _http_host_t {
    const char *text;
    u32 length;
};

// Without the port, a name's last dot, the brackets of an address, and its zone, which is the sender's own.
static _http_host_t _http_host_cut(const char *text, u32 length) {
    const char *colon = static_cast<const char *>(std::memchr(text, ':', length));
    if (length != 0 && *text == '[') {
        const char *bracket = static_cast<const char *>(std::memchr(text, ']', length));
        if (!bracket || (bracket + 1 != text + length && bracket[1] != ':'))
            return {text, 0};
        text++;
        length = static_cast<u32>(bracket - text);
    } else if (colon && !std::memchr(colon + 1, ':', static_cast<size_t>(text + length - colon - 1))) {
        length = static_cast<u32>(colon - text);
    }
    const char *zone = static_cast<const char *>(std::memchr(text, '%', length));
    if (zone)
        length = static_cast<u32>(zone - text);
    if (length != 0 && text[length - 1] == '.')
        length--;
    return {text, length};
}

static bool _http_host_is_same(_http_host_t host, const char *text, u32 length) {
    _http_host_t other = _http_host_cut(text, length);
    return host.length == other.length &&
           !utf8_compare_lower(host.text, host.length, other.text, other.length);
}

static bool _http_host_is_listed(_http_host_t host, const char *names) {
    utf8_buf_t name;
    utf8_buf_init(&name);
    bool is_listed = false;
    while (!is_listed && (names = utf8_buf_next_list_item(&name, names)))
        is_listed = _http_host_is_same(host, name.data, static_cast<u32>(name.length));
    utf8_buf_kill(&name);
    return is_listed;
}

bool http_host_is_own(const char *text, const http_host_rule_t *rule) {
    _http_host_t host = _http_host_cut(text, utf8_length(text));
    if (host.length == 0)
        return false;
    if (_http_host_is_listed(host, rule->names) ||
        (rule->local_is_loopback && _http_host_is_same(host, "localhost", 9)))
        return true;
    network_address_t address, local;
    if (!network_parse_address(host.text, host.length, 0, &address))
        return false;
    _http_host_t own = _http_host_cut(rule->local, utf8_length(rule->local));
    return rule->any_address || (network_parse_address(own.text, own.length, 0, &local) &&
                                 network_address_is_same_host(&address, &local));
}

} // namespace findwright
