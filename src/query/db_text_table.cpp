#include "query/db_text_table.h"

#include "base/mem.h"

#include <cstring>

namespace findwright {

void db_text_table_init(db_text_table_t *table, u32 count) {
    u32 slots = 4;
    while (slots / 2 < count)
        slots *= 2;
    table->mask = slots - 1;
    table->slots = static_cast<db_text_slot_t *>(mem_alloc(slots * sizeof(db_text_slot_t)));
    std::memset(table->slots, 0, slots * sizeof(db_text_slot_t));
}

void db_text_table_kill(db_text_table_t *table) {
    mem_free(table->slots);
}

void db_text_table_add(db_text_table_t *table, const char *text, u32 length) {
    u32 hash = db_text_hash<UTF8_MODE_EXACT>(text, length);
    u32 i = hash & table->mask;
    for (; table->slots[i].text; i = (i + 1) & table->mask) {
        const db_text_slot_t &slot = table->slots[i];
        if (slot.hash == hash && utf8_is_equal(slot.text, slot.length, text, length))
            return;
    }
    table->slots[i] = {text, length, hash};
}

} // namespace findwright
