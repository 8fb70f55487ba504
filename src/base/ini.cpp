#include "base/ini.h"

#include "base/mem.h"
#include "base/utf8.h"
#include "base/utf8_buf.h"

#include <algorithm>
#include <cstring>

namespace findwright {

// A walk over the lines that stand in the section and have a key.
struct _ini_walk_t {
    const char *cursor;
    const char *end;
    const char *section;
    u32 section_length;
    bool in_section;
    u32 line_number;
    const char *key;
    u32 key_length;
    const char *value;
    u32 value_length;
};

static _ini_walk_t _ini_walk(const char *text, u32 length, const char *section) {
    const char *start = utf8_skip_bom(text, &length);
    return {start, start + length, section, utf8_length(section), false, 0, nullptr, 0, nullptr, 0};
}

static bool _ini_is_section(const _ini_walk_t *walk, const char *line, u32 length) {
    return length >= 2 && line[length - 1] == ']' &&
           utf8_compare_lower(line + 1, length - 2, walk->section, walk->section_length) == 0;
}

// Steps to the next line with a key; false at the text's end.
static bool _ini_next(_ini_walk_t *walk) {
    while (walk->cursor != walk->end) {
        const char *line = walk->cursor;
        const auto *line_end =
            static_cast<const char *>(std::memchr(line, '\n', static_cast<size_t>(walk->end - line)));
        walk->cursor = line_end ? line_end + 1 : walk->end;
        walk->line_number++;
        u32 length = static_cast<u32>((line_end ? line_end : walk->end) - line);
        if (line_end && length != 0 && line[length - 1] == '\r')
            length--;
        if (length == 0 || *line == '#' || *line == ';')
            continue;
        if (*line == '[') {
            walk->in_section = _ini_is_section(walk, line, length);
            continue;
        }
        const auto *equal = static_cast<const char *>(std::memchr(line, '=', length));
        if (!walk->in_section || !equal)
            continue;
        walk->key = line;
        // Cut at a zero byte before it is folded: what is behind must not decide how the rest is read.
        walk->key_length = static_cast<u32>(strnlen(line, static_cast<size_t>(equal - line)));
        walk->value = equal + 1;
        walk->value_length = static_cast<u32>(line + length - walk->value);
        return true;
    }
    return false;
}

static bool _ini_is_before(const ini_entry_t *a, const ini_entry_t *b) {
    const int order = std::strcmp(a->key, b->key);
    return order != 0 ? order < 0 : a->line_number < b->line_number;
}

ini_t *ini_open(const char *text, u32 length, const char *section) {
    // A key in lower case may be longer than it is in the text, so the copy is measured first.
    u32 count = 0;
    size_t size = 0;
    for (_ini_walk_t walk = _ini_walk(text, length, section); _ini_next(&walk); count++)
        size += utf8_lower_get_length(walk.key, walk.key_length) + size_t{1} + walk.value_length + 1;
    if (count == 0)
        return nullptr;

    auto *ini = static_cast<ini_t *>(mem_alloc(sizeof(ini_t)));
    ini->text = static_cast<char *>(mem_alloc(size));
    ini->storage = static_cast<ini_entry_t *>(mem_alloc(count * sizeof(ini_entry_t)));
    ini->entries = static_cast<ini_entry_t **>(mem_alloc(count * sizeof(ini_entry_t *)));
    ini->count = 0;
    char *out = ini->text;
    for (_ini_walk_t walk = _ini_walk(text, length, section); _ini_next(&walk);) {
        ini_entry_t *entry = &ini->storage[ini->count];
        ini->entries[ini->count++] = entry;
        entry->line_number = walk.line_number;
        entry->key = out;
        out += utf8_lower_copy(out, walk.key, walk.key_length);
        *out++ = 0;
        entry->value = out;
        std::memcpy(out, walk.value, walk.value_length);
        out += walk.value_length;
        *out++ = 0;
    }
    std::sort(ini->entries, ini->entries + ini->count, _ini_is_before);
    return ini;
}

void ini_close(ini_t *ini) {
    mem_free(ini->entries);
    mem_free(ini->storage);
    mem_free(ini->text);
    mem_free(ini);
}

const char *ini_get(const ini_t *ini, const char *key, const char *default_value) {
    utf8_buf_t lower;
    utf8_buf_init(&lower);
    utf8_buf_copy_string(&lower, key);
    utf8_buf_lower(&lower);
    ini_entry_t **end = ini->entries + ini->count;
    ini_entry_t **found = std::lower_bound(
        ini->entries, end, static_cast<const char *>(lower.data),
        [](const ini_entry_t *entry, const char *wanted) { return std::strcmp(entry->key, wanted) < 0; });
    const char *value = default_value;
    if (found != end && std::strcmp((*found)->key, lower.data) == 0)
        value = (*found)->value;
    utf8_buf_kill(&lower);
    return value;
}

} // namespace findwright
