// Folders that may not be listed.
#include "os/os_test_support.h"
#include "support/db_compare.h"
#include "support/folder_world.h"
#include "support/test_db.h"

#include <sys/stat.h>
#include <unistd.h>

namespace findwright {
namespace {

constexpr uid_t NOBODY = 65534;

// A right that is taken away for a while empties nothing: what the index has below the folder stays, and what
// lies beside it goes on being updated.
TEST(DbFolderUpdatePosix, WhatMayNotBeListedKeepsWhatTheIndexHas) {
    temp_folder_t folder;
    folder_settings_t settings;
    settings.paths = {folder.name};
    settings.flags = TEST_FLAGS_ALL & ~(DB_FLAG_DATE_ACCESSED | DB_FLAG_FAST_DATE_ACCESSED);
    for (const char *name : {"closed", "closed\\in", "open"})
        ASSERT_TRUE(os_create_folder((folder / name).c_str()));
    for (const char *name : {"closed\\x", "closed\\in\\y", "open\\z"})
        write_file(folder / name, "12345");
    db_t *db = folder_db_create(&settings);
    ASSERT_EQ(db->file_name_array.count, 3u);

    const std::string closed = (folder.path / "closed").string();
    ASSERT_EQ(chmod(closed.c_str(), 0), 0);
    ASSERT_TRUE(os_delete_file((folder / "open\\z").c_str()));
    write_file(folder / "open\\new", "1");
    const bool is_root = geteuid() == 0; // who may list everything
    if (is_root) {
        ASSERT_EQ(seteuid(NOBODY), 0);
    }
    folder_db_rescan(db);
    if (is_root) {
        ASSERT_EQ(seteuid(0), 0);
    }
    std::vector<std::string> paths = test_array_paths(&db->file_name_array);
    EXPECT_EQ(paths, (std::vector<std::string>{folder / "open\\new", folder / "closed\\x",
                                               folder / "closed\\in\\y"}));
    EXPECT_EQ(db->folder_name_array.count, 4u);
    EXPECT_EQ(db_check_whole(db), "");

    ASSERT_EQ(chmod(closed.c_str(), 0700), 0);
    ASSERT_TRUE(os_delete_file((folder / "closed\\x").c_str()));
    folder_db_rescan(db);
    EXPECT_EQ(folder_db_check(db, &settings), "");
    folder_db_destroy(db);
}

} // namespace
} // namespace findwright
