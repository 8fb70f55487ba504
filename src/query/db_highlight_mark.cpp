// Where a term matched, by its op's family.
#include "base/utf8_match.h"
#include "query/db_highlight_internal.h"
#include "query/db_regex.h"

#include <cstring>

namespace findwright {

// A part of the item's path that a term is matched against, and the marks of its bytes.
struct _db_marked_t {
    const char *text;
    u32 length;
    char *map;
};

static void _db_mark(const _db_marked_t *t, const char *start, size_t length) {
    std::memset(t->map + (start - t->text), 1, length);
}

static _db_marked_t _db_part(const _db_marked_t *t, u32 start, u32 end) {
    return {t->text + start, end - start, t->map + start};
}

// --- Texts -------------------------------------------------------------------------------------------------

// Every place where the text stands, those that overlap too.
template<utf8_mode_t mode, bool whole_word>
static void _db_mark_find(const _db_marked_t *t, const char *pattern, u32 size) {
    const char *end = t->text + t->length;
    utf8_hit_t hit;
    for (const char *from = t->text; from < end; from = hit.text + 1) {
        if (!utf8_find_from<mode, whole_word>(t->text, end, from, pattern, size, &hit))
            return;
        _db_mark(t, hit.text, hit.length);
    }
}

// The end of what a piece of a pattern, between two stars, matches at `text`; 0 when it does not.
template<utf8_mode_t mode>
static const char *_db_match_part(const char *text, const char *text_end, const char *part,
                                  const char *part_end) {
    while (part < part_end) {
        if (text == text_end)
            return nullptr;
        if (*part == '?') {
            text += utf8_char_length(text, text_end);
            part++;
        } else if (!utf8_match_char<mode>(&text, text_end, &part, part_end)) {
            return nullptr;
        }
    }
    return text;
}

// Marks what the characters other than `?` of such a part match; it does match at `text`.
template<utf8_mode_t mode>
static void _db_mark_part(const _db_marked_t *t, const char *text, const char *part, const char *part_end) {
    const char *text_end = t->text + t->length;
    while (part < part_end) {
        const char *start = text;
        if (*part == '?') {
            text += utf8_char_length(text, text_end);
            part++;
        } else {
            utf8_match_char<mode>(&text, text_end, &part, part_end);
            _db_mark(t, start, static_cast<size_t>(text - start));
        }
    }
}

// The first hit. Each part stands as early as it can behind the one in front, the last one at the hit's end:
// that is how the match was found.
template<utf8_mode_t mode, utf8_wildcard_extent_t extent>
static void _db_mark_wildcard(const _db_marked_t *t, const char *pattern, u32 size) {
    utf8_hit_t hit;
    if (!utf8_wildcard_match<mode, extent>(t->text, t->length, pattern, size, &hit))
        return;
    const char *pattern_end = pattern + size;
    const char *text_end = t->text + t->length, *hit_end = hit.text + hit.length;
    const char *text = hit.text;
    for (const char *part = pattern; part < pattern_end;) {
        const void *star = std::memchr(part, '*', static_cast<size_t>(pattern_end - part));
        const char *part_end = star ? static_cast<const char *>(star) : pattern_end;
        for (;; text += utf8_char_length(text, text_end)) {
            const char *end = _db_match_part<mode>(text, text_end, part, part_end);
            if (end && (star || end == hit_end)) {
                _db_mark_part<mode>(t, text, part, part_end);
                text = end;
                break;
            }
            if (text >= hit_end)
                return;
        }
        part = part_end + 1;
    }
}

template<utf8_mode_t mode>
static void _db_mark_text_mode(const _db_marked_t *t, u32 family, bool whole_word, const char *pattern,
                               u32 size) {
    switch (family) {
    case DB_OP_FIND:
        (whole_word ? _db_mark_find<mode, true> : _db_mark_find<mode, false>)(t, pattern, size);
        break;
    case DB_OP_EQUAL:
        if (utf8_equal<mode>(t->text, t->length, pattern, size))
            _db_mark(t, t->text, t->length);
        break;
    case DB_OP_WILDCARD: _db_mark_wildcard<mode, UTF8_WILDCARD_WHOLE>(t, pattern, size); break;
    case DB_OP_WILDCARD_FIND:
        (whole_word ? _db_mark_wildcard<mode, UTF8_WILDCARD_WORD>
                    : _db_mark_wildcard<mode, UTF8_WILDCARD_FIND>)(t, pattern, size);
        break;
    case DB_OP_STARTS_WITH: {
        i32 length = utf8_starts_with<mode>(t->text, t->length, pattern, size);
        if (length != UTF8_NO_MATCH)
            _db_mark(t, t->text, static_cast<u32>(length));
        break;
    }
    case DB_OP_ENDS_WITH: {
        i32 length = utf8_ends_with<mode>(t->text, t->length, pattern, size);
        if (length != UTF8_NO_MATCH)
            _db_mark(t, t->text + t->length - length, static_cast<u32>(length));
        break;
    }
    default: break;
    }
}

// Marks where a family of plain texts and wildcards matches; nothing where it does not.
static void _db_mark_text(const _db_marked_t *t, utf8_mode_t mode, u32 family, bool whole_word,
                          const char *pattern, u32 size) {
    switch (mode) {
    case UTF8_MODE_FOLD: _db_mark_text_mode<UTF8_MODE_FOLD>(t, family, whole_word, pattern, size); break;
    case UTF8_MODE_KEEP_CASE:
        _db_mark_text_mode<UTF8_MODE_KEEP_CASE>(t, family, whole_word, pattern, size);
        break;
    case UTF8_MODE_LOWER: _db_mark_text_mode<UTF8_MODE_LOWER>(t, family, whole_word, pattern, size); break;
    case UTF8_MODE_EXACT: _db_mark_text_mode<UTF8_MODE_EXACT>(t, family, whole_word, pattern, size); break;
    case UTF8_MODE_ASCII: _db_mark_text_mode<UTF8_MODE_ASCII>(t, family, whole_word, pattern, size); break;
    }
}

// Each match, from left to right; one of no characters moves on by one.
static void _db_mark_regex(const _db_marked_t *t, const void *regex, void *match) {
    u32 start, end;
    for (u32 from = 0; from <= t->length;) {
        if (!db_regex_find(regex, match, t->text, t->length, from, &start, &end))
            return;
        if (start < end)
            _db_mark(t, t->text + start, end - start);
        if (end > from)
            from = end;
        else if (from == t->length)
            return;
        else
            from += utf8_char_length(t->text + from, t->text + t->length);
    }
}

// --- Names and paths ---------------------------------------------------------------------------------------

static _db_marked_t _db_full_path(db_marks_t *marks) {
    return {marks->path.data, static_cast<u32>(marks->path.length), marks->map.data};
}
static _db_marked_t _db_name(db_marks_t *marks) {
    _db_marked_t path = _db_full_path(marks);
    return _db_part(&path, marks->name_start, path.length);
}

// What stands behind any `.` of the name and is an item of the list.
static void _db_mark_extension(db_marks_t *marks, const db_exec_term_t *term) {
    const auto *list = static_cast<const db_extensions_t *>(term->data);
    _db_marked_t name = _db_name(marks);
    for (u32 i = 0; list && i < name.length; i++) {
        if (name.text[i] != '.')
            continue;
        _db_marked_t extension = _db_part(&name, i + 1, name.length);
        for (u32 j = 0; j < list->count; j++)
            _db_mark_text(&extension, term->mode, DB_OP_EQUAL, false, list->items[j].text,
                          list->items[j].length);
    }
}

static void _db_mark_file_list(db_marks_t *marks, const db_exec_term_t *term) {
    const auto *list = static_cast<const db_file_list_names_t *>(term->data);
    _db_marked_t name = _db_name(marks), path = _db_full_path(marks);
    for (u32 i = 0; list && i < list->count; i++) {
        const db_file_list_name_t *item = &list->items[i];
        _db_mark_text(item->has_path ? &path : &name, term->mode, DB_OP_EQUAL, false, item->text,
                      item->length);
    }
}

// The term's text may have the separators that it was typed with.
static void _db_mark_components(db_marks_t *marks, const db_exec_term_t *term, u32 family) {
    const char *text = term->text;
    u32 size = term->text_length;
    if (size != 0 && text[0] == '\\') {
        text++;
        size--;
    }
    if (size != 0 && text[size - 1] == '\\')
        size--;
    _db_marked_t path = _db_full_path(marks);
    for (u32 start = 0, end; start < path.length; start = end + 1) {
        for (end = start; end < path.length && path.text[end] != '\\';)
            end++;
        _db_marked_t component = _db_part(&path, start, end);
        _db_mark_text(&component, term->mode, family, false, text, size);
    }
}

// --- Folders -----------------------------------------------------------------------------------------------

static bool _db_has_ref(const mem_ref_t *refs, u32 count, mem_ref_t ref) {
    for (u32 low = 0, high = count; low < high;) {
        u32 middle = low + (high - low) / 2;
        if (refs[middle] == ref)
            return true;
        if (refs[middle] < ref)
            low = middle + 1;
        else
            high = middle;
    }
    return false;
}

// The path of the item itself or of a folder above it stands at the start of the item's.
static void _db_mark_path_of(db_marks_t *marks, const db_item_t *folder) {
    db_item_get_full_path_name(&marks->scan.path, folder);
    _db_marked_t path = _db_full_path(marks);
    _db_mark(&path, path.text, static_cast<u32>(marks->scan.path.length));
}

// The nearest anchor, whose path holds those of the others.
static void _db_mark_anchor(db_marks_t *marks, const db_exec_term_t *term) {
    const auto *anchors = static_cast<const db_anchors_t *>(term->data);
    if (!anchors)
        return;
    for (const db_item_t *item = marks->item;; item = db_item(item->parent)) {
        mem_ref_t ref = mem_ref(item);
        bool is_self = item == marks->item;
        if (_db_has_ref(anchors->outer, anchors->outer_count, ref) ||
            _db_has_ref(is_self ? anchors->files : anchors->inner,
                        is_self ? anchors->file_count : anchors->inner_count, ref)) {
            _db_mark_path_of(marks, item);
            return;
        }
        if (db_item_is_top(item))
            return;
    }
}

void db_mark_term(db_marks_t *marks, const db_exec_term_t *term) {
    db_op_parts_t parts = db_op_decode(term->op);
    if (parts.negated)
        return;
    switch (parts.family) {
    case DB_OP_FIND:
    case DB_OP_EQUAL:
    case DB_OP_WILDCARD_FIND:
    case DB_OP_WILDCARD:
    case DB_OP_STARTS_WITH:
    case DB_OP_ENDS_WITH: {
        _db_marked_t text = parts.path ? _db_full_path(marks) : _db_name(marks);
        _db_mark_text(&text, parts.mode, parts.family, parts.whole_word, term->text, term->text_length);
        break;
    }
    case DB_OP_REGEX: {
        _db_marked_t text = parts.path ? _db_full_path(marks) : _db_name(marks);
        _db_mark_regex(&text, term->regex, marks->scan.regex_match);
        break;
    }
    case DB_OP_EXTENSION:
    case DB_OP_EXTENSION_OR_NONE: _db_mark_extension(marks, term); break;
    case DB_OP_FILE_LIST: _db_mark_file_list(marks, term); break;
    case DB_OP_COMPONENT_STARTS_WITH: _db_mark_components(marks, term, DB_OP_STARTS_WITH); break;
    case DB_OP_COMPONENT_ENDS_WITH: _db_mark_components(marks, term, DB_OP_ENDS_WITH); break;
    case DB_OP_COMPONENT_EQUAL: _db_mark_components(marks, term, DB_OP_EQUAL); break;
    case DB_OP_ANCHORS:
    case DB_OP_ANCHORS_INNER:
    case DB_OP_ANCHORS_OUTER:
    case DB_OP_ANCHOR_INNER:
    case DB_OP_ANCHOR_OUTER: _db_mark_anchor(marks, term); break;
    case DB_OP_PARENT:
    case DB_OP_PARENTS_SEVERAL:
        if (!db_item_is_top(marks->item))
            _db_mark_path_of(marks, db_item(marks->item->parent));
        break;
    default: break;
    }
}

} // namespace findwright
