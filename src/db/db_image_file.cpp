#include "base/utf8_buf.h"
#include "db/db_image.h"
#include "os/debug.h"

namespace findwright {

bool db_image_save(db_t *db, const char *filename, bool compress) {
    u32 start = os_get_tick_count();
    debug_printf("db_save_local %d folders, %d files\n", db->folder_name_array.count,
                 db->file_name_array.count);
    utf8_buf_t temp;
    utf8_buf_init(&temp);
    os_get_temp_name(filename, &temp);
    os_make_folders_for(filename);
    bz2_stream_t *stream = compress ? bz2_write_open(temp.data) : bz2_write_open_plain(temp.data);
    bool saved = false;
    if (stream) {
        os_make_private(temp.data);
        db_image_write(db, stream);
        saved = bz2_write_close(stream);
        u32 error = os_get_last_error(); // of the write, not of the clean-up
        if (saved)
            saved = os_replace_file(temp.data, filename);
        if (!saved) {
            error = error ? error : os_get_last_error();
            os_delete_file(temp.data);
            os_set_last_error(error);
        }
    }
    if (!saved)
        debug_printf("failed to save %s %d\n", filename, os_get_last_error());
    debug_printf("saved db: %f seconds\n", os_get_tick_count() - start);
    utf8_buf_kill(&temp);
    return saved;
}

bool db_image_load(db_t *db, const char *filename, bool compress) {
    u32 start = os_get_tick_count();
    bz2_stream_t *stream = compress ? bz2_read_open(filename) : bz2_read_open_plain(filename);
    bool loaded = false;
    if (stream) {
        bool read = db_image_read(db, stream);
        loaded = bz2_read_close(stream) && read;
        if (!loaded)
            db_clear_content(db);
    }
    debug_printf("loaded %d folders, %d files, in %f seconds\n", db->folder_name_array.count,
                 db->file_name_array.count, os_get_tick_count() - start);
    return loaded;
}

} // namespace findwright
