// Databases for tests: filled through the rebuild, as a volume would fill them.
#pragma once

#include "db/db.h"
#include "index/db_create.h"
#include "query/db_query.h"

#include <string>
#include <vector>

namespace findwright {

// One record as a volume tells it. Reference numbers are the test's own; parent 5 is the root.
struct test_record_t {
    u64 frn;
    u64 parent_frn;
    std::u16string name;
    bool is_folder = false;
    u64 size = 0;
    u64 date = 0;
    u32 attributes = 0x20;
    u64 date_created = 0, date_accessed = 0; // 0: `date`
};

struct test_volume_t {
    std::string path = "C:";
    bool has_root = true;
    std::string root, include_only; // the folder, or the list of folders, that is indexed
    std::vector<test_record_t> records;
};

// A volume from paths below the root, `\` between components; one that ends with `\` is a folder. Folders on
// the way are made. Sizes and dates are those of the paths' places in the list.
test_volume_t test_volume_from_paths(const std::vector<std::string> &paths);

// Appends volumes to what a database is to be made of; `volumes` must live until that is read.
void test_add_volumes(db_wanted_t *wanted, const std::vector<test_volume_t> &volumes);
// Fills a new database from volumes and waits until it is ready.
db_t *test_db_create(const std::vector<test_volume_t> &volumes, u32 flags,
                     const db_exclude_set_t *exclude = nullptr, db_rebuild_stats_t *stats = nullptr);
// Starts the rebuild only; `volumes` must live until it is ready.
db_t *test_db_start(const std::vector<test_volume_t> &volumes, u32 flags,
                    const db_exclude_set_t *exclude = nullptr, db_rebuild_stats_t *stats = nullptr);
void test_db_wait(db_t *db);

// All full paths of an array, in its order.
std::vector<std::string> test_array_paths(const array_t *array);
// All full paths of a query's results, in its order.
std::vector<std::string> test_result_paths(db_query_t *query);

inline constexpr u32 TEST_FLAGS_ALL = 0x7F3F;

} // namespace findwright
