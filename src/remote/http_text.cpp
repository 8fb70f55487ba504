// Escapes. Whatever is plain is copied in runs; each form has a table of the ASCII bytes that are.
#include "remote/http_text.h"

#include "base/utf8.h"

#include <cstring>

namespace findwright {

// --- UTF-8, as a browser reads it --------------------------------------------------------------------------

static bool _http_is_tail(const char *text, u32 count) {
    for (u32 i = 0; i < count; i++) {
        if ((text[i] & 0xC0) != 0x80)
            return false;
    }
    return true;
}

u32 http_utf8_char_length(const char *text, const char *end) {
    u32 value;
    u32 length = utf8_decode(text, end, &value);
    if (length == 1)
        return static_cast<u8>(*text) < 0x80;
    bool is_whole = _http_is_tail(text + 1, length - 1) && utf8_encoded_length(value) == length &&
                    value <= 0x10FFFF && (value < 0xD800 || value > 0xDFFF);
    return is_whole ? length : 0;
}

// --- The loop of all forms ---------------------------------------------------------------------------------

struct _http_form_t {
    bool plain[128];
    bool keeps_wide; // characters above ASCII
    // Writes a character that is not kept; `length` 0: one byte that is no UTF-8.
    void (*escape)(utf8_buf_t *out, const char *text, u32 length);
};

// They end a line in a script.
static bool _http_is_line_separator(const char *text, u32 length) {
    return length == 3 && !std::memcmp(text, "\xE2\x80", 2) && (text[2] & 0xFE) == 0xA8;
}

static void _http_cat_form(utf8_buf_t *out, const char *text, u32 length, const _http_form_t *form,
                           bool keeps_line_separators) {
    const char *end = text + length;
    const char *start = text;
    while (text < end) {
        u8 byte = static_cast<u8>(*text);
        u32 count = byte < 0x80 ? 1 : http_utf8_char_length(text, end);
        bool is_kept = byte < 0x80 ? form->plain[byte]
                                   : count != 0 && form->keeps_wide &&
                                         (keeps_line_separators || !_http_is_line_separator(text, count));
        if (!is_kept) {
            utf8_buf_cat_utf8(out, start, static_cast<u32>(text - start));
            form->escape(out, text, count);
            start = text + (count != 0 ? count : 1);
        }
        text += count != 0 ? count : 1;
    }
    utf8_buf_cat_utf8(out, start, static_cast<u32>(text - start));
}

// All but control characters and those of a text.
consteval _http_form_t _http_form_without(const char *others, bool keeps_controls,
                                          void (*escape)(utf8_buf_t *, const char *, u32)) {
    _http_form_t form = {};
    for (u32 i = 1; i < 128; i++)
        form.plain[i] = keeps_controls || (i >= 32 && i != 127);
    for (; *others; others++)
        form.plain[static_cast<u8>(*others)] = false;
    form.keeps_wide = true;
    form.escape = escape;
    return form;
}

// Letters, digits and those of a text.
consteval _http_form_t _http_form_of(const char *others, bool keeps_wide,
                                     void (*escape)(utf8_buf_t *, const char *, u32)) {
    _http_form_t form = {};
    for (u32 i = 0; i < 128; i++)
        form.plain[i] = (i >= '0' && i <= '9') || (i >= 'A' && i <= 'Z') || (i >= 'a' && i <= 'z');
    for (; *others; others++)
        form.plain[static_cast<u8>(*others)] = true;
    form.keeps_wide = keeps_wide;
    form.escape = escape;
    return form;
}

static void _http_cat_replacement(utf8_buf_t *out) {
    utf8_buf_cat_utf8(out, "\xEF\xBF\xBD", 3);
}

// --- HTML and JSON -----------------------------------------------------------------------------------------

static void _http_escape_html(utf8_buf_t *out, const char *text, u32 length) {
    switch (length != 0 ? *text : 0) {
    case '&': utf8_buf_cat_string(out, "&amp;"); break;
    case '<': utf8_buf_cat_string(out, "&lt;"); break;
    case '>': utf8_buf_cat_string(out, "&gt;"); break;
    case '"': utf8_buf_cat_string(out, "&quot;"); break;
    default: _http_cat_replacement(out);
    }
}

static constexpr _http_form_t http_form_html = _http_form_without("&<>\"", true, _http_escape_html);

void http_cat_html(utf8_buf_t *out, const char *text, u32 length) {
    _http_cat_form(out, text, length, &http_form_html, true);
}

static void _http_escape_json(utf8_buf_t *out, const char *text, u32 length) {
    if (length == 0) {
        _http_cat_replacement(out);
    } else if (length > 1) {
        u32 value;
        utf8_decode(text, text + length, &value);
        utf8_buf_cat_printf(out, "\\u%04X", value);
    } else if (*text == '\\' || *text == '"') {
        utf8_buf_cat_byte(out, '\\');
        utf8_buf_cat_byte(out, *text);
    } else {
        utf8_buf_cat_printf(out, "\\u%04X", static_cast<u32>(*text));
    }
}

static constexpr _http_form_t http_form_json = _http_form_without("\\\"<>&", false, _http_escape_json);

void http_cat_json(utf8_buf_t *out, const char *text, u32 length) {
    _http_cat_form(out, text, length, &http_form_json, false);
}

// --- Addresses ---------------------------------------------------------------------------------------------

static void _http_escape_url(utf8_buf_t *out, const char *text, u32 length) {
    static constexpr char DIGITS[] = "0123456789ABCDEF";
    for (u32 i = 0; i == 0 || i < length; i++) {
        const char escaped[] = {'%', DIGITS[static_cast<u8>(text[i]) >> 4], DIGITS[text[i] & 15]};
        utf8_buf_cat_utf8(out, escaped, sizeof escaped);
    }
}

static void _http_escape_url_search(utf8_buf_t *out, const char *text, u32 length) {
    if (*text == ' ')
        utf8_buf_cat_byte(out, '+');
    else
        _http_escape_url(out, text, length);
}

static void _http_escape_url_path(utf8_buf_t *out, const char *text, u32 length) {
    if (*text == '\\')
        utf8_buf_cat_byte(out, '/');
    else
        _http_escape_url(out, text, length);
}

#define HTTP_URL_PLAIN "!'()*-._~"
static constexpr _http_form_t http_form_url = _http_form_of(HTTP_URL_PLAIN, true, _http_escape_url);
static constexpr _http_form_t http_form_url_search =
    _http_form_of(HTTP_URL_PLAIN, true, _http_escape_url_search);
static constexpr _http_form_t http_form_url_path =
    _http_form_of(HTTP_URL_PLAIN "/", true, _http_escape_url_path);
static constexpr _http_form_t http_form_url_path_ascii =
    _http_form_of(HTTP_URL_PLAIN "/", false, _http_escape_url_path);
// The host of an absolute address may have a user, a port, and brackets.
static constexpr _http_form_t http_form_url_host =
    _http_form_of(HTTP_URL_PLAIN ":@[]", false, _http_escape_url);

void http_cat_url(utf8_buf_t *out, const char *text, u32 length) {
    _http_cat_form(out, text, length, &http_form_url, true);
}

void http_cat_url_search(utf8_buf_t *out, const char *text, u32 length) {
    _http_cat_form(out, text, length, &http_form_url_search, true);
}

static void _http_cat_url_path(utf8_buf_t *out, const char *path, u32 length, const _http_form_t *form) {
    bool is_root = length != 0;
    while (length != 0 && utf8_is_separator(*path)) {
        path++;
        length--;
    }
    if (is_root && length == 0)
        utf8_buf_cat_string(out, "%2F");
    _http_cat_form(out, path, length, form, true);
}

void http_cat_url_path(utf8_buf_t *out, const char *path, u32 length) {
    _http_cat_url_path(out, path, length, &http_form_url_path);
}

void http_cat_url_path_ascii(utf8_buf_t *out, const char *path, u32 length) {
    _http_cat_url_path(out, path, length, &http_form_url_path_ascii);
}

static bool _http_is_scheme_char(char c, bool is_first) {
    return static_cast<u32>((c | 0x20) - 'a') < 26 ||
           (!is_first && (utf8_is_digit(c) || c == '+' || c == '-' || c == '.'));
}

// Bytes of a scheme in front of its "://"; 0 for none. One letter is a drive.
static u32 _http_get_scheme_length(const char *path, u32 length) {
    u32 i = 0;
    while (i < length && _http_is_scheme_char(path[i], i == 0))
        i++;
    return i > 1 && length - i >= 3 && !std::memcmp(path + i, "://", 3) ? i : 0;
}

bool http_path_has_scheme(const char *path, u32 length) {
    return _http_get_scheme_length(path, length) != 0;
}

bool http_path_has_link_scheme(const char *path, u32 length) {
    static const char *const schemes[] = {"http", "https", "ftp", "file"};
    u32 scheme_length = _http_get_scheme_length(path, length);
    for (const char *scheme : schemes) {
        if (scheme_length == utf8_length(scheme) &&
            !utf8_compare_lower(path, scheme_length, scheme, scheme_length))
            return true;
    }
    return false;
}

// An absolute one: its scheme and host, then a path as any other.
static void _http_cat_absolute_url(utf8_buf_t *out, const char *path, u32 length, bool ascii) {
    u32 host = _http_get_scheme_length(path, length) + 3;
    u32 host_end = host;
    while (host_end < length && !utf8_is_separator(path[host_end]))
        host_end++;
    utf8_buf_cat_utf8(out, path, host);
    _http_cat_form(out, path + host, host_end - host, &http_form_url_host, true);
    _http_cat_form(out, path + host_end, length - host_end,
                   ascii ? &http_form_url_path_ascii : &http_form_url_path, true);
}

void http_cat_item_url(utf8_buf_t *out, const char *path, u32 length, bool ascii) {
    if (http_path_has_link_scheme(path, length)) {
        _http_cat_absolute_url(out, path, length, ascii);
    } else if (!http_path_has_scheme(path, length)) {
        utf8_buf_cat_byte(out, '/');
        _http_cat_url_path(out, path, length, ascii ? &http_form_url_path_ascii : &http_form_url_path);
    }
}

static u32 _http_digit(const char *text, const char *end) {
    i32 value = text < end ? utf8_hex_value(*text) : -1;
    return value < 0 ? 0 : static_cast<u32>(value);
}

void http_cat_url_decoded(utf8_buf_t *out, const char *text, u32 length, bool plus_is_blank) {
    utf8_buf_grow_cat(out, length);
    char *to = out->data + out->length;
    const char *end = text + length;
    while (text < end) {
        if (*text == '%' && text + 1 < end) {
            *to++ = static_cast<char>(_http_digit(text + 1, end) << 4 | _http_digit(text + 2, end));
            text += end - text < 3 ? end - text : 3;
        } else {
            *to++ = *text == '+' && plus_is_blank ? ' ' : *text;
            text++;
        }
    }
    utf8_buf_set_length(out, static_cast<u32>(to - out->data));
}

// --- Dates -------------------------------------------------------------------------------------------------

// The arithmetic is that of years which begin with March: the leap day is then the last one of its year, and
// months repeat in five of 153 days.
static void _http_get_civil_date(u32 days, u32 *year, u32 *month, u32 *day) {
    static constexpr u32 DAYS_400_YEARS = 146097;
    static constexpr u32 MARCH_OF_0_TO_1601 = 584694;
    days += MARCH_OF_0_TO_1601;
    u32 era = days / DAYS_400_YEARS;
    u32 of_era = days % DAYS_400_YEARS;
    u32 year_of_era = (of_era - of_era / 1460 + of_era / 36524 - of_era / 146096) / 365;
    u32 of_year = of_era - (365 * year_of_era + year_of_era / 4 - year_of_era / 100);
    u32 from_march = (5 * of_year + 2) / 153;
    *day = of_year - (153 * from_march + 2) / 5 + 1;
    *month = from_march < 10 ? from_march + 3 : from_march - 9;
    *year = era * 400 + year_of_era + (*month <= 2);
}

void http_cat_date(utf8_buf_t *out, u64 file_time) {
    static const char *const days[] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
    static const char *const months[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                         "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    static constexpr u64 TICKS = 10000000; // of a second
    static constexpr u32 DAY = 86400;
    if (file_time == VALUE_UNKNOWN)
        return;
    u64 seconds = file_time / TICKS;
    u32 day_number = static_cast<u32>(seconds / DAY);
    u32 of_day = static_cast<u32>(seconds % DAY);
    u32 year, month, day;
    _http_get_civil_date(day_number, &year, &month, &day);
    // The first day of 1601 was a Monday.
    utf8_buf_cat_printf(out, "%s, %02d %s %d %02d:%02d:%02d GMT", days[(day_number + 1) % 7], day,
                        months[month - 1], year, of_day / 3600, of_day / 60 % 60, of_day % 60);
}

} // namespace findwright
