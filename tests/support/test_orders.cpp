#include "support/test_orders.h"

#include "db/db_file.h"
#include "db/db_folder.h"
#include "db/db_index.h"

#include <gtest/gtest.h>

namespace findwright {
namespace {

using compare_t = int(const db_t *db, const db_item_t *a, const db_item_t *b);

int by_name(const db_t *, const db_item_t *a, const db_item_t *b) {
    return db_item_compare_name(a, b);
}
int by_file_path(const db_t *, const db_item_t *a, const db_item_t *b) {
    return db_file_compare_path(a, b);
}
int by_folder_path(const db_t *, const db_item_t *a, const db_item_t *b) {
    return db_folder_compare_path(a, b);
}
const struct {
    const char *name;
    u32 flag; // of the layout; 0: always
    array_t db_t::*array;
    bool folders;
    compare_t *compare;
} orders[] = {
    {"folder name", 0, &db_t::folder_name_array, true, by_name},
    {"file name", 0, &db_t::file_name_array, false, by_name},
    {"folder path", DB_FLAG_FAST_PATH, &db_t::folder_path_array, true, by_folder_path},
    {"file path", DB_FLAG_FAST_PATH, &db_t::file_path_array, false, by_file_path},
    {"folder size", DB_FLAG_FOLDER_SIZE | DB_FLAG_FAST_SIZE, &db_t::folder_size_array, true,
     db_folder_compare_size},
    {"file size", DB_FLAG_FAST_SIZE, &db_t::file_size_array, false, db_file_compare_size},
    {"folder created", DB_FLAG_FAST_DATE_CREATED, &db_t::folder_date_created_array, true,
     db_folder_compare_date_created},
    {"file created", DB_FLAG_FAST_DATE_CREATED, &db_t::file_date_created_array, false,
     db_file_compare_date_created},
    {"folder modified", DB_FLAG_FAST_DATE_MODIFIED, &db_t::folder_date_modified_array, true,
     db_folder_compare_date_modified},
    {"file modified", DB_FLAG_FAST_DATE_MODIFIED, &db_t::file_date_modified_array, false,
     db_file_compare_date_modified},
    {"folder accessed", DB_FLAG_FAST_DATE_ACCESSED, &db_t::folder_date_accessed_array, true,
     db_folder_compare_date_accessed},
    {"file accessed", DB_FLAG_FAST_DATE_ACCESSED, &db_t::file_date_accessed_array, false,
     db_file_compare_date_accessed},
    {"folder attributes", DB_FLAG_FAST_ATTRIBUTES, &db_t::folder_attributes_array, true,
     db_folder_compare_attributes},
    {"file attributes", DB_FLAG_FAST_ATTRIBUTES, &db_t::file_attributes_array, false,
     db_file_compare_attributes},
    {"file extension", DB_FLAG_FAST_EXTENSION, &db_t::file_extension_array, false, db_file_compare_extension},
    {"folder number", 0, &db_t::folder_frn_array, true, db_folder_compare_frn},
};

u32 _count_volume_folders(db_t *db) {
    u32 count = 0, page;
    i32 position;
    for (u32 i = 0; i < db->folder_name_array.count; i++)
        count += db_get_index(db_item(array_get(&db->folder_name_array, i, &page, &position)))->type ==
                 DB_INDEX_TYPE_NTFS;
    return count;
}

} // namespace

void test_check_orders(db_t *db) {
    for (auto order : orders) {
        const array_t *array = &(db->*order.array);
        u32 count = array == &db->folder_frn_array ? _count_volume_folders(db)
                    : order.folders                ? db->folder_name_array.count
                                                   : db->file_name_array.count;
        if ((db->layout.flags & order.flag) != order.flag)
            count = 0;
        ASSERT_EQ(count, array->count) << order.name;
        u32 page;
        i32 position;
        for (u32 i = 1; i < count; i++) {
            const db_item_t *before = db_item(array_get(array, i - 1, &page, &position));
            const db_item_t *item = db_item(array_get(array, i, &page, &position));
            ASSERT_LT(order.compare(db, before, item), 0) << order.name << " " << i;
        }
    }
}

} // namespace findwright
