// The whole program as a process of Windows: what it reads and keeps, and that all is saved however the
// system has it end. What it does is told by its log, which comes on standard error and is kept in a file
// here.
#include "db/db_image.h"
#include "os/os_test_support.h"

#include <fstream>
#include <memory>
#include <optional>
#include <vector>
#include <windows.h>

namespace findwright {
namespace {

constexpr DWORD PATIENCE = 20000; // milliseconds; what takes so long hangs
constexpr UINT KILLED = 1000;     // an exit code that is none of the program's
// A raw volume with the content of the sample in the test data; cmake/wine.sh makes the device.
constexpr char VOLUME[] = R"("\\\\.\\N:")";

struct counts_t {
    u32 folders, files;
    bool operator==(const counts_t &) const = default;
};

std::ostream &operator<<(std::ostream &out, const counts_t &counts) {
    return out << counts.folders << " folders, " << counts.files << " files";
}

bool has(const std::string &text, const std::string &part) {
    return text.find(part) != std::string::npos;
}

int count(const std::string &text, const std::string &part) {
    int found = 0;
    for (size_t at = 0; (at = text.find(part, at)) != std::string::npos; at += part.size())
        found++;
    return found;
}

// One process. It does not outlive this.
struct process_t {
    ~process_t() {
        if (!handle)
            return;
        TerminateProcess(handle, KILLED);
        WaitForSingleObject(handle, PATIENCE);
        CloseHandle(handle);
    }
    // As far as it is written: the process has it open.
    std::string log() const {
        std::ifstream file(log_name, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }
    bool has_ended() const { return WaitForSingleObject(handle, 0) == WAIT_OBJECT_0; }
    void wait_for(const std::string &text) const {
        const ULONGLONG limit = GetTickCount64() + PATIENCE;
        while (!has(log(), text) && !has_ended() && GetTickCount64() < limit)
            Sleep(5);
        ASSERT_TRUE(has(log(), text)) << "no \"" << text << "\" in\n" << log();
    }
    // The exit code, or KILLED when it does not end.
    DWORD end() const {
        DWORD code = KILLED;
        if (WaitForSingleObject(handle, PATIENCE) == WAIT_OBJECT_0)
            GetExitCodeProcess(handle, &code);
        return code;
    }
    // The window that the system talks to.
    HWND window() const {
        HWND found = nullptr;
        while ((found = FindWindowExW(nullptr, found, L"FINDWRIGHT_QUIT", nullptr)) != nullptr) {
            DWORD owner;
            GetWindowThreadProcessId(found, &owner);
            if (owner == id)
                break;
        }
        EXPECT_TRUE(found);
        return found;
    }
    // Has the console of the process tell it of an event, in the way that the system does.
    void send_console_event(DWORD event) const {
        auto routine = reinterpret_cast<LPTHREAD_START_ROUTINE>(
            reinterpret_cast<void *>(GetProcAddress(GetModuleHandleW(L"kernelbase.dll"), "CtrlRoutine")));
        ASSERT_TRUE(routine);
        HANDLE thread = CreateRemoteThread(
            handle, nullptr, 0, routine, reinterpret_cast<void *>(static_cast<ULONG_PTR>(event)), 0, nullptr);
        ASSERT_TRUE(thread) << GetLastError();
        CloseHandle(thread);
    }

    HANDLE handle = nullptr;
    DWORD id = 0;
    std::string log_name;
};

using program_t = std::unique_ptr<process_t>;

HANDLE create_log(const std::string &name) {
    SECURITY_ATTRIBUTES inherited = {sizeof(inherited), nullptr, TRUE};
    return CreateFileA(name.c_str(), FILE_APPEND_DATA, FILE_SHARE_READ | FILE_SHARE_WRITE, &inherited,
                       CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
}

class ProgramWin32 : public testing::Test {
  protected:
    // Sources of each kind: a volume, a list, a folder.
    void SetUp() override {
        for (const char *name : {"tree", "tree\\sub"})
            ASSERT_TRUE(os_create_folder((folder / name).c_str()));
        write_file(folder / "tree\\a.txt", "a");
        write_file(folder / "tree\\sub\\b.txt", "b");
        write_file(folder / "list.fwl", "Filename,Size\n\"X:\\folder\\file.txt\",5\n");
        write_file(settings(), "[Findwright]\nauto_include_fixed_volumes=0\n"
                               "auto_remove_offline_ntfs_volumes=0\n" // the system does not show this one
                               "ntfs_volume_paths=\"N:\"\nntfs_volume_guids=" +
                                   std::string(VOLUME) + "\nfilelists=" + quoted("list.fwl") +
                                   "\nfolders=" + quoted("tree") + "\nfolder_monitor_changes=0\n");
        std::ifstream sample(FINDWRIGHT_TEST_DATA "\\sample.txt");
        ASSERT_TRUE(sample);
        for (std::string line; std::getline(sample, line);)
            (has(line, "\td\t") ? all.folders : all.files)++;
        all.folders += 1 + 2 + 2; // the volume's root, the list's root and folder, the tree
        all.files += 1 + 2;
    }
    std::string settings() const { return folder / "Findwright.ini"; }
    std::string database() const { return folder / "test.db"; }
    std::string quoted(const std::string &name) const {
        std::string text = "\"";
        for (char c : folder / name)
            text.append(c == '\\' ? 2 : 1, c);
        return text + '"';
    }
    // What is in the database file; nothing of one that does not load.
    std::optional<counts_t> saved() const {
        db_t *db = db_create(nullptr);
        std::optional<counts_t> counts;
        if (db_image_load(db, database().c_str(), false))
            counts = {db->folder_name_array.count, db->file_name_array.count};
        db_destroy(db);
        return counts;
    }

    program_t start() {
        program_t process = std::make_unique<process_t>();
        process->log_name = folder / ("log" + std::to_string(++process_count));
        HANDLE log = create_log(process->log_name);
        EXPECT_NE(log, INVALID_HANDLE_VALUE);
        STARTUPINFOA how = {};
        how.cb = sizeof(how);
        how.dwFlags = STARTF_USESTDHANDLES;
        how.hStdOutput = how.hStdError = log;
        std::string line =
            "\"" FINDWRIGHT_PROGRAM "\" -config \"" + settings() + "\" -db \"" + database() + "\" -console";
        PROCESS_INFORMATION info = {};
        EXPECT_TRUE(CreateProcessA(FINDWRIGHT_PROGRAM, line.data(), nullptr, nullptr, TRUE, 0, nullptr,
                                   nullptr, &how, &info))
            << FINDWRIGHT_PROGRAM << " " << GetLastError();
        CloseHandle(info.hThread);
        CloseHandle(log);
        process->handle = info.hProcess;
        process->id = info.dwProcessId;
        return process;
    }
    // The program that has read its sources and compared them with the settings.
    program_t start_built() {
        os_delete_file(database().c_str());
        program_t process = start();
        process->wait_for("success \n");
        process->wait_for("checked for file list changes");
        return process;
    }
    static void expect_clean(const process_t &process) {
        EXPECT_EQ(process.end(), 0u);
        const std::string log = process.log();
        EXPECT_TRUE(has(log, "\nAllocation count: 0\n") && !has(log, "records are alive") &&
                    log.ends_with("\nMEM_DEBUG_END\n"))
            << log;
    }

    temp_folder_t folder;
    counts_t all = {};

  private:
    unsigned process_count = 0;
};

TEST_F(ProgramWin32, KeepsWhatItHasRead) {
    program_t process = start_built();
    PostMessageW(process->window(), WM_CLOSE, 0, 0);
    expect_clean(*process);
    std::string log = process->log();
    for (const char *line : {"\nprocessed ", "\nitems ", "\nscanning "})
        EXPECT_EQ(count(log, line), 1) << line << log;
    EXPECT_EQ(saved(), all);
    EXPECT_TRUE(has(read_file(settings()), "\r\nntfs_volume_guids=" + std::string(VOLUME) + "\r\n"));

    process = start();
    process->wait_for("checked for file list changes");
    PostMessageW(process->window(), WM_CLOSE, 0, 0);
    expect_clean(*process);
    log = process->log();
    EXPECT_TRUE(has(log, "loaded " + std::to_string(all.folders) + " folders, " + std::to_string(all.files) +
                             " files"))
        << log;
    for (const char *line : {"rebuild:", "create db", "using existing", "processed", "scanning"})
        EXPECT_FALSE(has(log, line)) << line;
    EXPECT_EQ(saved(), all);
}

TEST_F(ProgramWin32, ChangeOfAListIsSeen) {
    program_t process = start_built();
    process->wait_for("wait for change notification 0\n");
    write_file(folder / "list.fwl", "Filename,Size\n\"X:\\folder\\file.txt\",5\n\"X:\\folder\\new\",6\n");
    process->wait_for("filelist out of date\n");
    const ULONGLONG limit = GetTickCount64() + PATIENCE;
    while (count(process->log(), "success \n") < 2 && GetTickCount64() < limit)
        Sleep(5);
    PostMessageW(process->window(), WM_CLOSE, 0, 0);
    expect_clean(*process);
    EXPECT_EQ(count(process->log(), "using existing "), 2) << process->log(); // the volume and the folder
    all.files++;
    EXPECT_EQ(saved(), all);
}

TEST_F(ProgramWin32, EndOfTheSessionLeavesNoTimeAfterwards) {
    program_t process = start_built();
    const HWND window = process->window();
    EXPECT_TRUE(SendMessageW(window, WM_QUERYENDSESSION, 0, 0));
    SendMessageW(window, WM_ENDSESSION, FALSE, 0);
    EXPECT_EQ(saved(), std::nullopt);
    SendMessageW(window, WM_ENDSESSION, TRUE, 0);
    process.reset(); // killed
    EXPECT_EQ(saved(), all);

    // When only the program is to go, it does so by itself.
    process = start_built();
    SendMessageW(process->window(), WM_ENDSESSION, TRUE, ENDSESSION_CLOSEAPP);
    EXPECT_EQ(saved(), all);
    expect_clean(*process);
}

TEST_F(ProgramWin32, ConsoleThatClosesWaitsForTheSave) {
    for (DWORD event : {CTRL_C_EVENT, CTRL_BREAK_EVENT, CTRL_CLOSE_EVENT, CTRL_SHUTDOWN_EVENT}) {
        SCOPED_TRACE(event);
        const program_t process = start_built();
        process->send_console_event(event);
        const DWORD code = process->end();
        EXPECT_EQ(saved(), all);
        // After the others it is the system that ends the process, in the middle of what is left to do.
        if (event == CTRL_C_EVENT || event == CTRL_BREAK_EVENT)
            expect_clean(*process);
        EXPECT_NE(code, KILLED);
        const std::string log = process->log(); // a line of the watcher may stand between the two
        const size_t quit = log.find("\nquit\n");
        EXPECT_TRUE(quit != log.npos && log.find("\nshutdown\n", quit) != log.npos) << log;
    }
}

} // namespace
} // namespace findwright
