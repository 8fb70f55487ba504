// Sorts items by keys that are taken out of the records once, in the orders that the comparisons of
// db/db_item.h define, to the last item. A full comparison runs only where the keys tie.
//
// A text key is the folded text in an encoding whose bytes sort as its characters do (UTF-8 of each folded
// code point plus one, so that the end of the text, zero, sorts first). It is taken in pieces of 8 bytes:
// names are sorted by their first piece, those that tie by the next one, and so on.
//
// Everything here reads records and writes only the tables it was given; large tables are sorted on several
// threads.
#pragma once

#include "base/mem_ref.h"
#include "base/types.h"

namespace findwright {

// Reads the word that a folder keeps for the passes over it, and writes it.
struct db_order_slots_t {
    u32 offset; // of the word, from the end of the folder's name
};
u32 db_order_get_slot(db_order_slots_t slots, mem_ref_t folder);
void db_order_set_slot(db_order_slots_t slots, mem_ref_t folder, u32 value);

// Sorts folders by their own full paths. Afterwards each folder's slot holds the rank of its folded path,
// from 1: equal for folders whose folded paths are equal. `parent` of a folder is another one in the table,
// or a marker. Returns the highest rank.
u32 db_order_folder_paths(mem_ref_t *folders, u32 count, db_order_slots_t slots);

// Sorts items by db_item_compare_name; the slots of their parents hold path ranks. `same_name` (0 or `count`
// bytes) gets 1 for each item whose folded name equals that of the one before it.
void db_order_names(mem_ref_t *items, u32 count, db_order_slots_t slots, u8 *same_name);

// The path order of files that stand in name order: fills `order` with places in `files`. `parent_ranks` has
// the rank of each file's parent path (0 without one), up to `highest_rank`; `same_name` is that of
// db_order_names.
void db_order_file_paths(const mem_ref_t *files, u32 count, const u32 *parent_ranks, u32 highest_rank,
                         const u8 *same_name, u32 *order);

// The order of a column of items that stand in name order: fills `order` with places, ascending by value,
// places with equal values in their own order. VALUE_UNKNOWN sorts first.
void db_order_values(const u64 *values, u32 count, u32 *order);

// The same for the text of attribute letters, and for the extensions of files.
void db_order_attributes(const u32 *attributes, u32 count, u32 *order);
void db_order_extensions(const mem_ref_t *files, u32 count, u32 *order);

} // namespace findwright
