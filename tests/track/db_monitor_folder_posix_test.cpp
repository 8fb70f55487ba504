#include "track/db_monitor_folder.h"

#include "os/event.h"
#include "os/os_test_support.h"
#include "os/os_watch_posix.h"
#include "support/folder_world.h"
#include "support/test_db.h"
#include "track/db_folder_update.h"
#include "track/db_live.h"
#include "track/db_schedule.h"

#include <fstream>

namespace findwright {
namespace {

namespace fs = std::filesystem;

// The source has no schedule: it is scanned as often as it is tried, and said of once.
TEST(DbMonitorFolderPosix, WithoutWatchesASourceIsScannedNowAndThen) {
    temp_folder_t folder;
    fs::create_directories(folder.path / "a" / "b");
    folder_settings_t settings = {{folder.name}, TEST_FLAGS_ALL, {}, {}};
    os_watch_is_per_folder = true;
    db_monitor_folder_watch_limit = 2;
    db_monitor_folder_limit_retry = monitor_retry_milliseconds = 20;
    db_monitor_folder_interval = db_monitor_folder_data_interval = 10;
    db_t *db = folder_db_create(&settings);
    folder_db_get_index(db)->monitor = 1;
    folder_db_get_index(db)->update_type = DB_SCHEDULE_NEVER;
    log_capture_t log;
    db_monitor_folders_start(db);
    auto wait_for = [&](const std::string &name) {
        std::ofstream(folder.path / name) << "text";
        const std::string path = folder.name + "\\" + name;
        u32 start = os_get_tick_count();
        while (!db_file_find_path(db, folder_db_get_index(db), path.c_str(), static_cast<u32>(path.size()))) {
            event_wait_and_dispatch(100);
            if (os_get_tick_count() - start > 60000000) {
                ADD_FAILURE() << name;
                return;
            }
        }
    };
    wait_for("one");
    wait_for("two");
    const std::string text = log.take();
    const std::string said = "no more watches, changes are not followed: ";
    size_t first = text.find(said);
    EXPECT_NE(first, text.npos);
    EXPECT_EQ(text.find(said, first + 1), text.npos) << text;
    db_monitor_folders_stop(db);
    folder_db_destroy(db);
    os_watch_is_per_folder = false;
    db_monitor_folder_watch_limit = 0;
    db_monitor_folder_limit_retry = 600000;
    monitor_retry_milliseconds = 30000;
    db_monitor_folder_interval = 1000;
    db_monitor_folder_data_interval = 250;
    db_folder_update_done = nullptr;
}

} // namespace
} // namespace findwright
