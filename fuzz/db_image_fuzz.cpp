// Reads the input as a plain database file. What loads is searched, sorted and written again.
#include "db/db_image.h"
#include "os/event.h"
#include "os/os.h"
#include "query/db_query.h"
#include "support/memory_file.h"

using namespace findwright;

static void use(db_t *db) {
    db->loaded = 1;
    db_query_t *query = db_query_create(db, false, nullptr, nullptr);
    for (u32 sort : {0u, DB_SORT_PATH_ASCENDING + 1u, DB_SORT_SIZE_ASCENDING + 1u,
                     DB_SORT_DATE_MODIFIED_ASCENDING + 0u}) {
        db_query_params_t params = {};
        params.search = "path:a";
        params.filter_search = "";
        params.sort = sort;
        db_query_search(query, &params);
        utf8_buf_t path;
        utf8_buf_init(&path);
        for (u32 i = 0, count = db_get_result_count(query); i < count && i < 100; i++)
            db_get_result_full_path_name(query, static_cast<i32>(i), &path);
        utf8_buf_kill(&path);
        event_dispatch();
    }
    db_destroy_query(query);
    bz2_stream_t *stream = bz2_write_open_plain("db");
    db_image_write(db, stream);
    bz2_write_close(stream);
}

extern "C" int LLVMFuzzerTestOneInput(const u8 *bytes, size_t size) {
    static bool started;
    if (!started) {
        os_init();
        max_threads = 1;
        started = true;
    }
    memory_file_scope_t files;
    memory_file.bytes.assign(reinterpret_cast<const char *>(bytes), size);
    db_t *db = db_create();
    bz2_stream_t *stream = bz2_read_open_plain("db");
    bool read = db_image_read(db, stream);
    if (bz2_read_close(stream) && read)
        use(db);
    db_destroy(db);
    return 0;
}
