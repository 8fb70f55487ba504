// Lists of searches in files of a folder of the test's own.
#pragma once

#include "os/os_test_support.h"

#include <fstream>
#include <string>

namespace findwright {

struct list_file_t {
    temp_folder_t folder;
    std::string name = folder / "sub\\list.csv"; // the folder is made when the list is saved

    const char *c_str() const { return name.c_str(); }
    std::string read() const { return read_file(name); }
    void write(const std::string &text) const {
        std::filesystem::create_directories(folder.path / "sub");
        write_file(name, text);
    }
};

} // namespace findwright
