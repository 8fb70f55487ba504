#include "base/mem.h"

#include "base/platform.h"
#include "base/utf8_format.h"

#include <atomic>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <mutex>

namespace findwright {
namespace {

// What a guard word holds: the payload's address as a number.
using guard_t = std::uintptr_t;

// A block: | header | front guard | payload | rear guard |, the guards touching the payload.
#ifdef NDEBUG
constexpr bool MEM_HAS_LIST = false;
constexpr u32 MEM_GUARD_WORDS = 1;

struct mem_header_t {
    size_t size;
};
#else
constexpr bool MEM_HAS_LIST = true;
constexpr u32 MEM_GUARD_WORDS = 64;

struct mem_header_t {
    mem_header_t *next;
    mem_header_t *prev;
    size_t size;
    const char *filename;
    int line;
};

mem_header_t *mem_first;
mem_header_t *mem_last;
std::mutex mem_lock; // held for list work only, never during a call of the heap
#endif

constexpr size_t MEM_PAYLOAD_ALIGN = 16;
constexpr size_t MEM_GUARD_BYTES = MEM_GUARD_WORDS * sizeof(guard_t);
// From the block's start to its payload.
constexpr size_t MEM_PAYLOAD_OFFSET =
    (sizeof(mem_header_t) + MEM_GUARD_BYTES + MEM_PAYLOAD_ALIGN - 1) / MEM_PAYLOAD_ALIGN * MEM_PAYLOAD_ALIGN;
constexpr size_t MEM_OVERHEAD = MEM_PAYLOAD_OFFSET + MEM_GUARD_BYTES;
constexpr size_t MEM_LOGGED_SIZE = 65536; // larger requests are logged
constexpr u8 MEM_DEAD_BYTE = 0xCC;
// No request in earnest is larger, and some heaps end the process instead of refusing one.
constexpr size_t MEM_SIZE_MAX = ~static_cast<size_t>(0) >> (sizeof(size_t) == 8 ? 25 : 1);

std::atomic<size_t> mem_count;
std::atomic<size_t> mem_size;

mem_header_t *_mem_header(char *payload) {
    return reinterpret_cast<mem_header_t *>(payload - MEM_PAYLOAD_OFFSET);
}

} // namespace

// Ends the process. The text is formatted on the stack: there may be no heap left to trust.
[[noreturn]] static void _mem_fatal(const char *function, int line, const char *format, ...) {
    char message[1024] = "unprintable error";
    va_list arguments;
    va_start(arguments, format);
    if (utf8_format(nullptr, format, arguments) < sizeof(message)) {
        va_end(arguments);
        va_start(arguments, format);
        message[utf8_format(message, format, arguments)] = 0;
    }
    va_end(arguments);
    platform.fatal(__FILE__, line, function, message);
    std::abort();
}

static void _mem_link([[maybe_unused]] mem_header_t *header, [[maybe_unused]] const char *filename,
                      [[maybe_unused]] int line) {
#ifndef NDEBUG
    header->filename = filename;
    header->line = line;
    header->next = nullptr;
    std::lock_guard guard(mem_lock);
    header->prev = mem_last;
    (mem_last ? mem_last->next : mem_first) = header;
    mem_last = header;
#endif
}

static void _mem_unlink([[maybe_unused]] mem_header_t *header) {
#ifndef NDEBUG
    std::lock_guard guard(mem_lock);
    (header->prev ? header->prev->next : mem_first) = header->next;
    (header->next ? header->next->prev : mem_last) = header->prev;
#endif
}

void *mem_try_alloc_debug(const char *filename, int line, size_t size) {
    if (size > MEM_LOGGED_SIZE)
        base_log("%s(%d): alloc %d\n", filename, line, static_cast<int>(size));
    if (size > MEM_SIZE_MAX - MEM_OVERHEAD)
        return nullptr;
    mem_header_t *header = static_cast<mem_header_t *>(std::malloc(size + MEM_OVERHEAD));
    if (!header)
        return nullptr;

    header->size = size;
    _mem_link(header, filename, line);
    mem_count.fetch_add(1, std::memory_order_relaxed);
    mem_size.fetch_add(size, std::memory_order_relaxed);

    char *payload = reinterpret_cast<char *>(header) + MEM_PAYLOAD_OFFSET;
    guard_t word = reinterpret_cast<guard_t>(payload);
    for (u32 i = 0; i < MEM_GUARD_WORDS; i++) {
        memcpy(payload - MEM_GUARD_BYTES + i * sizeof(word), &word, sizeof(word));
        memcpy(payload + size + i * sizeof(word), &word, sizeof(word));
    }
    return payload;
}

void *mem_alloc_debug(const char *filename, int line, size_t size) {
    void *payload = mem_try_alloc_debug(filename, line, size);
    if (!payload) {
        platform.out_of_memory();
        _mem_fatal("mem_alloc_debug", __LINE__, "out of memory");
    }
    return payload;
}

// The first word of a guard that doesn't hold the payload's address; MEM_GUARD_WORDS if all do.
static u32 _mem_bad_word(const char *guard, guard_t expected, guard_t *found) {
    for (u32 i = 0; i < MEM_GUARD_WORDS; i++) {
        memcpy(found, guard + i * sizeof(guard_t), sizeof(guard_t));
        if (*found != expected)
            return i;
    }
    return MEM_GUARD_WORDS;
}

static void _mem_check_guards(const char *filename, int line, char *payload) {
    guard_t expected = reinterpret_cast<guard_t>(payload);
    guard_t found;
    u32 bad = _mem_bad_word(payload - MEM_GUARD_BYTES, expected, &found);
    if (bad != MEM_GUARD_WORDS)
        _mem_fatal("mem_free_debug", __LINE__, "INVALID FREE from %s(%d): %p bad magic 1 %u: %p", filename,
                   line, static_cast<void *>(payload), bad, reinterpret_cast<void *>(found));
    // Only with the front guard whole can the size be believed that the rear guard is found by.
    bad = _mem_bad_word(payload + _mem_header(payload)->size, expected, &found);
    if (bad != MEM_GUARD_WORDS)
        _mem_fatal("mem_free_debug", __LINE__, "INVALID FREE from %s(%d): %p bad magic 2 %u: %p", filename,
                   line, static_cast<void *>(payload), bad, reinterpret_cast<void *>(found));
}

void mem_free_debug(const char *filename, int line, void *payload) {
    if (!payload)
        _mem_fatal("mem_free_debug", __LINE__, "INVALID FREE from %s(%d): %p", filename, line, payload);
    char *bytes = static_cast<char *>(payload);
    _mem_check_guards(filename, line, bytes);

    mem_header_t *header = _mem_header(bytes);
    size_t size = header->size;
    _mem_unlink(header);
    mem_count.fetch_sub(1, std::memory_order_relaxed);
    mem_size.fetch_sub(size, std::memory_order_relaxed);

    // A second free of the block finds no magic; in a debug build a late reader finds no content either.
    memset(bytes - MEM_GUARD_BYTES, MEM_DEAD_BYTE,
           MEM_GUARD_BYTES + (MEM_HAS_LIST ? size + MEM_GUARD_BYTES : 0));
    std::free(header);
}

size_t mem_live_count() {
    return mem_count.load(std::memory_order_relaxed);
}

size_t mem_live_size() {
    return mem_size.load(std::memory_order_relaxed);
}

// Logs the blocks of the live list. Logging may itself allocate, so that the list is copied first, on the
// system's own heap, and then read without the lock.
static void _mem_report_blocks([[maybe_unused]] size_t expected) {
#ifndef NDEBUG
    struct leak_t {
        const char *filename;
        int line;
        const void *payload;
        size_t size;
    };
    leak_t *leaks = static_cast<leak_t *>(std::malloc((expected + 1) * sizeof(leak_t)));
    if (!leaks)
        return;
    size_t count = 0;
    {
        std::lock_guard guard(mem_lock);
        for (const mem_header_t *header = mem_first; header && count < expected; header = header->next)
            leaks[count++] = {header->filename, header->line,
                              reinterpret_cast<const char *>(header) + MEM_PAYLOAD_OFFSET, header->size};
    }
    for (size_t i = 0; i < count; i++)
        base_log("%s(%d): %p: %d bytes\n", leaks[i].filename, leaks[i].line, leaks[i].payload,
                 static_cast<int>(leaks[i].size));
    std::free(leaks);
#endif
}

void mem_report() {
    size_t count = mem_live_count();
    size_t size = mem_live_size();
    size_t overhead = count * MEM_OVERHEAD;
    base_log("MEM_DEBUG_START (%d)\n", static_cast<int>(count));
    _mem_report_blocks(count);
    base_log("Allocation count: %d\n", static_cast<int>(count));
    base_log("Allocation size: %d\n", static_cast<int>(size));
    base_log("Allocation heap size: %d\n", static_cast<int>(size + overhead));
    base_log("heap overhead: %d\n", static_cast<int>(overhead));
    base_log("MEM_DEBUG_END\n");
}

} // namespace findwright
