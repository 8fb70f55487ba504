// The arena's allocator. It works on runs of pages of 4,096 bytes; requests below a page come from 64 KiB
// runs that are cut into slots of one size.
//
//   arena:  | markers | run | run | free run |   run   | free run | run |  never used yet ...
//   table:  [    .    | .   | .   | n . . n  | . . . . |  m    m  | .   |      one entry per page
//                                                                       ^ top
//
// The page table says of each free run how long it is, in the entries of its first and last page, so that a
// freed run finds its free neighbours at once; every other entry's length is 0. A free run that reaches the
// top lowers the top instead. Free runs hang on lists by length: one list per length up to 64 pages, above
// that four per doubling.
//
// Memory is committed in units of 64 KiB, with a bit for each. Behind every block in use the slack is
// committed too. A free run of 1 MiB and more is decommitted, but only while more than MEM_ARENA_KEEP bytes
// are free and committed: a search that frees its results makes new ones with the next letter typed.
#include "base/mem_ref.h"

#include "base/mem.h"
#include "base/platform.h"

#include <bit>
#include <cstdlib>
#include <cstring>
#include <mutex>

namespace findwright {

char *mem_arena_base;

namespace {

constexpr u64 MEM_ARENA_SIZE = static_cast<u64>(16) << 30;
constexpr u32 MEM_ARENA_PAGES = static_cast<u32>(MEM_ARENA_SIZE / MEM_ARENA_PAGE);
constexpr u32 MEM_UNIT_SIZE = 65536; // granularity of the platform's commit
constexpr u32 MEM_UNITS = static_cast<u32>(MEM_ARENA_SIZE / MEM_UNIT_SIZE);
constexpr u32 MEM_UNIT_PAGES = MEM_UNIT_SIZE / MEM_ARENA_PAGE;
constexpr u32 MEM_GROW_UNITS = 64; // units committed at once behind the top: two large pages of most systems
constexpr u32 MEM_DECOMMIT_UNITS = (1u << 20) / MEM_UNIT_SIZE;
constexpr u32 MEM_ARENA_KEEP = 64u << 20;
constexpr u32 MEM_PAGE_NONE = 0; // page 0 holds the markers: never in a run

constexpr u32 MEM_EXACT_BINS = 64;
constexpr u32 MEM_BINS = 128;     // 64 exact ones, and 4 for each doubling from 2^6 to 2^22
constexpr u32 MEM_BIN_TRIES = 32; // runs looked at in a list whose runs may be too short
constexpr u32 MEM_SLAB_PAGES = 16;
constexpr u32 MEM_SLAB_SIZE = MEM_SLAB_PAGES * MEM_ARENA_PAGE;
constexpr u32 MEM_SLAB_HEADER = 64;
constexpr u32 MEM_SLOT_MAX = 3584; // above it a slot would waste as much as a page
constexpr u32 MEM_CLASSES = 27;
constexpr u32 MEM_SLOT_ALIGN = 16;

static_assert(MEM_SLAB_HEADER % MEM_SLOT_ALIGN == 0 && MEM_ARENA_SLACK <= MEM_ARENA_PAGE);

struct mem_page_t {
    u32 run;  // first and last page of a free run: its pages; else 0
    u32 next; // first page of a free run: neighbours on its list
    u32 prev;
    u32 slab; // page of a slab: the slab's first page
};

// A run cut into slots of one size. Slabs with a free slot hang on the list of their class.
struct mem_slab_t {
    mem_slab_t *next;
    mem_slab_t *prev;
    u32 class_index;
    u32 used;      // slots handed out
    u32 free_slot; // list of freed slots, as offsets in the slab; 0 is none
    u32 fresh;     // offset of the first slot that was never handed out
};
static_assert(sizeof(mem_slab_t) <= MEM_SLAB_HEADER);

struct mem_arena_t {
    std::mutex lock;
    mem_page_t *pages;   // reserved behind the arena; committed as the top rises
    u32 pages_committed; // units
    u32 top;             // first page that is neither in use nor in a free run
    u32 unit_end;        // no unit from here on is committed
    size_t used;         // bytes handed out, as asked for
    size_t run_bytes;    // bytes of the runs in use
    size_t committed;    // bytes
    u32 bins[MEM_BINS];  // lists of free runs, by first page
    u64 bin_bits[MEM_BINS / 64];
    u64 unit_bits[MEM_UNITS / 64]; // committed units
    mem_slab_t *slabs[MEM_CLASSES];
};

mem_arena_t arena;

constexpr size_t MEM_RESERVED =
    MEM_REF_SHIFT ? static_cast<size_t>(MEM_ARENA_SIZE + MEM_ARENA_PAGES * sizeof(mem_page_t)) : 0;

// Ends the process. The lock is let go first: what the user is shown may run other code of the program.
[[noreturn]] void _mem_arena_fatal(const char *function, int line, const char *message) {
    arena.lock.unlock();
    platform.out_of_memory();
    platform.fatal(__FILE__, line, function, message);
    std::abort();
}

char *_mem_page_address(u32 page) {
    return mem_arena_base + static_cast<size_t>(page) * MEM_ARENA_PAGE;
}

// --- Committed units ---------------------------------------------------------------------------------------

bool _mem_unit_is_committed(u32 unit) {
    return arena.unit_bits[unit / 64] >> unit % 64 & 1;
}

// Changes the state of the units of a range that are not in it yet, in as few calls as there are stretches.
bool _mem_set_units(u32 unit, u32 end, bool commit) {
    while (unit < end) {
        u32 first = unit;
        while (unit < end && _mem_unit_is_committed(unit) != commit)
            unit++;
        if (unit > first) {
            char *address = mem_arena_base + static_cast<size_t>(first) * MEM_UNIT_SIZE;
            size_t bytes = static_cast<size_t>(unit - first) * MEM_UNIT_SIZE;
            if (commit) {
                if (!platform.commit(address, bytes))
                    return false;
                mem_poison(address, bytes);
                arena.committed += bytes;
            } else {
                platform.decommit(address, bytes);
                arena.committed -= bytes;
            }
            for (u32 i = first; i < unit; i++)
                arena.unit_bits[i / 64] ^= static_cast<u64>(1) << i % 64;
        }
        while (unit < end && _mem_unit_is_committed(unit) == commit)
            unit++;
    }
    return true;
}

// Commits the pages and the slack behind them; ahead of need where the range is the highest yet.
void _mem_commit_run(u32 page, u32 count, bool grows) {
    u32 unit = page / MEM_UNIT_PAGES;
    u32 end = (page + count) / MEM_UNIT_PAGES + 1; // the unit of the page behind, which holds the slack
    if (grows)
        end = (end + MEM_GROW_UNITS - 1) / MEM_GROW_UNITS * MEM_GROW_UNITS;
    if (end > MEM_UNITS)
        end = MEM_UNITS;
    if (!_mem_set_units(unit, end, true))
        _mem_arena_fatal("mem_arena_alloc", __LINE__, "out of memory");
    if (end > arena.unit_end)
        arena.unit_end = end;
}

// Gives the memory of a free run back if it is long and more than `keep` bytes are free; all that lies behind
// the top is one run. The slack of the block in front stays.
void _mem_decommit_run(u32 page, u32 end_page, size_t keep) {
    bool at_top = end_page >= arena.top;
    u32 end = at_top ? arena.unit_end : end_page / MEM_UNIT_PAGES;
    u32 unit = page / MEM_UNIT_PAGES + 1;
    if (end < unit + MEM_DECOMMIT_UNITS || arena.committed - arena.run_bytes <= keep)
        return;
    _mem_set_units(unit, end, false);
    if (at_top)
        arena.unit_end = unit;
}

// --- Free runs ---------------------------------------------------------------------------------------------

u32 _mem_bin(u32 count) {
    if (count <= MEM_EXACT_BINS)
        return count - 1;
    u32 log = static_cast<u32>(std::bit_width(count)) - 1; // 6 or more
    return MEM_EXACT_BINS + (log - 6) * 4 + (count >> (log - 2) & 3);
}

void _mem_run_link(u32 page, u32 count) {
    u32 bin = _mem_bin(count);
    u32 next = arena.bins[bin];
    arena.pages[page].next = next;
    arena.pages[page].prev = MEM_PAGE_NONE;
    if (next)
        arena.pages[next].prev = page;
    arena.bins[bin] = page;
    arena.bin_bits[bin / 64] |= static_cast<u64>(1) << bin % 64;
    arena.pages[page].run = arena.pages[page + count - 1].run = count;
}

void _mem_run_unlink(u32 page) {
    mem_page_t *first = &arena.pages[page];
    u32 count = first->run;
    u32 bin = _mem_bin(count);
    if (first->prev)
        arena.pages[first->prev].next = first->next;
    else
        arena.bins[bin] = first->next;
    if (first->next)
        arena.pages[first->next].prev = first->prev;
    if (!arena.bins[bin])
        arena.bin_bits[bin / 64] &= ~(static_cast<u64>(1) << bin % 64);
    first->run = arena.pages[page + count - 1].run = 0;
}

// The first list at or behind `bin` that holds a run; MEM_BINS if there is none.
u32 _mem_next_bin(u32 bin) {
    for (u32 word = bin / 64; word < MEM_BINS / 64; word++) {
        u64 bits = arena.bin_bits[word];
        if (word == bin / 64)
            bits &= ~static_cast<u64>(0) << bin % 64;
        if (bits)
            return word * 64 + static_cast<u32>(std::countr_zero(bits));
    }
    return MEM_BINS;
}

// A free run of at least `count` pages, or none. In the list of the count's own step runs may be too short;
// those of every higher list do.
u32 _mem_run_find(u32 count) {
    u32 bin = _mem_bin(count);
    if (count > MEM_EXACT_BINS) {
        u32 page = arena.bins[bin];
        for (u32 tries = MEM_BIN_TRIES; page && tries; tries--, page = arena.pages[page].next) {
            if (arena.pages[page].run >= count)
                return page;
        }
        bin++;
    }
    bin = bin < MEM_BINS ? _mem_next_bin(bin) : MEM_BINS;
    return bin < MEM_BINS ? arena.bins[bin] : MEM_PAGE_NONE;
}

// Raises the top, with its part of the page table; the first page of what it gained.
u32 _mem_run_at_top(u32 count) {
    // The last page stays free: it is the slack behind the last block.
    if (count >= MEM_ARENA_PAGES - arena.top)
        _mem_arena_fatal("mem_arena_alloc", __LINE__,
                         "out of memory: the index has reached its limit of 16 GiB, about 130 million items");
    u32 page = arena.top;
    size_t table_bytes = static_cast<size_t>(page + count) * sizeof(mem_page_t);
    u32 units = static_cast<u32>((table_bytes + MEM_UNIT_SIZE - 1) / MEM_UNIT_SIZE);
    if (units > arena.pages_committed) {
        char *table = reinterpret_cast<char *>(arena.pages);
        if (!platform.commit(table + static_cast<size_t>(arena.pages_committed) * MEM_UNIT_SIZE,
                             static_cast<size_t>(units - arena.pages_committed) * MEM_UNIT_SIZE))
            _mem_arena_fatal("mem_arena_alloc", __LINE__, "out of memory");
        arena.pages_committed = units;
    }
    arena.top += count;
    return page;
}

u32 _mem_run_alloc(u32 count) {
    u32 page = _mem_run_find(count);
    bool grows = page == MEM_PAGE_NONE;
    if (grows) {
        page = _mem_run_at_top(count);
    } else {
        u32 length = arena.pages[page].run;
        _mem_run_unlink(page);
        if (length > count)
            _mem_run_link(page + count, length - count);
    }
    _mem_commit_run(page, count, grows);
    arena.run_bytes += static_cast<size_t>(count) * MEM_ARENA_PAGE;
    return page;
}

void _mem_run_free(u32 page, u32 count) {
    arena.run_bytes -= static_cast<size_t>(count) * MEM_ARENA_PAGE;
    mem_poison(_mem_page_address(page), static_cast<size_t>(count) * MEM_ARENA_PAGE);

    u32 end = page + count;
    if (end < arena.top && arena.pages[end].run) {
        u32 behind = arena.pages[end].run;
        _mem_run_unlink(end);
        end += behind;
    }
    if (arena.pages[page - 1].run) {
        page -= arena.pages[page - 1].run;
        _mem_run_unlink(page);
    }
    if (end == arena.top)
        arena.top = page;
    else
        _mem_run_link(page, end - page);
    _mem_decommit_run(page, end, MEM_ARENA_KEEP);
}

// --- Slots -------------------------------------------------------------------------------------------------

// Classes are the multiples of 16 up to 128, then four per doubling: 160, 192, 224, 256, 320 ... 3,584.
u32 _mem_class(u32 size) {
    if (size <= 128)
        return size ? (size - 1) / MEM_SLOT_ALIGN : 0;
    u32 log = static_cast<u32>(std::bit_width(size - 1)) - 1; // 7 or more
    return 8 + (log - 7) * 4 + ((size - 1) >> (log - 2) & 3);
}

u32 _mem_class_size(u32 index) {
    if (index < 8)
        return (index + 1) * MEM_SLOT_ALIGN;
    u32 log = 7 + (index - 8) / 4;
    return (5 + (index - 8) % 4) << (log - 2);
}

void _mem_slab_link(mem_slab_t *slab) {
    mem_slab_t **list = &arena.slabs[slab->class_index];
    slab->prev = nullptr;
    slab->next = *list;
    if (*list)
        (*list)->prev = slab;
    *list = slab;
}

void _mem_slab_unlink(mem_slab_t *slab) {
    (slab->prev ? slab->prev->next : arena.slabs[slab->class_index]) = slab->next;
    if (slab->next)
        slab->next->prev = slab->prev;
}

bool _mem_slab_is_full(const mem_slab_t *slab) {
    return !slab->free_slot && slab->fresh + _mem_class_size(slab->class_index) > MEM_SLAB_SIZE;
}

mem_slab_t *_mem_slab_create(u32 class_index) {
    u32 page = _mem_run_alloc(MEM_SLAB_PAGES);
    for (u32 i = 0; i < MEM_SLAB_PAGES; i++)
        arena.pages[page + i].slab = page;
    mem_slab_t *slab = reinterpret_cast<mem_slab_t *>(_mem_page_address(page));
    mem_unpoison(slab, sizeof(mem_slab_t));
    *slab = {};
    slab->class_index = class_index;
    slab->fresh = MEM_SLAB_HEADER;
    _mem_slab_link(slab);
    return slab;
}

void *_mem_slot_alloc(u32 size) {
    u32 class_index = _mem_class(size);
    mem_slab_t *slab = arena.slabs[class_index];
    if (!slab)
        slab = _mem_slab_create(class_index);

    char *slot = reinterpret_cast<char *>(slab);
    if (slab->free_slot) {
        slot += slab->free_slot;
        mem_unpoison(slot, sizeof(u32));
        memcpy(&slab->free_slot, slot, sizeof(u32));
    } else {
        slot += slab->fresh;
        slab->fresh += _mem_class_size(class_index);
    }
    slab->used++;
    if (_mem_slab_is_full(slab))
        _mem_slab_unlink(slab);
    return slot;
}

void _mem_slot_free(char *slot) {
    u32 page = arena.pages[static_cast<size_t>(slot - mem_arena_base) / MEM_ARENA_PAGE].slab;
    mem_slab_t *slab = reinterpret_cast<mem_slab_t *>(_mem_page_address(page));
    bool was_full = _mem_slab_is_full(slab);
    mem_unpoison(slot, sizeof(u32));
    memcpy(slot, &slab->free_slot, sizeof(u32));
    slab->free_slot = static_cast<u32>(slot - reinterpret_cast<char *>(slab));
    mem_poison(slot, _mem_class_size(slab->class_index));

    slab->used--;
    if (was_full)
        _mem_slab_link(slab);
    if (!slab->used) {
        _mem_slab_unlink(slab);
        _mem_run_free(page, MEM_SLAB_PAGES);
    }
}

// --- Builds with plain pointers ----------------------------------------------------------------------------

// A block of the plain heap at a multiple of a page, with the heap's own address in front and the slack
// behind.
[[maybe_unused]] void *_mem_plain_alloc(size_t size) {
    size_t bytes = size + MEM_ARENA_PAGE + sizeof(void *) + MEM_ARENA_SLACK;
    if (bytes < size)
        _mem_arena_fatal("mem_arena_alloc", __LINE__, "out of memory");
    char *heap = static_cast<char *>(mem_alloc(bytes));
    std::uintptr_t first = reinterpret_cast<std::uintptr_t>(heap) + sizeof(void *);
    size_t align = size < MEM_ARENA_PAGE ? MEM_SLOT_ALIGN : MEM_ARENA_PAGE;
    char *block = heap + sizeof(void *) + (align - first % align) % align;
    memcpy(block - sizeof(heap), &heap, sizeof(heap));
    return block;
}

[[maybe_unused]] void _mem_plain_free(void *block) {
    char *heap;
    memcpy(&heap, static_cast<char *>(block) - sizeof(heap), sizeof(heap));
    mem_free(heap);
}

u32 _mem_run_pages(size_t size) {
    return static_cast<u32>((size + MEM_ARENA_PAGE - 1) / MEM_ARENA_PAGE);
}

} // namespace

void mem_arena_init() {
    if constexpr (MEM_REF_SHIFT != 0) {
        std::lock_guard guard(arena.lock);
        if (mem_arena_base)
            return;
        char *base = static_cast<char *>(platform.reserve(MEM_RESERVED));
        if (!base)
            _mem_arena_fatal("mem_arena_init", __LINE__,
                             "out of memory: 16 GiB of address space are not to be had");
        mem_arena_base = base;
        arena.pages = reinterpret_cast<mem_page_t *>(base + MEM_ARENA_SIZE);
        // The markers' page is never in use: it is the neighbour in front that the first run finds, and is
        // not free.
        arena.top = 0;
        _mem_run_at_top(1);
    }
}

void mem_arena_kill() {
    if constexpr (MEM_REF_SHIFT != 0) {
        if (!mem_arena_base)
            return;
        for (u32 unit = 0; unit < MEM_UNITS; unit++) {
            if (_mem_unit_is_committed(unit))
                mem_unpoison(mem_arena_base + static_cast<size_t>(unit) * MEM_UNIT_SIZE, MEM_UNIT_SIZE);
        }
        platform.unreserve(mem_arena_base, MEM_RESERVED);
        mem_arena_base = nullptr;
        arena.pages = nullptr;
        arena.pages_committed = arena.top = arena.unit_end = 0;
        arena.used = arena.run_bytes = arena.committed = 0;
        memset(arena.bins, 0, sizeof(arena.bins));
        memset(arena.bin_bits, 0, sizeof(arena.bin_bits));
        memset(arena.unit_bits, 0, sizeof(arena.unit_bits));
        memset(arena.slabs, 0, sizeof(arena.slabs));
    }
}

void *mem_arena_alloc(size_t size) {
    std::lock_guard guard(arena.lock);
    void *block;
    if constexpr (MEM_REF_SHIFT == 0) {
        block = _mem_plain_alloc(size);
    } else {
        if (size > MEM_ARENA_SIZE - 2 * MEM_ARENA_PAGE)
            _mem_run_at_top(MEM_ARENA_PAGES); // ends the process
        block = size <= MEM_SLOT_MAX ? _mem_slot_alloc(static_cast<u32>(size))
                                     : _mem_page_address(_mem_run_alloc(_mem_run_pages(size)));
        mem_unpoison(block, size);
    }
    arena.used += size;
    return block;
}

void mem_arena_free(void *block, size_t size) {
    std::lock_guard guard(arena.lock);
    arena.used -= size;
    if constexpr (MEM_REF_SHIFT == 0) {
        _mem_plain_free(block);
    } else {
        char *address = static_cast<char *>(block);
        if (size <= MEM_SLOT_MAX)
            _mem_slot_free(address);
        else
            _mem_run_free(static_cast<u32>(static_cast<size_t>(address - mem_arena_base) / MEM_ARENA_PAGE),
                          _mem_run_pages(size));
    }
}

void mem_arena_trim() {
    if constexpr (MEM_REF_SHIFT != 0) {
        std::lock_guard guard(arena.lock);
        for (u32 bin : arena.bins) {
            for (u32 page = bin; page; page = arena.pages[page].next)
                _mem_decommit_run(page, page + arena.pages[page].run, 0);
        }
        _mem_decommit_run(arena.top, arena.top, 0);
    }
}

size_t mem_arena_used() {
    std::lock_guard guard(arena.lock);
    return arena.used;
}

size_t mem_arena_committed() {
    std::lock_guard guard(arena.lock);
    return arena.committed;
}

} // namespace findwright
