#include "support/db_compare.h"

#include "base/utf8.h"
#include "db/db_file.h"
#include "db/db_folder.h"
#include "db/db_index.h"
#include "db/db_word.h"
#include "track/db_recent_change.h"
#include "track/db_run_history.h"

#include <algorithm>
#include <unordered_map>
#include <unordered_set>
#include <vector>

namespace findwright {
namespace {

constexpr u32 FAULTS_MAX = 12; // the first ones tell what is wrong

struct faults_t {
    std::string text;
    u32 count = 0;

    void add(const std::string &line) {
        if (count++ < FAULTS_MAX)
            text += line + "\n";
    }
};

std::string path_of(const db_item_t *item) {
    utf8_buf_t path;
    utf8_buf_init(&path);
    db_item_get_full_path_name(&path, item);
    std::string result(path.data, static_cast<size_t>(path.length));
    utf8_buf_kill(&path);
    return result;
}

template<class proc_t>
void for_each(const array_t *array, proc_t proc) {
    for (u32 page = 0; page < array->page_count; page++) {
        const u32 *values = array_page_values(array->pages[page]);
        for (u32 i = 0; i < array->pages[page]->item_count; i++)
            proc(values[i]);
    }
}

std::vector<mem_ref_t> values_of(const array_t *array) {
    std::vector<mem_ref_t> values;
    for_each(array, [&](u32 value) { values.push_back(value); });
    return values;
}

// --- Arrays ------------------------------------------------------------------------------------------------

void check_pages(const char *name, const array_t *array, faults_t *faults) {
    u32 count = 0;
    for (u32 page = 0; page < array->page_count; page++) {
        const array_page_t *head = array->pages[page];
        if (head->item_count == 0 || array->first_index[page] != count ||
            head->data_offset < ARRAY_PAGE_HEADER ||
            head->data_offset + head->item_count * sizeof(u32) > ARRAY_PAGE_SIZE)
            faults->add(std::string(name) + ": page " + std::to_string(page));
        count += head->item_count;
        if (!array->word)
            continue;
        const u32 *values = array_page_values(head);
        const u64 *words = array_page_words(head);
        for (u32 i = 0; i < head->item_count; i++) {
            if (words[i] != array->word(values[i]))
                faults->add(std::string(name) + ": word of " + path_of(db_item(values[i])));
        }
    }
    if (count != array->count)
        faults->add(std::string(name) + ": count " + std::to_string(array->count) + ", values " +
                    std::to_string(count));
}

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

// Items of sources of any type.
constexpr u32 ANY = 0xFFFFFFFF;

const struct order_t {
    const char *name;
    u32 flag; // of the layout; 0: always
    array_t db_t::*array;
    bool folders;
    u32 index_type; // db_index_type_t, or ANY
    compare_t *compare;
} orders[] = {
    {"folder name", 0, &db_t::folder_name_array, true, ANY, by_name},
    {"file name", 0, &db_t::file_name_array, false, ANY, by_name},
    {"folder path", DB_FLAG_FAST_PATH, &db_t::folder_path_array, true, ANY, by_folder_path},
    {"file path", DB_FLAG_FAST_PATH, &db_t::file_path_array, false, ANY, by_file_path},
    {"folder size", DB_FLAG_FOLDER_SIZE | DB_FLAG_FAST_SIZE, &db_t::folder_size_array, true, ANY,
     db_folder_compare_size},
    {"file size", DB_FLAG_FAST_SIZE, &db_t::file_size_array, false, ANY, db_file_compare_size},
    {"folder created", DB_FLAG_FAST_DATE_CREATED, &db_t::folder_date_created_array, true, ANY,
     db_folder_compare_date_created},
    {"file created", DB_FLAG_FAST_DATE_CREATED, &db_t::file_date_created_array, false, ANY,
     db_file_compare_date_created},
    {"folder modified", DB_FLAG_FAST_DATE_MODIFIED, &db_t::folder_date_modified_array, true, ANY,
     db_folder_compare_date_modified},
    {"file modified", DB_FLAG_FAST_DATE_MODIFIED, &db_t::file_date_modified_array, false, ANY,
     db_file_compare_date_modified},
    {"folder accessed", DB_FLAG_FAST_DATE_ACCESSED, &db_t::folder_date_accessed_array, true, ANY,
     db_folder_compare_date_accessed},
    {"file accessed", DB_FLAG_FAST_DATE_ACCESSED, &db_t::file_date_accessed_array, false, ANY,
     db_file_compare_date_accessed},
    {"folder attributes", DB_FLAG_FAST_ATTRIBUTES, &db_t::folder_attributes_array, true, ANY,
     db_folder_compare_attributes},
    {"file attributes", DB_FLAG_FAST_ATTRIBUTES, &db_t::file_attributes_array, false, ANY,
     db_file_compare_attributes},
    {"file extension", DB_FLAG_FAST_EXTENSION, &db_t::file_extension_array, false, ANY,
     db_file_compare_extension},
    {"folder number", 0, &db_t::folder_frn_array, true, DB_INDEX_TYPE_NTFS, db_folder_compare_frn},
    {"folder id", 0, &db_t::folder_frn128_array, true, DB_INDEX_TYPE_REFS, db_folder_compare_frn128},
};

// What an order's array is to hold, by reference.
std::vector<mem_ref_t> get_members(const db_t *db, const order_t &order) {
    std::vector<mem_ref_t> members;
    if ((db->layout.flags & order.flag) != order.flag)
        return members;
    for_each(order.folders ? &db->folder_name_array : &db->file_name_array, [&](u32 value) {
        if (order.index_type == ANY || db_get_index(db_item(value))->type == order.index_type)
            members.push_back(value);
    });
    std::sort(members.begin(), members.end());
    return members;
}

void check_order(const db_t *db, const order_t &order, faults_t *faults) {
    const array_t *array = &(db->*order.array);
    check_pages(order.name, array, faults);
    std::vector<mem_ref_t> values = values_of(array), members = get_members(db, order);
    std::vector<mem_ref_t> sorted = values, missing, strange;
    std::sort(sorted.begin(), sorted.end());
    std::set_difference(members.begin(), members.end(), sorted.begin(), sorted.end(),
                        std::back_inserter(missing));
    std::set_difference(sorted.begin(), sorted.end(), members.begin(), members.end(),
                        std::back_inserter(strange));
    for (mem_ref_t ref : missing)
        faults->add(std::string(order.name) + ": lacks " + path_of(db_item(ref)));
    if (!strange.empty()) { // may be freed
        faults->add(std::string(order.name) + ": holds " + std::to_string(strange.size()) +
                    " values that are no item, or twice");
        return;
    }
    for (size_t i = 1; i < values.size(); i++) {
        if (order.compare(db, db_item(values[i - 1]), db_item(values[i])) >= 0)
            faults->add(std::string(order.name) + ": " + path_of(db_item(values[i - 1])) +
                        " >= " + path_of(db_item(values[i])));
    }
}

// --- Chains and sizes --------------------------------------------------------------------------------------

// False: no path can be built from what is there.
bool check_chains(const db_t *db, faults_t *faults) {
    std::vector<mem_ref_t> folders = values_of(&db->folder_name_array);
    std::unordered_set<mem_ref_t> known(folders.begin(), folders.end());
    std::unordered_set<mem_ref_t> indexes;
    for (const db_index_t *index = db->index_first; index; index = index->next)
        indexes.insert(mem_ref(index));
    for (const array_t *array : {&db->folder_name_array, &db->file_name_array}) {
        for_each(array, [&](u32 value) {
            mem_ref_t ref = value;
            for (u32 depth = 0;; depth++) {
                const db_item_t *item = db_item(ref);
                if (item->parent == 0) {
                    if (!indexes.count(db_load_u32(db_item_index_word(item))))
                        faults->add("a top item of no index");
                    break;
                }
                ref = item->parent;
                if (!known.count(ref) || depth > known.size()) {
                    faults->add("a chain that leads to no root");
                    break;
                }
            }
        });
    }
    return faults->count == 0;
}

void check_sizes(const db_t *db, faults_t *faults) {
    if (!(db->layout.flags & DB_FLAG_FOLDER_SIZE))
        return;
    std::unordered_map<mem_ref_t, u64> sums;
    for_each(&db->file_name_array, [&](u32 value) {
        u64 size = db_file_get_size(db, db_item(value));
        for (mem_ref_t ref = db_item(value)->parent; ref && size != VALUE_UNKNOWN; ref = db_item(ref)->parent)
            sums[ref] += size;
    });
    for_each(&db->folder_name_array, [&](u32 value) {
        u64 size = db_folder_get_size(db, db_item(value));
        if (size != sums[value])
            faults->add("size of " + path_of(db_item(value)) + ": " + std::to_string(size) + ", its files " +
                        std::to_string(sums[value]));
    });
}

// --- Side tables -------------------------------------------------------------------------------------------

template<class record_t>
void check_table(const db_t *db, const char *name, const array_t *by_item,
                 std::initializer_list<const array_t *> others, faults_t *faults) {
    std::vector<mem_ref_t> folders = values_of(&db->folder_name_array),
                           files = values_of(&db->file_name_array);
    std::unordered_set<mem_ref_t> known[2] = {{files.begin(), files.end()}, {folders.begin(), folders.end()}};
    mem_ref_t last = 0;
    for_each(by_item, [&](u32 value) {
        const record_t *record = mem_ptr<const record_t>(value);
        if (!known[record->is_folder != 0].count(record->item))
            faults->add(std::string(name) + ": a record of no item");
        if (record->item <= last)
            faults->add(std::string(name) + ": order by item");
        last = record->item;
    });
    std::vector<mem_ref_t> all = values_of(by_item);
    std::sort(all.begin(), all.end());
    for (const array_t *other : others) {
        std::vector<mem_ref_t> values = values_of(other);
        std::sort(values.begin(), values.end());
        if (values != all)
            faults->add(std::string(name) + ": the arrays hold different records");
    }
}

void check_tables(const db_t *db, faults_t *faults) {
    check_table<db_recent_change_t>(db, "recent changes", &db->recent_changes_by_item,
                                    {&db->recent_changes_by_date}, faults);
    const db_recent_change_t *newer = nullptr;
    for_each(&db->recent_changes_by_date, [&](u32 value) {
        const auto *change = mem_ptr<const db_recent_change_t>(value);
        if (newer && (newer->date != change->date ? newer->date < change->date : newer->item >= change->item))
            faults->add("recent changes: order by date");
        newer = change;
    });
    check_table<db_run_history_ptr_t>(db, "run history", &db->run_history_by_item,
                                      {&db->run_history_links_by_count, &db->run_history_links_by_date},
                                      faults);
}

// --- Memory ------------------------------------------------------------------------------------------------

void check_memory(const db_t *db, faults_t *faults) {
    size_t small = 0;
    auto add = [&](size_t size) { small += size < DB_MEM_LARGE_MIN ? (size + 3) & ~size_t(3) : 0; };
    auto add_item = [&](u32 value, u32 behind) {
        const db_item_t *item = db_item(value);
        u32 length = db_item_get_name_length(item);
        add(db_item_prefix_size(length, item->parent == 0) + DB_ITEM_HEAD + length + behind);
    };
    for_each(&db->folder_name_array, [&](u32 value) {
        add_item(value,
                 db->layout.folder_data_size + db_index_type_frn_size(db_get_index(db_item(value))->type));
    });
    for_each(&db->file_name_array, [&](u32 value) { add_item(value, db->layout.file_data_size); });
    for_each(&db->recent_changes_by_item, [&](u32) { add(sizeof(db_recent_change_t)); });
    for_each(&db->run_history_by_item, [&](u32) { add(sizeof(db_run_history_ptr_t)); });
    if (small != db->mem.small_used)
        faults->add("records take " + std::to_string(small) + " bytes, handed out are " +
                    std::to_string(db->mem.small_used));
}

} // namespace

std::string db_check_whole(db_t *db) {
    faults_t faults;
    if (!check_chains(db, &faults))
        return faults.text;
    for (const order_t &order : orders)
        check_order(db, order, &faults);
    if (faults.count)
        return faults.text;
    check_sizes(db, &faults);
    check_tables(db, &faults);
    check_memory(db, &faults);
    return faults.text;
}

// --- Two databases -----------------------------------------------------------------------------------------

namespace {

std::vector<std::string> describe(const db_t *db, u32 except) {
    std::vector<std::string> lines;
    auto add = [&](const db_item_t *item, bool is_folder, u64 size, u64 created, u64 modified, u64 accessed,
                   u32 attributes) {
        const u32 flags = db->layout.flags & ~except;
        std::string line =
            path_of(item) + (is_folder ? " folder " : " file ") + std::to_string(db_get_index(item)->ordinal);
        if (flags & (is_folder ? DB_FLAG_FOLDER_SIZE : DB_FLAG_SIZE))
            line += " size " + std::to_string(size);
        if (flags & DB_FLAG_DATE_CREATED)
            line += " created " + std::to_string(created);
        if (flags & DB_FLAG_DATE_MODIFIED)
            line += " modified " + std::to_string(modified);
        if (flags & DB_FLAG_DATE_ACCESSED)
            line += " accessed " + std::to_string(accessed);
        if (flags & DB_FLAG_ATTRIBUTES)
            line += " attributes " + std::to_string(attributes);
        lines.push_back(line);
    };
    for_each(&db->folder_name_array, [&](u32 value) {
        const db_item_t *item = db_item(value);
        add(item, true, db_folder_get_size(db, item), db_folder_get_date_created(db, item),
            db_folder_get_date_modified(db, item), db_folder_get_date_accessed(db, item),
            db_folder_get_attributes(db, item));
    });
    for_each(&db->file_name_array, [&](u32 value) {
        const db_item_t *item = db_item(value);
        add(item, false, db_file_get_size(db, item), db_file_get_date_created(db, item),
            db_file_get_date_modified(db, item), db_file_get_date_accessed(db, item),
            db_file_get_attributes(db, item));
    });
    std::sort(lines.begin(), lines.end());
    return lines;
}

} // namespace

std::string db_compare_content(const db_t *a, const db_t *b, u32 except) {
    faults_t faults;
    if ((a->layout.flags & DB_FLAG_COLUMNS) != (b->layout.flags & DB_FLAG_COLUMNS))
        faults.add("the columns differ");
    std::vector<std::string> left = describe(a, except), right = describe(b, except), only;
    std::set_difference(left.begin(), left.end(), right.begin(), right.end(), std::back_inserter(only));
    for (const std::string &line : only)
        faults.add("only the first: " + line);
    only.clear();
    faults.count /= 2; // as much room for the other side
    std::set_difference(right.begin(), right.end(), left.begin(), left.end(), std::back_inserter(only));
    for (const std::string &line : only)
        faults.add("only the second: " + line);
    return faults.text;
}

} // namespace findwright
