// What stands behind the `?` of an address.
#include "remote/http_request.h"

#include "base/utf8.h"
#include "remote/http_text.h"

namespace findwright {

const char *const http_sort_names[4] = {"name", "path", "size", "date_modified"};

void http_query_init(http_query_t *query, u32 items_per_page) {
    *query = {};
    query->count = items_per_page;
    query->ascending = true;
}

void http_query_kill(http_query_t *query) {
    if (query->search)
        mem_free(query->search);
    query->search = nullptr;
}

// Digits at the start, whatever follows.
static u32 _http_query_number(const utf8_buf_t *value) {
    u64 number = 0;
    for (const char *p = value->data; utf8_is_digit(*p); p++) {
        number = number * 10 + static_cast<u32>(*p - '0');
        if (number > 0xFFFFFFFF)
            return 0xFFFFFFFF;
    }
    return static_cast<u32>(number);
}

// --- Keys --------------------------------------------------------------------------------------------------

// A search ends at a zero byte, as all of the program's searches do.
static void _http_query_search(http_query_t *query, const utf8_buf_t *value) {
    query->search = utf8_replace_string(query->search, value->data);
}
static void _http_query_offset(http_query_t *query, const utf8_buf_t *value) {
    query->offset = _http_query_number(value);
}
static void _http_query_count(http_query_t *query, const utf8_buf_t *value) {
    query->count = _http_query_number(value);
    query->has_count = true;
}
static void _http_query_sort(http_query_t *query, const utf8_buf_t *value) {
    for (u32 i = 0; i < 4; i++) {
        if (!utf8_compare(value->data, static_cast<u32>(value->length), http_sort_names[i],
                          utf8_length(http_sort_names[i])))
            query->sort_key = static_cast<http_sort_t>(i);
    }
}

struct _http_key_t {
    const char *names[3];
    bool http_query_t::*flag; // any number but 0; 0: `set` tells
    void (*set)(http_query_t *query, const utf8_buf_t *value);
};
static const _http_key_t http_keys[] = {
    {{"search", "s", "q"}, nullptr, _http_query_search},
    {{"offset", "o"}, nullptr, _http_query_offset},
    {{"count", "c", "n"}, nullptr, _http_query_count},
    {{"json", "j"}, &http_query_t::json, nullptr},
    {{"case", "i"}, &http_query_t::match_case, nullptr},
    {{"wholeword", "w"}, &http_query_t::match_whole_word, nullptr},
    {{"path", "p"}, &http_query_t::match_path, nullptr},
    {{"regex", "r"}, &http_query_t::regex, nullptr},
    {{"diacritics", "m"}, &http_query_t::match_diacritics, nullptr},
    {{"path_column"}, &http_query_t::path_column, nullptr},
    {{"size_column"}, &http_query_t::size_column, nullptr},
    {{"date_modified_column"}, &http_query_t::date_modified_column, nullptr},
    {{"sort"}, nullptr, _http_query_sort},
    {{"ascending"}, &http_query_t::ascending, nullptr},
    {{"live"}, &http_query_t::live, nullptr},
};

static const _http_key_t *_http_find_key(const char *name, u32 length) {
    for (const _http_key_t &key : http_keys) {
        for (const char *own : key.names) {
            if (own && utf8_is_equal(own, utf8_length(own), name, length))
                return &key;
        }
    }
    return nullptr;
}

void http_query_parse(http_query_t *query, const char *text, u32 length) {
    const char *end = static_cast<const char *>(std::memchr(text, '#', length));
    if (!end)
        end = text + length;
    utf8_buf_t value;
    utf8_buf_init(&value);
    while (text < end) {
        const char *pair_end =
            static_cast<const char *>(std::memchr(text, '&', static_cast<size_t>(end - text)));
        if (!pair_end)
            pair_end = end;
        const char *equal =
            static_cast<const char *>(std::memchr(text, '=', static_cast<size_t>(pair_end - text)));
        if (!equal)
            break;
        const _http_key_t *key = _http_find_key(text, static_cast<u32>(equal - text));
        if (key) {
            utf8_buf_empty(&value);
            http_cat_url_decoded(&value, equal + 1, static_cast<u32>(pair_end - equal - 1), true);
            if (key->flag)
                query->*key->flag = _http_query_number(&value) != 0;
            else
                key->set(query, &value);
        }
        text = pair_end + 1;
    }
    utf8_buf_kill(&value);
}

} // namespace findwright
