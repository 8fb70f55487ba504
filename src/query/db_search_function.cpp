// The ops of functions: columns, places, duplicates, children, types, contents. What an op tests is put
// together from its number and the pass, so that neither is looked at per item.
#include "query/db_search.h"

#include "base/utf8.h"
#include "db/db_extended_info.h"
#include "db/db_file.h"
#include "db/db_folder.h"
#include "db/db_item_set.h"
#include "query/db_query_internal.h"
#include "query/file_content.h"
#include "track/db_recent_change.h"
#include "track/db_run_history.h"

#include <algorithm>
#include <array>
#include <utility>

namespace findwright {

// --- Numbers -----------------------------------------------------------------------------------------------

// What the index does not hold; unknown where there is no such file.
template<bool is_folder>
static db_file_info_t _db_read_info(db_scan_t *scan, const db_item_t *item) {
    db_file_info_t info;
    db_file_info_clear(&info);
    bool found = is_folder ? db_get_folder_fileinfo(scan->query->extended_info, item, &info)
                           : db_get_file_fileinfo(scan->query->extended_info, item, &info);
    if (!found)
        db_file_info_clear(&info);
    return info;
}

static constexpr bool _db_is_range_family(u32 family) {
    switch (family) {
    case DB_OP_SIZE:
    case DB_OP_SIZE_READ:
    case DB_OP_DATE_MODIFIED:
    case DB_OP_DATE_MODIFIED_READ:
    case DB_OP_DATE_CREATED:
    case DB_OP_DATE_CREATED_READ:
    case DB_OP_DATE_ACCESSED:
    case DB_OP_DATE_ACCESSED_READ:
    case DB_OP_RECENT_CHANGE:
    case DB_OP_DATE_RUN: return true;
    default: return false;
    }
}

template<u32 family, bool is_folder>
static u64 _db_get_value(db_scan_t *scan, const db_item_t *item) {
    const db_t *db = scan->db;
    if constexpr (family == DB_OP_SIZE)
        return is_folder ? db_folder_get_size(db, item) : db_file_get_size(db, item);
    else if constexpr (family == DB_OP_DATE_MODIFIED)
        return is_folder ? db_folder_get_date_modified(db, item) : db_file_get_date_modified(db, item);
    else if constexpr (family == DB_OP_DATE_CREATED)
        return is_folder ? db_folder_get_date_created(db, item) : db_file_get_date_created(db, item);
    else if constexpr (family == DB_OP_DATE_ACCESSED)
        return is_folder ? db_folder_get_date_accessed(db, item) : db_file_get_date_accessed(db, item);
    else if constexpr (family == DB_OP_SIZE_READ)
        return _db_read_info<is_folder>(scan, item).size;
    else if constexpr (family == DB_OP_DATE_MODIFIED_READ)
        return _db_read_info<is_folder>(scan, item).date_modified;
    else if constexpr (family == DB_OP_DATE_CREATED_READ)
        return _db_read_info<is_folder>(scan, item).date_created;
    else if constexpr (family == DB_OP_DATE_ACCESSED_READ)
        return _db_read_info<is_folder>(scan, item).date_accessed;
    else if constexpr (family == DB_OP_DATE_RUN)
        return db_run_history_get(db, item).date;
    const db_recent_change_t *change = db_recent_change_find(db, item);
    return change ? change->date : VALUE_UNKNOWN;
}

static constexpr bool _db_is_count_family(u32 family) {
    return family == DB_OP_INDEX_ORDINAL || family == DB_OP_LENGTH || family == DB_OP_PARENTS ||
           family == DB_OP_RUN_COUNT;
}

static constexpr bool _db_is_path_length(u32 family, bool path) {
    return family == DB_OP_LENGTH && path;
}
// Families that walk to the top of an item's chain.
static constexpr bool _db_is_chain_family(u32 family) {
    return family == DB_OP_INDEX_ORDINAL || family == DB_OP_FILE_LIST_FILENAME || family == DB_OP_PARENTS;
}

template<u32 family, bool path>
static i64 _db_get_count(db_scan_t *scan, const db_item_t *item) {
    if constexpr (family == DB_OP_INDEX_ORDINAL)
        return db_get_index(item)->ordinal;
    else if constexpr (family == DB_OP_RUN_COUNT)
        return db_run_history_get(scan->db, item).count;
    i64 count = family == DB_OP_LENGTH ? db_item_get_name_units(item) : 0;
    if (_db_is_path_length(family, path) && !db_item_is_top(item))
        count += 1 + static_cast<i64>(
                         scan->is_single ? db_folder_get_path_units(item->parent)
                                         : db_scan_memo_get_path_units(db_scan_get_memo(scan), item->parent));
    for (mem_ref_t ref = item->parent; ref >= MEM_REF_FIRST && family == DB_OP_PARENTS;
         ref = db_item(ref)->parent)
        count++;
    return count;
}

// --- The two dates of an item ------------------------------------------------------------------------------

static constexpr bool _db_is_dates_family(u32 family) {
    return family == DB_OP_DATES_EQUAL || family == DB_OP_DATES_AT_OR_AFTER || family == DB_OP_DATES_AFTER;
}

template<u32 family, bool is_folder>
static bool _db_compare_dates(db_scan_t *scan, const db_item_t *item) {
    constexpr u32 both = DB_FLAG_DATE_CREATED | DB_FLAG_DATE_MODIFIED;
    u32 have = scan->db->layout.flags & both;
    u64 modified = _db_get_value<DB_OP_DATE_MODIFIED, is_folder>(scan, item);
    u64 created = _db_get_value<DB_OP_DATE_CREATED, is_folder>(scan, item);
    if (have != both) {
        db_file_info_t info = _db_read_info<is_folder>(scan, item);
        modified = have & DB_FLAG_DATE_MODIFIED ? modified : info.date_modified;
        created = have & DB_FLAG_DATE_CREATED ? created : info.date_created;
    }
    if constexpr (family == DB_OP_DATES_EQUAL)
        return modified == created;
    else if constexpr (family == DB_OP_DATES_AT_OR_AFTER)
        return modified >= created;
    else
        return modified > created;
}

// --- Contents ----------------------------------------------------------------------------------------------

static constexpr bool _db_is_content_family(u32 family) {
    return family == DB_OP_CONTENT || family == DB_OP_CONTENT_UTF16 || family == DB_OP_CONTENT_UTF16BE ||
           family == DB_OP_CONTENT_ANSI || family == DB_OP_CONTENT_UTF8;
}

static constexpr file_content_encoding_t _db_get_encoding(u32 family) {
    switch (family) {
    case DB_OP_CONTENT_UTF16: return FILE_CONTENT_UTF16;
    case DB_OP_CONTENT_UTF16BE: return FILE_CONTENT_UTF16BE;
    case DB_OP_CONTENT_ANSI: return FILE_CONTENT_ANSI;
    case DB_OP_CONTENT_UTF8: return FILE_CONTENT_UTF8;
    default: return FILE_CONTENT_AUTO;
    }
}

struct _db_content_test_t {
    const db_exec_term_t *term;
    void *regex_match;
};

static bool _db_content_match_proc(void *param, const char *text, u32 length) {
    const _db_content_test_t *test = static_cast<const _db_content_test_t *>(param);
    return test->term->text_test(test->term, test->regex_match, text, length);
}

// The longest text that the term can match: a letter of three bytes can fold to one of one byte. Only plain
// texts can be looked for block by block.
static u32 _db_get_span(const db_exec_term_t *term) {
    u32 family = db_op_decode(term->matcher_op).family;
    bool is_plain = family == DB_OP_FIND || family == DB_OP_TRUE || family == DB_OP_FALSE;
    return is_plain ? 3 * term->text_length + 2 * UTF8_CHAR_MAX : 0;
}

template<u32 family>
static bool _db_match_content(db_scan_t *scan, const db_exec_term_t *term, const db_item_t *item) {
    _db_content_test_t test = {term, scan->regex_match};
    file_content_matcher_t matcher = {_db_content_match_proc, &test, _db_get_span(term),
                                      &scan->query->cancel_search};
    db_item_get_full_path_name(&scan->path, item);
    return file_content_match(scan->path.data, _db_get_encoding(family), &matcher);
}

// --- Texts -------------------------------------------------------------------------------------------------

static bool _db_match_type(db_scan_t *scan, const db_exec_term_t *term, const db_item_t *file) {
    u32 length, extension_length;
    const char *name = db_item_get_name(file, &length);
    const char *extension = db_name_get_extension(name, length, &extension_length);
    db_memo_extension_t *known = nullptr;
    if (extension_length <= DB_MEMO_EXTENSION_MAX &&
        db_scan_memo_find_extension(db_scan_get_memo(scan), term, extension, extension_length, &known))
        return known->answer;
    const char *type =
        db_extended_info_get_type_name(scan->query->extended_info, extension, extension_length);
    bool answer = term->text_test(term, scan->regex_match, type, utf8_length(type));
    if (known)
        known->answer = answer;
    return answer;
}

static bool _db_match_file_list_filename(db_scan_t *scan, const db_exec_term_t *term, const db_item_t *item) {
    db_scan_memo_t *memo = db_scan_get_memo(scan);
    const db_index_t *index = db_get_index(item);
    db_memo_index_t *known = &memo->indexes[(index->ordinal + term->number) % DB_MEMO_INDEXES];
    if (known->term == term && known->index == index)
        return known->answer;
    const char *filename = index->type == DB_INDEX_TYPE_FILE_LIST
                               ? static_cast<const db_index_file_list_t *>(index)->filename
                               : "";
    *known = {term, index, term->text_test(term, scan->regex_match, filename, utf8_length(filename))};
    return known->answer;
}

// --- One item ----------------------------------------------------------------------------------------------

// The other families, which have one test each.
template<u32 family, utf8_mode_t mode, bool path, bool is_folder>
static bool _db_holds_other(db_scan_t *scan, const db_exec_term_t *term, const db_item_t *item) {
    if constexpr (family == DB_OP_ROOT) {
        return item->parent == 0;
    } else if constexpr (family == DB_OP_PARENT) {
        return item->parent == static_cast<const db_anchors_t *>(term->data)->inner[0];
    } else if constexpr (family == DB_OP_PARENTS_SEVERAL) {
        const db_anchors_t *anchors = static_cast<const db_anchors_t *>(term->data);
        return std::binary_search(anchors->inner, anchors->inner + anchors->inner_count, item->parent);
    } else if constexpr (family == DB_OP_ATTRIBUTES) {
        u32 value =
            is_folder ? db_folder_get_attributes(scan->db, item) : db_file_get_attributes(scan->db, item);
        return (value & term->mask) == term->mask;
    } else if constexpr (family == DB_OP_ATTRIBUTES_READ) {
        return (_db_read_info<is_folder>(scan, item).attributes & term->mask) == term->mask;
    } else if constexpr (family == DB_OP_EXTENSION || family == DB_OP_EXTENSION_OR_NONE) {
        return db_extensions_match<mode>(static_cast<const db_extensions_t *>(term->data), item);
    } else if constexpr (family == DB_OP_FILE_LIST) {
        return db_file_list_names_match(static_cast<const db_file_list_names_t *>(term->data), term->mode,
                                        item, path, &scan->path);
    } else if constexpr (family == DB_OP_TYPE) {
        return _db_match_type(scan, term, item);
    } else {
        static_assert(family == DB_OP_FILE_LIST_FILENAME);
        return _db_match_file_list_filename(scan, term, item);
    }
}

// What an op of the families here says of one item.
template<u32 op, bool is_folder>
static bool _db_test(db_scan_t *scan, const db_exec_term_t *term, const db_item_t *item) {
    static constexpr db_op_parts_t parts = db_op_decode(op);
    constexpr u32 family = parts.family;
    bool holds;
    if constexpr (_db_is_range_family(family)) {
        u64 value = _db_get_value<family, is_folder>(scan, item);
        holds = value >= term->range.low && value <= term->range.high;
    } else if constexpr (_db_is_count_family(family)) {
        i64 value = _db_get_count<family, parts.path>(scan, item);
        holds = value >= term->count.low && value <= term->count.high;
    } else if constexpr (_db_is_dates_family(family)) {
        holds = _db_compare_dates<family, is_folder>(scan, item);
    } else if constexpr (db_op_is_set_family(family)) {
        holds = db_item_set_has(static_cast<const db_item_set_t *>(term->data), mem_ref(item));
    } else if constexpr (_db_is_content_family(family)) {
        holds = _db_match_content<family>(scan, term, item);
    } else {
        holds = _db_holds_other<family, parts.mode, parts.path, is_folder>(scan, term, item);
    }
    return holds != parts.negated;
}

// --- One page ----------------------------------------------------------------------------------------------

template<u32 op, bool is_folder>
static u32 _db_scan(db_scan_t *scan, const db_exec_term_t *term, const u32 *values, u32 count, u32 *out) {
    static constexpr db_op_parts_t parts = db_op_decode(op);
    u32 found = 0;
    for (u32 i = 0; i < count; i++) {
        // A set tells without a look at the record.
        if constexpr (!db_op_is_set_family(parts.family))
            __builtin_prefetch(db_item(values[i + DB_SCAN_AHEAD]));
        if constexpr (_db_is_chain_family(parts.family)) // the record in front is here by now
            __builtin_prefetch(db_item(db_item(values[i + DB_SCAN_AHEAD / 2])->parent));
        if constexpr (_db_is_path_length(parts.family, parts.path))
            db_scan_memo_prefetch(db_scan_get_memo(scan), db_item(values[i + DB_SCAN_AHEAD / 2])->parent);
        if (scan->query->cancel_search.load(std::memory_order_relaxed))
            break;
        out[found] = values[i];
        found += _db_test<op, is_folder>(scan, term, db_item(values[i]));
    }
    return found;
}

// --- The tables --------------------------------------------------------------------------------------------

// Ops that the folder pass does not test, and the constants that it has for them.
static constexpr bool _db_is_folder_false(u32 op) {
    return (op >= 162 && op <= 171) || op == 198 || op == 199 || op == 222 || op == 223 || op == 280 ||
           (op >= 334 && op <= 343) || (op >= 352 && op <= 361);
}
static constexpr bool _db_is_folder_true(u32 op) {
    return op == 281;
}
// Those of the file pass, which are all false, the negated ones too.
static constexpr bool _db_is_file_false(u32 op) {
    return op == 194 || op == 195 || op == 280 || op == 281 || (op >= 344 && op <= 351);
}

// The ops of this file: 162 to 225, 280 to 285, 326 and more.
static constexpr bool _db_is_function_op(u32 op) {
    return (op >= DB_OP_EXTENSION && op < DB_OP_REGEX) || (op >= DB_OP_PARENT_NONE && op < DB_OP_NO_ANCHOR) ||
           (op >= DB_OP_RECENT_CHANGE && op < DB_OP_COUNT);
}

template<u32 op, bool is_folder>
static constexpr db_op_functions_t _db_get_op_functions() {
    constexpr bool is_constant =
        is_folder ? _db_is_folder_false(op) || _db_is_folder_true(op) : _db_is_file_false(op);
    if constexpr (_db_is_function_op(op) && !is_constant)
        return {&_db_test<op, is_folder>, &_db_scan<op, is_folder>};
    else
        return {};
}

template<bool is_folder, u32... ops>
static constexpr std::array<db_op_functions_t, sizeof...(ops)>
_db_make_functions(std::integer_sequence<u32, ops...>) {
    return {_db_get_op_functions<ops, is_folder>()...};
}

using _db_all_ops_t = std::make_integer_sequence<u32, DB_OP_COUNT>;
static constexpr auto folder_functions = _db_make_functions<true>(_db_all_ops_t());
static constexpr auto file_functions = _db_make_functions<false>(_db_all_ops_t());

// The constant that an op is in a pass, or the op itself. The comparisons of an item's two dates are told
// apart further: the chain of the folder pass and the single term of the file pass do not test all of them.
static u32 _db_settle_op(u32 op, db_op_pass_t pass) {
    if (pass.is_folder) {
        if (_db_is_folder_true(op) || (!pass.is_single && op == DB_OP_DATES_AFTER + 1))
            return DB_OP_TRUE;
        bool is_false =
            _db_is_folder_false(op) ||
            (!pass.is_single && (op == DB_OP_DATES_EQUAL + 1 || op == DB_OP_DATES_AT_OR_AFTER + 1));
        return is_false ? static_cast<u32>(DB_OP_FALSE) : op;
    }
    bool is_dates = op >= DB_OP_DATES_EQUAL && op <= DB_OP_DATES_AFTER + 1;
    return _db_is_file_false(op) || (pass.is_single && is_dates) ? static_cast<u32>(DB_OP_FALSE) : op;
}

db_op_functions_t db_op_get_function_functions(u32 op, db_op_pass_t pass) {
    if (!_db_is_function_op(op))
        return {};
    u32 settled = _db_settle_op(op, pass);
    if (settled != op)
        return db_op_get_functions(settled, pass);
    return pass.is_folder ? folder_functions[op] : file_functions[op];
}

} // namespace findwright
