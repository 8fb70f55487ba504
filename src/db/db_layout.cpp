#include "db/db_layout.h"

namespace findwright {

u32 db_layout_normalize_flags(u32 flags) {
    static constexpr struct {
        u32 flag, needs;
    } rules[] = {
        {DB_FLAG_FOLDER_SIZE, DB_FLAG_SIZE},
        {DB_FLAG_FAST_SIZE, DB_FLAG_SIZE},
        {DB_FLAG_FAST_DATE_CREATED, DB_FLAG_DATE_CREATED},
        {DB_FLAG_FAST_DATE_MODIFIED, DB_FLAG_DATE_MODIFIED},
        {DB_FLAG_FAST_DATE_ACCESSED, DB_FLAG_DATE_ACCESSED},
        {DB_FLAG_FAST_ATTRIBUTES, DB_FLAG_ATTRIBUTES},
    };
    for (auto rule : rules) {
        if (!(flags & rule.needs))
            flags &= ~rule.flag;
    }
    return flags;
}

void db_layout_set_flags(db_layout_t *layout, u32 flags) {
    *layout = {};
    layout->flags = flags;
    auto add = [&](u32 flag, u32 size, u32 *file_offset, u32 *folder_offset) {
        *file_offset = layout->file_data_size;
        *folder_offset = layout->folder_data_size;
        if (flags & flag) {
            layout->file_data_size += size;
            layout->folder_data_size += size;
        }
    };
    if (flags & DB_FLAG_SIZE)
        layout->file_data_size += 8;
    if (flags & DB_FLAG_FOLDER_SIZE)
        layout->folder_data_size += 8;
    add(DB_FLAG_DATE_CREATED, 8, &layout->file_date_created_offset, &layout->folder_date_created_offset);
    add(DB_FLAG_DATE_MODIFIED, 8, &layout->file_date_modified_offset, &layout->folder_date_modified_offset);
    add(DB_FLAG_DATE_ACCESSED, 8, &layout->file_date_accessed_offset, &layout->folder_date_accessed_offset);
    add(DB_FLAG_ATTRIBUTES, 4, &layout->file_attributes_offset, &layout->folder_attributes_offset);
}

} // namespace findwright
