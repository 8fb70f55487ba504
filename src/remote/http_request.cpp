// The lines of a request's head: its address, its host, its login and its range.
#include "remote/http_request.h"

#include "base/utf8.h"
#include "remote/http_text.h"

namespace findwright {

void http_request_init(http_request_t *request) {
    *request = {};
}

void http_request_kill(http_request_t *request) {
    if (request->url)
        mem_free(request->url);
    if (request->host)
        mem_free(request->host);
    if (request->if_range)
        mem_free(request->if_range);
    *request = {};
}

// What is left of a line.
struct _http_part_t {
    const char *text, *end;
};

static u32 _http_part_length(const _http_part_t *part) {
    return static_cast<u32>(part->end - part->text);
}

static bool _http_is_blank(char c) {
    return c == ' ' || c == '\t';
}

static void _http_trim(_http_part_t *part) {
    while (part->text < part->end && _http_is_blank(*part->text))
        part->text++;
    while (part->end > part->text && _http_is_blank(part->end[-1]))
        part->end--;
}

static bool _http_part_is(const _http_part_t *part, const char *lower) {
    u32 length = utf8_length(lower);
    return _http_part_length(part) == length && !utf8_compare_lower(part->text, length, lower, length);
}

// Takes a prefix off, case ignored.
static bool _http_skip(_http_part_t *part, const char *prefix) {
    u32 length = utf8_length(prefix);
    if (_http_part_length(part) < length || utf8_compare_lower(part->text, length, prefix, length))
        return false;
    part->text += length;
    return true;
}

// --- The login ---------------------------------------------------------------------------------------------

// A secret that bytes are compared with as they come. What is done for a byte does not depend on whether it
// is right, nor on whether those before it were; behind the end of the secret each one meets the first one.
struct _http_secret_t {
    const char *text;
    u32 length, given;
    u32 difference;
};

static void _http_secret_add(_http_secret_t *secret, u32 byte) {
    u32 index = secret->given < secret->length ? secret->given : 0;
    secret->difference |= byte ^ static_cast<u8>(secret->text[index]);
    secret->given++;
}

static bool _http_secret_is_same(const _http_secret_t *secret) {
    return (secret->difference | (secret->given ^ secret->length)) == 0;
}

bool http_is_same_secret(const char *given, u32 given_length, const char *secret, u32 secret_length) {
    _http_secret_t state = {secret_length != 0 ? secret : "", secret_length, 0, 0};
    for (u32 i = 0; i < given_length; i++)
        _http_secret_add(&state, static_cast<u8>(given[i]));
    return _http_secret_is_same(&state);
}

// 0 to 63, or 64.
static u32 _http_base64_value(char c) {
    if (c >= 'A' && c <= 'Z')
        return static_cast<u32>(c - 'A');
    if (c >= 'a' && c <= 'z')
        return static_cast<u32>(c - 'a') + 26;
    if (utf8_is_digit(c))
        return static_cast<u32>(c - '0') + 52;
    return c == '+' ? 62 : c == '/' ? 63 : 64;
}

// The bytes of the Base64 text are compared as they are decoded, so that they are nowhere as a text. Both
// sides are always compared to their ends, and what does not decode is only refused behind that.
static bool _http_login_is_right(_http_part_t credentials, const http_login_t *login) {
    _http_secret_t secrets[2] = {{login->username, utf8_length(login->username), 0, 0},
                                 {login->password, utf8_length(login->password), 0, 0}};
    u32 side = 0; // 1: behind the colon
    u32 bits = 0, bit_count = 0;
    u32 is_bad = 0;
    while (credentials.end > credentials.text && credentials.end[-1] == '=')
        credentials.end--;
    for (const char *p = credentials.text; p < credentials.end; p++) {
        u32 value = _http_base64_value(*p);
        is_bad |= value >> 6;
        bits = (bits << 6 | (value & 63)) & 0xFFF;
        bit_count += 6;
        if (bit_count < 8)
            continue;
        bit_count -= 8;
        u32 byte = bits >> bit_count & 0xFF;
        if (side == 0 && byte == ':')
            side = 1;
        else
            _http_secret_add(&secrets[side], byte);
    }
    u32 is_right = side & ~is_bad & 1;
    for (const _http_secret_t &secret : secrets) {
        bool is_accepted = _http_secret_is_same(&secret);
        is_right &= static_cast<u32>(is_accepted) | static_cast<u32>(secret.length == 0);
    }
    return is_right != 0;
}

// --- The range ---------------------------------------------------------------------------------------------

// False without a digit. What is too large is the largest.
static bool _http_read_number(_http_part_t *part, u64 *number) {
    const char *start = part->text;
    *number = 0;
    for (; part->text < part->end && utf8_is_digit(*part->text); part->text++) {
        u64 digit = static_cast<u64>(*part->text - '0');
        *number = *number > (~static_cast<u64>(0) - digit) / 10 ? ~static_cast<u64>(0) : *number * 10 + digit;
    }
    return part->text != start;
}

static void _http_parse_range(http_request_t *request, _http_part_t value) {
    u64 first, last;
    request->has_range = false;
    if (!_http_skip(&value, "bytes=") || !_http_read_number(&value, &first))
        return;
    bool has_last = _http_skip(&value, "-") && _http_read_number(&value, &last);
    if (value.text != value.end || (has_last && last < first))
        return;
    request->has_range = true;
    request->range_start = first;
    // The whole of 64 bits wraps around to 0, which is up to the end as well.
    request->range_size = has_last ? last - first + 1 : 0;
}

bool http_request_has_range_of(const http_request_t *request, u64 file_time) {
    if (!request->has_range || !request->if_range)
        return request->has_range;
    utf8_buf_t date;
    utf8_buf_init(&date);
    http_cat_date(&date, file_time);
    const bool is_same = date.length != 0 && !std::strcmp(date.data, request->if_range);
    utf8_buf_kill(&date);
    return is_same;
}

// --- Lines -------------------------------------------------------------------------------------------------

static void _http_parse_get(http_request_t *request, _http_part_t value) {
    if (request->url)
        return;
    const char *end = value.text;
    while (end < value.end && !_http_is_blank(*end))
        end++;
    request->url = utf8_alloc_copy_length(value.text, static_cast<u32>(end - value.text));
}

static void _http_parse_host(http_request_t *request, _http_part_t value) {
    request->has_second_host = request->host != nullptr;
    if (!request->host)
        request->host = utf8_alloc_copy_length(value.text, _http_part_length(&value));
}

static void _http_parse_if_range(http_request_t *request, _http_part_t value) {
    if (request->if_range)
        mem_free(request->if_range);
    request->if_range = utf8_alloc_copy_length(value.text, _http_part_length(&value));
}

bool http_request_parse_line(http_request_t *request, const char *line, u32 length,
                             const http_login_t *login) {
    if (length != 0 && line[length - 1] == '\r')
        length--;
    if (length == 0)
        return true;
    if (std::memchr(line, 0, length))
        return false;
    // The blank behind a header's colon may be missing.
    _http_part_t word = {line, line};
    _http_part_t value = {line, line + length};
    while (word.end < value.end && !_http_is_blank(*word.end) && (word.end == line || word.end[-1] != ':'))
        word.end++;
    value.text = word.end;
    _http_trim(&value);
    if (_http_part_is(&word, "get"))
        _http_parse_get(request, value);
    else if (_http_part_is(&word, "host:"))
        _http_parse_host(request, value);
    else if (_http_part_is(&word, "range:"))
        _http_parse_range(request, value);
    else if (_http_part_is(&word, "if-range:"))
        _http_parse_if_range(request, value);
    else if (_http_part_is(&word, "sec-fetch-site:"))
        request->is_from_elsewhere = !_http_part_is(&value, "same-origin") && !_http_part_is(&value, "none");
    else if (_http_part_is(&word, "sec-fetch-dest:"))
        request->is_part = !_http_part_is(&value, "document");
    else if (_http_part_is(&word, "authorization:") && _http_skip(&value, "basic ")) {
        _http_trim(&value);
        request->authenticated = _http_login_is_right(value, login);
    }
    return false;
}

bool http_request_get_path(const char *url, utf8_buf_t *out, const char **query) {
    const char *path = *url == '/' ? url + 1 : url;
    const char *end = path + std::strcspn(path, "?#");
    if (query)
        *query = *end == '?' ? end + 1 : nullptr;
    utf8_buf_empty(out);
    http_cat_url_decoded(out, path, static_cast<u32>(end - path), false);
    utf8_buf_fix_path(out);
    return !std::memchr(out->data, 0, static_cast<size_t>(out->length));
}

} // namespace findwright
