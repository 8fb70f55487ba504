// Reads the input as the head of a request: cut into lines, parsed, and asked for its path, its query and its
// host, as the server does. A path has no `/`, and no zero byte if it names something; its address, and that
// of a search, lead back to them; and no input knows the password.
#include "os/network.h"
#include "os/os.h"
#include "remote/http_request.h"
#include "remote/http_text.h"

#include <cstdlib>
#include <cstring>
#include <string>

using namespace findwright;

static void check(bool condition) {
    if (!condition)
        std::abort();
}

// The search goes through an address and back.
static void check_query(const char *text) {
    http_query_t query, again;
    http_query_init(&query, 32);
    http_query_parse(&query, text, static_cast<u32>(std::strlen(text)));
    check(query.sort_key <= HTTP_SORT_DATE_MODIFIED);
    if (query.search) {
        utf8_buf_t address;
        utf8_buf_init(&address);
        utf8_buf_copy_string(&address, "search=");
        http_cat_url_search(&address, query.search, static_cast<u32>(std::strlen(query.search)));
        http_query_init(&again, 32);
        http_query_parse(&again, address.data, static_cast<u32>(address.length));
        check(again.search && !std::strcmp(again.search, query.search));
        http_query_kill(&again);
        utf8_buf_kill(&address);
    }
    http_query_kill(&query);
}

static void check_url(const char *url) {
    utf8_buf_t path, item_url, again;
    utf8_buf_init(&path);
    utf8_buf_init(&item_url);
    utf8_buf_init(&again);
    const char *query;
    const bool is_name = http_request_get_path(url, &path, &query);
    check(is_name == (std::strlen(path.data) == static_cast<size_t>(path.length)));
    check(!std::strchr(path.data, '/'));
    // The address of a path without leading separators leads to that path.
    http_cat_item_url(&item_url, path.data, static_cast<u32>(path.length), true);
    if (is_name && path.data[0] != '\\') {
        check(http_request_get_path(item_url.data, &again, nullptr) && !std::strcmp(again.data, path.data));
    }
    if (query)
        check_query(query);
    utf8_buf_kill(&again);
    utf8_buf_kill(&item_url);
    utf8_buf_kill(&path);
}

extern "C" int LLVMFuzzerTestOneInput(const u8 *bytes, size_t size) {
    static bool is_started;
    if (!is_started) {
        os_init();
        check(network_start(nullptr));
        is_started = true;
    }
    const http_login_t login = {"user", "a password that no input has"};
    http_request_t request;
    http_request_init(&request);
    for (const u8 *end = bytes + size; bytes < end;) {
        const u8 *line_end =
            static_cast<const u8 *>(std::memchr(bytes, '\n', static_cast<size_t>(end - bytes)));
        if (!line_end)
            line_end = end;
        // A copy of its exact size, so that a sanitizer sees a read past the end.
        const std::string line(bytes, line_end);
        char *copy = static_cast<char *>(std::malloc(line.size() + 1));
        std::memcpy(copy + 1, line.data(), line.size());
        const bool is_end =
            http_request_parse_line(&request, copy + 1, static_cast<u32>(line.size()), &login);
        std::free(copy);
        if (is_end)
            break;
        bytes = line_end + 1;
    }
    check(!request.authenticated);
    if (request.url)
        check_url(request.url);
    const http_host_rule_t rules[] = {{"own; names", "127.0.0.1", true, false},
                                      {"", "fe80::1%lo", false, true}};
    if (request.host) {
        for (const http_host_rule_t &rule : rules)
            http_host_is_own(request.host, &rule);
    }
    http_request_kill(&request);
    return 0;
}
