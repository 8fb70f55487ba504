// Loads a database file into memory, for searching alone.
//
// Main thread. The file is only read.
#pragma once

#include "db/db.h"

#include <string>

namespace findwright {

struct fw_load_t {
    db_t *db;
    std::string filename;
    bool is_compressed;
    bool is_loaded; // once the database is ready
    u32 time;       // microseconds
};

// Starts loading into an empty database, which is ready when all is done. The text of an error, or empty;
// then nothing was started. `load` must stay until the database is ready.
std::string fw_load_start(fw_load_t *load);
// Why a file that was opened could not be loaded.
std::string fw_load_get_error(const fw_load_t *load);

} // namespace findwright
