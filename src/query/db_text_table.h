// A set of folded texts in which names are looked up as they stand: a name is folded while its hash is made,
// and nothing is copied.
//
// A text belongs to the set by the rule of the search primitives (base/utf8_match.h): the code points after
// folding are equal. So the hash is one over code points.
//
// Owner: data of an executable term. The texts are the owner's, and stay where they are. Filled by one
// thread, read by any number afterwards.
#pragma once

#include "base/utf8_match.h"

namespace findwright {

struct db_text_slot_t {
    const char *text; // 0: free
    u32 length;
    u32 hash;
};
struct db_text_table_t {
    db_text_slot_t *slots;
    u32 mask; // the number of slots less 1; at least half of them are free
};

// Room for `count` texts.
void db_text_table_init(db_text_table_t *table, u32 count);
void db_text_table_kill(db_text_table_t *table);
// A text that is folded already. One that is there stays alone.
void db_text_table_add(db_text_table_t *table, const char *text, u32 length);

// Lower case of eight ASCII characters at once.
inline u64 db_lower_ascii_8(u64 bytes) {
    u64 from_a = bytes + 0x3F3F3F3F3F3F3F3F, behind_z = bytes + 0x2525252525252525;
    return bytes | (from_a & ~behind_z & 0x8080808080808080) >> 2;
}

// The hash of a text as the mode reads it; that of a folded text is the one of UTF8_MODE_EXACT.
template<utf8_mode_t mode>
inline u32 db_text_hash(const char *text, u32 length) {
    u64 hash = length == 0 ? 1 : 0x9E3779B97F4A7C15;
    for (const char *end = text + length; text != end;) {
        u32 value = static_cast<u8>(*text);
        if (value < 0x80) {
            value = utf8_mode_byte<mode>(*text++);
        } else {
            text += utf8_decode(text, end, &value);
            value = utf8_mode_fold<mode>(value);
        }
        hash = (hash ^ value) * 0xD6E8FEB86659FD93;
        hash ^= hash >> 32;
    }
    return static_cast<u32>(hash);
}

template<utf8_mode_t mode>
inline bool db_text_table_has(const db_text_table_t *table, const char *text, u32 length) {
    u32 hash = db_text_hash<mode>(text, length);
    for (u32 i = hash & table->mask; table->slots[i].text; i = (i + 1) & table->mask) {
        const db_text_slot_t &slot = table->slots[i];
        if (slot.hash == hash && utf8_equal<mode>(text, length, slot.text, slot.length))
            return true;
    }
    return false;
}

} // namespace findwright
