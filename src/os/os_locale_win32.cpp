#include "base/wchar_buf.h"
#include "os/os_internal.h"
#include "os/os_win32.h"

#include <cwchar>

namespace findwright {

static constexpr int LOCALE_TEXT = 256;

void os_locale_init() {}

static u32 _os_give_wide(char *out, u32 capacity, const wchar_t *text) {
    utf8_buf_t buf;
    utf8_buf_init(&buf);
    utf8_buf_copy_wchar(&buf, reinterpret_cast<const char16_t *>(text), static_cast<u32>(std::wcslen(text)));
    u32 copied = os_copy_text(out, capacity, buf.data, static_cast<u32>(buf.length));
    utf8_buf_kill(&buf);
    return copied;
}

static void _os_get_locale_text(LCTYPE type, wchar_t *text) {
    if (!GetLocaleInfoW(LOCALE_USER_DEFAULT, type, text, LOCALE_TEXT))
        text[0] = 0;
}

// LOCALE_SGROUPING is "3;0" for repeated groups of three, "3;2;0" for three and then repeated twos, "3" for
// one group only; NUMBERFMT wants 3, 32 and 30 for these.
static UINT _os_get_grouping() {
    wchar_t text[LOCALE_TEXT];
    _os_get_locale_text(LOCALE_SGROUPING, text);
    UINT grouping = 0;
    bool repeats = false;
    for (const wchar_t *at = text; *at; at++) {
        repeats = *at == L'0';
        if (*at > L'0' && *at <= L'9')
            grouping = grouping * 10 + static_cast<UINT>(*at - L'0');
    }
    return repeats || !grouping ? grouping : grouping * 10;
}

static u32 _os_format_number(char *out, u32 capacity, i64 value) {
    utf8_buf_t digits;
    utf8_buf_init(&digits);
    utf8_buf_printf(&digits, "%I64d", value);
    wchar_t decimal[LOCALE_TEXT];
    wchar_t thousand[LOCALE_TEXT];
    _os_get_locale_text(LOCALE_SDECIMAL, decimal);
    _os_get_locale_text(LOCALE_STHOUSAND, thousand);
    NUMBERFMTW format = {};
    format.LeadingZero = 1; // or 0 has no digits
    format.Grouping = _os_get_grouping();
    format.lpDecimalSep = decimal;
    format.lpThousandSep = thousand;
    format.NegativeOrder = 1; // the sign directly in front
    os_wide_t wide(digits.data, static_cast<u32>(digits.length));
    wchar_t text[LOCALE_TEXT];
    u32 length;
    if (GetNumberFormatW(LOCALE_USER_DEFAULT, 0, wide.text(), &format, text, LOCALE_TEXT))
        length = _os_give_wide(out, capacity, text);
    else
        length = os_copy_text(out, capacity, digits.data, static_cast<u32>(digits.length));
    utf8_buf_kill(&digits);
    return length;
}

static u32 _os_decimal_separator(char *out, u32 capacity) {
    wchar_t text[LOCALE_TEXT];
    _os_get_locale_text(LOCALE_SDECIMAL, text);
    return _os_give_wide(out, capacity, text);
}

// The short time format of systems that have one, with room for its end; else that of all times.
static void _os_get_time_format(wchar_t *format) {
    constexpr LCTYPE SHORT_TIME = 0x79; // LOCALE_SSHORTTIME, from 6.1 on
    _os_get_locale_text(SHORT_TIME, format);
    if (!format[0])
        _os_get_locale_text(LOCALE_STIMEFORMAT, format);
}

// GetTimeFormatW knows no milliseconds. Users write them as SSS into their time format, at its end.
static u32 _os_format_short_date_time(char *out, u32 capacity, u64 file_time) {
    u16 fields[7];
    if (!os_local_fields(file_time, fields))
        return os_copy_text(out, capacity, "", 0);
    SYSTEMTIME time = {fields[0], fields[1], 0, fields[2], fields[3], fields[4], fields[5], fields[6]};
    wchar_t format[LOCALE_TEXT];
    _os_get_time_format(format);
    wchar_t *token = std::wcsstr(format, L"SSS");
    if (token)
        std::wmemmove(token, token + 3, std::wcslen(token + 3) + 1);
    wchar_t text[LOCALE_TEXT];
    utf8_buf_t buf;
    utf8_buf_init(&buf);
    if (GetDateFormatW(LOCALE_USER_DEFAULT, DATE_SHORTDATE, &time, nullptr, text, LOCALE_TEXT))
        utf8_buf_copy_wchar(&buf, reinterpret_cast<const char16_t *>(text),
                            static_cast<u32>(std::wcslen(text)));
    utf8_buf_cat_byte(&buf, ' ');
    if (GetTimeFormatW(LOCALE_USER_DEFAULT, 0, &time, format, text, LOCALE_TEXT))
        utf8_buf_cat_wchar(&buf, reinterpret_cast<const char16_t *>(text),
                           static_cast<u32>(std::wcslen(text)));
    if (token)
        utf8_buf_cat_printf(&buf, "%03d", fields[6]);
    u32 copied = os_copy_text(out, capacity, buf.data, static_cast<u32>(buf.length));
    utf8_buf_kill(&buf);
    return copied;
}

// A setting of the locale that is a single digit.
static u32 _os_get_locale_digit(LCTYPE type, u32 last, u32 fallback) {
    wchar_t text[LOCALE_TEXT];
    _os_get_locale_text(type, text);
    u32 value = static_cast<u32>(text[0]) - '0';
    return value <= last ? value : fallback;
}

void os_get_calendar(os_calendar_t *calendar) {
    constexpr u32 SUNDAY = 6; // of the locale's setting, which begins with Monday
    calendar->first_weekday = (_os_get_locale_digit(LOCALE_IFIRSTDAYOFWEEK, SUNDAY, SUNDAY) + 1) % 7;
    calendar->date_order =
        static_cast<os_date_order_t>(_os_get_locale_digit(LOCALE_IDATE, 2, OS_ORDER_DAY_MONTH_YEAR));
    DWORD year = 0;
    if (!GetCalendarInfoW(LOCALE_USER_DEFAULT, CAL_GREGORIAN, CAL_ITWODIGITYEARMAX | CAL_RETURN_NUMBER,
                          nullptr, 0, &year) ||
        !year)
        year = 2049;
    calendar->two_digit_year_max = year;
}

// The system's calls write nothing when the buffer is too small, so a short one is filled from a whole
// result.

static u32 _os_ansi_from_wchar(char *out, u32 capacity, const char16_t *text, u32 length) {
    auto *wide = reinterpret_cast<const wchar_t *>(text);
    auto count = static_cast<int>(length);
    auto size = static_cast<u32>(WideCharToMultiByte(CP_ACP, 0, wide, count, nullptr, 0, nullptr, nullptr));
    if (size <= capacity) {
        WideCharToMultiByte(CP_ACP, 0, wide, count, out, static_cast<int>(size), nullptr, nullptr);
        return size;
    }
    if (!capacity)
        return size;
    utf8_buf_t buf;
    utf8_buf_init(&buf);
    utf8_buf_grow_empty(&buf, size + 1);
    WideCharToMultiByte(CP_ACP, 0, wide, count, buf.data, static_cast<int>(size), nullptr, nullptr);
    std::memcpy(out, buf.data, capacity);
    utf8_buf_kill(&buf);
    return size;
}

static u32 _os_wchar_from_ansi(char16_t *out, u32 capacity, const char *text, u32 length) {
    auto count = static_cast<int>(length);
    auto size = static_cast<u32>(MultiByteToWideChar(CP_ACP, 0, text, count, nullptr, 0));
    if (size <= capacity) {
        MultiByteToWideChar(CP_ACP, 0, text, count, reinterpret_cast<wchar_t *>(out), static_cast<int>(size));
        return size;
    }
    if (!capacity)
        return size;
    wchar_buf_t buf;
    wchar_buf_init(&buf);
    wchar_buf_grow_empty(&buf, size + 1);
    MultiByteToWideChar(CP_ACP, 0, text, count, reinterpret_cast<wchar_t *>(buf.data),
                        static_cast<int>(size));
    std::memcpy(out, buf.data, capacity * sizeof(char16_t));
    wchar_buf_kill(&buf);
    return size;
}

static u32 _os_utf8_get_whole_length(const char *text, u32 length) {
    for (u32 back = 1; back <= 3 && back <= length; back++) {
        auto byte = static_cast<u8>(text[length - back]);
        if (byte >= 0xC0)
            return (byte < 0xE0 ? 2u : byte < 0xF0 ? 3u : 4u) > back ? length - back : length;
    }
    return length;
}

u32 os_ansi_get_whole_length(const char *text, u32 length) {
    if (GetACP() == CP_UTF8)
        return _os_utf8_get_whole_length(text, length);
    CPINFO page;
    if (!GetCPInfo(CP_ACP, &page) || page.MaxCharSize < 2)
        return length;
    u32 whole = 0;
    while (whole < length) {
        u32 size = IsDBCSLeadByte(static_cast<BYTE>(text[whole])) ? 2 : 1;
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
