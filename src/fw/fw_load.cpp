#include "fw/fw_load.h"

#include "db/db_image.h"
#include "fw/fw_path.h"
#include "os/event.h"
#include "os/os.h"
#include "track/db_run_history.h"

#include <cstring>

namespace findwright {

static constexpr u32 MAGIC_SIZE = 4;
static constexpr char COMPRESSED_MAGIC[] = {'B', 'Z', 'h'};

static std::string _fw_cannot_load(const fw_load_t *load, const std::string &reason) {
    return "cannot load the database " + fw_path_for_user(load->filename.c_str()) + ": " + reason;
}

// Tells plain files from compressed ones by what they begin with.
static std::string _fw_load_look(fw_load_t *load) {
    if (os_folder_exists(load->filename.c_str()))
        return "it is a folder";
    platform_file_t file = os_open_read(load->filename.c_str(), true);
    if (file == PLATFORM_FILE_NONE)
        return fw_system_error();
    char magic[MAGIC_SIZE] = "";
    i64 size = os_read(file, magic, sizeof magic);
    std::string error = size < 0 ? fw_system_error() : "";
    os_close(file);
    load->is_compressed = std::memcmp(magic, COMPRESSED_MAGIC, sizeof COMPRESSED_MAGIC) == 0;
    u32 value = 0;
    for (u32 i = 0; i < MAGIC_SIZE; i++)
        value |= static_cast<u32>(magic[i]) << 8 * i;
    if (error.empty() && !load->is_compressed && value != DB_IMAGE_MAGIC)
        return "it is no database of Findwright";
    return error;
}

static void _fw_load_thread_proc(void *param) {
    fw_load_t *load = static_cast<fw_load_t *>(param);
    u32 start = os_get_tick_count();
    load->is_loaded = db_image_load(load->db, load->filename.c_str(), load->is_compressed);
    load->time = os_get_tick_count() - start;
    if (load->is_loaded)
        db_run_history_load(load->db);
    db_t *db = load->db;
    event_post(_db_load_complete_proc, db);
    event_post(_db_ready_proc, db);
}

std::string fw_load_start(fw_load_t *load) {
    std::string error = _fw_load_look(load);
    if (!error.empty())
        return _fw_cannot_load(load, error);
    db_set_status(load->db, "Loading %s...", fw_path_for_user(load->filename.c_str()).c_str());
    db_start_worker(load->db, nullptr, DB_WORKER_OTHER, _fw_load_thread_proc, load);
    return "";
}

std::string fw_load_get_error(const fw_load_t *load) {
    const char *filename = load->filename.c_str();
    bz2_stream_t *stream = load->is_compressed ? bz2_read_open(filename) : bz2_read_open_plain(filename);
    if (!stream)
        return _fw_cannot_load(load, fw_system_error());
    u32 magic = bz2_read_u32(stream), version = bz2_read_u32(stream);
    bool is_whole = bz2_read_close(stream);
    if (is_whole && magic != DB_IMAGE_MAGIC)
        return _fw_cannot_load(load, "it is no database of Findwright");
    if (is_whole && version != DB_IMAGE_VERSION)
        return _fw_cannot_load(load, "it was written by another version of Findwright");
    return _fw_cannot_load(load, "it is damaged");
}

} // namespace findwright
