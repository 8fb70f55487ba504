#include "support/live_world.h"

#include "base/utf8.h"
#include "db/db_file.h"
#include "db/db_word.h"
#include "support/db_compare.h"
#include "track/db_recent_change.h"

#include <algorithm>
#include <sstream>

namespace findwright {

static constexpr char LIVE_ROOT[] = "C:";

// Names that sort close to each other, next to the separator, and in ways that differ by level.
static const char *const _live_names[] = {
    "a",
    "A",
    "\xC3\xA1",
    "a b",
    "a!",
    "a\xC3\xA9",
    "b",
    "B",
    "ab",
    "aB",
    "secret",
    "b.txt",
    "B.TXT",
    "c.txt",
    "c.TXT",
    "n.tmp",
    "Makefile",
    "\xFF\xFE.x",
    "z]",
    "[z",
    "zz",
    "z z",
    "readme",
    "README",
    "r\xC3\xA9"
    "adme",
    "d.c",
    "d.h",
    "d.C",
    "e",
    "f",
    "g",
    "h",
    "i.txt",
    "j.txt",
    "k.c",
};

static u32 _live_pick(live_world_t *world, u32 below) {
    return static_cast<u32>(world->random() % below);
}

static std::string _live_name(live_world_t *world) {
    std::string name = _live_names[_live_pick(world, std::size(_live_names))];
    if (_live_pick(world, 40) == 0)
        name += std::string(300, 'l');
    if (_live_pick(world, 3) == 0)
        name += std::to_string(_live_pick(world, 50));
    return name;
}

static db_file_info_t _live_info(live_world_t *world, bool is_folder) {
    auto number = [world] {
        return _live_pick(world, 8) == 0 ? VALUE_UNKNOWN : _live_pick(world, 20) * 1000;
    };
    db_file_info_t info = {is_folder ? 0 : number(), number(), number(), number(),
                           (is_folder ? 0x10u : 0u) | (_live_pick(world, 2) ? 0x20u : 0x1u)};
    return info;
}

// --- Life --------------------------------------------------------------------------------------------------

static db_index_t *_live_create_index(db_index_type_t type) {
    db_index_t *index = db_index_alloc(type);
    if (type == DB_INDEX_TYPE_FOLDER) {
        static_cast<db_index_folder_t *>(index)->path = utf8_alloc_copy(LIVE_ROOT);
        return index;
    }
    db_index_volume_t *volume = static_cast<db_index_volume_t *>(index);
    for (char **text : {&volume->guid, &volume->path, &volume->root, &volume->include_only})
        *text = utf8_alloc_copy("");
    return index;
}

// The reference number of a node.
static db_frn128_t _live_frn(u32 node) {
    return {0x1000000000000u + node, node % 3};
}

static db_folder_t *_live_add_folder(live_world_t *world, u32 node, db_folder_t *parent,
                                     const std::string &name, const db_file_info_t *info, u64 date) {
    u32 length = static_cast<u32>(name.size());
    switch (world->index->type) {
    case DB_INDEX_TYPE_NTFS:
        return db_folder_add_ntfs(world->db, world->index, _live_frn(node).low, parent, name.data(), length,
                                  info, date);
    case DB_INDEX_TYPE_REFS:
        return db_folder_add_refs(world->db, world->index, _live_frn(node), parent, name.data(), length, info,
                                  date);
    default:
        if (world->by_path && parent) {
            std::string path = live_world_path(world, world->nodes.at(node).parent) + "\\" + name;
            return db_folder_add_path(world->db, world->index, path.data(), static_cast<u32>(path.size()),
                                      info, date);
        }
        return db_folder_add(world->db, world->index, parent, name.data(), length, info, date);
    }
}

void live_world_create(live_world_t *world, u32 flags, db_index_type_t type, bool has_exclusions, u32 seed) {
    *world = {};
    world->random.seed(seed);
    world->has_exclusions = has_exclusions;
    world->by_path = type == DB_INDEX_TYPE_FOLDER;
    db_t *db = world->db = db_create();
    db->recent_changes = 1;
    db_layout_set_flags(&db->layout, db_layout_normalize_flags(flags));
    world->index = _live_create_index(type);
    _db_index_add(db, world->index, 0);
    db_words_create(db);
    if (has_exclusions) {
        db_exclude_add(&db->exclude.exclude_files, "*.tmp");
        db_exclude_add(&db->exclude.exclude_folders, "C:\\a\\secret");
        db_exclude_update_needs(&db->exclude);
    }
    db_file_info_t info = _live_info(world, true);
    world->root = ++world->last_node;
    world->nodes[world->root] = {0, LIVE_ROOT, true, info, 0};
    _live_add_folder(world, world->root, nullptr, LIVE_ROOT, &info, DB_LIVE_NO_DATE);
    db->loaded = 1;
}

void live_world_destroy(live_world_t *world) {
    db_destroy(world->db);
}

// --- The model ---------------------------------------------------------------------------------------------

std::string live_world_path(const live_world_t *world, u32 node) {
    const live_node_t &found = world->nodes.at(node);
    return found.parent == 0 ? found.name : live_world_path(world, found.parent) + "\\" + found.name;
}

db_item_t *live_world_find(const live_world_t *world, u32 node) {
    const live_node_t &found = world->nodes.at(node);
    db_folder_t *parent = nullptr;
    if (found.parent != 0 && !(parent = static_cast<db_folder_t *>(live_world_find(world, found.parent))))
        return nullptr;
    u32 length = static_cast<u32>(found.name.size());
    if (found.is_folder)
        return db_folder_find(world->db, world->index, parent, found.name.data(), length);
    return db_file_find(world->db, world->index, parent, found.name.data(), length);
}

u32 live_world_any(live_world_t *world, bool is_folder) {
    for (u32 i = 0; i < 100; i++) {
        auto found = world->nodes.lower_bound(_live_pick(world, world->last_node) + 1);
        if (found != world->nodes.end() && found->second.is_folder == is_folder)
            return found->first;
    }
    return is_folder ? world->root : 0;
}

static bool _live_is_below(const live_world_t *world, u32 node, u32 top) {
    for (; node != 0; node = world->nodes.at(node).parent) {
        if (node == top)
            return true;
    }
    return false;
}

static u32 _live_find_child(const live_world_t *world, u32 parent, const std::string &name, bool is_folder) {
    for (const auto &[number, node] : world->nodes) {
        if (node.parent == parent && node.is_folder == is_folder && node.name == name)
            return number;
    }
    return 0;
}

static void _live_erase(live_world_t *world, u32 top) {
    std::vector<u32> gone;
    for (const auto &[number, node] : world->nodes) {
        if (_live_is_below(world, number, top))
            gone.push_back(number);
    }
    for (u32 number : gone)
        world->nodes.erase(number);
}

static std::string _live_lower(std::string text) {
    for (char &c : text)
        c = c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c;
    return text;
}

static bool _live_is_excluded(const live_world_t *world, u32 parent, const std::string &name,
                              bool is_folder) {
    if (!world->has_exclusions)
        return false;
    if (!is_folder)
        return name.size() >= 4 && _live_lower(name.substr(name.size() - 4)) == ".tmp";
    std::string path = _live_lower((parent ? live_world_path(world, parent) + "\\" : "") + name);
    std::string secret = "c:\\a\\secret";
    return path == secret || path.compare(0, secret.size() + 1, secret + "\\") == 0;
}

// A folder has come to another place: what is left out there goes.
static void _live_drop_excluded(live_world_t *world, u32 top) {
    std::vector<u32> gone;
    for (const auto &[number, node] : world->nodes) {
        if (number != top && _live_is_below(world, number, top) &&
            _live_is_excluded(world, node.parent, node.name, node.is_folder))
            gone.push_back(number);
    }
    for (u32 number : gone) {
        if (world->nodes.count(number))
            _live_erase(world, number);
    }
}

// --- Steps -------------------------------------------------------------------------------------------------

static void _live_step_add(live_world_t *world, bool is_folder, std::string *problem) {
    u32 parent = live_world_any(world, true), node = ++world->last_node;
    std::string name = _live_name(world);
    db_file_info_t info = _live_info(world, is_folder);
    u64 date = ++world->clock;
    db_folder_t *parent_record = static_cast<db_folder_t *>(live_world_find(world, parent));
    bool exists = _live_find_child(world, parent, name, is_folder) != 0;
    bool fits = !exists && !_live_is_excluded(world, parent, name, is_folder);
    if (world->by_path) // what is of the other kind has gone from the disk
        if (u32 other = _live_find_child(world, parent, name, !is_folder))
            _live_erase(world, other);
    world->nodes[node] = {parent, name, is_folder, info, date};
    std::string path = live_world_path(world, node);
    const db_item_t *added;
    if (is_folder)
        added = _live_add_folder(world, node, parent_record, name, &info, date);
    else if (world->by_path)
        added = db_file_add_path(world->db, world->index, path.data(), static_cast<u32>(path.size()), &info,
                                 date);
    else
        added = db_file_add(world->db, world->index, parent_record, name.data(),
                            static_cast<u32>(name.size()), &info, date);
    if (!fits)
        world->nodes.erase(node);
    if ((added != nullptr) != fits)
        *problem += "added " + path + ": " + (added ? "done" : "refused") + "\n";
}

// Nodes below a folder, itself included.
static u32 _live_count(const live_world_t *world, u32 top) {
    return static_cast<u32>(std::count_if(world->nodes.begin(), world->nodes.end(), [&](const auto &entry) {
        return _live_is_below(world, entry.first, top);
    }));
}

static void _live_step_remove(live_world_t *world, bool is_folder) {
    u32 node = live_world_any(world, is_folder);
    if (node == 0 || node == world->root || (_live_pick(world, 10) != 0 && _live_count(world, node) > 20))
        return;
    std::string path = live_world_path(world, node);
    u32 length = static_cast<u32>(path.size());
    db_item_t *item = live_world_find(world, node);
    if (is_folder && world->by_path)
        db_folder_remove_path(world->db, world->index, path.data(), length);
    else if (is_folder)
        db_folder_remove(world->db, static_cast<db_folder_t *>(item));
    else if (world->by_path)
        db_file_remove_path(world->db, world->index, path.data(), length);
    else
        db_file_remove_item(world->db, static_cast<db_file_t *>(item));
    _live_erase(world, node);
}

static void _live_step_update(live_world_t *world, bool is_folder) {
    u32 node = live_world_any(world, is_folder);
    if (node == 0)
        return;
    live_node_t &found = world->nodes.at(node);
    db_file_info_t info = _live_info(world, is_folder), old = found.info;
    u64 date = ++world->clock;
    db_item_t *item = live_world_find(world, node);
    if (is_folder)
        db_folder_update_info(world->db, static_cast<db_folder_t *>(item), &info, date);
    else
        db_file_update_info(world->db, static_cast<db_file_t *>(item), &info, date);
    u32 flags = world->db->layout.flags;
    bool sized = flags & DB_FLAG_SIZE && !is_folder && old.size != info.size;
    bool created = flags & DB_FLAG_DATE_CREATED && old.date_created != info.date_created;
    bool modified = flags & DB_FLAG_DATE_MODIFIED && old.date_modified != info.date_modified;
    bool is_change = sized || created || modified;
    found.info = info;
    if (is_change)
        found.change_date = date;
}

// What the database does to a node that gets another place, done to the model.
static void _live_move_node(live_world_t *world, u32 node, u32 parent, const std::string &name, u64 date) {
    live_node_t &found = world->nodes.at(node);
    bool is_folder = found.is_folder;
    u32 other = world->by_path ? _live_find_child(world, parent, name, !is_folder) : 0;
    if (other)
        _live_erase(world, other);
    if (!world->nodes.count(node))
        return;
    if ((is_folder && _live_is_below(world, parent, node)) ||
        _live_is_excluded(world, parent, name, is_folder)) {
        _live_erase(world, node);
        return;
    }
    u32 target = _live_find_child(world, parent, name, is_folder);
    if (target == node)
        return;
    if (target)
        _live_erase(world, target);
    if (!world->nodes.count(node))
        return;
    found.parent = parent;
    found.name = name;
    found.change_date = date;
    _live_drop_excluded(world, node);
}

static void _live_step_move(live_world_t *world, bool is_folder) {
    u32 node = live_world_any(world, is_folder), parent = live_world_any(world, true);
    if (node == 0 || node == world->root ||
        (is_folder && _live_is_below(world, parent, node) && _live_pick(world, 20) != 0))
        return;
    std::string name = _live_pick(world, 2) ? world->nodes.at(node).name : _live_name(world);
    std::string path = live_world_path(world, node), to = live_world_path(world, parent) + "\\" + name;
    u32 length = static_cast<u32>(path.size()), to_length = static_cast<u32>(to.size());
    u32 name_length = static_cast<u32>(name.size());
    u64 date = ++world->clock;
    db_item_t *item = live_world_find(world, node);
    db_folder_t *parent_record = static_cast<db_folder_t *>(live_world_find(world, parent));
    db_file_info_t info = world->nodes.at(node).info;
    db_t *db = world->db;
    if (is_folder && world->by_path)
        db_folder_rename_path(db, world->index, path.data(), length, to.data(), to_length, &info, date);
    else if (world->by_path)
        db_file_rename_path(db, world->index, path.data(), length, to.data(), to_length, &info, date);
    else if (is_folder)
        db_folder_rename(db, world->index, _live_frn(node), _live_frn(parent), name.data(), name_length,
                         &info, date);
    else
        db_file_rename(db, static_cast<db_file_t *>(item), parent_record, name.data(), name_length, date);
    _live_move_node(world, node, parent, name, date);
}

void live_world_fill(live_world_t *world, u32 count) {
    std::string problem;
    for (u32 i = 0; i < count; i++)
        _live_step_add(world, _live_pick(world, 4) == 0, &problem);
}

static constexpr u32 LIVE_FULL = 400;

// Large trees seldom go, and the world is filled again when it has become small.
void live_world_step(live_world_t *world, std::string *problem) {
    if (world->nodes.size() < LIVE_FULL / 2)
        live_world_fill(world, LIVE_FULL / 2);
    u32 kind = _live_pick(world, 20);
    if (kind < 8)
        _live_step_add(world, kind < 3, problem);
    else if (kind < 11)
        _live_step_remove(world, kind == 8);
    else if (kind < 15)
        _live_step_update(world, kind < 12);
    else
        _live_step_move(world, kind < 18);
}

// --- The check ---------------------------------------------------------------------------------------------

static std::string _live_line(const live_world_t *world, const std::string &path, bool is_folder,
                              const db_file_info_t &info, u64 change_date) {
    u32 flags = world->db->layout.flags;
    std::ostringstream line;
    line << path << (is_folder ? "\\" : "");
    if (flags & DB_FLAG_SIZE && !is_folder)
        line << " size " << info.size;
    if (flags & DB_FLAG_DATE_CREATED)
        line << " created " << info.date_created;
    if (flags & DB_FLAG_DATE_MODIFIED)
        line << " modified " << info.date_modified;
    if (flags & DB_FLAG_DATE_ACCESSED)
        line << " accessed " << info.date_accessed;
    if (flags & DB_FLAG_ATTRIBUTES)
        line << " attributes " << info.attributes;
    line << " changed " << change_date;
    return line.str();
}

static std::vector<std::string> _live_wanted_lines(const live_world_t *world) {
    std::vector<std::string> lines;
    for (const auto &[number, node] : world->nodes)
        lines.push_back(
            _live_line(world, live_world_path(world, number), node.is_folder, node.info, node.change_date));
    std::sort(lines.begin(), lines.end());
    return lines;
}

static std::vector<std::string> _live_found_lines(const live_world_t *world) {
    std::vector<std::string> lines;
    db_t *db = world->db;
    utf8_buf_t path;
    utf8_buf_init(&path);
    for (bool is_folder : {true, false}) {
        u32 page = 0, value;
        const array_t *array = is_folder ? &db->folder_name_array : &db->file_name_array;
        for (i32 position = -1; array_next_to(array, &page, &position, &value);) {
            const db_item_t *item = db_item(value);
            db_item_get_full_path_name(&path, item);
            db_file_info_t info = {
                is_folder ? 0 : db_file_get_size(db, item),
                is_folder ? db_folder_get_date_modified(db, item) : db_file_get_date_modified(db, item),
                is_folder ? db_folder_get_date_created(db, item) : db_file_get_date_created(db, item),
                is_folder ? db_folder_get_date_accessed(db, item) : db_file_get_date_accessed(db, item),
                is_folder ? db_folder_get_attributes(db, item) : db_file_get_attributes(db, item)};
            const db_recent_change_t *change = db_recent_change_find(db, item);
            lines.push_back(_live_line(world, path.data, is_folder, info, change ? change->date : 0));
        }
    }
    utf8_buf_kill(&path);
    std::sort(lines.begin(), lines.end());
    return lines;
}

std::string live_world_check(live_world_t *world) {
    std::string problem = db_check_whole(world->db);
    std::vector<std::string> wanted = _live_wanted_lines(world), found = _live_found_lines(world), differ;
    std::set_difference(wanted.begin(), wanted.end(), found.begin(), found.end(), std::back_inserter(differ));
    for (const std::string &line : differ)
        problem += "missing: " + line + "\n";
    differ.clear();
    std::set_difference(found.begin(), found.end(), wanted.begin(), wanted.end(), std::back_inserter(differ));
    for (const std::string &line : differ)
        problem += "too many: " + line + "\n";
    return problem;
}

} // namespace findwright
