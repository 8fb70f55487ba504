// Orders that the index keeps no array for: by what is read of the file system, by type names.
#include "base/utf8.h"
#include "db/db_extended_info.h"
#include "os/event.h"
#include "os/os_test_support.h"
#include "query/db_result_internal.h"
#include "query/db_selection.h"
#include "support/test_search.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <functional>
#include <thread>

namespace findwright {
namespace {

constexpr u32 FILES = 40;

std::string file_name(u32 i) {
    return (i % 3 == 0 ? "sub\\f" : "f") + std::to_string(i * 17 % FILES) + (i % 4 == 0 ? ".txt" : ".b");
}

// Files on the disk, with sizes and dates that repeat, in an index that holds their names only. Every seventh
// one has gone since.
struct real_list_t {
    temp_folder_t folder;
    test_search_t search;

    real_list_t() : search(make(&folder)) { search.run(""); }
    static db_t *make(temp_folder_t *folder) {
        std::vector<std::string> names;
        std::filesystem::create_directories(folder->path / "sub");
        for (u32 i = 0; i < FILES; i++) {
            names.push_back(file_name(i));
            if (i % 7 == 0)
                continue;
            write_file(*folder / names[i], std::string(i % 5, 'x'));
            set_date(folder, i, i % 9);
        }
        test_volume_t volume = test_volume_from_paths(names);
        volume.path = folder->name;
        return test_db_create({volume}, 0);
    }
    static void set_date(temp_folder_t *folder, u32 i, u32 minutes) {
        std::string name = file_name(i);
        std::replace(name.begin(), name.end(), '\\', '/');
        std::filesystem::last_write_time(folder->path / name, std::filesystem::file_time_type::clock::now() -
                                                                  std::chrono::minutes(1000 - minutes));
    }
    db_file_info_t info(const db_item_t *item, bool is_folder) {
        db_file_info_t out;
        is_folder ? db_get_folder_fileinfo(search.query->extended_info, item, &out)
                  : db_get_file_fileinfo(search.query->extended_info, item, &out);
        return out;
    }
    std::vector<db_result_t> results() {
        std::vector<db_result_t> out(db_get_result_count(search.query));
        for (u32 i = 0; i < out.size(); i++)
            db_get_result(search.query, static_cast<i32>(i), &out[i]);
        return out;
    }
};

std::vector<mem_ref_t> refs(const std::vector<db_result_t> &results) {
    std::vector<mem_ref_t> out;
    for (const db_result_t &result : results)
        out.push_back(mem_ref(result.item));
    return out;
}

using less_t = std::function<bool(const db_result_t &, const db_result_t &)>;

// Sorts what stands in name order, folders and files each for themselves.
std::vector<mem_ref_t> expect(std::vector<db_result_t> by_name, const less_t &less) {
    std::stable_sort(by_name.begin(), by_name.end(), [&](const db_result_t &a, const db_result_t &b) {
        return a.is_folder != b.is_folder ? a.is_folder : less(a, b);
    });
    return refs(by_name);
}

TEST(DbSort, ReadsWhatTheIndexLacks) {
    real_list_t list;
    db_query_t *query = list.search.query;
    std::vector<db_result_t> by_name = list.results();
    auto value = [&](const db_result_t &row, u64 db_file_info_t::*column) {
        return list.info(row.item, row.is_folder).*column + 1; // unknown first
    };
    auto by_value = [&](u64 db_file_info_t::*column) {
        return
            [=](const db_result_t &a, const db_result_t &b) { return value(a, column) < value(b, column); };
    };
    const struct {
        u32 sort;
        less_t less;
    } cases[] = {
        {DB_SORT_SIZE_ASCENDING, by_value(&db_file_info_t::size)},
        {DB_SORT_DATE_MODIFIED_ASCENDING, by_value(&db_file_info_t::date_modified)},
        {DB_SORT_DATE_ACCESSED_ASCENDING, by_value(&db_file_info_t::date_accessed)},
        {DB_SORT_ATTRIBUTES_ASCENDING,
         [&](const db_result_t &a, const db_result_t &b) {
             return db_attributes_compare(list.info(a.item, a.is_folder).attributes,
                                          list.info(b.item, b.is_folder).attributes) < 0;
         }},
    };
    for (const auto &c : cases) {
        db_sort(query, c.sort);
        std::vector<mem_ref_t> found = refs(list.results());
        EXPECT_EQ(expect(by_name, c.less), found) << c.sort;
        db_sort(query, DB_SORT_NAME_ASCENDING);
        db_sort(query, c.sort | DB_SORT_DESCENDING);
        std::reverse(found.begin(), found.end());
        EXPECT_EQ(found, refs(list.results())) << c.sort;
    }
    // Files that have gone come first among the files, in name order; then nine dates, oldest first.
    db_sort(query, DB_SORT_DATE_MODIFIED_ASCENDING);
    u64 last = 0;
    for (u32 i = db_get_folder_result_count(query), unknown = 0; i < by_name.size(); i++) {
        u64 date = list.info(db_get_result_item(query, static_cast<i32>(i)), false).date_modified;
        unknown += date == VALUE_UNKNOWN;
        EXPECT_EQ(date == VALUE_UNKNOWN, i - db_get_folder_result_count(query) < (FILES + 6) / 7);
        EXPECT_TRUE(date == VALUE_UNKNOWN || last <= date);
        last = date == VALUE_UNKNOWN ? 0 : date;
    }
}

TEST(DbSort, ARefreshReadsAgain) {
    real_list_t list;
    db_query_t *query = list.search.query;
    db_sort(query, DB_SORT_DATE_MODIFIED_ASCENDING);
    const db_item_t *last = list.results().back().item;
    std::string name = file_name(1); // which is not the last one: its date is the second oldest
    list.set_date(&list.folder, 1, 900);
    db_sort(query, DB_SORT_DATE_MODIFIED_ASCENDING);
    EXPECT_EQ(last, list.results().back().item); // what was read is kept
    db_refresh(query);
    utf8_buf_t text;
    utf8_buf_init(&text);
    db_get_result_full_path_name(query, static_cast<i32>(db_get_result_count(query)) - 1, &text);
    EXPECT_EQ(list.folder / name, text.data);
    utf8_buf_kill(&text);
}

// A file system in which one read hangs until the test lets it go: the one with that number.
struct hanging_loader_t {
    static inline std::atomic<u32> reads, inside;
    static inline u32 hanging;
    static inline os_event_t *reached, *release;
    static bool read(const char *path, bool, db_file_info_t *out) {
        inside++;
        if (reads++ == hanging) {
            os_event_set(reached);
            os_event_wait(release, 60000);
        }
        inside--;
        *out = {static_cast<u64>(path[std::strlen(path) - 5]), 1, 2, 3, 0};
        return true;
    }
};

TEST(DbSort, CancelledAtEveryReadLeavesNamesAndTheSelection) {
    static const db_info_loader_t loader = [] {
        db_info_loader_t table = db_info_system_loader;
        table.read_file_info = hanging_loader_t::read;
        return table;
    }();
    using hang = hanging_loader_t;
    real_list_t list;
    db_query_t *query = list.search.query;
    std::vector<mem_ref_t> by_name = refs(list.results());
    hang::reached = os_event_create();
    hang::release = os_event_create();
    for (u32 sort : {u32{DB_SORT_SIZE_ASCENDING}, DB_SORT_DATE_ACCESSED_ASCENDING | DB_SORT_DESCENDING}) {
        for (hang::hanging = 0; hang::hanging < FILES; hang::hanging++) {
            os_event_reset(hang::reached);
            os_event_reset(hang::release);
            hang::reads = 0;
            db_extended_info_set_loader(query->extended_info, &loader);
            db_sort(query, hang::hanging % 2 ? DB_SORT_NAME_DESCENDING : DB_SORT_PATH_ASCENDING);
            db_deselect_all(query);
            db_select_result_range(query, 3, 12);
            std::vector<mem_ref_t> selected;
            for (i32 i = 3; i < 12; i++)
                selected.push_back(mem_ref(db_get_result_item(query, i)));
            std::sort(selected.begin(), selected.end());
            db_sort(query, sort);
            ASSERT_EQ(OS_WAIT_DONE, os_event_wait(hang::reached, 60000));
            u32 start = os_get_tick_count();
            EXPECT_TRUE(db_cancel_query(query)); // although the read hangs on
            EXPECT_LT(os_get_tick_count() - start, 5000000u);
            os_event_set(hang::release);
            EXPECT_EQ(by_name, refs(list.results()));
            EXPECT_EQ(DB_SORT_NAME_ASCENDING, db_get_sort(query));
            ASSERT_EQ(selected.size(), db_get_selection_count(query));
            for (i32 i = 0; i < static_cast<i32>(selected.size()); i++) {
                mem_ref_t item = mem_ref(db_get_result_item(query, db_get_selection_result_index(query, i)));
                EXPECT_TRUE(std::binary_search(selected.begin(), selected.end(), item));
            }
            db_sort(query, sort); // what was cancelled can be had afterwards
            EXPECT_NE(by_name, refs(list.results()));
        }
    }
    db_extended_info_clear(query->extended_info);
    while (hang::inside != 0) // the thread of the last one that hung
        std::this_thread::yield();
    for (os_event_t *event : {hang::reached, hang::release})
        os_event_destroy(event);
}

TEST(DbSort, ByTypeNames) {
    std::vector<std::string> names;
    for (u32 i = 0; i < 60; i++)
        names.push_back(
            "n" + std::to_string(i * 7 % 60) +
            std::vector<std::string>{".txt", ".zzq", ".TXT", "", ".png", ".Zzq", ".c", ".aaq"}[i % 8]);
    names.push_back("folder.txt\\");
    test_search_t search(names);
    search.run("");
    std::vector<db_result_t> by_name(db_get_result_count(search.query));
    for (u32 i = 0; i < by_name.size(); i++)
        db_get_result(search.query, static_cast<i32>(i), &by_name[i]);
    auto type = [&](const db_result_t &row) {
        u32 length;
        const char *name = db_item_get_name(row.item, &length), *extension;
        extension = db_name_get_extension(name, length, &length);
        return std::string(
            row.is_folder ? ""
                          : db_extended_info_get_type_name(search.query->extended_info, extension, length));
    };
    db_sort(search.query, DB_SORT_TYPE_ASCENDING);
    std::vector<mem_ref_t> found;
    for (i32 i = 0; i < static_cast<i32>(by_name.size()); i++)
        found.push_back(mem_ref(db_get_result_item(search.query, i)));
    EXPECT_EQ(expect(by_name,
                     [&](const db_result_t &a, const db_result_t &b) {
                         std::string x = type(a), y = type(b);
                         return utf8_compare_fold(x.data(), static_cast<u32>(x.size()), y.data(),
                                                  static_cast<u32>(y.size())) < 0;
                     }),
              found);
}

} // namespace
} // namespace findwright
