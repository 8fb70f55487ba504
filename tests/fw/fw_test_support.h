// Runs the console client in the test's own process, and makes what it searches.
#pragma once

#include "db/db_image.h"
#include "fw/fw.h"
#include "index/db_create.h"
#include "os/event.h"
#include "os/os_test_support.h"

#include <algorithm>
#include <bzlib.h>
#include <fstream>
#include <vector>

namespace findwright {

// A file of the test data, unpacked.
inline std::string unpack(const std::string &name) {
    std::ifstream file(std::string(FINDWRIGHT_TEST_DATA) + "/" + name, std::ios::binary);
    std::string packed{std::istreambuf_iterator<char>(file), {}};
    std::string bytes(32u << 20, 0);
    unsigned size = static_cast<unsigned>(bytes.size());
    EXPECT_EQ(BZ_OK, BZ2_bzBuffToBuffDecompress(bytes.data(), &size, packed.data(),
                                                static_cast<unsigned>(packed.size()), 0, 0));
    bytes.resize(size);
    return bytes;
}

struct temp_file_t {
    std::string name;

    temp_file_t(const std::string &suffix, const std::string &bytes) {
        auto path = std::filesystem::temp_directory_path() /
                    ("fw_test_" + std::to_string(reinterpret_cast<std::uintptr_t>(this)) + suffix);
        name = path.string();
        std::ofstream(path, std::ios::binary) << bytes;
    }
    ~temp_file_t() { std::filesystem::remove(name); }
};

inline const temp_file_t &sample() {
    static temp_file_t file(".ntfs", unpack("sample.ntfs.bz2"));
    return file;
}

struct run_t {
    int status;
    std::string output, error;
};

// Runs the client. `room`: bytes of output after which the pipe is closed.
inline run_t run(std::vector<std::string> arguments, size_t room = ~static_cast<size_t>(0),
                 bool terminal = false) {
    struct state_t {
        run_t run;
        size_t room;
    } state = {{}, room};
    fw_io_t io = {
        &state,
        [](void *user_data, int descriptor, const void *bytes, u32 size) {
            state_t *s = static_cast<state_t *>(user_data);
            if (descriptor == 1 && s->run.output.size() > s->room)
                return false;
            (descriptor == 1 ? s->run.output : s->run.error).append(static_cast<const char *>(bytes), size);
            return true;
        },
        terminal, terminal, [](void *) { return true; }};
    arguments.insert(arguments.begin(), "fw");
    std::vector<const char *> list;
    for (const std::string &argument : arguments)
        list.push_back(argument.c_str());
    state.run.status = fw_run(static_cast<u32>(list.size()), list.data(), &io);
    return state.run;
}

inline run_t run_sample(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), {"--ntfs", sample().name});
    return run(arguments);
}

// What a run printed must have, and the status that it ended with.
inline void expect_error(const run_t &result, const std::string &text) {
    EXPECT_EQ(FW_ERROR, result.status) << text;
    EXPECT_EQ("", result.output) << text;
    EXPECT_NE(std::string::npos, result.error.find(text)) << result.error << "has no " << text;
}

// A folder to search, and beside it lists, settings and the place of a database.
struct fw_sources : testing::Test {
    temp_folder_t folder;

    void SetUp() override {
        for (const char *name : {"tree/sub/deep", "tree/skipped", "state"})
            std::filesystem::create_directories(folder.path / name);
        put("tree/alpha.txt", "12345");
        put("tree/sub/beta.txt", "1");
        put("tree/sub/deep/gamma.pdf", "123");
        put("tree/skipped/delta.txt", "");
        put("list.fwl", "Filename,Size\n\"D:\\Photos\\alpha lake.jpg\",77\n\\\\server\\share\\s.txt,6\n");
        put("twin.csv", "Size,Filename\n999,\"" + at("tree/alpha.txt") + "\"\n");
        put("headless.csv", "alpha.txt,5\n");
    }

    void put(const std::string &name, const std::string &text) const {
        std::ofstream(folder.path / name, std::ios::binary) << text;
    }
    // A file of the folder as the system's users write it.
    std::string at(const std::string &name) const { return (folder.path / name).make_preferred().string(); }
    std::string quoted(const std::string &name) const {
        std::string text;
        for (char c : at(name))
            (text += c == '\\' ? "\\" : "") += c;
        return "\"" + text + "\"";
    }
    // Settings that name nothing of this machine, and whose database lies in "state".
    std::string settings(const std::string &lines) const {
        return "[Findwright]\r\nauto_include_fixed_volumes=0\r\ndb_location=" + at("state") + "\r\n" + lines;
    }
    // Writes a database of the folder "tree" as findwright does.
    void save(const std::string &name, u32 flags, bool compress) const {
        db_wanted_t wanted;
        db_wanted_init(&wanted);
        db_wanted_add_folder(&wanted, (folder / "tree").c_str());
        save(name, &wanted, flags, compress);
    }
    void save(const std::string &name, db_wanted_t *wanted, u32 flags, bool compress) const {
        db_t *db = db_create();
        wanted->index_flags = flags;
        db_rebuild_start(db, wanted, nullptr);
        while (!db_is_ready(db))
            event_wait_and_dispatch(OS_INFINITE);
        event_dispatch();
        EXPECT_TRUE(db_image_save(db, (folder / name).c_str(), compress));
        db_destroy(db);
    }
    // All that lies in the folder, with sizes and dates.
    std::string snapshot() const {
        std::vector<std::string> names;
        for (const auto &entry : std::filesystem::recursive_directory_iterator(folder.path))
            names.push_back(entry.path().string() + " " +
                            std::to_string(entry.is_directory() ? 0 : entry.file_size()) + " " +
                            std::to_string(entry.last_write_time().time_since_epoch().count()));
        std::sort(names.begin(), names.end());
        return testing::PrintToString(names);
    }
};

} // namespace findwright
