// Runs the terms of a search on one item, and keeps those that made it a result.
#include "query/db_highlight.h"

#include "base/mem.h"
#include "query/db_highlight_internal.h"
#include "query/db_regex.h"

#include <cstring>

namespace findwright {

// --- Marked texts ------------------------------------------------------------------------------------------

void db_highlight_init(db_highlight_t *highlight) {
    utf8_buf_init(&highlight->text);
    highlight->runs = nullptr;
    highlight->run_count = highlight->run_capacity = 0;
}

void db_highlight_kill(db_highlight_t *highlight) {
    utf8_buf_kill(&highlight->text);
    if (highlight->runs)
        mem_free(highlight->runs);
}

static void _db_highlight_empty(db_highlight_t *highlight) {
    utf8_buf_empty(&highlight->text);
    highlight->run_count = 0;
}

// Marks a character, which stands behind all runs or at the end of the last one.
static void _db_highlight_add(db_highlight_t *highlight, u32 start, u32 length) {
    static constexpr u32 FIRST_CAPACITY = 8;
    if (highlight->run_count != 0) {
        db_highlight_run_t *last = &highlight->runs[highlight->run_count - 1];
        if (last->start + last->length == start) {
            last->length += length;
            return;
        }
    }
    if (highlight->run_count == highlight->run_capacity) {
        u32 capacity = highlight->run_capacity != 0 ? highlight->run_capacity * 2 : FIRST_CAPACITY;
        auto *runs = static_cast<db_highlight_run_t *>(mem_alloc(capacity * sizeof(db_highlight_run_t)));
        if (highlight->runs) {
            std::memcpy(runs, highlight->runs, highlight->run_count * sizeof *runs);
            mem_free(highlight->runs);
        }
        highlight->runs = runs;
        highlight->run_capacity = capacity;
    }
    highlight->runs[highlight->run_count++] = {start, length};
}

// Cuts a part out of the path. A character is marked as a whole, also where a malformed one was matched in
// its middle.
static void _db_highlight_cut(db_highlight_t *out, const db_marks_t *marks, u32 start, u32 end) {
    const char *text = marks->path.data;
    _db_highlight_empty(out);
    utf8_buf_copy_utf8(&out->text, text + start, end - start);
    for (u32 i = start; i < end;) {
        u32 length = utf8_char_length(text + i, text + end);
        if (std::memchr(marks->map.data + i, 1, length))
            _db_highlight_add(out, i - start, length);
        i += length;
    }
}

// --- The terms that decided --------------------------------------------------------------------------------

static bool _db_reads_content(const db_exec_term_t *term) {
    switch (db_op_decode(term->op).family) {
    case DB_OP_CONTENT:
    case DB_OP_CONTENT_UTF16:
    case DB_OP_CONTENT_UTF16BE:
    case DB_OP_CONTENT_ANSI:
    case DB_OP_CONTENT_UTF8: return true;
    default: return false;
    }
}

// A term that matched belongs to a branch that failed if its own failure would have led to where that
// branch's does, at once or over alternatives inside the branch: links go forward only, and whatever fails in
// a branch leaves it to the same place.
//
//     <a <b|c> d>|e     a and b match, d does not and leads to e. a leads to e; b leads to c, and c to e.
//     a <b|c>           a matches, b does not and leads to c. a leads nowhere: it stays.
static bool _db_is_of_branch(const db_exec_term_t *term, const db_exec_term_t *failed_to) {
    do
        term = term->notnext;
    while (term && term != failed_to);
    return term != nullptr;
}

// Walks the terms as the scan does, and keeps those that matched and count. Returns their number; 0 also for
// an item that is no result any more. Contents of files are taken to match: as no link is followed for the
// want of a match but to an alternative, that never loses a result.
static u32 _db_walk_terms(db_scan_t *scan, const db_item_t *item, const db_exec_term_t **kept) {
    u32 count = 0;
    for (const db_exec_term_t *term = scan->first_term; term;) {
        if (_db_reads_content(term) || term->test(scan, term, item)) {
            kept[count++] = term;
            if (!term->next)
                return count;
            term = term->next;
            continue;
        }
        // Terms of a branch follow one another, so that those of the failed one are the last ones kept.
        while (count != 0 && _db_is_of_branch(kept[count - 1], term->notnext))
            count--;
        term = term->notnext;
    }
    return 0;
}

static void _db_mark_item(db_marks_t *marks) {
    u32 terms = 0;
    bool has_regex = false;
    for (const db_exec_term_t *term = marks->scan.first_term; term; term = term->link) {
        terms++;
        has_regex |= term->regex != nullptr;
    }
    if (terms == 0)
        return;
    auto **kept = static_cast<const db_exec_term_t **>(mem_alloc(terms * sizeof(db_exec_term_t *)));
    marks->scan.regex_match = has_regex ? db_regex_match_create() : nullptr;
    u32 count = _db_walk_terms(&marks->scan, marks->item, kept);
    for (u32 i = 0; i < count; i++) {
        if (!kept[i]->is_filter)
            db_mark_term(marks, kept[i]);
    }
    if (marks->scan.regex_match)
        db_regex_match_free(marks->scan.regex_match);
    mem_free(kept);
}

// --- Results -----------------------------------------------------------------------------------------------

// Of a block of zeros. False for a bad index; then nothing was made.
static bool _db_marks_init(db_marks_t *marks, db_query_t *query, i32 index) {
    const db_item_t *item = db_get_result_item(query, index);
    if (!item)
        return false;
    utf8_buf_init(&marks->scan.path);
    utf8_buf_init(&marks->path);
    utf8_buf_init(&marks->map);
    marks->scan.query = query;
    marks->scan.db = query->db;
    marks->scan.first_term = db_is_folder_result(query, index) ? query->folder_terms : query->file_terms;
    marks->item = item;
    db_item_get_full_path_name(&marks->path, item);
    u32 length = static_cast<u32>(marks->path.length);
    marks->name_start = length - db_item_get_name_length(item);
    utf8_buf_grow_empty(&marks->map, length + 1);
    std::memset(marks->map.data, 0, length + 1);
    _db_mark_item(marks);
    return true;
}

static void _db_marks_kill(db_marks_t *marks) {
    utf8_buf_kill(&marks->scan.path);
    if (marks->scan.memo)
        db_scan_memo_free(marks->scan.memo);
    utf8_buf_kill(&marks->path);
    utf8_buf_kill(&marks->map);
}

void _db_get_highlighted_result(db_query_t *query, i32 index, db_highlight_t *out_name,
                                db_highlight_t *out_path, u32 form) {
    bool wants_name = form != DB_HIGHLIGHT_PATH, wants_path = form != DB_HIGHLIGHT_NAME;
    if (wants_name)
        _db_highlight_empty(out_name);
    if (wants_path)
        _db_highlight_empty(out_path);
    db_marks_t marks = {};
    if (!_db_marks_init(&marks, query, index))
        return;
    if (wants_name)
        _db_highlight_cut(out_name, &marks, marks.name_start, static_cast<u32>(marks.path.length));
    if (wants_path && !db_item_is_top(marks.item)) // the separator is in neither
        _db_highlight_cut(out_path, &marks, 0, marks.name_start - 1);
    _db_marks_kill(&marks);
}

void db_get_highlighted_full_path_name(db_query_t *query, i32 index, db_highlight_t *out) {
    _db_highlight_empty(out);
    db_marks_t marks = {};
    if (!_db_marks_init(&marks, query, index))
        return;
    _db_highlight_cut(out, &marks, 0, static_cast<u32>(marks.path.length));
    _db_marks_kill(&marks);
}

} // namespace findwright
