// Reads the input as a stream, compressed or plain, with a changing order of calls: a stream in error gives
// zeros and nothing but zeros. Sometimes also writes the input to a stream and reads it back.
//
// The first byte: bit 0 plain, bit 1 write and read back, the others the size of a piece. The next 4 bytes:
// the calls.
#include "base/bz2.h"
#include "base/mem.h"
#include "support/memory_file.h"

#include <cstdlib>

using namespace findwright;

static constexpr size_t HEADER = 5;
static constexpr u32 MAX_CALLS = 2000;
static constexpr u32 BLOCK = 70000; // more than the stream's buffer

static void require(bool condition) {
    if (!condition)
        std::abort();
}

static void read_block(bz2_stream_t *stream) {
    static char block[BLOCK];
    std::memset(block, 1, BLOCK);
    bz2_read(stream, block, BLOCK);
    for (u32 i = 0; stream->error && i < BLOCK; i++)
        require(block[i] == 0);
}

static void read_stream(const u8 *calls, bool plain) {
    bz2_stream_t *stream = plain ? bz2_read_open_plain("") : bz2_read_open("");
    require(stream != nullptr);
    for (u32 i = 0; i < MAX_CALLS && !stream->error; i++) {
        const u32 call = calls[i / 2 % 4] >> (i % 2 * 4) & 15;
        u64 value = 0;
        switch (call % 7) {
        case 0: value = bz2_read_u8(stream); break;
        case 1: value = bz2_read_u32(stream); break;
        case 2: value = bz2_read_u64(stream); break;
        case 3: value = bz2_read_vint(stream); break;
        case 4: bz2_skip(stream, u64{1} << call); break;
        case 5: read_block(stream); break;
        case 6: {
            char *text = bz2_read_string(stream);
            value = static_cast<u8>(text[0]);
            mem_free(text);
            break;
        }
        }
        require(!stream->error || value == 0);
    }
    const bool failed = stream->error;
    require(bz2_read_u32(stream) == 0 || !failed);
    require(!bz2_read_close(stream) || !failed);
}

static void write_and_read_back(const std::string &content, bool plain) {
    bz2_stream_t *stream = plain ? bz2_write_open_plain("") : bz2_write_open("");
    for (size_t i = 0; i < content.size(); i += 7)
        bz2_write(stream, content.data() + i, static_cast<u32>(std::min<size_t>(7, content.size() - i)));
    require(bz2_write_close(stream));
    stream = plain ? bz2_read_open_plain("") : bz2_read_open("");
    std::string back(content.size(), 0);
    bz2_read(stream, back.data(), static_cast<u32>(back.size()));
    require(bz2_read_close(stream) && back == content);
}

extern "C" int LLVMFuzzerTestOneInput(const u8 *bytes, size_t size) {
    if (size < HEADER)
        return 0;
    memory_file_install();
    const bool plain = bytes[0] & 1;
    memory_file.bytes.assign(reinterpret_cast<const char *>(bytes) + HEADER, size - HEADER);
    memory_file.piece = bytes[0] / 4 + 1u;
    const std::string content = memory_file.bytes;
    read_stream(bytes + 1, plain);
    if (bytes[0] & 2)
        write_and_read_back(content, plain);
    return 0;
}
