#include "query/db_search_memo.h"

#include "base/mem.h"
#include "base/utf8.h"

#include <cstring>

namespace findwright {

db_scan_memo_t *db_scan_memo_create() {
    db_scan_memo_t *memo = static_cast<db_scan_memo_t *>(mem_alloc(sizeof *memo));
    std::memset(static_cast<void *>(memo), 0, sizeof *memo);
    return memo;
}

void db_scan_memo_free(db_scan_memo_t *memo) {
    mem_free(memo);
}

u32 db_item_get_name_units(const db_item_t *item) {
    u32 length;
    const char *name = db_item_get_name(item, &length);
    return utf8_is_ascii(name, length) ? length : wchar_utf8_get_length(name, length);
}

// --- Folders -----------------------------------------------------------------------------------------------

static constexpr u32 CHAIN_MAX = 16; // unknown folders of a chain that are kept, from the lowest one on

u32 db_folder_get_path_units(mem_ref_t folder) {
    u32 units = 0;
    for (mem_ref_t ref = folder; ref >= MEM_REF_FIRST; ref = db_item(ref)->parent)
        units += db_item_get_name_units(db_item(ref)) + (ref != folder);
    return units;
}

u32 db_scan_memo_find_path_units(db_scan_memo_t *memo, mem_ref_t folder) {
    mem_ref_t chain[CHAIN_MAX];
    u32 count = 0;
    mem_ref_t ref = folder;
    for (; ref >= MEM_REF_FIRST && count != CHAIN_MAX; ref = db_item(ref)->parent) {
        if (db_scan_memo_slot(memo, ref)->folder == ref)
            break;
        chain[count++] = ref;
    }
    bool is_known = ref >= MEM_REF_FIRST && db_scan_memo_slot(memo, ref)->folder == ref;
    u32 units = is_known ? db_scan_memo_slot(memo, ref)->path_units : db_folder_get_path_units(ref);
    bool has_parent = ref >= MEM_REF_FIRST;
    while (count-- != 0) {
        units += db_item_get_name_units(db_item(chain[count])) + has_parent;
        has_parent = true;
        *db_scan_memo_slot(memo, chain[count]) = {chain[count], units};
    }
    return units;
}

// --- Extensions --------------------------------------------------------------------------------------------

bool db_scan_memo_find_extension(db_scan_memo_t *memo, const db_exec_term_t *term, const char *extension,
                                 u32 length, db_memo_extension_t **place) {
    u32 hash = term->number + length;
    for (u32 i = 0; i < length; i++)
        hash = (hash ^ static_cast<u8>(extension[i])) * 0x9E3779B1u;
    db_memo_extension_t *slot = &memo->extensions[(hash ^ hash >> 16) % DB_MEMO_EXTENSIONS];
    *place = slot;
    if (slot->term == term && slot->length == length && std::memcmp(slot->extension, extension, length) == 0)
        return true;
    slot->term = term;
    slot->length = static_cast<u8>(length);
    std::memcpy(slot->extension, extension, length);
    return false;
}

} // namespace findwright
