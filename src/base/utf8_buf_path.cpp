// Paths in a buffer.
#include "base/platform.h"
#include "base/utf8.h"
#include "base/utf8_buf.h"

namespace findwright {

// Longer paths do not exist: 32,767 UTF-16 units of at most three bytes each.
static constexpr u32 PATH_BYTES_MAX = 32767 * 3 + 1;

static void _utf8_buf_replace(utf8_buf_t *buf, char from, char to) {
    for (i32 i = 0; i < buf->length; i++) {
        if (buf->data[i] == from) {
            buf->data[i] = to;
        }
    }
}

void utf8_buf_fix_path(utf8_buf_t *buf) {
    _utf8_buf_replace(buf, '/', '\\');
}

static bool _utf8_is_dots(const char *text, u32 length, u32 dots) {
    return length == dots && text[0] == '.' && text[length - 1] == '.';
}

// The start of the last component in front of `end`, not before `start`.
static u32 _utf8_last_component(const char *text, u32 start, u32 end) {
    while (end > start && !utf8_is_separator(text[end - 1])) {
        end--;
    }
    return end;
}

// Components are copied down over the text itself: what is written is never ahead of what is read. Behind
// each component written stands its separator, as in the text; the last one goes again if the text ends
// without.
void utf8_buf_canonicalize(utf8_buf_t *buf) {
    char *text = buf->data;
    const u32 length = static_cast<u32>(buf->length);
    const u32 root = utf8_get_root_length(text, length);
    u32 read = root;
    u32 first = root; // where components begin
    if (read < length && utf8_is_separator(text[read])) {
        first = ++read;
    }
    const bool absolute = first > 0;
    u32 write = first;
    while (read < length) {
        const u32 start = read;
        while (read < length && !utf8_is_separator(text[read])) {
            read++;
        }
        const u32 count = read - start;
        const bool has_separator = read < length;
        const char separator = has_separator ? text[read] : 0;
        read += has_separator;
        if (!count || _utf8_is_dots(text + start, count, 1)) {
            continue;
        }
        if (_utf8_is_dots(text + start, count, 2)) {
            const u32 end = write > first && utf8_is_separator(text[write - 1]) ? write - 1 : write;
            const u32 last = _utf8_last_component(text, first, end);
            if (end > first && !_utf8_is_dots(text + last, end - last, 2)) {
                write = last;
                continue;
            }
            if (absolute) {
                continue;
            }
        }
        std::memmove(text + write, text + start, count);
        write += count;
        if (has_separator) {
            text[write++] = separator;
        }
    }
    if (write > first && utf8_is_separator(text[write - 1]) && !utf8_has_trailing_separator(text, length)) {
        write--;
    }
    utf8_buf_set_length(buf, write);
}

void utf8_buf_path_cat_filename(utf8_buf_t *buf, const char *path, u32 path_length, const char *name,
                                u32 name_length) {
    utf8_buf_copy_utf8(buf, path, path_length);
    if (path_length) {
        utf8_buf_add_trailing_separator(buf);
    }
    utf8_buf_cat_utf8(buf, name, name_length);
}

void utf8_buf_remove_trailing_separator(utf8_buf_t *buf) {
    if (utf8_has_trailing_separator(buf->data, static_cast<u32>(buf->length))) {
        utf8_buf_set_length(buf, static_cast<u32>(buf->length) - 1);
    }
}

void utf8_buf_add_trailing_separator(utf8_buf_t *buf) {
    if (!utf8_has_trailing_separator(buf->data, static_cast<u32>(buf->length))) {
        utf8_buf_cat_byte(buf, '\\');
    }
}

static bool _utf8_buf_get_folder(utf8_buf_t *buf, bool (*get)(char *out, u32 capacity)) {
    utf8_buf_grow_empty(buf, PATH_BYTES_MAX);
    if (!get(buf->data, PATH_BYTES_MAX)) {
        utf8_buf_set_length(buf, 0);
        return false;
    }
    buf->length = static_cast<i32>(utf8_length(buf->data));
    return true;
}

bool utf8_buf_get_exe_path(utf8_buf_t *buf) {
    return _utf8_buf_get_folder(buf, platform.exe_path);
}

bool utf8_buf_get_app_data_path(utf8_buf_t *buf) {
    return _utf8_buf_get_folder(buf, platform.app_data_path);
}

bool utf8_buf_get_local_app_data_path(utf8_buf_t *buf) {
    return _utf8_buf_get_folder(buf, platform.local_app_data_path);
}

// The text has a root such as `scheme://host`.
static bool _utf8_is_url(const utf8_buf_t *buf) {
    return utf8_get_root_length(buf->data, static_cast<u32>(buf->length)) > 2 && buf->data[0] != '\\';
}

// Puts what the path is relative to in front of it.
static void _utf8_buf_prepend_base(utf8_buf_t *buf, const utf8_buf_t *path, const char *base,
                                   u32 base_length) {
    if (base_length) {
        utf8_buf_copy_utf8(buf, base, base_length);
    } else {
        _utf8_buf_get_folder(buf, platform.current_directory);
    }
    if (path->data[0] == '\\') {
        utf8_buf_set_length(buf, utf8_get_root_length(buf->data, static_cast<u32>(buf->length)));
    } else if (buf->length) {
        utf8_buf_add_trailing_separator(buf);
    }
    utf8_buf_cat_utf8(buf, path->data, static_cast<u32>(path->length));
}

void utf8_buf_get_full_path(utf8_buf_t *buf, const char *path, u32 path_length, const char *base,
                            u32 base_length) {
    utf8_buf_t own;
    utf8_buf_init(&own);
    utf8_buf_copy_utf8(&own, path, path_length);
    if (!_utf8_is_url(&own)) {
        utf8_buf_fix_path(&own);
    }
    if (utf8_get_root_length(own.data, static_cast<u32>(own.length))) {
        utf8_buf_copy_utf8(buf, own.data, static_cast<u32>(own.length));
    } else {
        _utf8_buf_prepend_base(buf, &own, base, base_length);
    }
    utf8_buf_kill(&own);
    if (_utf8_is_url(buf)) {
        _utf8_buf_replace(buf, '\\', '/');
    } else {
        utf8_buf_fix_path(buf);
    }
    utf8_buf_canonicalize(buf);
}

void utf8_buf_quote(utf8_buf_t *buf) {
    utf8_buf_cat_utf8(buf, "\"\"", 2);
    std::memmove(buf->data + 1, buf->data, static_cast<size_t>(buf->length) - 2);
    buf->data[0] = '"';
}

} // namespace findwright
