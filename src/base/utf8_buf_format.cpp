// Numbers, sizes, dates and versions as text.
#include "base/platform.h"
#include "base/utf8_buf.h"

#include "base/utf8.h"

namespace findwright {

const char *utf8_size_units[UTF8_SIZE_UNITS] = {"Bytes", "KB", "MB", "GB", "TB", "PB"};

// Enough for any number, date or separator of a locale.
static constexpr u32 LOCALE_TEXT_MAX = 256;
static constexpr u32 UNIT_SHIFT = 10;
// A unit shows numbers below this.
static constexpr u64 UNIT_LIMIT = 1000;

void utf8_buf_format_number(utf8_buf_t *buf, i64 value) {
    char text[LOCALE_TEXT_MAX];
    const u32 length = platform.format_number(text, sizeof(text), value);
    utf8_buf_copy_utf8(buf, text, length);
}

static void _utf8_buf_cat_unit(utf8_buf_t *buf, u32 unit) {
    utf8_buf_cat_printf(buf, " %s", utf8_size_units[unit]);
}

static void _utf8_buf_format_auto_size(utf8_buf_t *buf, u64 value) {
    u32 unit = 0;
    while (unit < UTF8_SIZE_UNITS - 1 && value >> (UNIT_SHIFT * unit) >= UNIT_LIMIT) {
        unit++;
    }
    if (!unit) {
        utf8_buf_printf(buf, "%I64u", value);
        _utf8_buf_cat_unit(buf, unit);
        return;
    }
    const u32 shift = UNIT_SHIFT * unit;
    const u64 whole = value >> shift;
    const u64 fraction = (value & ((static_cast<u64>(1) << shift) - 1)) * 100 >> shift; // hundredths, cut off
    char separator[LOCALE_TEXT_MAX];
    const u32 separator_length = platform.decimal_separator(separator, sizeof(separator));
    if (whole < 10) {
        utf8_buf_printf(buf, "%I64u%t%02I64u", whole, separator, separator_length, fraction);
    } else if (whole < 100) {
        utf8_buf_printf(buf, "%I64u%t%I64u", whole, separator, separator_length, fraction / 10);
    } else if (whole < UNIT_LIMIT) {
        utf8_buf_printf(buf, "%I64u", whole);
    } else {
        utf8_buf_format_number(buf, static_cast<i64>(whole));
    }
    _utf8_buf_cat_unit(buf, unit);
}

void utf8_buf_format_size(utf8_buf_t *buf, utf8_size_format_t format, u64 value) {
    if (value == VALUE_UNKNOWN) {
        utf8_buf_empty(buf);
    } else if (format == UTF8_SIZE_AUTO) {
        _utf8_buf_format_auto_size(buf, value);
    } else if (format == UTF8_SIZE_BYTES) {
        utf8_buf_format_number(buf, static_cast<i64>(value));
    } else {
        const u32 unit = format - UTF8_SIZE_BYTES;
        const u32 shift = UNIT_SHIFT * unit;
        const bool rest = value & ((static_cast<u64>(1) << shift) - 1);
        utf8_buf_format_number(buf, static_cast<i64>((value >> shift) + rest));
        _utf8_buf_cat_unit(buf, unit);
    }
}

void utf8_buf_format_date(utf8_buf_t *buf, u64 file_time) {
    char text[LOCALE_TEXT_MAX];
    const u32 length =
        file_time == VALUE_UNKNOWN ? 0 : platform.format_short_date_time(text, sizeof(text), file_time);
    utf8_buf_copy_utf8(buf, text, length);
}

void utf8_buf_format_iso_date(utf8_buf_t *buf, u64 file_time) {
    u16 fields[7];
    if (file_time == VALUE_UNKNOWN || !platform.local_fields(file_time, fields)) {
        utf8_buf_empty(buf);
        return;
    }
    utf8_buf_printf(buf, "%04d-%02d-%02d %02d:%02d:%02d", fields[0], fields[1], fields[2], fields[3],
                    fields[4], fields[5]);
}

void utf8_buf_format_version(utf8_buf_t *buf, const utf8_version_t *version) {
    utf8_buf_printf(buf, "%d.%d.%d.%d%s (%s)%s", version->major, version->minor, version->revision,
                    version->build, version->suffix, version->build_name, version->tail);
}

} // namespace findwright
