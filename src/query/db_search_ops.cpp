// The table of ops: what each op code tests, and how it scans a page. One function per op is instantiated
// from the op's number, so that what the number has settled is tested by none of them.
#include "base/utf8_match.h"
#include "query/db_regex.h"
#include "query/db_search.h"

#include <array>
#include <utility>

namespace findwright {

// --- One item ----------------------------------------------------------------------------------------------

// The families of this file: those that test names and paths as texts.
static constexpr bool _db_is_text_family(u32 family) {
    switch (family) {
    case DB_OP_FIND:
    case DB_OP_EQUAL:
    case DB_OP_WILDCARD_FIND:
    case DB_OP_WILDCARD:
    case DB_OP_STARTS_WITH:
    case DB_OP_ENDS_WITH:
    case DB_OP_REGEX: return true;
    default: return false;
    }
}

template<u32 family, utf8_mode_t mode, bool whole_word>
static bool _db_test_text(const db_exec_term_t *term, void *regex_match, const char *text, u32 length) {
    const char *pattern = term->text;
    u32 size = term->text_length;
    if constexpr (family == DB_OP_TRUE || family == DB_OP_FALSE)
        return family == DB_OP_TRUE;
    else if constexpr (family == DB_OP_FIND && whole_word)
        return utf8_find_word<mode>(text, length, pattern, size);
    else if constexpr (family == DB_OP_FIND)
        return utf8_find<mode>(text, length, pattern, size);
    else if constexpr (family == DB_OP_EQUAL)
        return utf8_equal<mode>(text, length, pattern, size);
    else if constexpr (family == DB_OP_WILDCARD_FIND && whole_word)
        return utf8_wildcard_find_word<mode>(text, length, pattern, size);
    else if constexpr (family == DB_OP_WILDCARD_FIND)
        return utf8_wildcard_find<mode>(text, length, pattern, size);
    else if constexpr (family == DB_OP_WILDCARD)
        return utf8_wildcard<mode>(text, length, pattern, size);
    else if constexpr (family == DB_OP_STARTS_WITH)
        return utf8_starts_with<mode>(text, length, pattern, size) != UTF8_NO_MATCH;
    else if constexpr (family == DB_OP_ENDS_WITH)
        return utf8_ends_with<mode>(text, length, pattern, size) != UTF8_NO_MATCH;
    else
        return db_regex_match(term->regex, regex_match, text, length);
}

template<u32 op>
static bool _db_test(db_scan_t *scan, const db_exec_term_t *term, const db_item_t *item) {
    static constexpr db_op_parts_t parts = db_op_decode(op);
    if constexpr (!_db_is_text_family(parts.family)) {
        return parts.family == DB_OP_TRUE;
    } else {
        constexpr auto test = _db_test_text<parts.family, parts.mode, parts.whole_word>;
        if constexpr (parts.path) {
            db_item_get_full_path_name(&scan->path, item);
            return test(term, scan->regex_match, scan->path.data, static_cast<u32>(scan->path.length)) !=
                   parts.negated;
        } else {
            u32 length;
            const char *name = db_item_get_name(item, &length);
            return test(term, scan->regex_match, name, length) != parts.negated;
        }
    }
}

// --- One page ----------------------------------------------------------------------------------------------

template<u32 op>
static u32 _db_scan(db_scan_t *scan, const db_exec_term_t *term, const u32 *values, u32 count, u32 *out) {
    static constexpr db_op_parts_t parts = db_op_decode(op);
    u32 found = 0;
    if constexpr (parts.family == DB_OP_FIND && !parts.path) {
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

u32 db_scan_by_test(db_scan_t *scan, const db_exec_term_t *term, const u32 *values, u32 count, u32 *out) {
    u32 found = 0;
    for (u32 i = 0; i < count; i++) {
        __builtin_prefetch(db_item(values[i + DB_SCAN_AHEAD]));
        if (scan->query->cancel_search.load(std::memory_order_relaxed))
            break;
        out[found] = values[i];
        found += term->test(scan, term, db_item(values[i]));
    }
    return found;
}

// --- The tables --------------------------------------------------------------------------------------------

template<u32 op>
static constexpr db_text_test_t *_db_get_text_test() {
    constexpr db_op_parts_t parts = db_op_decode(op);
    if constexpr (_db_is_text_family(parts.family) || op == DB_OP_TRUE || op == DB_OP_FALSE)
        return &_db_test_text<parts.family, parts.mode, parts.whole_word>;
    else
        return nullptr;
}

// Where the op of another family stands, the constant false.
template<u32 op>
inline constexpr u32 _db_table_op = _db_is_text_family(db_op_decode(op).family) || op == DB_OP_TRUE
                                        ? op
                                        : DB_OP_FALSE;

template<u32... ops>
static constexpr std::array<db_op_functions_t, sizeof...(ops)>
_db_make_functions(std::integer_sequence<u32, ops...>) {
    return {db_op_functions_t{&_db_test<_db_table_op<ops>>, &_db_scan<_db_table_op<ops>>}...};
}
template<u32... ops>
static constexpr std::array<db_text_test_t *, sizeof...(ops)>
_db_make_text_tests(std::integer_sequence<u32, ops...>) {
    return {_db_get_text_test<ops>()...};
}

static constexpr auto op_functions = _db_make_functions(std::make_integer_sequence<u32, DB_OP_COUNT>());
static constexpr auto op_text_tests = _db_make_text_tests(std::make_integer_sequence<u32, DB_OP_COUNT>());

db_op_functions_t db_op_get_functions(u32 op, db_op_pass_t pass) {
    if (op >= DB_OP_COUNT)
        return op_functions[DB_OP_FALSE];
    db_op_functions_t functions = db_op_get_function_functions(op, pass);
    return functions.test ? functions : op_functions[op];
}

db_text_test_t *db_op_get_text_test(u32 op) {
    return op < DB_OP_COUNT ? op_text_tests[op] : nullptr;
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
