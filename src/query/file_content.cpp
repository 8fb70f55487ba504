#include "query/file_content.h"

#include "base/mem.h"
#include "base/wchar_buf.h"
#include "os/os.h"
#include "os/os_filter.h"

#include <algorithm>
#include <cstring>

namespace findwright {

static constexpr u32 CONTENT_BLOCK = 256 * 1024; // a test of so much takes a millisecond
static constexpr u32 CONTENT_READ = 64 * 1024;   // bytes read and converted at once
static constexpr u32 CONTENT_BLOCK_MIN = 8;      // two characters of the longest kind
static constexpr u32 CONTENT_BACK = 4096;        // how far a cut goes back to fall between characters

// The text as it comes, and the search in it.
struct content_search_t {
    const file_content_matcher_t *matcher;
    char *buffer; // the text, with room for one byte on each side
    u32 length;
    u32 capacity;    // bytes of text that the buffer has room for
    u32 limit;       // the most that it gets; one byte of it is known only, not tested, when a window is cut
    u32 overlap;     // bytes by which windows overlap; 0: the text is tested as a whole
    u32 back;        // how far the cut behind a window may go back
    bool has_before; // text in front of the buffer was let go of
    char before;     // the last byte of it
    bool ended;      // the answer is known
    bool matched;
};

static bool _content_is_cancelled(content_search_t *search) {
    const std::atomic<u32> *cancel = search->matcher->cancel;
    if (cancel && cancel->load(std::memory_order_relaxed))
        search->ended = true;
    return search->ended;
}

// --- Windows of the text ----------------------------------------------------------------------------------
//
// A test sees the edges of what it is given as the edges of the text. So a window that is cut out of a text
// gets one more byte at each cut: CONTENT_EDGE_BYTES has them, a word character where the text has one, so
// that a match that ends at the cut is tested as in the text. What could go wrong is a match that takes in
// the byte itself. It would be one with this byte only, at its first or last place, so every byte is tried
// beside another one of its kind, and a match with all of them is a match in the text.

static constexpr u32 CONTENT_EDGES = 2;
static constexpr char CONTENT_EDGE_BYTES[2][CONTENT_EDGES] = {{' ', '\n'}, {'0', '_'}};

static char *_content_text(content_search_t *search) {
    return search->buffer + 1;
}

// Whether the first `end` bytes match. What is behind them goes on with the text, and is changed back.
static bool _content_test(content_search_t *search, u32 end) {
    char *text = _content_text(search);
    bool has_after = end < search->length;
    char after = has_after ? text[end] : 0;
    bool matched = true;
    for (u32 i = 0; matched && i < (search->has_before ? CONTENT_EDGES : 1); i++) {
        if (search->has_before)
            text[-1] = CONTENT_EDGE_BYTES[utf8_is_word_char(search->before)][i];
        for (u32 j = 0; matched && j < (has_after ? CONTENT_EDGES : 1); j++) {
            if (has_after)
                text[end] = CONTENT_EDGE_BYTES[utf8_is_word_char(after)][j];
            matched = !_content_is_cancelled(search) &&
                      search->matcher->match(search->matcher->param, text - search->has_before,
                                             end + search->has_before + has_after);
        }
    }
    if (has_after)
        text[end] = after;
    return matched;
}

// No character that is read from anywhere in front of this place reaches over it: the made-up byte behind it
// makes none. In characters that lie side by side there is such a place within four bytes.
static bool _content_is_between(const char *text, u32 place) {
    for (u32 i = 1; i < UTF8_CHAR_MAX && i <= place; i++) {
        auto byte = static_cast<u8>(text[place - i]);
        u32 size = byte < 0xC0 || byte >= 0xF8 ? 1 : byte < 0xE0 ? 2 : byte < 0xF0 ? 3 : 4;
        if (size > i)
            return false;
    }
    return true;
}

// The end of the window in a full buffer. Bytes that are no text may have no place to cut within reach, and
// are cut where the buffer ends: a text that ends with just what each of the made-up bytes becomes there
// might be found.
static u32 _content_cut(content_search_t *search) {
    u32 end = search->length - 1;
    for (u32 back = 0; back <= search->back; back++) {
        if (_content_is_between(_content_text(search), end - back))
            return end - back;
    }
    return end;
}

static void _content_test_window(content_search_t *search) {
    u32 end = _content_cut(search);
    if (_content_test(search, end)) {
        search->matched = search->ended = true;
        return;
    }
    char *text = _content_text(search);
    u32 start = end - search->overlap;
    search->before = text[start - 1];
    search->has_before = true;
    search->length -= start;
    std::memmove(text, text + start, search->length);
}

// --- Text comes -------------------------------------------------------------------------------------------

// `size`: about how many bytes of text to expect.
static void _content_init(content_search_t *search, const file_content_matcher_t *matcher, u64 size) {
    *search = {};
    search->matcher = matcher;
    search->limit = FILE_CONTENT_WHOLE_MAX;
    if (matcher->span && matcher->span < FILE_CONTENT_WHOLE_MAX) {
        u32 block = std::max(matcher->block ? matcher->block : CONTENT_BLOCK, CONTENT_BLOCK_MIN);
        search->overlap = matcher->span;
        search->limit = block + matcher->span + 1;
        search->back = std::min(block - 1, CONTENT_BACK);
    }
    search->capacity = static_cast<u32>(std::clamp<u64>(size, 1, std::min(search->limit, CONTENT_BLOCK)));
    search->buffer = static_cast<char *>(mem_alloc(search->capacity + 2));
}

static void _content_kill(content_search_t *search) {
    mem_free(search->buffer);
}

// Room for that many bytes of text, not above the limit. A whole text may be too large for the heap.
static bool _content_grow(content_search_t *search, u32 length) {
    if (length <= search->capacity)
        return true;
    u32 capacity = std::min(search->limit, std::max(length, search->capacity * 2));
    auto *buffer = static_cast<char *>(mem_try_alloc(capacity + 2));
    if (!buffer)
        return false;
    std::memcpy(buffer + 1, search->buffer + 1, search->length);
    mem_free(search->buffer);
    search->buffer = buffer;
    search->capacity = capacity;
    return true;
}

// Takes the next piece of the text, no character cut. False when no more is wanted.
static bool _content_add(content_search_t *search, const char *text, u32 length) {
    while (length && !_content_is_cancelled(search)) {
        u32 taken = std::min(length, search->limit - search->length);
        if (!taken || !_content_grow(search, search->length + taken)) {
            search->ended = true;
            break;
        }
        std::memcpy(_content_text(search) + search->length, text, taken);
        search->length += taken;
        text += taken;
        length -= taken;
        if (search->overlap && search->length == search->limit)
            _content_test_window(search);
    }
    return !search->ended;
}

static bool _content_add_proc(void *param, const char *text, u32 length) {
    return _content_add(static_cast<content_search_t *>(param), text, length);
}

// The text is at its end: the answer.
static bool _content_finish(content_search_t *search) {
    if (!search->ended)
        search->matched = _content_test(search, search->length);
    return search->matched;
}

// --- Bytes to text ----------------------------------------------------------------------------------------

struct content_converter_t {
    file_content_encoding_t encoding;
    wchar_buf_t units;
    utf8_buf_t text;
};

static char16_t _content_unit(const content_converter_t *converter, const char *bytes) {
    auto first = static_cast<u8>(bytes[0]);
    auto second = static_cast<u8>(bytes[1]);
    return static_cast<char16_t>(converter->encoding == FILE_CONTENT_UTF16BE ? first << 8 | second
                                                                             : second << 8 | first);
}

// The bytes at the front that can be converted without those that follow. UTF-8 needs none: the search takes
// it cut anywhere.
static u32 _content_get_whole_length(const content_converter_t *converter, const char *bytes, u32 length) {
    switch (converter->encoding) {
    case FILE_CONTENT_UTF16:
    case FILE_CONTENT_UTF16BE: {
        u32 whole = length & ~1u;
        bool is_half = whole && (_content_unit(converter, bytes + whole - 2) & 0xFC00) == 0xD800;
        return is_half ? whole - 2 : whole;
    }
    case FILE_CONTENT_ANSI: return os_ansi_get_whole_length(bytes, length);
    case FILE_CONTENT_AUTO:
    case FILE_CONTENT_UTF8: break;
    }
    return length;
}

static void _content_convert(content_converter_t *converter, content_search_t *search, const char *bytes,
                             u32 length) {
    switch (converter->encoding) {
    case FILE_CONTENT_UTF16:
    case FILE_CONTENT_UTF16BE:
        wchar_buf_grow_empty(&converter->units, length / 2 + 1);
        for (u32 i = 0; i < length / 2; i++)
            converter->units.data[i] = _content_unit(converter, bytes + i * 2);
        utf8_buf_copy_wchar(&converter->text, converter->units.data, length / 2);
        break;
    case FILE_CONTENT_ANSI: utf8_buf_copy_ansi(&converter->text, bytes, length); break;
    case FILE_CONTENT_AUTO:
    case FILE_CONTENT_UTF8: _content_add(search, bytes, length); return;
    }
    _content_add(search, converter->text.data, static_cast<u32>(converter->text.length));
}

// --- Files ------------------------------------------------------------------------------------------------

// False when the file cannot be read.
static bool _content_read(content_search_t *search, platform_file_t file, content_converter_t *converter,
                          char *bytes, u32 size) {
    u32 left = 0; // bytes of a character that goes on
    while (!_content_is_cancelled(search)) {
        i64 taken = os_read(file, bytes + left, size - left);
        if (taken < 0)
            return false;
        u32 length = left + static_cast<u32>(taken);
        if (!taken) {
            _content_convert(converter, search, bytes, length);
            break;
        }
        u32 whole = _content_get_whole_length(converter, bytes, length);
        _content_convert(converter, search, bytes, whole);
        left = length - whole;
        std::memmove(bytes, bytes + whole, left);
    }
    return true;
}

static bool _content_read_file(content_search_t *search, platform_file_t file,
                               file_content_encoding_t encoding) {
    u32 block = search->matcher->block;
    u32 size = block ? std::clamp(block, CONTENT_BLOCK_MIN, CONTENT_READ) : CONTENT_READ;
    content_converter_t converter;
    converter.encoding = encoding;
    wchar_buf_init(&converter.units);
    utf8_buf_init(&converter.text);
    auto *bytes = static_cast<char *>(mem_alloc(size));
    bool is_read = _content_read(search, file, &converter, bytes, size);
    mem_free(bytes);
    utf8_buf_kill(&converter.text);
    wchar_buf_kill(&converter.units);
    return is_read;
}

// Makes room at once for what has to be tested as a whole. False when it is too large, which is seen without
// reading it.
static bool _content_make_room(content_search_t *search, u64 size, file_content_encoding_t encoding) {
    if (search->overlap)
        return true;
    bool is_text = encoding == FILE_CONTENT_AUTO || encoding == FILE_CONTENT_UTF8;
    u64 least = is_text ? size : size / 2; // what two bytes of another encoding can become
    return least <= FILE_CONTENT_WHOLE_MAX && _content_grow(search, static_cast<u32>(least));
}

bool file_content_match(const char *path, file_content_encoding_t encoding,
                        const file_content_matcher_t *matcher) {
    u64 size;
    platform_file_t file = os_open_content(path, &size);
    if (file == PLATFORM_FILE_NONE)
        return false;
    content_search_t search;
    _content_init(&search, matcher, size);
    os_filter_result_t filtered = OS_FILTER_NONE;
    if (encoding == FILE_CONTENT_AUTO)
        filtered = os_filter_read(path, matcher->cancel, _content_add_proc, &search);
    bool is_read = filtered == OS_FILTER_DONE;
    if (filtered == OS_FILTER_NONE && _content_make_room(&search, size, encoding))
        is_read = _content_read_file(&search, file, encoding);
    bool matched = (is_read || search.ended) && _content_finish(&search);
    _content_kill(&search);
    os_close(file);
    return matched;
}

} // namespace findwright
