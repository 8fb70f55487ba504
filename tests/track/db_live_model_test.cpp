#include "os/event.h"
#include "os/os.h"
#include "support/live_world.h"
#include "support/test_db.h"
#include "track/db_live_internal.h"

#include <gtest/gtest.h>

#include <cstdlib>

namespace findwright {

static u32 from_environment(const char *name, u32 otherwise) {
    const char *text = std::getenv(name);
    return text ? static_cast<u32>(std::strtoul(text, nullptr, 10)) : otherwise;
}

struct live_case_t {
    const char *name;
    u32 flags;
    db_index_type_t type;
    bool has_exclusions;
    u32 few; // trees up to this size go item by item
    u32 threads;
    u32 size = 300; // with which it begins; arrays of several pages have fewer steps
};

static constexpr u32 ALL = TEST_FLAGS_ALL, NO_PATHS = TEST_FLAGS_ALL & ~DB_FLAG_FAST_PATH;
static const live_case_t live_cases[] = {
    {"journal", ALL, DB_INDEX_TYPE_NTFS, false, 64, 0},
    {"wide numbers", ALL, DB_INDEX_TYPE_REFS, true, 0, 2},
    {"folder", ALL, DB_INDEX_TYPE_FOLDER, true, 64, 0},
    {"folder, always passes", ALL, DB_INDEX_TYPE_FOLDER, false, 0, 8},
    {"no order by path", NO_PATHS, DB_INDEX_TYPE_NTFS, false, 0, 8},
    {"no order by path, one thread", NO_PATHS, DB_INDEX_TYPE_FOLDER, true, 64, 1},
    {"usual columns",
     DB_FLAG_SIZE | DB_FLAG_DATE_MODIFIED | DB_FLAG_FAST_SIZE | DB_FLAG_FAST_DATE_MODIFIED |
         DB_FLAG_FAST_PATH,
     DB_INDEX_TYPE_FOLDER, false, 8, 0},
    {"names only", 0, DB_INDEX_TYPE_FOLDER, false, 8, 0},
    {"large", ALL, DB_INDEX_TYPE_NTFS, false, 64, 2, 6000},
};

// FINDWRIGHT_LIVE_SEED and _STEPS take others.
TEST(DbLiveModel, StaysWhatTheModelSays) {
    u32 seed = from_environment("FINDWRIGHT_LIVE_SEED", 1);
    u32 steps = from_environment("FINDWRIGHT_LIVE_STEPS", 1200);
    for (const live_case_t &row : live_cases) {
        SCOPED_TRACE(row.name);
        live_world_t world;
        live_world_create(&world, row.flags, row.type, row.has_exclusions, seed);
        db_live_few = row.few;
        max_threads = row.threads;
        std::string problem;
        live_world_fill(&world, row.size);
        for (u32 i = 0; i < steps * 300 / row.size && problem.empty(); i++) {
            live_world_step(&world, &problem);
            if (i % 20 == 0)
                problem += live_world_check(&world);
            if (!problem.empty())
                ADD_FAILURE() << "seed " << seed << ", step " << i << ":\n" << problem.substr(0, 2000);
        }
        db_live_few = 64;
        max_threads = 0;
        event_dispatch();
        live_world_destroy(&world);
    }
}

} // namespace findwright
