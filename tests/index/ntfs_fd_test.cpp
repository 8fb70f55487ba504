// One file's data by its reference number, from the volume itself and through a driver.
#include "support/ntfs_items.h"

namespace findwright {
namespace {

constexpr u64 FIRST = 24;

db_file_info_t get_fd(const ntfs_build_bytes_t &image, u64 frn) {
    os_volume_t *volume = os_volume_open_memory(image.data(), image.size());
    db_file_info_t fd;
    ntfs_get_fd(volume, frn, &fd);
    os_volume_close(volume);
    return fd;
}

bool is_cleared(const db_file_info_t &fd) {
    return fd.size == VALUE_UNKNOWN && fd.date_modified == VALUE_UNKNOWN &&
           fd.date_created == VALUE_UNKNOWN && fd.date_accessed == VALUE_UNKNOWN && fd.attributes == 0;
}

ntfs_build_bytes_t data(u64 size, u64 vcn = 0) {
    return ntfs_build_non_resident_attribute(0x80, size, ntfs_build_pairs({}), vcn);
}

// Records of every kind that the search tells apart.
ntfs_builder_t fd_volume() {
    ntfs_builder_t builder;
    ntfs_build_root(&builder);
    ntfs_build_file(&builder, 24, NTFS_FRN_ROOT, u"plain", 4321)->sequence = 7;
    ntfs_build_folder(&builder, 25, NTFS_FRN_ROOT, u"folder");
    ntfs_build_file(&builder, 26, NTFS_FRN_ROOT, u"deleted", 1)->flags = 0;
    // Its data lies in another record; a stream in a third one comes first in the list's order of records.
    builder.records[27].attributes = {ntfs_build_standard_information(0x21),
                                      ntfs_build_attribute_list({{0x10, ntfs_build_frn(27)},
                                                                 {0x30, ntfs_build_frn(27)},
                                                                 {0x80, ntfs_build_frn(31), 0, u"stream"},
                                                                 {0x80, ntfs_build_frn(30)},
                                                                 {0x80, ntfs_build_frn(29), 5}}),
                                      ntfs_build_file_name(NTFS_FRN_ROOT, u"in parts")};
    ntfs_build_extension(&builder, 29, ntfs_build_frn(27), {data(1, 5)});
    ntfs_build_extension(&builder, 30, ntfs_build_frn(27), {data(987654321)});
    ntfs_build_extension(&builder, 31, ntfs_build_frn(27), {ntfs_build_resident_data(3, u"stream")});
    // Its data is its own, though it has a list.
    builder.records[32].attributes = {
        ntfs_build_standard_information(0x20),
        ntfs_build_attribute_list({{0x80, ntfs_build_frn(32)}, {0x80, ntfs_build_frn(31), 9}}),
        ntfs_build_resident_data(55)};
    // No data at all, and no dates at all.
    builder.records[33].attributes = {ntfs_build_standard_information(0x20),
                                      ntfs_build_file_name(NTFS_FRN_ROOT, u"x")};
    builder.records[34].attributes = {ntfs_build_resident_data(9)};
    // Two records whose lists send the search to each other.
    for (u64 index : {35, 36}) {
        builder.records[index].attributes = {ntfs_build_standard_information(0x20),
                                             ntfs_build_attribute_list({{0x80, ntfs_build_frn(71 - index)}})};
        builder.records[index].base_frn = ntfs_build_frn(71 - index);
    }
    // A list that points to a record that was used again since.
    builder.records[37].attributes = {ntfs_build_standard_information(0x20),
                                      ntfs_build_attribute_list({{0x80, ntfs_build_frn(30, 2)}})};
    // A damaged list: an entry of no length.
    ntfs_build_bytes_t list = ntfs_build_list_value({{0x30, ntfs_build_frn(38)}, {0x80, ntfs_build_frn(30)}});
    ntfs_build_put(&list, 4, 0, 2);
    builder.records[38].attributes = {ntfs_build_standard_information(0x20),
                                      ntfs_build_resident_attribute(0x20, list),
                                      ntfs_build_resident_data(66)};
    return builder;
}

struct fd_case_t {
    const char *name;
    u64 frn;
    bool found;
    u64 size;
    u32 attributes;
};

const fd_case_t FD_CASES[] = {
    {"plain file", ntfs_build_frn(24, 7), true, 4321, 0x20},
    {"the same record, another file", ntfs_build_frn(24, 6), false, 0, 0},
    {"folder", ntfs_build_frn(25), true, VALUE_UNKNOWN, 0x10},
    {"root", NTFS_FRN_ROOT, true, VALUE_UNKNOWN, 0x10},
    {"deleted file", ntfs_build_frn(26), false, 0, 0},
    {"record never used", ntfs_build_frn(28), false, 0, 0},
    {"record behind the table", ntfs_build_frn(1000), false, 0, 0},
    {"record far behind the table", ntfs_build_frn(NTFS_FRN_INDEX_MASK), false, 0, 0},
    {"data in another record", ntfs_build_frn(27), true, 987654321, 0x21},
    {"extension with the data", ntfs_build_frn(30), true, 987654321, 0x21},
    {"extension without", ntfs_build_frn(31), true, 987654321, 0x21},
    {"data in the base, with a list", ntfs_build_frn(32), true, 55, 0x20},
    {"no data", ntfs_build_frn(33), false, 0, 0},
    {"no dates", ntfs_build_frn(34), false, 0, 0},
    {"circle of lists", ntfs_build_frn(35), false, 0, 0},
    {"list out of date", ntfs_build_frn(37), false, 0, 0},
    {"damaged list", ntfs_build_frn(38), true, 66, 0x20},
};

void expect_case(const fd_case_t &test, const db_file_info_t &fd) {
    SCOPED_TRACE(test.name);
    EXPECT_EQ(is_cleared(fd), !test.found);
    if (test.found) {
        EXPECT_EQ(fd.size, test.size);
        EXPECT_EQ(fd.attributes, test.attributes);
        EXPECT_EQ(fd.date_created, NTFS_BUILD_CREATED);
        EXPECT_EQ(fd.date_modified, NTFS_BUILD_MODIFIED);
        EXPECT_EQ(fd.date_accessed, NTFS_BUILD_ACCESSED);
    }
}

TEST(NtfsFd, FindsAFilesDataInAnImage) {
    const ntfs_builder_t builder = fd_volume();
    const ntfs_build_bytes_t image = ntfs_build_image(&builder);
    for (const fd_case_t &test : FD_CASES) {
        expect_case(test, get_fd(image, test.frn));
    }
}

// A driver gives the record in use at or below the one asked for, its fix-up done.
TEST(NtfsFd, FindsAFilesDataThroughADriver) {
    const ntfs_builder_t builder = fd_volume();
    ntfs_scripted_t script;
    script.has_driver = true;
    script.get_record = [&builder](u64 index, u64 *reference, u8 *bytes) {
        auto record = builder.records.upper_bound(index);
        do {
            if (record == builder.records.begin()) {
                return false;
            }
            --record;
        } while (!(record->second.flags & 1));
        ntfs_build_bytes_t found = ntfs_build_record_bytes(&builder, record->second);
        for (u32 block = 0; block < 2; block++) {
            memcpy(found.data() + 510 + block * 512, found.data() + 50 + block * 2, 2);
        }
        memcpy(bytes, found.data(), found.size());
        *reference = ntfs_build_frn(record->first, record->second.sequence);
        return true;
    };
    os_volume_t *volume = ntfs_open_scripted(&script);
    for (const fd_case_t &test : FD_CASES) {
        db_file_info_t fd;
        ntfs_get_fd(volume, test.frn, &fd);
        expect_case(test, fd);
    }
    os_volume_close(volume);
}

TEST(NtfsFd, TellsWhenADriverFails) {
    struct {
        os_ntfs_volume_data_t data;
        const char *log;
    } const CASES[] = {{{0, 0}, "FSCTL_GET_NTFS_VOLUME_DATA failed "},
                       {{4096, 42}, "bad BytesPerFileRecordSegment 42\n"},
                       {{4096, 131072}, "bad BytesPerFileRecordSegment 131072\n"},
                       {{4096, 1024}, "FSCTL_GET_NTFS_FILE_RECORD failed "}};
    for (const auto &test : CASES) {
        ntfs_scripted_t script;
        script.has_driver = true;
        script.data = test.data;
        script.get_record = [](u64, u64 *, u8 *) { return false; };
        os_volume_t *volume = ntfs_open_scripted(&script);
        log_scope_t log;
        db_file_info_t fd;
        ntfs_get_fd(volume, ntfs_build_frn(24), &fd);
        EXPECT_TRUE(is_cleared(fd));
        EXPECT_NE(log.text().find(test.log), std::string::npos) << log.text();
        os_volume_close(volume);
    }
}

// A list too long for its record lies in clusters of its own.
TEST(NtfsFd, ReadsANonResidentList) {
    ntfs_builder_t builder;
    builder.cluster_size = 512;
    builder.volume_clusters = 400;
    std::vector<ntfs_build_list_entry_t> entries(60, {0x30, ntfs_build_frn(24)});
    entries.push_back({0x80, ntfs_build_frn(26)});
    const ntfs_build_bytes_t list = ntfs_build_list_value(entries);
    const std::vector<ntfs_build_run_t> runs = {{2, 300}, {2, 200}};
    builder.records[24].attributes = {
        ntfs_build_standard_information(0x20),
        ntfs_build_non_resident_attribute(0x20, list.size(), ntfs_build_pairs(runs))};
    ntfs_build_extension(&builder, 26, ntfs_build_frn(24), {data(77)});
    ntfs_build_bytes_t image = ntfs_build_image(&builder);
    ASSERT_GT(list.size(), 1024u);
    memcpy(image.data() + 300 * 512, list.data(), 1024);
    memcpy(image.data() + 200 * 512, list.data() + 1024, list.size() - 1024);
    EXPECT_EQ(get_fd(image, ntfs_build_frn(24)).size, 77u);
    EXPECT_EQ(get_fd(image, ntfs_build_frn(26)).size, 77u);
    // Clusters that are not there, and a size that no list has.
    image.resize(250 * 512);
    EXPECT_TRUE(is_cleared(get_fd(image, ntfs_build_frn(24))));
    builder.records[24].attributes[1] =
        ntfs_build_non_resident_attribute(0x20, ~0ull, ntfs_build_pairs({{1ull << 40, 300}}));
    EXPECT_TRUE(is_cleared(get_fd(ntfs_build_image(&builder), ntfs_build_frn(24))));
}

// The same records in a table that lies in pieces, which record 0 and two extension records tell of.
TEST(NtfsFd, FindsARecordWhereverTheTableLies) {
    ntfs_builder_t builder;
    builder.cluster_size = 512;
    builder.table_runs = {{70, 60}, {3, 0, true}, {21, 8}, {31, 200}, {20, 150}};
    builder.table_extensions = {{16, 3, 1}, {50, 4, 1}};
    for (u64 i = FIRST; i < 71; i++) {
        if (i != 50) {
            ntfs_build_file(&builder, i, NTFS_FRN_ROOT, u"x", 1000 + i);
        }
    }
    const ntfs_build_bytes_t image = ntfs_build_image(&builder);
    for (u64 i = FIRST; i < 71; i++) {
        const db_file_info_t fd = get_fd(image, ntfs_build_frn(i));
        // The data of an extension of the table is the table.
        EXPECT_EQ(fd.size, i == 50 ? 71 * 1024 : 1000 + i) << i;
    }
    const ntfs_items_t read = ntfs_read_items(image);
    EXPECT_EQ(read.items.size(), 46u);
}

TEST(NtfsFd, IsClearedWhenTheVolumeCannotBeRead) {
    ntfs_builder_t builder = fd_volume();
    const ntfs_build_bytes_t image = ntfs_build_image(&builder);
    ntfs_build_bytes_t damaged = image;
    damaged[3] = 'X';
    EXPECT_TRUE(is_cleared(get_fd(damaged, ntfs_build_frn(24, 7))));
    damaged = image;
    damaged[ntfs_build_record_offset(&builder, 0)] = 'X';
    EXPECT_TRUE(is_cleared(get_fd(damaged, ntfs_build_frn(24, 7))));
    damaged = image;
    damaged[ntfs_build_record_offset(&builder, 24) + 510] ^= 1;
    EXPECT_TRUE(is_cleared(get_fd(damaged, ntfs_build_frn(24, 7))));
    damaged.resize(ntfs_build_record_offset(&builder, 24) + 1000);
    EXPECT_TRUE(is_cleared(get_fd(damaged, ntfs_build_frn(24, 7))));
}

} // namespace
} // namespace findwright
