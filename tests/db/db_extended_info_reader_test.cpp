// Information that is asked for and read behind the list: what is read, what is not, and what becomes of
// reads that hang.
#include "db/db_extended_info_internal.h"
#include "db/db_file.h"
#include "db/db_folder.h"
#include "os/os_folder.h"
#include "support/slow_loader.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <thread>

using namespace findwright;

namespace {

constexpr u32 ALL_KINDS = (1u << DB_INFO_KINDS) - 1;
constexpr u32 FILE_KIND = db_info_bit(DB_INFO_KIND_FILE);
const std::string TOP = os_path_separator == '/' ? "\\top" : "C:";

using reads_t = std::vector<std::string>;

// A cache over records by hand. The loader is left with its gate open and nobody in it.
struct reader_test_t {
    db_t *db = db_create();
    db_extended_info_t *info = db_extended_info_create(db, count_proc, this);
    const db_item_t *root = add_root(DB_INDEX_TYPE_FOLDER);
    u32 events = 0;

    reader_test_t() {
        db_extended_info_set_loader(info, &slow_loader_table);
        slow_loader.take_reads();
    }
    ~reader_test_t() {
        slow_loader.open();
        if (info)
            db_extended_info_destroy(info);
        slow_loader.wait_until_idle();
        db_destroy(db);
    }
    static void count_proc(void *param) { static_cast<reader_test_t *>(param)->events++; }

    const db_item_t *add_root(db_index_type_t type) {
        db_index_t *index = db_index_alloc(type);
        _db_index_add(db, index, 0);
        return db_folder_alloc(db, index, 0, TOP.data(), static_cast<u32>(TOP.size()));
    }
    const db_item_t *add(const std::string &name, bool is_folder = false, const db_item_t *parent = nullptr) {
        parent = parent ? parent : root;
        mem_ref_t ref = mem_ref(parent);
        db_index_t *index = db_get_index(parent);
        auto length = static_cast<u32>(name.size());
        return is_folder
                   ? static_cast<const db_item_t *>(db_folder_alloc(db, index, ref, name.data(), length))
                   : db_file_alloc(db, index, ref, name.data(), length);
    }
    std::vector<const db_item_t *> add_files(u32 count) {
        std::vector<const db_item_t *> files;
        for (u32 i = 0; i < count; i++)
            files.push_back(add(std::to_string(i)));
        return files;
    }
    void request(const std::vector<const db_item_t *> &items, u32 kinds = FILE_KIND, bool is_folder = false) {
        db_extended_info_request_begin(info);
        for (const db_item_t *item : items)
            db_extended_info_request(info, item, is_folder, kinds);
        db_extended_info_request_end(info);
    }
    db_known_info_t get(const db_item_t *item, bool is_folder = false) {
        db_known_info_t known;
        db_extended_info_get_known(info, item, is_folder, ALL_KINDS, &known);
        return known;
    }
    u64 get_size(const db_item_t *item) { return get(item).file.size; }
    // What was asked for and has not been taken.
    u32 count_requests() const {
        u32 count = 0;
        for (const db_info_requests_t &requests : info->requests)
            count += requests.by_key.count;
        return count;
    }
    // Takes all that was asked for; whether anything was new.
    bool wait() {
        bool changed = false;
        while (count_requests() != 0) {
            event_wait_and_dispatch(100);
            changed |= db_extended_info_update(info);
        }
        return changed;
    }
};

reads_t sorted(reads_t reads) {
    std::sort(reads.begin(), reads.end());
    return reads;
}

reads_t file_reads(const std::vector<int> &names) {
    reads_t reads;
    for (int name : names)
        reads.push_back("file " + TOP + "\\" + std::to_string(name));
    return reads;
}

TEST(DbExtendedInfoReader, EachKindOnce) {
    reader_test_t test;
    const db_item_t *a = test.add("a.txt"), *b = test.add("b.TXT"), *tool = test.add("c.exe"),
                    *plain = test.add("plain"), *folder = test.add("dir.txt", true);
    EXPECT_EQ(test.get(a).icon_index, db_default_icon_index);
    auto ask = [&] {
        db_extended_info_request_begin(test.info);
        for (const db_item_t *item : {a, b, tool, plain, a})
            db_extended_info_request(test.info, item, false, ALL_KINDS);
        db_extended_info_request(test.info, folder, true, ALL_KINDS);
        db_extended_info_request_end(test.info);
    };
    ask();
    ask();
    EXPECT_TRUE(test.wait());
    ask();
    EXPECT_EQ(test.count_requests(), 0u);
    reads_t expected = {
        "icon txt", "icon " + TOP + "\\c.exe", "icon ", "icon " + TOP + "\\dir.txt", "type txt", "type exe",
        "type ",    "type of folders"};
    for (const char *name : {"a.txt", "b.TXT", "c.exe", "plain", "dir.txt"}) {
        expected.push_back("file " + TOP + "\\" + name);
        expected.push_back("thumbnail " + TOP + "\\" + name);
    }
    EXPECT_EQ(sorted(slow_loader.take_reads()), sorted(expected));

    EXPECT_EQ(test.get(a).icon_index, 103u);
    EXPECT_EQ(test.get(b).icon_index, 103u);
    EXPECT_EQ(test.get(tool).icon_index, 2000u);
    EXPECT_EQ(test.get(plain).icon_index, 100u);
    EXPECT_EQ(test.get(folder, true).icon_index, 1000u);
    EXPECT_STREQ(test.get(b).type_name, "txt file");
    EXPECT_STREQ(test.get(plain).type_name, "");
    EXPECT_STREQ(test.get(folder, true).type_name, "Folder");
    EXPECT_EQ(*static_cast<const std::string *>(test.get(b).thumbnail), TOP + "\\b.TXT");
    EXPECT_EQ(test.get_size(a), (TOP + "\\a.txt").size());
    db_file_info_t file = test.get(folder, true).file;
    EXPECT_EQ(file.size, VALUE_UNKNOWN);
    EXPECT_EQ(file.date_modified, 11u);
    EXPECT_EQ(file.attributes, 0x20u | OS_ATTRIBUTE_FOLDER);
    // What was read behind the list serves a search, and the other way round.
    EXPECT_TRUE(db_get_file_fileinfo(test.info, a, &file));
    EXPECT_STREQ(db_extended_info_get_type_name(test.info, "Txt", 3), "txt file");
    const db_item_t *late = test.add("late.zip");
    db_get_file_fileinfo(test.info, late, &file);
    db_extended_info_get_type_name(test.info, "zip", 3);
    slow_loader.take_reads();
    test.request({a, late}, FILE_KIND | db_info_bit(DB_INFO_KIND_TYPE_NAME));
    EXPECT_EQ(test.count_requests(), 0u);
    EXPECT_EQ(slow_loader.take_reads(), reads_t());
}

TEST(DbExtendedInfoReader, ChangesAreThoseOfTheLastBatch) {
    reader_test_t test;
    const db_item_t *a = test.add("a.x"), *b = test.add("b.x"), *gone = test.add("gone.x");
    test.request({a}, ALL_KINDS);
    EXPECT_TRUE(test.wait());
    // Kinds may come in several batches; an update that brings nothing new leaves the last one's bits.
    u32 all = test.get(a).changed;
    EXPECT_NE(all, 0u);
    EXPECT_EQ(test.get(b).changed & FILE_KIND, 0u);
    EXPECT_FALSE(db_extended_info_update(test.info));
    EXPECT_EQ(test.get(a).changed, all);
    test.request({gone}, ALL_KINDS);
    EXPECT_FALSE(test.wait());
    EXPECT_EQ(test.get(a).changed, all);
    test.request({b});
    EXPECT_TRUE(test.wait());
    EXPECT_EQ(test.get(a).changed, 0u);
    EXPECT_EQ(test.get(b).changed, FILE_KIND);

    db_known_info_t known = test.get(gone);
    for (u64 value : {known.file.size, known.file.date_modified, known.file.date_created})
        EXPECT_EQ(value, VALUE_UNKNOWN);
    EXPECT_EQ(known.file.attributes, 0u);
    EXPECT_EQ(known.thumbnail, nullptr);
    test.request({gone}, FILE_KIND | db_info_bit(DB_INFO_KIND_THUMBNAIL)); // nor is it looked for again
    EXPECT_EQ(test.count_requests(), 0u);
}

TEST(DbExtendedInfoReader, ReadsWhatIsInSight) {
    reader_test_t test;
    std::vector<const db_item_t *> files = test.add_files(400);
    auto rows = [&](size_t first, size_t count) {
        return std::vector<const db_item_t *>(files.begin() + static_cast<std::ptrdiff_t>(first),
                                              files.begin() + static_cast<std::ptrdiff_t>(first + count));
    };
    slow_loader.close();
    test.request(rows(0, 4));
    slow_loader.wait_for_reads(1); // 0 hangs
    for (size_t first = 4; first + 20 <= files.size(); first++) {
        test.request(rows(first, 20));
        EXPECT_LE(test.count_requests(), 21u); // however long it hangs
    }
    test.request(rows(2, 3));
    test.request(rows(0, 4)); // 2 and 3 keep their places
    slow_loader.open();
    EXPECT_TRUE(test.wait());
    EXPECT_EQ(slow_loader.take_reads(), file_reads({0, 2, 3, 1}));
    EXPECT_EQ(test.get_size(files[0]), TOP.size() + 2);
    EXPECT_EQ(test.get_size(files[4]), VALUE_UNKNOWN);
    // What was begun is kept, in sight or not.
    slow_loader.close();
    test.request(rows(10, 2));
    slow_loader.wait_for_reads(1);
    test.request({});
    slow_loader.open();
    EXPECT_TRUE(test.wait());
    test.request(rows(10, 2));
    EXPECT_TRUE(test.wait());
    EXPECT_EQ(slow_loader.take_reads(), file_reads({10, 11}));
}

TEST(DbExtendedInfoReader, NobodyWaitsForAReadThatHangs) {
    for (bool is_done : {false, true}) {
        reader_test_t test;
        std::vector<const db_item_t *> files = test.add_files(3);
        u32 thumbnails = slow_loader.count_thumbnails();
        slow_loader.close();
        test.request(files, ALL_KINDS);
        slow_loader.wait_for_reads(DB_INFO_KINDS);
        if (is_done) {
            slow_loader.open();
            slow_loader.wait_for_reads(8); // all have begun, so that the first ones are told of
        }
        db_extended_info_destroy(test.info); // with the gate closed
        test.info = nullptr;
        slow_loader.open();
        slow_loader.wait_until_idle();
        while (slow_loader.count_thumbnails() != thumbnails)
            std::this_thread::yield(); // the late ones are given back
        event_dispatch();
        EXPECT_EQ(test.events, 0u);
        size_t reads = slow_loader.take_reads().size();
        EXPECT_TRUE(is_done || reads == DB_INFO_KINDS) << reads; // nothing more was read
    }
}

TEST(DbExtendedInfoReader, WhatIsForgottenIsReadAgain) {
    reader_test_t test;
    std::vector<const db_item_t *> files = test.add_files(3);
    slow_loader.close();
    test.request(files);
    slow_loader.wait_for_reads(1);
    db_extended_info_clear(test.info);
    EXPECT_EQ(test.count_requests(), 0u);
    test.request({files[1]}); // by a thread of its own, which the first does not hold up
    slow_loader.wait_for_reads(2);
    slow_loader.open();
    EXPECT_TRUE(test.wait());
    EXPECT_EQ(slow_loader.take_reads(), file_reads({0, 1}));
    EXPECT_EQ(test.get_size(files[0]), VALUE_UNKNOWN);

    // Single items, in each state that a request may be in.
    test.request({files[0]}, ALL_KINDS);
    test.wait(); // known
    slow_loader.take_reads();
    slow_loader.close();
    const db_item_t *reading = test.add("reading"), *waiting = test.add("waiting"),
                    *stays = test.add("stays");
    test.request({reading, waiting, stays}, ALL_KINDS);
    slow_loader.wait_for_reads(2); // of icons and type names none is asked for again
    for (const db_item_t *item : {files[0], reading, waiting})
        db_extended_info_item_removed(test.info, item);
    EXPECT_EQ(test.get_size(files[0]), VALUE_UNKNOWN);
    EXPECT_EQ(test.get(files[0]).thumbnail, nullptr);
    slow_loader.open();
    test.wait();
    for (const db_item_t *item : {reading, waiting})
        EXPECT_EQ(test.get_size(item), VALUE_UNKNOWN);
    EXPECT_NE(test.get_size(stays), VALUE_UNKNOWN);
    for (const std::string &read : slow_loader.take_reads())
        EXPECT_EQ(read.find("waiting"), std::string::npos) << read;
    test.request({files[0], reading, waiting}, ALL_KINDS);
    EXPECT_TRUE(test.wait());
    EXPECT_EQ(slow_loader.take_reads().size(), 6u);
    EXPECT_NE(test.get_size(reading), VALUE_UNKNOWN);
}

TEST(DbExtendedInfoReader, WhatHasNoFileIsNotAskedFor) {
    reader_test_t test;
    const db_item_t *list = test.add_root(DB_INDEX_TYPE_FILE_LIST);
    const db_item_t *in_list = test.add("a.txt", false, list);
    test.request({in_list}, ALL_KINDS);
    test.request({list}, ALL_KINDS, true);
    EXPECT_EQ(test.count_requests(), 0u);
    // Of a volume from elsewhere all is unknown, and its paths reach no loader.
    const db_item_t *far = test.add_root(DB_INDEX_TYPE_NTFS);
    const_cast<char *>(reinterpret_cast<const char *>(far))[DB_ITEM_HEAD] = '?';
    test.request({test.add("b.txt", false, far)}, FILE_KIND);
    EXPECT_FALSE(test.wait());
    EXPECT_EQ(slow_loader.take_reads(), reads_t());
    // A table of the system's kind: no icons, no thumbnails.
    db_extended_info_set_loader(test.info, &db_info_system_loader);
    const db_item_t *file = test.add("c.zzq");
    test.request({file}, db_info_bit(DB_INFO_KIND_ICON) | db_info_bit(DB_INFO_KIND_THUMBNAIL));
    EXPECT_EQ(test.count_requests(), 0u);
    test.request({file}, ALL_KINDS);
    EXPECT_EQ(test.count_requests(), 2u);
    test.wait();
    EXPECT_STRNE(test.get(file).type_name, "");
}

} // namespace
