// A database with folder sources, and a hand that changes what is in the folders.
#pragma once

#include "db/db.h"
#include "index/db_wanted.h"

#include <filesystem>
#include <random>
#include <string>
#include <vector>

namespace findwright {

// What the sources are built with.
struct folder_settings_t {
    std::vector<std::string> paths; // inside form
    u32 flags;
    std::vector<std::string> exclude_folders, exclude_files; // patterns
    bool exclude_hidden = false;
};

// Fills a description, from which a rebuild, or a database beside it, is made.
void folder_settings_get_wanted(const folder_settings_t *settings, db_wanted_t *out);
// A new database, built and ready. The caller stops what it starts on it, and destroys it.
db_t *folder_db_create(const folder_settings_t *settings);
void folder_db_destroy(db_t *db);
db_index_folder_t *folder_db_get_index(const db_t *db, u32 ordinal = 0);

// Runs the main loop until no scan runs and nothing waits to be applied.
void folder_db_wait(db_t *db);
// Has all sources scanned, and waits.
void folder_db_rescan(db_t *db);

// Empty when the database is whole and holds what a fresh build of the same sources does, but for the columns
// of `except`; else what does not fit.
std::string folder_db_check(db_t *db, const folder_settings_t *settings, u32 except = 0);

// --- The hand ----------------------------------------------------------------------------------------------

// A tree on disk that is changed at random: creates, writes, renames, moves, removals, links, attributes,
// dates; folders moved into each other, names that differ in case, that are long, that hold a `\`, that are
// no UTF-8. The names come from a small stock, so that they meet. What the system refuses does not happen.
struct tree_storm_t {
    std::filesystem::path root;
    std::mt19937 random;
    // A file of several names is changed under each of them, which a directory's events tell of one only.
    bool writes_links = true;
    std::vector<std::filesystem::path> folders, files; // known at the last look, the root first
};

void tree_storm_create(tree_storm_t *storm, const std::filesystem::path &root, u32 seed);
// So many changes, after a new look at what is there.
void tree_storm_burst(tree_storm_t *storm, u32 count);

} // namespace findwright
