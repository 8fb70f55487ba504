#include "base/utf8.h"
#include "base/wchar_buf.h"
#include "os/os_internal.h"
#include "os/os_posix.h"

#include <climits>
#include <cstring>
#include <ctime>
#include <langinfo.h>
#include <locale.h>

// The user's locale is held beside the process's own, which stays the C locale: libraries below, and numbers
// in files, must not change with it.

namespace findwright {

static locale_t _locale;

// The locale stays when the layer ends: what it formats may be asked for until the very end.
void os_locale_init() {
    tzset();
    if (_locale)
        freelocale(_locale);
    _locale = newlocale(LC_NUMERIC_MASK | LC_TIME_MASK | LC_CTYPE_MASK, "", nullptr);
    if (!_locale) // the environment names one that is not installed
        _locale = newlocale(LC_ALL_MASK, "C", nullptr);
}

u32 os_group_digits(char *out, u32 capacity, i64 value, const char *grouping, const char *separator) {
    char text[256];
    char *at = text + sizeof(text);
    auto separator_length = static_cast<u32>(std::strlen(separator));
    if (separator_length > 4) // no such locale; and the buffer holds 19 digits with as many separators
        separator_length = 0;
    u64 rest = value < 0 ? 0 - static_cast<u64>(value) : static_cast<u64>(value);
    u32 in_group = 0;
    do {
        auto group = static_cast<u32>(*grouping);
        if (group && group < SCHAR_MAX && in_group == group) {
            at -= separator_length;
            std::memcpy(at, separator, separator_length);
            in_group = 0;
            if (grouping[1])
                grouping++;
        }
        *--at = static_cast<char>('0' + rest % 10);
        in_group++;
        rest /= 10;
    } while (rest);
    if (value < 0)
        *--at = '-';
    return os_copy_text(out, capacity, at, static_cast<u32>(text + sizeof(text) - at));
}

static u32 _os_format_number(char *out, u32 capacity, i64 value) {
    return os_group_digits(out, capacity, value, nl_langinfo_l(GROUPING, _locale),
                           nl_langinfo_l(THOUSEP, _locale));
}

static u32 _os_decimal_separator(char *out, u32 capacity) {
    const char *text = nl_langinfo_l(RADIXCHAR, _locale);
    return os_copy_text(out, capacity, text, static_cast<u32>(std::strlen(text)));
}

// The locale's date, and its time without seconds: on twelve hours if that is how it writes times.
static u32 _os_format_short_date_time(char *out, u32 capacity, u64 file_time) {
    u16 fields[7];
    if (!os_local_fields(file_time, fields))
        return os_copy_text(out, capacity, "", 0);
    tm broken = {};
    broken.tm_year = fields[0] - 1900;
    broken.tm_mon = fields[1] - 1;
    broken.tm_mday = fields[2];
    broken.tm_hour = fields[3];
    broken.tm_min = fields[4];
    broken.tm_sec = fields[5];
    const char *time_format = nl_langinfo_l(T_FMT, _locale);
    bool twelve =
        std::strstr(time_format, "%r") || std::strstr(time_format, "%I") || std::strstr(time_format, "%l");
    char text[256];
    size_t length = strftime_l(text, sizeof(text), twelve ? "%x %I:%M %p" : "%x %H:%M", &broken, _locale);
    return os_copy_text(out, capacity, text, static_cast<u32>(length));
}

os_date_order_t os_date_order_of_format(const char *format) {
    for (const char *at = format; *at; at++) {
        if (*at != '%')
            continue;
        // Padding, width, and the marks of other calendars and digits stand in front of the letter.
        at += 1 + std::strspn(at + 1, "-_^#+0123456789EO");
        switch (*at) {
        case 'm':
        case 'b':
        case 'B':
        case 'h':
        case 'D': return OS_ORDER_MONTH_DAY_YEAR;
        case 'd':
        case 'e': return OS_ORDER_DAY_MONTH_YEAR;
        case 'y':
        case 'Y':
        case 'C':
        case 'F': return OS_ORDER_YEAR_MONTH_DAY;
        case 0: return OS_ORDER_DAY_MONTH_YEAR;
        default: break;
        }
    }
    return OS_ORDER_DAY_MONTH_YEAR;
}

// The C locale and its variants, "C.UTF-8" and the like, are no user's choice of an order.
static bool _os_has_dates_of_its_own(const char *name) {
    return std::strcmp(name, "POSIX") != 0 && !(name[0] == 'C' && (!name[1] || name[1] == '.'));
}

void os_get_calendar(os_calendar_t *calendar) {
    *calendar = {0, OS_ORDER_DAY_MONTH_YEAR, 2049};
    if (!_os_has_dates_of_its_own(nl_langinfo_l(_NL_LOCALE_NAME(LC_TIME), _locale)))
        return;
    calendar->date_order = os_date_order_of_format(nl_langinfo_l(D_FMT, _locale));
    // The first day of the week is counted from 1, from the weekday of a date that the locale names: a number
    // in the place of a pointer.
    constexpr u32 A_MONDAY = 19971201;
    auto counted_from =
        static_cast<u32>(reinterpret_cast<std::uintptr_t>(nl_langinfo_l(_NL_TIME_WEEK_1STDAY, _locale)));
    auto first = static_cast<u32>(*nl_langinfo_l(_NL_TIME_FIRST_WEEKDAY, _locale));
    calendar->first_weekday = (first + 6 + (counted_from == A_MONDAY ? 1 : 0)) % 7;
}

// The 8-bit code page is UTF-8.

static u32 _os_ansi_from_wchar(char *out, u32 capacity, const char16_t *text, u32 length) {
    utf8_buf_t buf;
    utf8_buf_init(&buf);
    utf8_buf_copy_wchar(&buf, text, length);
    auto size = static_cast<u32>(buf.length);
    if (capacity)
        std::memcpy(out, buf.data, size < capacity ? size : capacity);
    utf8_buf_kill(&buf);
    return size;
}

static u32 _os_wchar_from_ansi(char16_t *out, u32 capacity, const char *text, u32 length) {
    wchar_buf_t buf;
    wchar_buf_init(&buf);
    wchar_buf_copy_utf8(&buf, text, length);
    auto size = static_cast<u32>(buf.length);
    if (capacity)
        std::memcpy(out, buf.data, (size < capacity ? size : capacity) * sizeof(char16_t));
    wchar_buf_kill(&buf);
    return size;
}

u32 os_ansi_get_whole_length(const char *text, u32 length) {
    u32 whole = 0;
    while (whole < length) {
        auto byte = static_cast<u8>(text[whole]);
        u32 size = byte < 0xC0 || byte >= 0xF8 ? 1 : byte < 0xE0 ? 2 : byte < 0xF0 ? 3 : 4;
        if (size > length - whole)
            break;
        whole += size;
    }
    return whole;
}

void os_locale_fill_table(platform_t *table) {
    table->ansi_from_wchar = _os_ansi_from_wchar;
    table->wchar_from_ansi = _os_wchar_from_ansi;
    table->format_number = _os_format_number;
    table->decimal_separator = _os_decimal_separator;
    table->format_short_date_time = _os_format_short_date_time;
}

} // namespace findwright
