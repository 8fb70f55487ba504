// A folder that goes away behind the test, and the debug log as the test's own.
#pragma once

#include "base/utf8_buf.h"
#include "os/debug.h"
#include "os/os.h"

#include <atomic>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <gtest/gtest.h>
#include <string>

namespace findwright {

struct temp_folder_t {
    temp_folder_t() {
        static std::atomic<unsigned> number;
        auto stamp = std::chrono::steady_clock::now().time_since_epoch().count();
        path = std::filesystem::temp_directory_path() /
               ("findwright-test-" + std::to_string(stamp) + "-" + std::to_string(number++));
        std::filesystem::create_directories(path);
        utf8_buf_t buf;
        utf8_buf_init(&buf);
        std::u8string text = path.u8string();
        os_path_from_system(reinterpret_cast<const char *>(text.data()), static_cast<u32>(text.size()), &buf);
        name = buf.data;
        utf8_buf_kill(&buf);
    }
    ~temp_folder_t() {
        std::error_code error;
        std::filesystem::remove_all(path, error);
    }
    // The program's name of a file in it.
    std::string operator/(const std::string &file) const { return name + "\\" + file; }

    std::filesystem::path path;
    std::string name;
};

inline void write_file(const std::string &name, const std::string &text) {
    platform_file_t file = os_create(name.c_str());
    ASSERT_NE(file, PLATFORM_FILE_NONE) << name;
    EXPECT_TRUE(os_write(file, text.data(), static_cast<u32>(text.size())));
    os_close(file);
}

// "(none)" when it cannot be opened.
inline std::string read_file(const std::string &name) {
    platform_file_t file = os_open_read(name.c_str(), true);
    if (file == PLATFORM_FILE_NONE)
        return "(none)";
    std::string text;
    char piece[4096];
    i64 taken;
    while ((taken = os_read(file, piece, sizeof(piece))) > 0)
        text.append(piece, static_cast<size_t>(taken));
    EXPECT_EQ(taken, 0);
    os_close(file);
    return text;
}

struct log_capture_t {
    log_capture_t() { debug_log_open((folder / "log.txt").c_str()); }
    ~log_capture_t() { debug_log_open(nullptr); }
    // What was logged so far; empties the log.
    std::string take() {
        debug_log_open(nullptr);
        std::string text = os_file_exists((folder / "log.txt").c_str()) ? read_file(folder / "log.txt") : "";
        os_delete_file((folder / "log.txt").c_str());
        debug_log_open((folder / "log.txt").c_str());
        return text;
    }
    temp_folder_t folder;
};

} // namespace findwright
