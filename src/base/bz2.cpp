#include "base/bz2.h"

#include "base/mem.h"

#include <algorithm>
#include <bzlib.h>

namespace findwright {

static constexpr int BZ2_BLOCK_SIZE_100K = 9;
static constexpr int BZ2_WORK_FACTOR = 30;

struct bz2_library_t {
    bz_stream state;
    bool is_reader;
    // What the library last answered: BZ_OK while it can go on; once it cannot, its state is gone.
    int result;
    bool file_failed; // reading: the file ended, or failed, inside the compressed data
    u64 file_left;    // reading: bytes of the file that may still be the stream's
};

static void *_bz2_alloc(void *, int items, int size) {
    return mem_alloc(static_cast<size_t>(items) * static_cast<size_t>(size));
}

static void _bz2_free(void *, void *block) {
    if (block)
        mem_free(block);
}

static bz2_library_t *_bz2_library_create(bool is_reader) {
    auto *bz = static_cast<bz2_library_t *>(mem_alloc(sizeof(bz2_library_t)));
    *bz = {};
    bz->state.bzalloc = _bz2_alloc;
    bz->state.bzfree = _bz2_free;
    bz->is_reader = is_reader;
    bz->file_left = ~u64{0};
    const int result = is_reader ? BZ2_bzDecompressInit(&bz->state, 0, 0)
                                 : BZ2_bzCompressInit(&bz->state, BZ2_BLOCK_SIZE_100K, 0, BZ2_WORK_FACTOR);
    if (result == BZ_OK)
        return bz;
    mem_free(bz);
    return nullptr;
}

// Ends the library's work with a result that is not BZ_OK.
static void _bz2_library_end(bz2_library_t *bz, int result) {
    if (bz->result != BZ_OK)
        return;
    bz->result = result;
    if (bz->is_reader)
        BZ2_bzDecompressEnd(&bz->state);
    else
        BZ2_bzCompressEnd(&bz->state);
}

static bz2_stream_t *_bz2_open(platform_file_t file, bool is_reader, bool plain) {
    if (file == PLATFORM_FILE_NONE)
        return nullptr;
    bz2_library_t *bz = nullptr;
    if (!plain) {
        bz = _bz2_library_create(is_reader);
        if (!bz) {
            platform.file_close(file);
            return nullptr;
        }
    }
    auto *stream = static_cast<bz2_stream_t *>(mem_alloc(sizeof(bz2_stream_t)));
    stream->file = file;
    stream->bz = bz;
    stream->buffer = static_cast<char *>(mem_alloc(BZ2_BUFFER_SIZE));
    stream->error = 0;
    stream->plain = plain;
    stream->data = plain ? stream->buffer : static_cast<char *>(mem_alloc(BZ2_BUFFER_SIZE));
    stream->cursor = stream->data;
    stream->end = is_reader ? stream->data : stream->data + BZ2_BUFFER_SIZE;
    if (bz && !is_reader) {
        bz->state.next_out = stream->buffer;
        bz->state.avail_out = BZ2_BUFFER_SIZE;
    }
    return stream;
}

static void _bz2_close(bz2_stream_t *stream) {
    platform.file_close(stream->file);
    if (stream->bz) {
        _bz2_library_end(stream->bz, BZ_STREAM_END);
        mem_free(stream->bz);
        mem_free(stream->data);
    }
    mem_free(stream->buffer);
    mem_free(stream);
}

void bz2_set_error(bz2_stream_t *stream) {
    stream->error = 1;
    stream->end = stream->cursor;
}

// --- Reading -----------------------------------------------------------------------------------------------

bz2_stream_t *bz2_read_open(const char *name) {
    return _bz2_open(platform.file_open_read(name, true), true, false);
}

bz2_stream_t *bz2_read_open_plain(const char *name) {
    return _bz2_open(platform.file_open_read(name, true), true, true);
}

// The next piece of the file in `buffer`, of at most `limit` bytes: its size, or 0 at the end and on a
// failure.
static u32 _bz2_read_file(bz2_stream_t *stream, u64 limit) {
    const u32 wanted = static_cast<u32>(std::min<u64>(limit, BZ2_BUFFER_SIZE));
    const i64 size = wanted ? platform.file_read(stream->file, stream->buffer, wanted) : 0;
    return size > 0 ? static_cast<u32>(size) : 0;
}

bz2_stream_t *bz2_read_open_part(const char *name, u64 offset, u64 size) {
    bz2_stream_t *stream = bz2_read_open(name);
    if (!stream)
        return nullptr;
    while (offset != 0 && !stream->bz->file_failed) {
        const u32 read = _bz2_read_file(stream, offset);
        stream->bz->file_failed = read == 0;
        offset -= read;
    }
    stream->bz->file_left = size;
    return stream;
}

// Decompresses ahead until `data` is full or the library is done. Returns the bytes in `data`; when there are
// none, the library's result, or the file's, tells why.
static u32 _bz2_decompress(bz2_stream_t *stream) {
    bz2_library_t *bz = stream->bz;
    bz->state.next_out = stream->data;
    bz->state.avail_out = BZ2_BUFFER_SIZE;
    while (bz->result == BZ_OK && !bz->file_failed && bz->state.avail_out != 0) {
        if (bz->state.avail_in == 0) {
            bz->state.next_in = stream->buffer;
            bz->state.avail_in = _bz2_read_file(stream, bz->file_left);
            bz->file_left -= bz->state.avail_in;
            if (bz->state.avail_in == 0) {
                bz->file_failed = true;
                break;
            }
        }
        const int result = BZ2_bzDecompress(&bz->state);
        if (result != BZ_OK)
            _bz2_library_end(bz, result);
    }
    return BZ2_BUFFER_SIZE - bz->state.avail_out;
}

static bool _bz2_fill(bz2_stream_t *stream) {
    const u32 size = stream->plain ? _bz2_read_file(stream, BZ2_BUFFER_SIZE) : _bz2_decompress(stream);
    stream->cursor = stream->data;
    stream->end = stream->data + size;
    return size != 0;
}

// Logs why there is nothing more to read.
static void _bz2_log_read_error(const bz2_stream_t *stream) {
    if (stream->plain || stream->bz->file_failed)
        base_log("ReadFile(): %d: Failed to read.\n", platform.last_error());
    else if (stream->bz->result == BZ_STREAM_END)
        base_log("BZ2_bzDecompress(): %d: Unexpected EOF in decompression stream.\n", stream->bz->result);
    else
        base_log("BZ2_bzDecompress(): %d: Failed to decompress.\n", stream->bz->result);
}

void bz2_read_more(bz2_stream_t *stream, void *out, u32 size) {
    char *to = static_cast<char *>(out);
    u32 left = size;
    while (left != 0 && !stream->error) {
        if (stream->cursor == stream->end && !_bz2_fill(stream)) {
            _bz2_log_read_error(stream);
            bz2_set_error(stream);
            break;
        }
        const u32 part =
            static_cast<u32>(std::min<size_t>(left, static_cast<size_t>(stream->end - stream->cursor)));
        std::memcpy(to, stream->cursor, part);
        stream->cursor += part;
        to += part;
        left -= part;
    }
    if (stream->error)
        std::memset(out, 0, size);
}

bool bz2_read_is_at_end(bz2_stream_t *stream) {
    if (stream->error || stream->cursor != stream->end || _bz2_fill(stream))
        return false;
    if (stream->plain)
        return true;
    const bz2_library_t *bz = stream->bz;
    return bz->result == BZ_STREAM_END && bz->state.avail_in == 0 &&
           _bz2_read_file(stream, BZ2_BUFFER_SIZE) == 0;
}

// A block is checked behind its last byte, and the stream behind its last block, which is where a caller who
// has all he wants does not get to: what he got may be wrong though all of it came. So closing reads on to
// the end of the block. The library takes in a block whole, and takes no more before it has given all of it
// out and checked it.
static void _bz2_check_block(bz2_stream_t *stream) {
    const bz2_library_t *bz = stream->bz;
    const bool any_read = stream->end != stream->data;
    const unsigned taken = bz->state.total_in_lo32;
    while (any_read && bz->result == BZ_OK && bz->state.total_in_lo32 == taken && _bz2_fill(stream)) {
    }
    if (bz->file_failed || (bz->result != BZ_OK && bz->result != BZ_STREAM_END)) {
        _bz2_log_read_error(stream);
        bz2_set_error(stream);
    }
}

bool bz2_read_close(bz2_stream_t *stream) {
    if (!stream->plain && !stream->error)
        _bz2_check_block(stream);
    const bool done = !stream->error;
    _bz2_close(stream);
    return done;
}

static char *_bz2_empty_string() {
    char *text = static_cast<char *>(mem_alloc(1));
    *text = 0;
    return text;
}

// The string with room for `size` bytes instead, of which `length` are kept; 0 when there is no memory for
// it.
static char *_bz2_grow_string(char *text, size_t length, size_t size) {
    char *grown = static_cast<char *>(mem_try_alloc(size));
    if (grown)
        std::memcpy(grown, text, length);
    mem_free(text);
    return grown;
}

char *bz2_read_string(bz2_stream_t *stream) {
    const u32 length = bz2_read_vint(stream);
    u32 have = 0;
    size_t room = std::min<size_t>(size_t{length} + 1, BZ2_BUFFER_SIZE);
    char *text = static_cast<char *>(mem_alloc(room));
    for (;;) {
        const u32 part = static_cast<u32>(std::min<size_t>(length - have, room - 1 - have));
        bz2_read(stream, text + have, part);
        have += part;
        if (stream->error)
            break;
        if (have == length) {
            text[have] = 0;
            return text;
        }
        room = std::min<size_t>(size_t{length} + 1, room * 2);
        text = _bz2_grow_string(text, have, room);
        if (!text) {
            bz2_set_error(stream);
            return _bz2_empty_string();
        }
    }
    mem_free(text);
    return _bz2_empty_string();
}

void bz2_skip(bz2_stream_t *stream, u64 size) {
    while (size != 0 && !stream->error) {
        if (stream->cursor == stream->end && !_bz2_fill(stream)) {
            _bz2_log_read_error(stream);
            bz2_set_error(stream);
            return;
        }
        const size_t part =
            static_cast<size_t>(std::min<u64>(size, static_cast<u64>(stream->end - stream->cursor)));
        stream->cursor += part;
        size -= part;
    }
}

// --- Writing -----------------------------------------------------------------------------------------------

bz2_stream_t *bz2_write_open(const char *name) {
    return _bz2_open(platform.file_create(name), false, false);
}

bz2_stream_t *bz2_write_open_plain(const char *name) {
    return _bz2_open(platform.file_create(name), false, true);
}

static bool _bz2_write_file(bz2_stream_t *stream, u32 size) {
    if (size == 0 || platform.file_write(stream->file, stream->buffer, size))
        return true;
    base_log("os_write(): %d: Failed to write %d bytes\n", platform.last_error(), size);
    return false;
}

// Writes the compressed data when the buffer has no more room, or in any case with `all`.
static bool _bz2_write_compressed(bz2_stream_t *stream, bool all) {
    bz_stream *state = &stream->bz->state;
    if (!all && state->avail_out != 0)
        return true;
    const u32 size = BZ2_BUFFER_SIZE - state->avail_out;
    state->next_out = stream->buffer;
    state->avail_out = BZ2_BUFFER_SIZE;
    return _bz2_write_file(stream, size);
}

static bool _bz2_compress(bz2_stream_t *stream, u32 size) {
    bz2_library_t *bz = stream->bz;
    bz->state.next_in = stream->data;
    bz->state.avail_in = size;
    while (bz->state.avail_in != 0) {
        const int result = BZ2_bzCompress(&bz->state, BZ_RUN);
        if (result != BZ_RUN_OK) {
            base_log("BZ2_bzCompress(): %d: Failed to compress\n", result);
            _bz2_library_end(bz, result);
            return false;
        }
        if (!_bz2_write_compressed(stream, false))
            return false;
    }
    return true;
}

static bool _bz2_finish(bz2_stream_t *stream) {
    bz2_library_t *bz = stream->bz;
    for (;;) {
        const int result = BZ2_bzCompress(&bz->state, BZ_FINISH);
        if (result != BZ_FINISH_OK && result != BZ_STREAM_END) {
            base_log("BZ2_bzCompress(): %d: Failed to finish compressing\n", result);
            _bz2_library_end(bz, result);
            return false;
        }
        if (!_bz2_write_compressed(stream, result == BZ_STREAM_END))
            return false;
        if (result == BZ_STREAM_END)
            return true;
    }
}

// Hands on what is in `data`.
static void _bz2_flush(bz2_stream_t *stream) {
    if (stream->error)
        return;
    const u32 size = static_cast<u32>(stream->cursor - stream->data);
    stream->cursor = stream->data;
    if (!(stream->plain ? _bz2_write_file(stream, size) : _bz2_compress(stream, size)))
        bz2_set_error(stream);
}

void bz2_write_more(bz2_stream_t *stream, const void *bytes, u32 size) {
    const char *from = static_cast<const char *>(bytes);
    while (size != 0 && !stream->error) {
        const u32 part =
            static_cast<u32>(std::min<size_t>(size, static_cast<size_t>(stream->end - stream->cursor)));
        std::memcpy(stream->cursor, from, part);
        stream->cursor += part;
        from += part;
        size -= part;
        if (stream->cursor == stream->end)
            _bz2_flush(stream);
    }
}

bool bz2_write_close(bz2_stream_t *stream) {
    _bz2_flush(stream);
    if (!stream->plain && !stream->error && !_bz2_finish(stream))
        bz2_set_error(stream);
    const bool done = !stream->error;
    _bz2_close(stream);
    return done;
}

void bz2_write_string(bz2_stream_t *stream, const char *text) {
    const u32 length = text ? static_cast<u32>(std::strlen(text)) : 0;
    bz2_write_vint(stream, length);
    if (length != 0)
        bz2_write(stream, text, length);
}

} // namespace findwright
