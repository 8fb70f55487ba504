#include "query/db_query_value_internal.h"

namespace findwright {

i32 size_tiny = 10240;
i32 size_small = 102400;
i32 size_medium = 1048576;
i32 size_large = 16777216;
i32 size_huge = 134217728;

static constexpr i32 COUNT_MAX = 0x7FFFFFFF;
static constexpr db_range_t NOTHING = {1, 0};
static constexpr db_count_range_t NO_COUNT = {1, 0};

// --- Pieces ------------------------------------------------------------------------------------------------

bool db_value_skip_word(const char **at, const char *word) {
    const char *text = *at;
    for (; *word; word++, text++) {
        char c = *text;
        if (c >= 'A' && c <= 'Z')
            c = static_cast<char>(c + ('a' - 'A'));
        if (c != *word)
            return false;
    }
    *at = text;
    return true;
}

static u64 _db_value_append_digit(u64 value, char digit) {
    auto added = static_cast<u64>(digit - '0');
    return value > (DB_RANGE_MAX - added) / 10 ? DB_RANGE_MAX : value * 10 + added;
}

u64 db_value_read_number(const char **at) {
    u64 value = 0;
    for (; db_value_is_digit(**at); ++*at)
        value = _db_value_append_digit(value, **at);
    return value;
}

bool db_value_skip_range_sign(const char **at) {
    return db_value_skip_word(at, "..") || db_value_skip_word(at, "-");
}

const char *db_query_term_parse_comparison(const char *text, db_comparison_t *comparison) {
    static constexpr struct {
        const char *sign;
        db_comparison_t comparison;
    } signs[] = {
        {">=", DB_COMPARE_AT_LEAST}, {">", DB_COMPARE_MORE},   {"<=", DB_COMPARE_AT_MOST},
        {"<", DB_COMPARE_LESS},      {"==", DB_COMPARE_EQUAL}, {"=", DB_COMPARE_EQUAL},
    };
    *comparison = DB_COMPARE_NONE;
    for (const auto &entry : signs)
        if (db_value_skip_word(&text, entry.sign)) {
            *comparison = entry.comparison;
            break;
        }
    return text;
}

// --- Counts ------------------------------------------------------------------------------------------------

static i32 _db_count_read(const char **at) {
    u32 value = 0;
    for (; db_value_is_digit(**at) || **at == ','; ++*at)
        if (**at != ',')
            value = value * 10 + static_cast<u32>(**at - '0');
    return static_cast<i32>(value);
}

db_count_range_t db_query_parse_count_argument(const char *text) {
    if (!*text)
        return {1, COUNT_MAX};
    db_comparison_t comparison;
    text = db_query_term_parse_comparison(text, &comparison);
    i32 low = _db_count_read(&text);
    i32 high = db_value_skip_range_sign(&text) ? _db_count_read(&text) : low;
    switch (comparison) {
    case DB_COMPARE_AT_LEAST: return {low, COUNT_MAX};
    case DB_COMPARE_MORE:
        if (low == COUNT_MAX || high == COUNT_MAX)
            return NO_COUNT;
        return {high + 1, COUNT_MAX};
    case DB_COMPARE_AT_MOST: return {0, high};
    case DB_COMPARE_LESS:
        if (!low)
            return NO_COUNT;
        return {0, static_cast<i32>(static_cast<u32>(low) - 1)};
    default: return {low, high};
    }
}

// --- Sizes -------------------------------------------------------------------------------------------------

static u64 _db_size_setting(i32 value) {
    return value > 0 ? static_cast<u64>(value) : 0;
}

static bool _db_size_read_name(const char **at, db_range_t *range) {
    const u64 ends[] = {_db_size_setting(size_tiny), _db_size_setting(size_small),
                        _db_size_setting(size_medium), _db_size_setting(size_large),
                        _db_size_setting(size_huge)};
    const struct {
        const char *name;
        db_range_t range;
    } names[] = {
        {"empty", {0, 0}},
        {"tiny", {1, ends[0]}},
        {"small", {ends[0] + 1, ends[1]}},
        {"medium", {ends[1] + 1, ends[2]}},
        {"large", {ends[2] + 1, ends[3]}},
        {"huge", {ends[3] + 1, ends[4]}},
        {"gigantic", {ends[4] + 1, DB_RANGE_MAX}},
        {"unknown", {VALUE_UNKNOWN, VALUE_UNKNOWN}},
    };
    for (const auto &entry : names)
        if (db_value_skip_word(at, entry.name)) {
            *range = entry.range;
            return true;
        }
    return false;
}

// Digits behind a point: value / divisor.
struct db_fraction_t {
    u64 value;
    u64 divisor;
};

static void _db_size_read_fraction(const char **at, db_fraction_t *fraction) {
    constexpr u64 DIVISOR_MAX = 1000000000000000000;
    *fraction = {0, 1};
    if (**at != '.' || db_value_is_range_dots(*at))
        return;
    for (++*at; db_value_is_digit(**at); ++*at)
        if (fraction->divisor < DIVISOR_MAX) {
            fraction->value = fraction->value * 10 + static_cast<u64>(**at - '0');
            fraction->divisor *= 10;
        }
}

// 2^shift * value / divisor, bit by bit: the product needs more than 64 bits, the remainder never does.
static u64 _db_fraction_scale(const db_fraction_t *fraction, u32 shift) {
    u64 quotient = 0;
    u64 rest = fraction->value; // always below the divisor
    for (u32 i = 0; i < shift; i++) {
        rest *= 2;
        quotient *= 2;
        if (rest >= fraction->divisor) {
            rest -= fraction->divisor;
            quotient++;
        }
    }
    return quotient;
}

// The power of two that the unit stands for; 0 for bytes.
static u32 _db_size_read_unit(const char **at) {
    static constexpr const char *units[] = {"eb", "pb", "tb", "gb", "mb", "kb"};
    for (u32 i = 0; i < 6; i++)
        if (db_value_skip_word(at, units[i]))
            return 60 - i * 10;
    db_value_skip_word(at, "b");
    return 0;
}

// The sizes that a list shows as this many kilobytes, rounded up. The last ones end where sizes do.
static db_range_t _db_size_round(u64 value, const db_fraction_t *fraction, u32 shift) {
    constexpr u64 KILOBYTE = 1024;
    constexpr u64 LAST = ~static_cast<u64>(0) - (KILOBYTE - 1); // the largest whole kilobyte of 64 bits
    if (value >> (64 - shift))
        return {LAST + 1, DB_RANGE_MAX};
    u64 whole = value << shift;
    u64 part = _db_fraction_scale(fraction, shift);
    if (whole > LAST || part > LAST - whole)
        return {LAST + 1, DB_RANGE_MAX};
    u64 high = (whole + part + (KILOBYTE - 1)) & ~(KILOBYTE - 1);
    return {high ? high - (KILOBYTE - 1) : 0, high};
}

static db_range_t _db_size_read_number(const char **at) {
    u64 value = 0;
    for (; db_value_is_digit(**at) || **at == ','; ++*at)
        if (**at != ',')
            value = _db_value_append_digit(value, **at);
    db_fraction_t fraction;
    _db_size_read_fraction(at, &fraction);
    u32 shift = _db_size_read_unit(at);
    if (!shift)
        return {value, value};
    return _db_size_round(value, &fraction, shift);
}

db_range_t db_query_parse_size(const char *text, bool allow_range) {
    if (!*text)
        return {0, DB_RANGE_MAX};
    db_range_t range;
    if (!_db_size_read_name(&text, &range))
        range = _db_size_read_number(&text);
    if (allow_range && db_value_skip_range_sign(&text))
        range.high = db_query_parse_size(text, false).high;
    return range;
}

// --- Arguments of sizes and dates --------------------------------------------------------------------------

// Nothing is more than the largest value, and than one that is not known.
static db_range_t _db_range_compare(db_comparison_t comparison, db_range_t range) {
    switch (comparison) {
    case DB_COMPARE_AT_LEAST: return {range.low, DB_RANGE_MAX};
    case DB_COMPARE_MORE:
        if (range.high >= DB_RANGE_MAX)
            return NOTHING;
        return {range.high + 1, DB_RANGE_MAX};
    case DB_COMPARE_AT_MOST: return {0, range.high};
    case DB_COMPARE_LESS:
        if (!range.low)
            return NOTHING;
        return {0, range.low - 1};
    default: return range;
    }
}

db_range_t db_query_parse_size_argument(const char *text) {
    db_comparison_t comparison;
    text = db_query_term_parse_comparison(text, &comparison);
    return _db_range_compare(comparison, db_query_parse_size(text, true));
}

db_range_t db_query_parse_date_argument(const char *text) {
    db_comparison_t comparison;
    text = db_query_term_parse_comparison(text, &comparison);
    return _db_range_compare(comparison, db_query_parse_date(text, true));
}

} // namespace findwright
