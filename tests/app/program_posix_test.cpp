// The whole program as a process: what it reads, what it keeps, and what is left of it however it ends.
#include "app/program_test_support.h"
#include "db/db_image.h"
#include "support/test_db.h"

#include <algorithm>
#include <optional>
#include <random>
#include <sys/mount.h>

namespace findwright {
namespace {

using namespace std::string_literals;

constexpr int STOP_LIMIT = 2000; // milliseconds that an end may take in the middle of a rebuild

struct counts_t {
    u32 folders, files;
    bool operator==(const counts_t &) const = default;
};

std::ostream &operator<<(std::ostream &out, const counts_t &counts) {
    return out << counts.folders << " folders, " << counts.files << " files";
}

// Of the last save that the log tells of.
counts_t saved_counts(const std::string &log) {
    counts_t counts = {};
    const size_t at = log.rfind("db_save_local ");
    if (at != std::string::npos)
        sscanf(log.c_str() + at, "db_save_local %u folders, %u files", &counts.folders, &counts.files);
    return counts;
}

// What is in a database file; nothing of one that does not load.
std::optional<counts_t> load_counts(const std::string &filename, bool compressed = false) {
    db_t *db = db_create(nullptr);
    std::optional<counts_t> counts;
    if (db_image_load(db, filename.c_str(), compressed))
        counts = {db->folder_name_array.count, db->file_name_array.count};
    db_destroy(db);
    return counts;
}

std::string list_of(u32 rows, const std::string &root = "X:") {
    std::string text = "Filename,Size\n";
    for (u32 i = 0; i < rows; i++) {
        const std::string number = std::to_string(i);
        text += '"' + root + "\\folder " + std::to_string(i / 1000) + "\\file " + number + ".txt\"," +
                number + "\n";
    }
    return text;
}

// --- Sources -----------------------------------------------------------------------------------------------

// Where the content of a rebuild came from.
struct reads_t {
    int existing, volumes, lists, folders;
    bool operator==(const reads_t &) const = default;
};

std::ostream &operator<<(std::ostream &out, const reads_t &reads) {
    return out << reads.existing << " as they were; read: " << reads.volumes << " volumes, " << reads.lists
               << " lists, " << reads.folders << " folders";
}

reads_t reads_of(const std::string &log) {
    return {program_count(log, "using existing "), program_count(log, "\nprocessed "),
            program_count(log, "\nitems "), program_count(log, "\nscanning ")};
}

// Two volumes, two lists, a folder.
class ProgramSources : public Program {
  protected:
    void SetUp() override {
        Program::SetUp();
        ASSERT_EQ(
            system(("bzip2 -dc " FINDWRIGHT_TEST_DATA "/sample.ntfs.bz2 >" + at("v1.img").string()).c_str()),
            0);
        std::filesystem::copy(at("v1.img"), at("v2.img"));
        std::filesystem::create_directories(at("lists"));
        program_write(at("lists/l1.fwl"), list_of(2, "X:"));
        program_write(at("lists/l2.fwl"), list_of(1, "Y:"));
        std::filesystem::create_directories(at("tree/sub"));
        program_write(at("tree/a.txt"), "a");
        program_write(at("tree/sub/b.txt"), "b");
        volumes = "ntfs_volume_guids=" + quoted("v1.img") + "," + quoted("v2.img") + "\n" +
                  "ntfs_volume_paths=\"C:\",\"D:\"\n";
        lists = "filelists=" + quoted("lists/l1.fwl") + "," + quoted("lists/l2.fwl") + "\n";
        tree = "folders=" + quoted("tree") + "\nfolder_monitor_changes=0\n"; // each scan is counted here
        std::ifstream sample(FINDWRIGHT_TEST_DATA "/sample.txt");
        for (std::string line; std::getline(sample, line);)
            (program_has(line, "\td\t") ? all.folders : all.files) += 2;
        all.folders += 2 + 4 + 2; // the volumes' roots, of each list the root and a folder, the tree
        all.files += 2 + 1 + 2;
    }
    // From a start to an end, in which nothing changes.
    std::string visit() {
        const program_t process = start_settled();
        return leave(process);
    }

    std::string volumes, lists, tree;
    counts_t all = {};
};

TEST_F(ProgramSources, AreReadWhenTheyMustBe) {
    set(volumes + lists + tree);
    std::string log = visit();
    EXPECT_EQ(reads_of(log), (reads_t{0, 2, 2, 1}));
    EXPECT_EQ(saved_counts(log), all);

    const program_t process = start_settled();
    log = process->log();
    EXPECT_TRUE(program_has(log, "loaded " + std::to_string(all.folders) + " folders, " +
                                     std::to_string(all.files) + " files"));
    for (const char *line : {"using existing", "Indexing", "scanning", "rebuild:", "create db"})
        EXPECT_FALSE(program_has(log, line)) << line;
    program_write(at("lists/l2.fwl"), list_of(3, "Y:"));
    process->wait_for("filelist out of date\n");
    process->wait_for("success \n");
    EXPECT_EQ(reads_of(process->last), (reads_t{4, 0, 1, 0}));
    all.files += 2;
    EXPECT_EQ(saved_counts(leave(process)), all);

    struct row_t {
        std::string settings;
        const char *reason;
        reads_t reads;
        counts_t counts;
    };
    const counts_t less = {all.folders - 1, all.files - 2};
    const row_t rows[] = {
        {volumes + lists + tree + "index_size=0\n", "rebuild: flags changed\n", {5, 0, 0, 0}, all},
        {volumes + lists + tree, "rebuild: flags changed\n", {0, 2, 2, 1}, all},
        {volumes + lists + tree + "exclude_folders=\"X:\\\\folder 0\"\n",
         "rebuild: excludes changed\n",
         {5, 0, 0, 0},
         less},
        {volumes + lists + tree, "rebuild: excludes changed\n", {0, 2, 2, 1}, all},
        {volumes + lists, "rebuild: index removed\n", {4, 0, 0, 0}, {all.folders - 2, all.files - 2}},
        {volumes + lists + tree, "rebuild: new", {4, 0, 0, 1}, all},
        {volumes + lists + tree, nullptr, {0, 0, 0, 0}, all},
    };
    for (const row_t &row : rows) {
        SCOPED_TRACE(row.settings);
        set(row.settings);
        log = visit();
        EXPECT_EQ(program_count(log, "\nrebuild: "), row.reason ? 1 : 0);
        EXPECT_TRUE(!row.reason || program_has(log, row.reason)) << log;
        EXPECT_EQ(reads_of(log), row.reads);
        EXPECT_EQ(saved_counts(log), row.counts);
        EXPECT_EQ(load_counts(folder / "data\\findwright\\Findwright.db"), row.counts);
    }
}

// --- Ends --------------------------------------------------------------------------------------------------

TEST_F(Program, EndsInOrderWhoeverAsks) {
    for (int signal : {SIGTERM, SIGINT, SIGHUP, 0}) {
        SCOPED_TRACE(signal);
        set("filelists=" + quoted("l.fwl") + "\nindex_date_created=1\n");
        program_write(at("l.fwl"), list_of(10));
        std::filesystem::remove(database());
        const program_t process = start_settled();
        if (signal)
            EXPECT_EQ(process->end(signal), 0);
        else
            run({"-exit"}, 0);
        EXPECT_EQ(process->end(), 0);
        EXPECT_TRUE(is_clean(process->log())) << process->log();
        EXPECT_EQ(load_counts(folder / "data\\findwright\\Findwright.db"), (counts_t{2, 10}));
        EXPECT_TRUE(program_has(program_read(settings()), "\nindex_date_created=1\r\n"));
        EXPECT_TRUE(program_has(program_read(settings()), "\nindex_date_modified=")); // not only what was set
        EXPECT_FALSE(std::filesystem::exists(at("run/findwright.socket")));
    }
}

// A list that takes seconds to read.
TEST_F(Program, EndInTheMiddleOfARebuildKeepsTheOldDatabase) {
    set("filelists=" + quoted("l.fwl") + "\n");
    program_write(at("l.fwl"), list_of(10));
    leave(start_settled());
    const std::string before = program_read(database());
    std::string rows = list_of(20000); // which are others each time
    rows.erase(0, rows.find('\n') + 1);
    std::string large = list_of(0);
    for (u32 i = 0; i < 100; i++)
        large += rows;
    program_write(at("l.fwl"), large);
    const program_t process = start_app();
    process->wait_for("filelist out of date\n");
    process->wait_for("create db...\n");
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    EXPECT_EQ(process->end(SIGTERM, STOP_LIMIT), 0);
    process->wait_for("quit\n");
    EXPECT_FALSE(program_has(process->last, "success"));
    EXPECT_FALSE(program_has(process->log(), "db_save_local"));
    EXPECT_TRUE(is_clean(process->log())) << process->log();
    EXPECT_TRUE(program_read(database()) == before);
    // The next start takes it up again.
    program_write(at("l.fwl"), list_of(20));
    EXPECT_EQ(saved_counts(leave(start_settled())), (counts_t{2, 20}));
}

// --- Killed in a save --------------------------------------------------------------------------------------

// Tries of saving two databases in turn, each killed at any moment, or not at all. Between the tries the file
// must be one of the two to the last byte.
void expect_kills_harmless(bool compressed, u32 tries, std::minstd_rand *random) {
    const temp_folder_t folder;
    const std::string filename = folder / "Findwright.db";
    const program_path_t path = folder.path / "Findwright.db";
    std::string images[2];
    db_t *dbs[2];
    std::vector<std::string> paths;
    for (u32 i = 0; i < 10000; i++)
        paths.push_back("folder " + std::to_string(i / 100) + "\\file " + std::to_string(i * 7919));
    for (u32 i : {0u, 1u}) {
        dbs[i] = test_db_create({test_volume_from_paths(paths)}, DB_FLAG_SIZE | DB_FLAG_FAST_SIZE);
        paths.resize(9000);
        ASSERT_TRUE(db_image_save(dbs[i], filename.c_str(), compressed));
        images[i] = program_read(path);
        EXPECT_TRUE(load_counts(filename, compressed).has_value());
    }
    u32 delay_limit = 10000; // microseconds; it settles where about half of the saves come to their end
    u32 killed_on_the_way = 0, changed = 0;
    std::string before = images[1];
    for (u32 i = 0; i < tries; i++) {
        int ready[2];
        ASSERT_EQ(pipe(ready), 0);
        const pid_t child = fork();
        if (child == 0) {
            const ssize_t written = write(ready[1], "x", 1);
            _exit(written == 1 && db_image_save(dbs[i % 2], filename.c_str(), compressed) ? 0 : 1);
        }
        char byte;
        EXPECT_EQ(read(ready[0], &byte, 1), 1);
        std::this_thread::sleep_for(std::chrono::microseconds((*random)() % delay_limit));
        kill(child, SIGKILL);
        int status;
        waitpid(child, &status, 0);
        close(ready[0]);
        close(ready[1]);
        ASSERT_TRUE(WIFSIGNALED(status) || WEXITSTATUS(status) == 0);
        delay_limit = delay_limit * (WIFSIGNALED(status) ? 9 : 7) / 8 + 1;
        killed_on_the_way +=
            WIFSIGNALED(status) && std::filesystem::exists(folder.path / "Findwright.db.tmp");
        const std::string after = program_read(path);
        ASSERT_TRUE(after == before || after == images[i % 2]) << i << ": " << after.size();
        changed += after != before;
        before = after;
    }
    EXPECT_NE(killed_on_the_way, 0u);
    EXPECT_NE(changed, 0u);
    // What the kills have left behind is in nobody's way.
    program_write(folder.path / "Findwright.db.tmp", std::string(before.size() * 2, 'x'));
    EXPECT_TRUE(db_image_save(dbs[1], filename.c_str(), compressed));
    EXPECT_TRUE(program_read(path) == images[1]);
    EXPECT_FALSE(std::filesystem::exists(folder.path / "Findwright.db.tmp"));
    for (db_t *db : dbs)
        db_destroy(db);
}

TEST(ProgramKilled, SaveIsAllOrNothing) {
    std::minstd_rand random(20);
    expect_kills_harmless(false, 150, &random);
    expect_kills_harmless(true, 50, &random);
}

TEST_F(Program, KilledInASaveLeavesADatabase) {
    constexpr u32 TRIES = 10;
    std::minstd_rand random(30);
    set("filelists=" + quoted("l.fwl") + "\n");
    const u32 rows[] = {10000, 9000};
    std::optional<counts_t> before;
    for (u32 i = 0; i < TRIES; i++) {
        program_write(at("l.fwl"), list_of(rows[i % 2]));
        const program_t process = start_app({"-reindex"});
        process->wait_for("success \n");
        if (i == 0) {
            leave(process);
            before = load_counts(folder / "data\\findwright\\Findwright.db");
            ASSERT_EQ(before, (counts_t{11, rows[0]}));
            continue;
        }
        const int peer = send_line("-update");
        std::this_thread::sleep_for(std::chrono::microseconds(random() % 20000));
        EXPECT_EQ(process->end(SIGKILL), PROGRAM_KILLED + SIGKILL);
        close(peer);
        const auto after = load_counts(folder / "data\\findwright\\Findwright.db");
        const counts_t wanted = {i % 2 ? 10u : 11u, rows[i % 2]};
        ASSERT_TRUE(after.has_value()) << i;
        EXPECT_TRUE(*after == *before || *after == wanted) << *after;
        before = after;
    }
    // The lock and the socket of the dead do not keep the next one from its work.
    program_write(at("l.fwl"), list_of(5));
    EXPECT_EQ(saved_counts(leave(start_settled())), (counts_t{2, 5}));
}

// --- Places that cannot be written -------------------------------------------------------------------------

// A file system of 64 KiB; where the system does not give us one, nothing.
struct small_disk_t {
    explicit small_disk_t(const program_path_t &folder) : path(folder) {
        std::filesystem::create_directories(path);
        is_mounted = mount("none", path.c_str(), "tmpfs", 0, "size=64k") == 0;
    }
    ~small_disk_t() {
        if (is_mounted)
            umount2(path.c_str(), MNT_DETACH);
    }
    program_path_t path;
    bool is_mounted;
};

TEST_F(Program, SaveThatFailsLeavesTheOldDatabaseAndSaysWhy) {
    const small_disk_t disk(at("disk"));
    struct row_t {
        const char *filename, *reason;
        bool is_disk;
        u64 limit;
    };
    const row_t rows[] = {
        {"disk/deep/Findwright.db", "No space left on device", true, 0},
        {"other/Findwright.db", "File too large", false, 64 * 1024},
    };
    for (const row_t &row : rows) {
        SCOPED_TRACE(row.filename);
        if (row.is_disk && !disk.is_mounted)
            continue;
        set("filelists=" + quoted("l.fwl") + "\n");
        program_write(at("l.fwl"), list_of(10));
        const std::string filename = at(row.filename).string();
        program_t process = start_settled({"-db", filename});
        leave(process);
        const std::string before = program_read(filename);
        EXPECT_EQ(before.substr(0, 4), "FWDb");
        program_write(at("l.fwl"), list_of(20000));
        program_start_t how;
        how.file_size_limit = row.limit;
        process = start_app({"-db", filename}, how);
        process->wait_for("success \n");
        run({"-update"}, 0);
        const std::string message = "cannot save the database to " + filename + ": " + row.reason + "\n";
        process->wait_for(message);
        EXPECT_EQ(process->end(SIGTERM), 1);
        EXPECT_EQ(program_count(process->log(), message), 2) << process->log(); // then, and at the end
        EXPECT_TRUE(is_clean(process->log()));
        EXPECT_TRUE(program_read(filename) == before);
        EXPECT_FALSE(std::filesystem::exists(filename + ".tmp"));
        EXPECT_TRUE(program_has(program_read(settings()), "index_size=1")); // these are saved all the same
    }
}

TEST_F(Program, FilesOfTheCommandLine) {
    program_write(at("l.fwl"), list_of(10));
    program_write(at("mine.ini"),
                  "[Findwright]\nfilelists=" + quoted("l.fwl") + "\nauto_include_fixed_volumes=0\n");
    program_start_t how;
    how.directory = folder.path;
    program_t process = start_settled({"-config", "mine.ini", "-db", "new/mine.db"}, how);
    leave(process);
    EXPECT_EQ(load_counts(folder / "new\\mine.db"), (counts_t{2, 10}));
    EXPECT_TRUE(program_has(program_read(at("mine.ini")),
                            "index_date_modified=")); // saved, with all that it can hold
    EXPECT_FALSE(std::filesystem::exists(database()));
    EXPECT_FALSE(std::filesystem::exists(settings()));
    // They are replaced, not written over: who has the old ones open keeps them.
    std::filesystem::create_hard_link(at("new/mine.db"), at("old.db"));
    std::filesystem::create_hard_link(at("mine.ini"), at("old.ini"));
    const std::string old_db = program_read(at("old.db"));
    program_write(at("l.fwl"), list_of(30));
    process = start_settled({"-config", "mine.ini", "-db", "new/mine.db"}, how);
    leave(process);
    EXPECT_EQ(load_counts(folder / "new\\mine.db"), (counts_t{2, 30}));
    EXPECT_TRUE(program_read(at("old.db")) == old_db);
    EXPECT_FALSE(std::filesystem::equivalent(at("old.ini"), at("mine.ini")));

    // A file stands where a folder should.
    struct row_t {
        std::vector<std::string> arguments;
        std::string message;
        int code;
    };
    const std::string place = (at("l.fwl") / "x" / "f").string();
    for (const row_t &row :
         {row_t{{"-db", place}, "cannot save the database to " + place + ": Not a directory\n", 1},
          row_t{{"-config", place}, "Unable to write " + place + ": Not a directory\n", 1}}) {
        process = start_app(row.arguments);
        process->wait_for("enter main loop\n");
        process->wait_for("success \n");
        EXPECT_EQ(process->end(SIGTERM), row.code);
        EXPECT_TRUE(program_has(process->log(), "\n" + row.message)) << process->log();
        EXPECT_TRUE(is_clean(process->log()));
    }
}

// --- Settings ----------------------------------------------------------------------------------------------

TEST_F(Program, BrokenSettingsAreToldOfAndMended) {
    set("no setting at all\n"
        "index_size=99999999999\n"
        "max_threads=many\n"
        "fast_size_sort=7 of 9\n"
        "unheard_of=1\n"
        "normal_bold=x\n"
        "normal_foreground_color=red\n"
        "filelists=\"/none/1.fwl\",\"\",\"/none/2.fwl\"\n"
        "filelist_monitor_changes=0\n"
        "folders=\"/none\"\n"
        "folder_buffer_size_list=1,2,3\n"
        "index_date_created=1\n"
        "index_date_created=0\n"
        "\xFF\xFE\x01=\x02\n"
        "[Other]\nindex_size=0\n");
    const program_t broken = start_app();
    broken->wait_for("success \n");
    const std::string log = leave(broken);
    const std::string at_line = "settings: " + folder.name + "\\config\\findwright\\Findwright.ini, line ";
    for (const char *problem : {
             "3: no setting, passed over",
             "4: index_size: 99999999999 is not from ",
             "5: max_threads: \"many\" is no number, taken for 0",
             "6: fast_size_sort: \"7 of 9\" is no number, taken for 7",
             "7: unknown key unheard_of, passed over",
             "8: normal_bold: \"x\" is no number, taken for 0",
             "9: normal_foreground_color: \"red\" is no colour, kept what was",
             "10: filelists: an entry is empty, dropped",
             "10: lists shorter than filelists, filled with defaults",
             "12: folder_buffer_size_list is longer than folders, the rest is passed over",
             "15: index_date_created stands above already, passed over",
             "16: unknown key \xFF\xFE\x01, passed over",
         })
        EXPECT_EQ(program_count(log, at_line + problem), 1) << problem << "\n" << log;
    const std::string saved = program_read(settings());
    for (const char *line : {"index_size=1", "fast_size_sort=7", "index_date_created=1",
                             "filelists=\"/none/1.fwl\",\"/none/2.fwl\"", "filelist_monitor_changes=0,1",
                             "folder_buffer_size_list=1"})
        EXPECT_EQ(program_count(saved, "\n" + std::string(line) + "\r\n"), 1) << line;
    const program_t mended = start_app();
    mended->wait_for("loaded ");
    EXPECT_EQ(program_count(leave(mended), "settings: "), 0) << mended->log();
    EXPECT_EQ(program_read(settings()), saved);
}

// --- Database files that do not fit ------------------------------------------------------------------------

TEST_F(Program, DatabaseIsRebuiltWhenItsFileIsNoGood) {
    program_write(at("l.fwl"), list_of(1000));
    set("filelists=" + quoted("l.fwl") + "\n");
    leave(start_settled());
    const std::string good = program_read(database());
    const counts_t counts = {2, 1000};
    std::string flipped = good; // in the tables, which must hold each item once
    flipped[flipped.size() - 1000] = static_cast<char>(flipped[flipped.size() - 1000] ^ 1);
    const std::string settings_text = program_read(settings());
    for (const std::string &damaged : {flipped, good.substr(0, good.size() / 2), std::string(), "x" + good}) {
        program_write(database(), damaged);
        const std::string log = leave(start_settled());
        EXPECT_TRUE(program_has(log, "\nloaded 0 folders, 0 files")) << log;
        EXPECT_EQ(reads_of(log), (reads_t{0, 0, 1, 0}));
        EXPECT_TRUE(program_read(database()) == good);
        EXPECT_EQ(program_read(settings()), settings_text);
    }
    for (bool compressed : {true, false}) {
        set("filelists=" + quoted("l.fwl") + (compressed ? "\ndb_compress=1\n" : "\n"));
        EXPECT_EQ(reads_of(leave(start_settled())), (reads_t{0, 0, 1, 0}));
        EXPECT_EQ(program_read(database()).substr(0, 3), compressed ? "BZh" : "FWD");
        EXPECT_EQ(load_counts(folder / "data\\findwright\\Findwright.db", compressed), counts);
        EXPECT_EQ(reads_of(leave(start_settled())), (reads_t{0, 0, 0, 0}));
    }
}

TEST_F(Program, WithoutWritingADatabase) {
    program_write(at("l.fwl"), list_of(10));
    set("filelists=" + quoted("l.fwl") + "\n");
    program_t process = start_app({"-no-db"});
    process->wait_for("success \n");
    EXPECT_TRUE(hand_over("-update"));
    leave(process);
    EXPECT_FALSE(std::filesystem::exists(database()));
    leave(start_settled());
    const std::string good = program_read(database());

    program_write(at("l.fwl"), list_of(20));
    set("filelists=" + quoted("l.fwl") + "\nindex_size=0\n");
    process = start_app({"-no-db"});
    process->wait_for("success \n");
    EXPECT_FALSE(program_has(leave(process), "loaded 2 folders")); // what is there is not looked at
    EXPECT_TRUE(program_read(database()) == good);

    process = start_app({"-read-only"});
    process->wait_for("loaded 2 folders, 10 files");
    program_write(at("l.fwl"), list_of(30));
    EXPECT_TRUE(hand_over("-reindex"));
    EXPECT_TRUE(hand_over("-update"));
    std::this_thread::sleep_for(std::chrono::milliseconds(500)); // a watch waits for half of it
    const std::string log = leave(process);
    for (const char *line : {"rebuild:", "create db", "check for file list changes", "db_save_local"})
        EXPECT_FALSE(program_has(log, line)) << log;
    EXPECT_TRUE(program_read(database()) == good);
}

// --- What a switch does ------------------------------------------------------------------------------------

TEST_F(Program, FileListsThatCannotBeRead) {
    set("");
    program_write(at("bad.fwl"), "Name,Size\nx,1\n");
    program_write(at("good.fwl"), list_of(3));
    const program_t process = start_app({"-filelist", at("bad.fwl").string()});
    process->wait_for("Unable to open file list: " + at("bad.fwl").string() + " is not a valid file list.\n");
    EXPECT_TRUE(hand_over("-filelist " + quoted("none.fwl")));
    process->wait_for("Unable to open file list: " + at("none.fwl").string() + " not found.\n");
    EXPECT_TRUE(hand_over(quoted("good.fwl"))); // in place of the other
    process->wait_for("items 3\n");
    process->wait_for("success \n");
    const std::string log = leave(process);
    EXPECT_EQ(program_count(log, "Unable to open"), 2) << log;
    EXPECT_EQ(saved_counts(log), (counts_t{0, 0})); // a list that is looked at does not come into the index
}

// The names of a list, in its order.
std::vector<std::string> names_of(const std::string &list) {
    std::vector<std::string> names;
    std::istringstream lines(list);
    for (std::string line; std::getline(lines, line);) {
        if (line[0] == '"')
            names.push_back(line.substr(1, line.find('"', 1) - 1));
    }
    std::sort(names.begin(), names.end());
    return names;
}

TEST_F(Program, WritesAFileListOfAFolder) {
    std::filesystem::create_directories(at("tree/sub/empty"));
    for (const char *name : {"tree/a.txt", "tree/sub/b, c.txt", "tree/sub/\xC3\xA4.txt"})
        program_write(at(name), "text");
    program_start_t how;
    how.directory = folder.path;
    const std::vector<std::string> parts = {"a.txt", "sub", "sub/b, c.txt", "sub/empty", "sub/\xC3\xA4.txt"};
    struct row_t {
        const char *settings, *prefix;
    };
    const std::string full = at("tree").string() + "/";
    for (const row_t &row : {row_t{"", full.c_str()}, row_t{"file_list_relative_paths=1\n", "tree/"}}) {
        set(row.settings);
        const program_t process = run({"-create-file-list", "list.fwl", "tree"}, 0, how);
        EXPECT_EQ(process->log() + process->out(), "");
        std::vector<std::string> expected;
        for (const std::string &part : parts)
            expected.push_back(row.prefix + part);
        EXPECT_EQ(names_of(program_read(at("list.fwl"))), expected);
        // It is a list that can be read again.
        const program_t reader = start_app({"list.fwl"}, how);
        reader->wait_for("items 5\n");
        leave(reader);
    }
    const std::string before = program_read(at("list.fwl"));
    const program_t process = run({"-create-file-list", "list.fwl", "none"}, 1, how);
    EXPECT_TRUE(program_has(process->log(), at("none").string() + ": No such file or directory"))
        << process->log();
    EXPECT_EQ(program_read(at("list.fwl")), before);
}

TEST_F(Program, HelpAndSwitchesThatLackSomething) {
    program_t process = run({"-help"}, 0);
    EXPECT_EQ(process->log(), "");
    EXPECT_TRUE(
        program_has(process->out(), "\n  -create-file-list <file> <folder>\n      write the contents"));
    EXPECT_TRUE(program_has(process->out(), "\n  -[no-]first-instance\n"));
    const std::string help = process->out();
    for (const char *wrong : {"--no-such-switch", "-db"}) {
        process = run({wrong}, 1);
        EXPECT_EQ(process->out(), help);
        EXPECT_TRUE(program_has(process->log(), "is unknown, or lacks what must stand behind it")) << wrong;
    }
    process = run({"-search", "x", "-update"}, 1);
    EXPECT_EQ(process->log(), "-search: needs search windows, which this build does not have\n");
    process = run({"-install-service"}, 1);
    EXPECT_EQ(process->log(),
              "-install-service: needs the privileged service, which this build does not have\n");
    EXPECT_FALSE(std::filesystem::exists(at("run/findwright.lock"))); // none of them came so far
    EXPECT_FALSE(std::filesystem::exists(database()));
}

TEST_F(Program, SpeaksALanguageOfItsPack) {
    program_start_t how;
    how.program = at("findwright");
    std::filesystem::copy_file(FINDWRIGHT_PROGRAM, how.program);
    std::filesystem::copy_file(FINDWRIGHT_TEST_DATA "/../../data/lang/Findwright.lng", at("Findwright.lng"));
    const std::string german = "Befehlszeilenoptionen", english = "Command Line Options";
    EXPECT_EQ(run({"-help"}, 0, how)->out().find(english), 0u);
    EXPECT_EQ(run({"-help", "-language", "1031"}, 0, how)->out().find(german), 0u);
    EXPECT_EQ(run({"-help"}, 0, how)->out().find(german), 0u); // it has been written down
    EXPECT_EQ(run({"-search", "x"}, 1, how)->log(),
              "-search: braucht Suchfenster; das fehlt in dieser Ausgabe\n");
    EXPECT_EQ(run({"-help", "-language", "1033"}, 0, how)->out().find(english), 0u);
}

// --- Instances ---------------------------------------------------------------------------------------------

TEST_F(Program, InstancesRunSideBySide) {
    program_write(at("l.fwl"), list_of(10));
    const std::string list = "auto_include_fixed_volumes=0\nfilelists=" + quoted("l.fwl") + "\n";
    for (const char *name : {"a", "b"})
        program_write(at("config/findwright/Findwright-"s + name + ".ini"), "[Findwright]\n" + list);
    const program_t a = start_settled({"-instance", "a"});
    const program_t b = start_settled({"-instance", "b"});
    // Each command line goes to its own one, and nobody waits.
    const auto begin = program_clock_t::now();
    run({"-instance", "a", "-update"}, 0);
    EXPECT_LT(program_clock_t::now() - begin, std::chrono::seconds(1));
    a->wait_for("saved db");
    EXPECT_FALSE(program_has(b->log(), "command line "));
    EXPECT_TRUE(std::filesystem::exists(at("data/findwright/Findwright-a.db")));
    EXPECT_FALSE(std::filesystem::exists(at("data/findwright/Findwright-b.db")));
    run({"-instance", "a", "-first-instance"}, 1);
    run({"-instance", "b", "-no-first-instance", "-exit"}, 0);
    EXPECT_EQ(b->end(), 0);
    EXPECT_TRUE(std::filesystem::exists(at("data/findwright/Findwright-b.db")));
    EXPECT_FALSE(a->has_ended());
    leave(a, "a");
    run({"-instance", "a", "-no-first-instance", "-update"}, 0);
    EXPECT_FALSE(std::filesystem::exists(database()));
}

} // namespace
} // namespace findwright
