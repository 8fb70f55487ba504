// Typed reading and writing of a file, plain or as one bzip2 stream.
//
// All numbers are little-endian. A `vint` is one byte below 255, or the byte 255 and a u32. A string is a
// vint length and as many bytes.
//
// Owner: the opener, who closes the stream; one thread at a time. Errors are sticky: after one, writes do
// nothing and reads give zeros, and closing tells of it. So what is built on a stream tests only what its own
// memory safety needs, and the result of closing once.
//
//   read:   file --> buffer --decompress--> data --> caller
//   write:  caller --> data --compress--> buffer --> file
//
// A plain stream has one buffer for both. Reading runs ahead of the caller by up to a buffer; damage that
// lies in what the caller did not ask for is no error.
#pragma once

#include "base/platform.h"
#include "base/types.h"

#include <cstring>

namespace findwright {

inline constexpr u32 BZ2_BUFFER_SIZE = 65536;
inline constexpr u32 BZ2_VINT_LONG = 255; // the byte in front of a vint's u32

struct bz2_library_t; // the library's state

struct bz2_stream_t {
    platform_file_t file;
    bz2_library_t *bz; // 0: plain
    char *buffer;      // BZ2_BUFFER_SIZE bytes as they are in the file
    u32 error;
    u32 plain;
    char *data;   // BZ2_BUFFER_SIZE bytes as the caller sees them; plain: `buffer`
    char *cursor; // reading: the next byte of `data`; writing: where the next one goes
    char *end;    // of what is in `data`, or of its room; the cursor itself after an error
};

// 0 when the file cannot be opened. The name is UTF-8.
bz2_stream_t *bz2_read_open(const char *name);
bz2_stream_t *bz2_read_open_plain(const char *name);
// A compressed stream that is a part of a file: it begins `offset` bytes into it and has at most `size` bytes
// there. A part that lies outside the file is an error of the first read.
bz2_stream_t *bz2_read_open_part(const char *name, u64 offset, u64 size);
// True when no error occurred. When all of the compressed data has been read, that includes the checks at its
// end.
bool bz2_read_close(bz2_stream_t *stream);

// Makes the file anew; 0 when it cannot be made.
bz2_stream_t *bz2_write_open(const char *name);
bz2_stream_t *bz2_write_open_plain(const char *name);
// Writes what is left. True when everything is written.
bool bz2_write_close(bz2_stream_t *stream);

// Puts the stream into its error state.
void bz2_set_error(bz2_stream_t *stream);

void bz2_read_more(bz2_stream_t *stream, void *out, u32 size); // what the buffer does not hold
void bz2_write_more(bz2_stream_t *stream, const void *bytes, u32 size);

inline void bz2_read(bz2_stream_t *stream, void *out, u32 size) {
    if (size <= static_cast<size_t>(stream->end - stream->cursor)) {
        std::memcpy(out, stream->cursor, size);
        stream->cursor += size;
    } else {
        bz2_read_more(stream, out, size);
    }
}

inline void bz2_write(bz2_stream_t *stream, const void *bytes, u32 size) {
    if (size <= static_cast<size_t>(stream->end - stream->cursor)) {
        std::memcpy(stream->cursor, bytes, size);
        stream->cursor += size;
    } else {
        bz2_write_more(stream, bytes, size);
    }
}

inline u8 bz2_read_u8(bz2_stream_t *stream) {
    u8 value;
    bz2_read(stream, &value, sizeof(value));
    return value;
}
inline u32 bz2_read_u32(bz2_stream_t *stream) {
    u8 bytes[4];
    bz2_read(stream, bytes, sizeof(bytes));
    return static_cast<u32>(bytes[0]) | static_cast<u32>(bytes[1]) << 8 | static_cast<u32>(bytes[2]) << 16 |
           static_cast<u32>(bytes[3]) << 24;
}
inline u64 bz2_read_u64(bz2_stream_t *stream) {
    const u64 low = bz2_read_u32(stream);
    return low | static_cast<u64>(bz2_read_u32(stream)) << 32;
}
inline u32 bz2_read_vint(bz2_stream_t *stream) {
    const u32 value = bz2_read_u8(stream);
    return value == BZ2_VINT_LONG ? bz2_read_u32(stream) : value;
}
// A new terminated string, freed with mem_free; empty after an error. Memory is taken as the bytes come,
// never more than twice what the stream has delivered, so a wrong length costs nothing.
char *bz2_read_string(bz2_stream_t *stream);
// True when nothing is left to be read: no data, and in a compressed file no byte behind it either. After an
// error false.
bool bz2_read_is_at_end(bz2_stream_t *stream);
// Reads `size` bytes and drops them.
void bz2_skip(bz2_stream_t *stream, u64 size);

inline void bz2_write_u8(bz2_stream_t *stream, u8 value) {
    bz2_write(stream, &value, sizeof(value));
}
inline void bz2_write_u32(bz2_stream_t *stream, u32 value) {
    const u8 bytes[4] = {static_cast<u8>(value), static_cast<u8>(value >> 8), static_cast<u8>(value >> 16),
                         static_cast<u8>(value >> 24)};
    bz2_write(stream, bytes, sizeof(bytes));
}
inline void bz2_write_u64(bz2_stream_t *stream, u64 value) {
    bz2_write_u32(stream, static_cast<u32>(value));
    bz2_write_u32(stream, static_cast<u32>(value >> 32));
}
inline void bz2_write_vint(bz2_stream_t *stream, u32 value) {
    if (value < BZ2_VINT_LONG) {
        bz2_write_u8(stream, static_cast<u8>(value));
    } else {
        bz2_write_u8(stream, BZ2_VINT_LONG);
        bz2_write_u32(stream, value);
    }
}
void bz2_write_string(bz2_stream_t *stream, const char *text); // terminated; 0 is empty

} // namespace findwright
