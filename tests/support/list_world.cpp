#include "support/list_world.h"

#include "base/utf8.h"
#include "os/os_test_support.h"
#include "track/db_recent_change.h"
#include "track/db_run_history.h"

#include <algorithm>
#include <map>
#include <random>
#include <set>

namespace findwright {

using random_t = std::mt19937;

static u32 _list_random(random_t &random, u32 limit) {
    return static_cast<u32>(random() % limit);
}

// --- Texts -------------------------------------------------------------------------------------------------

static std::string _list_replace(std::string text, const std::string &from, const std::string &to) {
    for (size_t at = 0; (at = text.find(from, at)) != text.npos; at += to.size())
        text.replace(at, from.size(), to);
    return text;
}

static std::string _list_lower(const std::string &text) {
    std::string lower = text;
    for (char &c : lower)
        c = c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c;
    return _list_replace(lower, "É", "é");
}

std::string list_fold(const std::string &text) {
    return _list_replace(_list_lower(text), "é", "e");
}

static std::string _list_same(const std::string &text) {
    return text;
}

static bool _list_has(const std::string &text, const char *part) {
    return list_fold(text).find(part) != text.npos;
}

static bool _list_ends(const std::string &text, const std::string &end) {
    return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

using list_item_ref_t = const list_item_t &;

const std::vector<list_search_t> list_searches = {
    {"", "", false, false, false, [](list_item_ref_t) { return true; }},
    {"", "", false, false, true, [](list_item_ref_t) { return false; }},
    {"zzz", "", false, false, false, [](list_item_ref_t) { return false; }},
    {"a", "", false, false, false, [](list_item_ref_t item) { return _list_has(item.name, "a"); }},
    {"AB", "", false, false, false, [](list_item_ref_t item) { return _list_has(item.name, "ab"); }},
    {"E", "", false, false, false, [](list_item_ref_t item) { return _list_has(item.name, "e"); }},
    {"A", "", true, false, false, [](list_item_ref_t item) { return item.name.find('A') != item.name.npos; }},
    {"1", "", false, true, false, [](list_item_ref_t item) { return _list_has(item.path, "1"); }},
    {"*.c", "", false, false, false,
     [](list_item_ref_t item) { return _list_ends(list_fold(item.name), ".c"); }},
    {"file:", "", false, false, false, [](list_item_ref_t item) { return !item.is_folder; }},
    {"folder:", "", false, false, false, [](list_item_ref_t item) { return item.is_folder; }},
    {"file:b", "", false, false, false,
     [](list_item_ref_t item) { return !item.is_folder && _list_has(item.name, "b"); }},
    {"a !b", "", false, false, false,
     [](list_item_ref_t item) { return _list_has(item.name, "a") && !_list_has(item.name, "b"); }},
    {"ab|9", "", false, false, false,
     [](list_item_ref_t item) { return _list_has(item.name, "ab") || _list_has(item.name, "9"); }},
    {"", "txt", false, false, false, [](list_item_ref_t item) { return _list_has(item.name, "txt"); }},
    {"a|2", "file:", false, false, false,
     [](list_item_ref_t item) {
         return !item.is_folder && (_list_has(item.name, "a") || _list_has(item.name, "2"));
     }},
    {"77", "", false, false, false, [](list_item_ref_t item) { return _list_has(item.name, "77"); }}, // few
};

// --- What is made up ---------------------------------------------------------------------------------------

static std::string _list_pick(random_t &random, const std::vector<const char *> &texts) {
    return texts[_list_random(random, static_cast<u32>(texts.size()))];
}

// Names of few beginnings and ends: many are alike, some only without their case or accent.
static std::string _list_make_name(random_t &random, bool is_folder) {
    std::string name =
        _list_pick(random, {"a", "b", "ab", "Ab", "aB", "é", "E", "É", "x-y", "read me", "Zeta"});
    if (_list_random(random, 3))
        name += std::to_string(_list_random(random, 100));
    return is_folder ? name
                     : name + _list_pick(random, {"", ".txt", ".TXT", ".c", ".", ".tar.gz", ".é", ".e1"});
}

static std::vector<std::string> _list_make_paths(random_t &random, u32 size) {
    std::vector<std::string> folders = {""}, paths;
    std::set<std::string> used;
    while (paths.size() < size) {
        bool is_folder = _list_random(random, 5) == 0;
        std::string path = folders[_list_random(random, static_cast<u32>(folders.size()))];
        path += _list_make_name(random, is_folder);
        if (!used.insert(path).second)
            continue;
        if (is_folder)
            folders.push_back(path += "\\");
        paths.push_back(path);
    }
    return paths;
}

// Few values, so that there are equal ones.
static u64 _list_make_value(random_t &random) {
    return _list_random(random, 6) == 0 ? VALUE_UNKNOWN : 1 + _list_random(random, 12);
}

static void _list_make_columns(random_t &random, list_item_t *item) {
    item->size = _list_make_value(random);
    item->created = _list_make_value(random);
    item->modified = _list_make_value(random);
    item->accessed = _list_make_value(random);
    item->attributes = static_cast<u32>(random()) & 0x27;
}

// --- The sources -------------------------------------------------------------------------------------------

static std::string _list_utf8(const std::u16string &text) {
    std::string result(3 * text.size(), 0);
    result.resize(utf8_from_wchar_length(result.data(), text.data(), static_cast<u32>(text.size())));
    return result;
}

using list_table_t = std::vector<list_item_t>;

static list_item_t *_list_add(list_table_t *table, u32 source, const std::string &parent,
                              const std::string &name, bool is_folder, bool is_root) {
    list_item_t item = {};
    item.source = source;
    item.parent = parent;
    item.name = name;
    item.path = is_root ? name : parent + "\\" + name;
    item.is_folder = is_folder;
    item.is_root = is_root;
    table->push_back(item);
    return &table->back();
}

static test_volume_t _list_make_volume(random_t &random, list_table_t *table, u32 source, const char *path,
                                       u32 size) {
    test_volume_t volume = test_volume_from_paths(_list_make_paths(random, size));
    volume.path = path;
    list_item_t *root = _list_add(table, source, "", path, true, true);
    root->created = root->modified = root->accessed = 7; // as the test volumes have it
    root->attributes = 0x16;
    std::map<u64, std::string> folders = {{NTFS_FRN_ROOT, path}};
    for (test_record_t &record : volume.records) {
        list_item_t *item = _list_add(table, source, folders[record.parent_frn], _list_utf8(record.name),
                                      record.is_folder, false);
        if (record.is_folder)
            folders[record.frn] = item->path;
        _list_make_columns(random, item);
        item->attributes |= record.is_folder ? 0x10 : 0;
        record.size = item->size;
        record.date = item->modified;
        record.date_created = item->created;
        record.date_accessed = item->accessed;
        record.attributes = item->attributes;
    }
    return volume;
}

static std::string _list_column(u64 value) {
    return value == VALUE_UNKNOWN ? "" : std::to_string(value);
}

// Folders on the way to an item that have no row of their own.
static void _list_add_folders(list_table_t *table, std::set<std::string> *folders, u32 source,
                              const std::string &path, const std::string &list) {
    for (size_t end = 0, start = 0; (end = path.find('\\', start)) != path.npos; start = end + 1) {
        if (!folders->insert(path.substr(0, end)).second)
            continue;
        std::string parent = start ? path.substr(0, start - 1) : "";
        list_item_t *item =
            _list_add(table, source, parent, path.substr(start, end - start), true, start == 0);
        item->created = item->modified = item->accessed = VALUE_UNKNOWN;
        item->attributes = 0x10;
        item->list = list;
    }
}

// The text of a list whose items have the root of a volume, so that some stand twice in the database.
static std::string _list_make_list(random_t &random, list_table_t *table, u32 source, const std::string &list,
                                   u32 size) {
    std::string text = "Filename,Size,Date Modified,Date Created,Attributes\n";
    std::set<std::string> folders;
    for (std::string path : _list_make_paths(random, size)) {
        path = "Q:\\" + path;
        bool is_folder = path.back() == '\\';
        if (is_folder && folders.count(path.substr(0, path.size() - 1)))
            continue; // it was made for an item below it
        _list_add_folders(table, &folders, source, path.substr(0, path.size() - is_folder), list);
        if (is_folder)
            path.pop_back();
        size_t slash = path.rfind('\\');
        list_item_t *item =
            _list_add(table, source, path.substr(0, slash), path.substr(slash + 1), is_folder, false);
        if (is_folder)
            folders.insert(path);
        _list_make_columns(random, item);
        item->accessed = VALUE_UNKNOWN;
        item->attributes |= is_folder ? 0x10 : 0;
        item->list = list;
        text += "\"" + path + "\"," + _list_column(item->size) + "," + _list_column(item->modified) + "," +
                _list_column(item->created) + "," + std::to_string(item->attributes) + "\n";
    }
    return text;
}

// A folder's size is that of all known files below it.
static void _list_sum_sizes(list_table_t *table) {
    std::map<std::pair<u32, std::string>, u64> sums;
    for (const list_item_t &item : *table) {
        if (item.is_folder || item.size == VALUE_UNKNOWN)
            continue;
        for (size_t end = 0; (end = item.path.find('\\', end + 1)) != item.path.npos;)
            sums[{item.source, item.path.substr(0, end)}] += item.size;
    }
    for (list_item_t &item : *table) {
        if (item.is_folder)
            item.size = sums[{item.source, item.path}];
    }
}

// --- The database ------------------------------------------------------------------------------------------

// Finds the items of the table in the database, which must have the same ones.
static void _list_find_items(list_world_t *world) {
    std::map<std::tuple<u32, std::string, bool>, list_item_t *> table;
    for (list_item_t &item : world->items)
        table[{item.source, item.path, item.is_folder}] = &item;
    ASSERT_EQ(world->items.size(), table.size());
    size_t found = 0;
    for (bool is_folder : {true, false}) {
        const array_t *array = is_folder ? &world->db->folder_name_array : &world->db->file_name_array;
        const std::vector<std::string> paths = test_array_paths(array);
        for (u32 place = 0; place < paths.size(); place++) {
            u32 page;
            i32 position;
            const db_item_t *item = db_item(array_get(array, place, &page, &position));
            auto entry = table.find({db_get_index(item)->ordinal, paths[place], is_folder});
            ASSERT_NE(entry, table.end()) << paths[place];
            entry->second->item = item;
            entry->second->place = place;
            found++;
        }
    }
    ASSERT_EQ(world->items.size(), found);
    for (u32 i = 0; i < world->items.size(); i++)
        world->numbers[world->items[i].item] = i;
}

// Of a path of a POSIX system, case counts.
static bool _list_is_same_path(const std::string &a, const std::string &b) {
    bool is_posix = a.size() > 1 && a[0] == '\\' && a[1] != '\\';
    return is_posix ? a == b
                    : utf8_compare_lower(a.data(), static_cast<u32>(a.size()), b.data(),
                                         static_cast<u32>(b.size())) == 0;
}

static void _list_make_history(random_t &random, list_world_t *world) {
    for (list_item_t &item : world->items) {
        if (_list_random(random, 8) == 0) {
            u32 count = 1 + _list_random(random, 4);
            u64 date = 100 + _list_random(random, 5);
            db_run_history_set_item(world->db, item.item, item.is_folder, count, date);
            for (list_item_t &other : world->items) { // all that have its path
                if (!_list_is_same_path(other.path, item.path))
                    continue;
                other.run_count = count;
                other.run_date = date;
            }
        }
        if (_list_random(random, 8) == 0) {
            item.change_date = 100 + _list_random(random, 9);
            db_recent_change_set(world->db, item.is_folder, item.item, item.change_date);
        }
    }
}

u32 list_world_t::number_of(const db_item_t *item) const {
    auto entry = numbers.find(item);
    return entry != numbers.end() ? entry->second : ~0u;
}

// --- Orders ------------------------------------------------------------------------------------------------

// What stands in front of what: equal columns go by name.
struct list_key_t {
    bool is_file;
    u64 number; // 0: unknown
    std::vector<std::string> texts;
    u32 place;
    auto operator<=>(const list_key_t &) const = default;
};

static std::vector<std::string> _list_path_texts(const list_item_t &item) {
    std::vector<std::string> texts;
    for (auto change : {list_fold, _list_lower, _list_same}) {
        if (item.is_folder) {
            texts.push_back(change(item.path));
        } else {
            texts.push_back(change(item.parent));
            texts.push_back(change(item.name));
        }
    }
    return texts;
}

static std::string _list_extension(const std::string &name) {
    size_t dot = name.rfind('.');
    return dot == name.npos ? "" : list_fold(name.substr(dot + 1));
}

static std::string _list_letters(u32 attributes) {
    std::string letters;
    for (u32 bit = 0; bit < 6; bit++)
        letters += attributes >> bit & 1 ? std::string(1, "RHS DA"[bit]) : "";
    return letters;
}

static list_key_t _list_key(const list_world_t *world, const list_item_t &item, u32 sort) {
    list_key_t key = {!item.is_folder, 0, {}, item.place};
    auto set = [&](u32 flags, u64 value) { key.number = (world->flags & flags) == flags ? value + 1 : 0; };
    switch (sort) {
    case DB_SORT_PATH_ASCENDING: key.texts = _list_path_texts(item); break;
    case DB_SORT_SIZE_ASCENDING:
        set(item.is_folder ? DB_FLAG_SIZE | DB_FLAG_FOLDER_SIZE : DB_FLAG_SIZE, item.size);
        break;
    case DB_SORT_EXTENSION_ASCENDING:
        if (!item.is_folder)
            key.texts = {_list_extension(item.name)};
        break;
    case DB_SORT_DATE_CREATED_ASCENDING: set(DB_FLAG_DATE_CREATED, item.created); break;
    case DB_SORT_DATE_MODIFIED_ASCENDING: set(DB_FLAG_DATE_MODIFIED, item.modified); break;
    case DB_SORT_DATE_ACCESSED_ASCENDING: set(DB_FLAG_DATE_ACCESSED, item.accessed); break;
    case DB_SORT_ATTRIBUTES_ASCENDING:
        if (world->flags & DB_FLAG_ATTRIBUTES)
            key.texts = {_list_letters(item.attributes)};
        break;
    case DB_SORT_FILE_LIST_FILENAME_ASCENDING: key.texts = {item.list}; break;
    default: break;
    }
    return key;
}

// What an order by the history goes by: largest and newest first, then the item's reference.
static std::tuple<u64, u64, u32> _list_history_key(const list_item_t &item, u32 sort) {
    if (sort == DB_SORT_DATE_RECENTLY_CHANGED_ASCENDING)
        return {0, ~item.change_date, mem_ref(item.item)};
    u32 count = sort == DB_SORT_RUN_COUNT_ASCENDING ? item.run_count : 0;
    return {~static_cast<u64>(count), ~item.run_date, mem_ref(item.item)};
}

// Those that the history knows lead, whatever they are.
static list_numbers_t _list_make_history_order(const list_world_t *world, u32 sort) {
    list_numbers_t known, others;
    bool is_changes = sort == DB_SORT_DATE_RECENTLY_CHANGED_ASCENDING;
    for (u32 i : world->orders[DB_SORT_NAME_ASCENDING])
        (is_changes ? world->items[i].change_date : world->items[i].run_date) ? known.push_back(i)
                                                                              : others.push_back(i);
    std::sort(known.begin(), known.end(), [&](u32 a, u32 b) {
        return _list_history_key(world->items[a], sort) < _list_history_key(world->items[b], sort);
    });
    known.insert(known.end(), others.begin(), others.end());
    return known;
}

static void _list_make_orders(list_world_t *world) {
    for (u32 sort = 0; sort < DB_SORT_COUNT; sort += 2) {
        list_numbers_t order, reversed;
        bool is_history = list_is_history_order(sort);
        if (list_is_type_order(sort))
            continue;
        if (is_history) {
            order = _list_make_history_order(world, sort);
        } else {
            std::vector<std::pair<list_key_t, u32>> keys;
            for (u32 i = 0; i < world->items.size(); i++)
                keys.push_back({_list_key(world, world->items[i], sort), i});
            std::sort(keys.begin(), keys.end());
            for (const auto &key : keys)
                order.push_back(key.second);
        }
        reversed.assign(order.rbegin(), order.rend());
        world->orders[sort] = is_history ? reversed : order;
        world->orders[sort | DB_SORT_DESCENDING] = is_history ? order : reversed;
    }
}

// --- The whole ---------------------------------------------------------------------------------------------

void list_world_create(list_world_t *world, u32 flags, u32 size, u32 seed) {
    random_t random(seed);
    temp_folder_t folder;
    *world = {};
    world->flags = flags;
    std::vector<test_volume_t> volumes;
    // The second one has a path of this system, so that its items are looked for.
    volumes.push_back(_list_make_volume(random, &world->items, 0, "Q:", size * 2 / 5));
    volumes.push_back(
        _list_make_volume(random, &world->items, 1, "\\findwright-no-such-folder", size * 2 / 5));
    db_wanted_t wanted;
    db_wanted_init(&wanted);
    wanted.index_flags = flags;
    test_add_volumes(&wanted, volumes);
    for (u32 source : {2u, 3u}) {
        std::string list = folder / (source == 2 ? "a.fwl" : "b.fwl");
        write_file(list, _list_make_list(random, &world->items, source, list, size / 10));
        db_wanted_add_file_list(&wanted, list.c_str(), false);
    }
    _list_sum_sizes(&world->items);
    world->db = db_create();
    db_rebuild_start(world->db, &wanted, nullptr);
    test_db_wait(world->db);
    _list_find_items(world);
    _list_make_history(random, world);
    _list_make_orders(world);
    for (const list_search_t &search : list_searches) {
        std::vector<bool> found;
        for (const list_item_t &item : world->items)
            found.push_back(search.finds(item));
        world->found.push_back(found);
    }
}

void list_world_destroy(list_world_t *world) {
    db_destroy(world->db);
    world->items.clear();
}

} // namespace findwright
