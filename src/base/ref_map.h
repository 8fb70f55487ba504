// A map from references (or other numbers, 0 excepted) to small values.
//
//   slots: a power of 2 of them, at most three quarters in use; key 0 is a free one. A key stands at the
//          place that its hash tells or in the run of used slots behind it, and no free slot lies between.
//
// Values are plain data; they move when the map changes, so a pointer to one is good until then.
// Owner: whoever holds the structure. Several threads may look up at once while none changes it.
#pragma once

#include "base/mem.h"
#include "base/types.h"

#include <cstring>
#include <type_traits>

namespace findwright {

template<class value_t>
struct ref_map_t {
    struct slot_t {
        u32 key;
        value_t value;
    };
    static_assert(std::is_trivially_copyable_v<value_t>);

    slot_t *slots;
    u32 shift; // 32 less the binary logarithm of the slots' number
    u32 count;
};

inline constexpr u32 REF_MAP_MIN_BITS = 4;

template<class value_t>
inline void ref_map_init(ref_map_t<value_t> *map) {
    *map = {};
}

template<class value_t>
inline void ref_map_kill(ref_map_t<value_t> *map) {
    if (map->slots)
        mem_free(map->slots);
    ref_map_init(map);
}

// The number of slots; of a map without memory none.
template<class value_t>
inline u32 ref_map_capacity(const ref_map_t<value_t> *map) {
    return map->slots ? 1u << (32 - map->shift) : 0;
}

// The slot of a key, or the free one where it belongs. There must be memory.
template<class value_t>
inline typename ref_map_t<value_t>::slot_t *_ref_map_locate(const ref_map_t<value_t> *map, u32 key) {
    static constexpr u32 GOLDEN = 0x9E3779B1; // spreads keys that are multiples of something
    u32 mask = ref_map_capacity(map) - 1, place = key * GOLDEN >> map->shift;
    while (map->slots[place].key != 0 && map->slots[place].key != key)
        place = (place + 1) & mask;
    return &map->slots[place];
}

// The value of a key; 0 when there is none.
template<class value_t>
inline value_t *ref_map_find(const ref_map_t<value_t> *map, u32 key) {
    if (!map->slots)
        return nullptr;
    auto *slot = _ref_map_locate(map, key);
    return slot->key ? &slot->value : nullptr;
}

template<class value_t>
inline void _ref_map_grow(ref_map_t<value_t> *map) {
    using slot_t = typename ref_map_t<value_t>::slot_t;
    u32 old_capacity = ref_map_capacity(map);
    slot_t *old_slots = map->slots;
    map->shift = old_slots ? map->shift - 1 : 32 - REF_MAP_MIN_BITS;
    size_t size = sizeof(slot_t) << (32 - map->shift);
    map->slots = static_cast<slot_t *>(mem_alloc(size));
    std::memset(static_cast<void *>(map->slots), 0, size);
    for (u32 i = 0; i < old_capacity; i++) {
        if (old_slots[i].key != 0)
            *_ref_map_locate(map, old_slots[i].key) = old_slots[i];
    }
    if (old_slots)
        mem_free(old_slots);
}

// The value of a key, which is made, all zero, when there is none.
template<class value_t>
inline value_t *ref_map_make(ref_map_t<value_t> *map, u32 key) {
    if (value_t *value = ref_map_find(map, key))
        return value;
    u32 capacity = ref_map_capacity(map);
    if (map->count >= capacity - capacity / 4)
        _ref_map_grow(map);
    auto *slot = _ref_map_locate(map, key);
    slot->key = key;
    map->count++;
    return &slot->value;
}

// False when the key was not there.
template<class value_t>
inline bool ref_map_remove(ref_map_t<value_t> *map, u32 key) {
    if (!ref_map_find(map, key))
        return false;
    u32 mask = ref_map_capacity(map) - 1;
    u32 hole = static_cast<u32>(_ref_map_locate(map, key) - map->slots);
    map->slots[hole] = {};
    map->count--;
    // What stands behind the hole is put in anew, up to the end of the run.
    for (u32 i = (hole + 1) & mask; map->slots[i].key != 0; i = (i + 1) & mask) {
        auto moved = map->slots[i];
        map->slots[i] = {};
        *_ref_map_locate(map, moved.key) = moved;
    }
    return true;
}

} // namespace findwright
