#include "support/folder_world.h"

#include "os/debug.h"
#include "os/event.h"
#include "support/db_compare.h"
#include "support/test_db.h"
#include "track/db_folder_update.h"

#include <chrono>
#include <fstream>

namespace findwright {

void folder_settings_get_wanted(const folder_settings_t *settings, db_wanted_t *out) {
    out->index_flags = settings->flags;
    for (const std::string &pattern : settings->exclude_folders)
        db_exclude_add(&out->exclude.exclude_folders, pattern.c_str());
    for (const std::string &pattern : settings->exclude_files)
        db_exclude_add(&out->exclude.exclude_files, pattern.c_str());
    out->exclude.exclude_hidden = settings->exclude_hidden;
    db_exclude_update_needs(&out->exclude);
    for (const std::string &path : settings->paths)
        db_wanted_add_folder(out, path.c_str());
}

db_t *folder_db_create(const folder_settings_t *settings) {
    db_wanted_t wanted;
    db_wanted_init(&wanted);
    folder_settings_get_wanted(settings, &wanted);
    db_t *db = db_create();
    db_rebuild_start(db, &wanted, nullptr);
    test_db_wait(db);
    return db;
}

void folder_db_destroy(db_t *db) {
    db_folder_update_stop(db);
    db_destroy(db);
}

db_index_folder_t *folder_db_get_index(const db_t *db, u32 ordinal) {
    return static_cast<db_index_folder_t *>(db_index_get(db, ordinal));
}

void folder_db_wait(db_t *db) {
    while (db_folder_update_is_busy(db) || !db_is_ready(db))
        event_wait_and_dispatch(OS_INFINITE);
    event_dispatch();
}

void folder_db_rescan(db_t *db) {
    db_folders_update_all_now(db);
    folder_db_wait(db);
}

std::string folder_db_check(db_t *db, const folder_settings_t *settings, u32 except) {
    std::string problem = db_check_whole(db);
    if (!problem.empty())
        return problem;
    db_t *fresh = folder_db_create(settings);
    problem = db_compare_content(db, fresh, except);
    db_destroy(fresh);
    return problem;
}

// --- The hand ----------------------------------------------------------------------------------------------

namespace fs = std::filesystem;

namespace {

// Of a path. A system refuses longer ones to its callers, but not to a rename. On Windows the standard
// library lists another folder in the place of one whose path is too long for it.
constexpr bool IS_POSIX = fs::path::preferred_separator == '/';
constexpr u32 PATH_LIMIT = IS_POSIX ? 2000 : 240;
constexpr u32 LONG_NAME = IS_POSIX ? 200 : 60;

u32 pick(tree_storm_t *storm, u32 count) {
    return static_cast<u32>(storm->random() % count);
}

std::string make_name(tree_storm_t *storm) {
    static const char *const strange[] = {"back\\slash",
                                          "a\\",
                                          "\xFF\xFE no text",
                                          "h\xC3\xA4user",
                                          "H\xC3\x84USER",
                                          "ha\xCC\x88user",
                                          ".hidden",
                                          ".tmp",
                                          "x.tmp",
                                          "left out",
                                          "skip",
                                          "space at end ",
                                          "dot.",
                                          "\xE6\x96\x87",
                                          "caf\xE9",
                                          "semi;colon, comma",
                                          "quote\"s",
                                          "*star?",
                                          "CON",
                                          "a.b.c.d"};
    switch (pick(storm, 12)) {
    case 0: return strange[pick(storm, std::size(strange))];
    case 1: return std::string(LONG_NAME + pick(storm, 56), static_cast<char>('k' + pick(storm, 2)));
    case 2: return "Case" + std::to_string(pick(storm, 4));
    case 3: return "cASE" + std::to_string(pick(storm, 4));
    case 4: return std::string(1, static_cast<char>('a' + pick(storm, 6)));
    default: return "n" + std::to_string(pick(storm, 60)) + (pick(storm, 2) ? ".txt" : "");
    }
}

const fs::path &any_folder(tree_storm_t *storm) {
    return storm->folders[pick(storm, static_cast<u32>(storm->folders.size()))];
}

// Any item but the root; empty when there is none.
fs::path any_item(tree_storm_t *storm, bool folders_too) {
    u32 files = static_cast<u32>(storm->files.size());
    u32 folders = folders_too ? static_cast<u32>(storm->folders.size()) - 1 : 0;
    if (files + folders == 0)
        return {};
    u32 place = pick(storm, files + folders);
    return place < files ? storm->files[place] : storm->folders[place - files + 1];
}

// A file that may be written to: no link, and no second name of another one where that would not be told.
fs::path any_own_file(tree_storm_t *storm) {
    fs::path file = any_item(storm, false);
    std::error_code error;
    if (file.empty() || !fs::is_regular_file(fs::symlink_status(file, error)) ||
        (!storm->writes_links && fs::hard_link_count(file, error) != 1))
        return {};
    return file;
}

// For who looks for the change that was not seen.
void tell(const char *what, const fs::path &path, const fs::path &to, const std::error_code &error) {
    if (debug_verbose && !error)
        debug_verbose_printf("STORM %s %s %s\n", what, path.string().c_str(), to.string().c_str());
}

void write_text(tree_storm_t *storm, const fs::path &file, bool append) {
    std::ofstream stream(file, append ? std::ios::app | std::ios::binary : std::ios::binary);
    stream << std::string(pick(storm, 5000), 'x');
    tell("write", file, {}, {});
}

void look(tree_storm_t *storm) {
    storm->folders = {storm->root};
    storm->files.clear();
    std::error_code error;
    fs::recursive_directory_iterator end;
    for (fs::recursive_directory_iterator it(storm->root, error); !error && it != end; it.increment(error)) {
        if (it->is_directory(error) && !it->is_symlink(error))
            storm->folders.push_back(it->path());
        else
            storm->files.push_back(it->path());
    }
}

bool is_short(const fs::path &path) {
    return path.native().size() < PATH_LIMIT;
}

fs::path new_place(tree_storm_t *storm) {
    fs::path place;
    do
        place = any_folder(storm) / make_name(storm);
    while (!is_short(place));
    return place;
}

// A folder that is moved takes all that is in it along.
bool is_short_after_move(const fs::path &from, const fs::path &to) {
    const size_t limit = PATH_LIMIT + from.native().size() - to.native().size();
    std::error_code error;
    if (!is_short(to) || !fs::is_directory(fs::symlink_status(from, error)))
        return is_short(to);
    fs::recursive_directory_iterator it(from, error), end;
    while (!error && it != end && it->path().native().size() < limit)
        it.increment(error);
    return !error && it == end;
}

void move_item(tree_storm_t *storm, const fs::path &from, const fs::path &to) {
    std::error_code error;
    if (from.empty() || !is_short_after_move(from, to))
        return;
    if (!storm->writes_links && fs::exists(fs::symlink_status(to, error)) &&
        fs::is_regular_file(fs::symlink_status(to, error)) && fs::hard_link_count(to, error) != 1)
        return;
    fs::rename(from, to, error);
    tell("move", from, to, error);
}

fs::path other_case(const fs::path &path) {
    std::string name = path.filename().string();
    for (char &c : name)
        c = c >= 'a' && c <= 'z'   ? static_cast<char>(c - 32)
            : c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32)
                                   : c;
    return path.parent_path() / name;
}

void make_file(tree_storm_t *storm, const fs::path &place) {
    std::error_code error;
    if (is_short(place) && !fs::exists(fs::symlink_status(place, error)))
        write_text(storm, place, false);
}

void make_folders(tree_storm_t *storm, const fs::path &place) {
    std::error_code error;
    if (!is_short(place))
        return;
    if (fs::create_directory(place, error))
        storm->folders.push_back(place);
    tell("folder", place, {}, error);
    for (u32 i = pick(storm, 6); i != 0; i--) // at once, before anyone can watch it
        make_file(storm, place / make_name(storm));
}

void change_attributes(tree_storm_t *storm, const fs::path &file) {
    std::error_code error;
    fs::permissions(file, fs::perms::owner_write,
                    pick(storm, 2) ? fs::perm_options::add : fs::perm_options::remove, error);
}

void change_date(tree_storm_t *storm, const fs::path &file) {
    std::error_code error;
    fs::last_write_time(file, fs::file_time_type::clock::now() - std::chrono::seconds(pick(storm, 1000000)),
                        error);
}

void step(tree_storm_t *storm) {
    std::error_code error;
    fs::path file;
    switch (pick(storm, 20)) {
    case 0:
    case 1:
    case 2:
    case 3: make_file(storm, new_place(storm)); break;
    case 4:
    case 5:
    case 6: make_folders(storm, new_place(storm)); break;
    case 7:
    case 8:
        if (file = any_own_file(storm); !file.empty())
            write_text(storm, file, pick(storm, 2));
        break;
    case 9:
    case 10: move_item(storm, any_item(storm, true), new_place(storm)); break;
    case 11:
        if (file = any_item(storm, true); !file.empty())
            move_item(storm, file, file.parent_path() / make_name(storm));
        break;
    case 12:
        if (file = any_item(storm, true); !file.empty())
            move_item(storm, file, other_case(file));
        break;
    case 13:
    case 14:
        if (file = any_item(storm, false); !file.empty())
            fs::remove(file, error);
        tell("remove", file, {}, error);
        break;
    case 15:
        if (pick(storm, 3) == 0 && storm->folders.size() > 1) {
            file = storm->folders[1 + pick(storm, static_cast<u32>(storm->folders.size()) - 1)];
            fs::remove_all(file, error);
            tell("remove all", file, {}, error);
        }
        break;
    case 16:
        if (file = any_own_file(storm); !file.empty())
            fs::create_hard_link(file, new_place(storm), error);
        break;
    case 17:
        fs::create_symlink(pick(storm, 2) ? any_folder(storm) : fs::path("gone"), new_place(storm), error);
        break;
    case 18:
        if (file = any_own_file(storm); !file.empty())
            change_attributes(storm, file);
        break;
    case 19:
        if (file = any_own_file(storm); !file.empty())
            change_date(storm, file);
        break;
    }
}

} // namespace

void tree_storm_create(tree_storm_t *storm, const std::filesystem::path &root, u32 seed) {
    storm->root = root;
    storm->random.seed(seed);
    look(storm);
}

void tree_storm_burst(tree_storm_t *storm, u32 count) {
    look(storm);
    for (u32 i = 0; i < count; i++) {
        step(storm);
        if (i % 50 == 49)
            look(storm);
    }
}

} // namespace findwright
