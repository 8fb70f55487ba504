// Folders that are reached only by the form of a path that the system takes as it is.
#include "os/os_folder.h"

#include "os/os_win32.h"
#include "os_test_support.h"

#include <vector>

using namespace findwright;

namespace {

// Each name with a blank behind it.
bool add_name(void *param, const os_folder_entry_t *entry) {
    *static_cast<std::string *>(param) += entry->name + std::string(1, ' ');
    return true;
}

std::string exact(const std::string &name) {
    return "\\\\?\\" + name;
}

bool make_folder(const std::string &name) {
    return CreateDirectoryW(os_wide_t(exact(name).c_str()).text(), nullptr) != 0;
}

void remove_folder(const std::string &name) {
    EXPECT_TRUE(RemoveDirectoryW(os_wide_t(exact(name).c_str()).text())) << name << " " << GetLastError();
}

TEST(os_folder_win32, paths_beyond_the_limits_of_names) {
    temp_folder_t folder;
    // From the end of this one on no call takes the path as it is written.
    const std::string deep = folder / std::string(120, 'a') + "\\" + std::string(120, 'b');
    const std::vector<std::string> made = {folder / std::string(120, 'a'), deep, deep + "\\inner",
                                           folder / "aux", folder / "aux\\inner"};
    for (const std::string &name : made)
        ASSERT_TRUE(make_folder(name)) << name << " " << GetLastError();
    for (const std::string &name : {deep, deep + "\\", folder / "aux"}) {
        std::string names;
        EXPECT_TRUE(os_folder_list(name.c_str(), static_cast<u32>(folder.name.size()), add_name, &names))
            << name << " " << GetLastError();
        EXPECT_EQ(names, "inner ") << name;
        os_folder_entry_t entry;
        EXPECT_TRUE(os_folder_get_entry(name.c_str(), &entry) && entry.is_folder) << name;
    }
    for (size_t i = made.size(); i--;)
        remove_folder(made[i]);
}

} // namespace
