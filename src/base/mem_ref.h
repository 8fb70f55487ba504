// The reference arena: 32-bit references to records.
//
// One range of 16 GiB of address space is reserved once and committed as it fills. A reference is an offset
// into it divided by 4, so what an item record or an array holds of another record is 4 bytes wide. Reference
// 0 is none. The first page of the arena is never handed out: references below MEM_REF_FIRST are free to be
// used as markers, values that no record can have.
//
//      mem_arena_base                                                       + 16 GiB
//      | markers (4 KiB) | block | block | free run | block | ... | not yet committed |
//
// In a 32-bit build the base is 0, the shift is 0, and a reference is the pointer.
//
// Thread rules: the arena hands out and takes back blocks under a lock, from any thread. What lies inside a
// block belongs to its owner. Sanitizer builds poison all that is free or not handed out; an owner that hands
// out parts of a block (db_mem, obstack) poisons what it has not handed out with mem_poison. So a load that
// runs past a record's end on purpose, into the slack, belongs into a function that is not instrumented.
#pragma once

#include "base/types.h"

#if defined(__SANITIZE_ADDRESS__)
#define FINDWRIGHT_ASAN
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define FINDWRIGHT_ASAN
#endif
#endif
#ifdef FINDWRIGHT_ASAN
#include <sanitizer/asan_interface.h>
#endif

namespace findwright {

using mem_ref_t = u32;

inline constexpr int MEM_REF_SHIFT = sizeof(void *) == 8 ? 2 : 0;
// The first reference that can be a record's; those below it are markers.
inline constexpr mem_ref_t MEM_REF_FIRST = 4096 >> MEM_REF_SHIFT;
// Every page and every block of 4,096 bytes or more starts at a multiple of this; smaller ones at one of 16.
inline constexpr u32 MEM_ARENA_PAGE = 4096;
// At least this many bytes behind the last block can be read: a vector load may run past a record's end.
inline constexpr u32 MEM_ARENA_SLACK = 512;

extern char *mem_arena_base;

// The record of a reference that is neither 0 nor a marker.
template<class T>
inline T *mem_ptr(mem_ref_t ref) {
    return reinterpret_cast<T *>(mem_arena_base + (static_cast<size_t>(ref) << MEM_REF_SHIFT));
}

// The reference of a record in the arena; the pointer must be a multiple of 4.
inline mem_ref_t mem_ref(const void *pointer) {
    return static_cast<mem_ref_t>(static_cast<size_t>(static_cast<const char *>(pointer) - mem_arena_base) >>
                                  MEM_REF_SHIFT);
}

// A reference that knows what it refers to. Same size and cost as the plain one.
template<class T>
struct ref_t {
    mem_ref_t value = 0;

    explicit operator bool() const { return value != 0; }
    T *operator->() const { return mem_ptr<T>(value); }
    T *get() const { return mem_ptr<T>(value); }
    friend bool operator==(ref_t, ref_t) = default;
};

template<class T>
inline ref_t<T> ref_to(const T *pointer) {
    return {mem_ref(pointer)};
}

// Reserves the range; a second call does nothing. `os_init` calls it. Ends the process if it fails.
void mem_arena_init();
// Gives the whole range back. Nothing may be alive in it.
void mem_arena_kill();

// A block of `size` bytes, and its return with the same size. Running out ends the process with a message
// that names the arena's limit.
void *mem_arena_alloc(size_t size);
void mem_arena_free(void *block, size_t size);

// Gives back what the arena keeps committed for blocks to come: for the end of a large piece of work, when
// what it needed for a while will not be needed again soon.
void mem_arena_trim();

// Bytes handed out, and bytes committed.
size_t mem_arena_used();
size_t mem_arena_committed();

// Marks a range as not to be touched, or as usable again, in builds with AddressSanitizer; else nothing, so
// that an allocator's inline path may call them. Works on 8 bytes at a time: where a range begins or ends
// within 8 bytes that others use too, those stay usable.
inline void mem_poison([[maybe_unused]] const void *address, [[maybe_unused]] size_t size) {
#ifdef FINDWRIGHT_ASAN
    __asan_poison_memory_region(address, size);
#endif
}
inline void mem_unpoison([[maybe_unused]] const void *address, [[maybe_unused]] size_t size) {
#ifdef FINDWRIGHT_ASAN
    __asan_unpoison_memory_region(address, size);
#endif
}

} // namespace findwright
