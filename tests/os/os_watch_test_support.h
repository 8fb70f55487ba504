// A watch over a folder of a test, and what it told, as lines:
//
//     + a        added          - a        removed      a > b    renamed
//     overflow   lost   limit   (of the root)
//
// Changes of data are in a set of their own, since how many there are is the system's affair.
#pragma once

#include "os/os_watch.h"
#include "os_test_support.h"

#include <set>
#include <vector>

namespace findwright {

struct test_watch_t {
    explicit test_watch_t(os_watch_filter_t *filter = nullptr) {
        // Its real path, as the system tells it.
        name = folder / "root";
        std::filesystem::create_directories(folder.path / "root");
        root_path = folder.path / "root";
        watch = os_watch_create(filter, nullptr);
    }
    ~test_watch_t() { os_watch_destroy(watch); }

    bool add() {
        root = os_watch_add(watch, name.c_str(), 0);
        return root != OS_WATCH_NONE;
    }

    static std::string get_relative(const std::string &path, const std::string &root) {
        if (path.compare(0, root.size(), root) != 0 || path.size() == root.size())
            return path.empty() ? "" : "(" + path + ")";
        return path.substr(root.size() + 1);
    }

    static void take(void *param, const os_watch_event_t *event) {
        auto *self = static_cast<test_watch_t *>(param);
        EXPECT_EQ(std::strlen(event->path), event->length);
        std::string path = get_relative(event->path, self->name);
        switch (event->action) {
        case OS_WATCH_ADDED:
            self->is_over |= path == "end";
            if (path != "end")
                self->lines.push_back("+ " + path);
            break;
        case OS_WATCH_REMOVED:
            if (path != "end")
                self->lines.push_back("- " + path);
            break;
        case OS_WATCH_MODIFIED:
            if (path != "end")
                self->modified.insert(path);
            break;
        case OS_WATCH_RENAMED:
            self->lines.push_back(path + " > " + get_relative(event->new_path, self->name));
            break;
        case OS_WATCH_OVERFLOW: self->lines.push_back("overflow"); break;
        case OS_WATCH_LOST: self->lines.push_back("lost"); break;
        case OS_WATCH_LIMIT: self->lines.push_back("limit"); break;
        }
    }

    // All that was told of what happened before.
    std::vector<std::string> get_lines() {
        lines.clear();
        modified.clear();
        is_over = false;
        write_file(name + "\\end", "");
        while (!is_over) {
            if (os_watch_wait(watch, 20000, take, this) != OS_WATCH_FIRED) {
                ADD_FAILURE() << "no end";
                break;
            }
        }
        os_delete_file((name + "\\end").c_str());
        while (os_watch_wait(watch, 100, take, this) == OS_WATCH_FIRED)
            ;
        return lines;
    }

    // Until the root as a whole is told of.
    std::vector<std::string> wait_for(const std::string &line) {
        lines.clear();
        while (lines.empty() || lines.back() != line) {
            if (os_watch_wait(watch, 20000, take, this) != OS_WATCH_FIRED) {
                ADD_FAILURE() << line << " did not come";
                break;
            }
        }
        return lines;
    }

    temp_folder_t folder;
    std::filesystem::path root_path;
    std::string name;
    os_watch_t *watch;
    u32 root = OS_WATCH_NONE;
    std::vector<std::string> lines;
    std::set<std::string> modified;
    bool is_over = false;
};

// Whether folders that are there already are watched with the one that holds them. Wine does not: there what
// is said of trees cannot be tried.
inline bool test_watch_has_trees() {
    if (os_path_separator != '\\')
        return true;
    test_watch_t test;
    std::filesystem::create_directories(test.root_path / "sub");
    return test.add() && (write_file(test.name + "\\sub\\file", ""), !test.get_lines().empty());
}

} // namespace findwright
