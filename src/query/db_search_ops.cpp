// The table of ops: what each op code tests, and how it scans a page. One function per op is instantiated
// from the op's number, so that what the number has settled is tested by none of them.
#include "base/utf8_match.h"
#include "query/db_regex.h"
#include "query/db_search.h"

#include <array>
#include <utility>

namespace findwright {

enum _db_family_kind_t : u32 {
    FAMILY_NONE,
    FAMILY_TRUE,
    FAMILY_FALSE,
    FAMILY_FIND,
    FAMILY_EQUAL,
    FAMILY_WILDCARD_FIND,
    FAMILY_WILDCARD,
    FAMILY_STARTS_WITH,
    FAMILY_ENDS_WITH,
    FAMILY_REGEX,
};

// An op code taken apart.
struct _db_op_parts_t {
    _db_family_kind_t family;
    utf8_mode_t mode;
    bool whole_word;
    bool path;
    bool negated;
};

struct _db_op_range_t {
    u32 first, end;
    _db_family_kind_t family;
    bool has_whole_word, ascii;
};
static constexpr _db_op_range_t op_ranges[] = {
    {DB_OP_FIND, DB_OP_FIND_ASCII, FAMILY_FIND, true, false},
    {DB_OP_FIND_ASCII, DB_OP_EQUAL, FAMILY_FIND, true, true},
    {DB_OP_EQUAL, DB_OP_EQUAL_ASCII, FAMILY_EQUAL, false, false},
    {DB_OP_EQUAL_ASCII, DB_OP_WILDCARD_FIND, FAMILY_EQUAL, false, true},
    {DB_OP_WILDCARD_FIND, DB_OP_WILDCARD_FIND_ASCII, FAMILY_WILDCARD_FIND, true, false},
    {DB_OP_WILDCARD_FIND_ASCII, DB_OP_WILDCARD, FAMILY_WILDCARD_FIND, true, true},
    {DB_OP_WILDCARD, DB_OP_WILDCARD_ASCII, FAMILY_WILDCARD, false, false},
    {DB_OP_WILDCARD_ASCII, DB_OP_STARTS_WITH, FAMILY_WILDCARD, false, true},
    {DB_OP_STARTS_WITH, DB_OP_STARTS_WITH_ASCII, FAMILY_STARTS_WITH, false, false},
    {DB_OP_STARTS_WITH_ASCII, DB_OP_ENDS_WITH, FAMILY_STARTS_WITH, false, true},
    {DB_OP_ENDS_WITH, DB_OP_ENDS_WITH_ASCII, FAMILY_ENDS_WITH, false, false},
    {DB_OP_ENDS_WITH_ASCII, DB_OP_ENDS_WITH_END, FAMILY_ENDS_WITH, false, true},
};

static constexpr _db_op_parts_t _db_op_decode(u32 op) {
    if (op == DB_OP_TRUE)
        return {FAMILY_TRUE, UTF8_MODE_EXACT, false, false, false};
    if (op == DB_OP_FALSE)
        return {FAMILY_FALSE, UTF8_MODE_EXACT, false, false, false};
    if (op >= DB_OP_REGEX && op < DB_OP_REGEX_END)
        return {FAMILY_REGEX, UTF8_MODE_EXACT, false, ((op - DB_OP_REGEX) & 1) != 0,
                ((op - DB_OP_REGEX) & 2) != 0};
    for (const _db_op_range_t &range : op_ranges) {
        if (op < range.first || op >= range.end)
            continue;
        u32 rest = op - range.first;
        auto take = [&rest]() {
            bool bit = rest & 1;
            rest >>= 1;
            return bit;
        };
        _db_op_parts_t parts = {range.family, UTF8_MODE_ASCII, false, false, false};
        if (range.has_whole_word)
            parts.whole_word = take();
        if (!range.ascii) {
            bool match_case = take(), diacritics = take();
            parts.mode = match_case ? (diacritics ? UTF8_MODE_EXACT : UTF8_MODE_KEEP_CASE)
                                    : (diacritics ? UTF8_MODE_LOWER : UTF8_MODE_FOLD);
        }
        parts.path = take();
        parts.negated = take();
        return parts;
    }
    return {FAMILY_NONE, UTF8_MODE_EXACT, false, false, false};
}

// --- One item ----------------------------------------------------------------------------------------------

template<_db_op_parts_t parts>
static inline bool _db_test_text(db_scan_t *scan, const db_exec_term_t *term, const char *text, u32 length) {
    const char *pattern = term->text;
    u32 size = term->text_length;
    if constexpr (parts.family == FAMILY_FIND && parts.whole_word)
        return utf8_find_word<parts.mode>(text, length, pattern, size);
    else if constexpr (parts.family == FAMILY_FIND)
        return utf8_find<parts.mode>(text, length, pattern, size);
    else if constexpr (parts.family == FAMILY_EQUAL)
        return utf8_equal<parts.mode>(text, length, pattern, size);
    else if constexpr (parts.family == FAMILY_WILDCARD_FIND && parts.whole_word)
        return utf8_wildcard_find_word<parts.mode>(text, length, pattern, size);
    else if constexpr (parts.family == FAMILY_WILDCARD_FIND)
        return utf8_wildcard_find<parts.mode>(text, length, pattern, size);
    else if constexpr (parts.family == FAMILY_WILDCARD)
        return utf8_wildcard<parts.mode>(text, length, pattern, size);
    else if constexpr (parts.family == FAMILY_STARTS_WITH)
        return utf8_starts_with<parts.mode>(text, length, pattern, size) != UTF8_NO_MATCH;
    else if constexpr (parts.family == FAMILY_ENDS_WITH)
        return utf8_ends_with<parts.mode>(text, length, pattern, size) != UTF8_NO_MATCH;
    else
        return db_regex_match(term->regex, scan->regex_match, text, length);
}

template<u32 op>
static bool _db_test(db_scan_t *scan, const db_exec_term_t *term, const db_item_t *item) {
    static constexpr _db_op_parts_t parts = _db_op_decode(op);
    if constexpr (parts.family == FAMILY_TRUE) {
        return true;
    } else if constexpr (parts.family == FAMILY_FALSE || parts.family == FAMILY_NONE) {
        return false;
    } else if constexpr (parts.path) {
        db_item_get_full_path_name(&scan->path, item);
        return _db_test_text<parts>(scan, term, scan->path.data, static_cast<u32>(scan->path.length)) !=
               parts.negated;
    } else {
        u32 length;
        const char *name = db_item_get_name(item, &length);
        return _db_test_text<parts>(scan, term, name, length) != parts.negated;
    }
}

// --- One page ----------------------------------------------------------------------------------------------

template<u32 op>
static u32 _db_scan(db_scan_t *scan, const db_exec_term_t *term, const u32 *values, u32 count, u32 *out) {
    static constexpr _db_op_parts_t parts = _db_op_decode(op);
    u32 found = 0;
    if constexpr (parts.family == FAMILY_FIND && !parts.path) {
        found = db_find_scans_get()->scans[parts.mode][parts.whole_word](scan, term, values, count, out);
        if constexpr (!parts.negated)
            return found;
        // What was found is in scan order: the others are what lies between.
        u32 kept = 0;
        u32 hits[ARRAY_PAGE_VALUES];
        std::memcpy(hits, out, found * sizeof *hits);
        for (u32 i = 0, next = 0; i < count; i++) {
            if (next != found && hits[next] == values[i])
                next++;
            else
                out[kept++] = values[i];
        }
        return kept;
    } else {
        for (u32 i = 0; i < count; i++) {
            __builtin_prefetch(db_item(values[i + DB_SCAN_AHEAD]));
            // These tests can take long on one item, so a new keystroke is looked for at each.
            if (scan->query->cancel_search.load(std::memory_order_relaxed))
                break;
            out[found] = values[i];
            found += _db_test<op>(scan, term, db_item(values[i]));
        }
        return found;
    }
}

// --- The tables --------------------------------------------------------------------------------------------

template<u32... ops>
static constexpr std::array<db_item_test_t *, sizeof...(ops)>
_db_make_tests(std::integer_sequence<u32, ops...>) {
    return {(_db_op_decode(ops).family == FAMILY_NONE ? &_db_test<DB_OP_FALSE> : &_db_test<ops>)...};
}
template<u32... ops>
static constexpr std::array<db_page_scan_t *, sizeof...(ops)>
_db_make_scans(std::integer_sequence<u32, ops...>) {
    return {(_db_op_decode(ops).family == FAMILY_NONE ? &_db_scan<DB_OP_FALSE> : &_db_scan<ops>)...};
}

static constexpr auto op_tests = _db_make_tests(std::make_integer_sequence<u32, DB_OP_REGEX_END>());
static constexpr auto op_scans = _db_make_scans(std::make_integer_sequence<u32, DB_OP_REGEX_END>());

db_item_test_t *db_op_get_test(u32 op) {
    return op < op_tests.size() ? op_tests[op] : op_tests[DB_OP_FALSE];
}
db_page_scan_t *db_op_get_scan(u32 op) {
    return op < op_scans.size() ? op_scans[op] : op_scans[DB_OP_FALSE];
}

static const db_find_scans_t *_db_find_scans;

const db_find_scans_t *db_find_scans_get() {
    static const db_find_scans_t *const best =
        __builtin_cpu_supports("avx2") && __builtin_cpu_supports("bmi2") ? &db_find_scans_avx2
                                                                         : &db_find_scans_sse2;
    return _db_find_scans ? _db_find_scans : best;
}

void db_find_scans_set(const db_find_scans_t *scans) {
    _db_find_scans = scans;
}

} // namespace findwright
