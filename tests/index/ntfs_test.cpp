// The NTFS reader over sound volumes of every shape.
#include "support/ntfs_items.h"

namespace findwright {
namespace {

constexpr u64 FIRST = 24; // the first record that a user's file can have

using names_t = std::vector<std::u16string>;

// Two folders and two files, one of them far behind.
ntfs_builder_t small_volume() {
    ntfs_builder_t builder;
    ntfs_build_root(&builder);
    ntfs_build_folder(&builder, FIRST, NTFS_FRN_ROOT, u"photos");
    ntfs_build_file(&builder, FIRST + 1, ntfs_build_frn(FIRST), u"cat.jpg", 70000);
    ntfs_build_file(&builder, FIRST + 2, NTFS_FRN_ROOT, u"letter.txt", 12);
    return builder;
}

const names_t SMALL_NAMES = {u".", u"photos", u"cat.jpg", u"letter.txt"};

TEST(Ntfs, GivesEveryFieldOfARecord) {
    ntfs_builder_t builder = small_volume();
    builder.records[FIRST + 1].sequence = 0x8003;
    const ntfs_items_t read = ntfs_read_items(ntfs_build_image(&builder));
    ASSERT_EQ(read.names(), SMALL_NAMES);
    EXPECT_EQ(read.expected, 32u);
    EXPECT_EQ(read.items[0].frn, NTFS_FRN_ROOT);
    const ntfs_item_t &cat = read.items[2];
    EXPECT_EQ(cat.frn, 0x8003000000000019u);
    EXPECT_EQ(cat.parent_frn, read.items[1].frn);
    EXPECT_EQ(cat.size, 70000u);
    EXPECT_EQ(cat.date_created, NTFS_BUILD_CREATED);
    EXPECT_EQ(cat.date_modified, NTFS_BUILD_MODIFIED);
    EXPECT_EQ(cat.date_accessed, NTFS_BUILD_ACCESSED);
    EXPECT_EQ(cat.attributes, 0x20u);
    EXPECT_EQ(read.items[1].attributes, 0x10u);
}

TEST(Ntfs, ReadsEveryGeometry) {
    for (u32 sector_size : {512u, 1024u, 4096u}) {
        for (u32 cluster_size = sector_size; cluster_size <= 2 * 1024 * 1024; cluster_size *= 2) {
            for (u32 record_size : {512u, 1024u, 4096u, 65536u}) {
                ntfs_builder_t builder = small_volume();
                builder.sector_size = sector_size;
                builder.cluster_size = cluster_size;
                builder.record_size = record_size;
                EXPECT_EQ(ntfs_read_items(ntfs_build_image(&builder)).names(), SMALL_NAMES)
                    << sector_size << " " << cluster_size << " " << record_size;
            }
        }
    }
}

TEST(Ntfs, CountsRecordSizeInClusters) {
    ntfs_builder_t builder = small_volume();
    builder.cluster_size = builder.record_size = 4096;
    ntfs_build_bytes_t image = ntfs_build_image(&builder);
    image[64] = 1;
    EXPECT_EQ(ntfs_read_items(image).names(), SMALL_NAMES);
}

struct boot_case_t {
    const char *name;
    u64 offset;
    u64 value;
    u32 size;
    const char *reason;
    const char *log;
};

const boot_case_t BOOT_CASES[] = {
    {"signature", 3, 0x202053467F544E, 7, "it has no NTFS boot sector", "bad NTFS signature: NT\x7f"},
    {"encrypted", 3, 0x2D53462D4556462D, 8, "it is a volume encrypted with BitLocker, not an NTFS volume",
     "-FVE-FS-"},
    {"exfat", 3, 0x2020205441465845, 8, "it is an exFAT volume, not an NTFS volume", "EXFAT"},
    {"no sectors in a cluster", 13, 0, 1, "clusters of 0 sectors of 512 bytes",
     "invalid bytes_per_cluster 0\n"},
    {"no bytes in a sector", 11, 0, 2, "clusters of 8 sectors of 0 bytes", "invalid bytes_per_cluster 0\n"},
    {"clusters of 4 MiB", 13, 256 - 13, 1, "clusters of 243 sectors", "invalid bytes_per_cluster"},
    {"clusters of 2 to the 127", 13, 129, 1, "clusters of 129 sectors", "invalid bytes_per_cluster"},
    {"record size of 1", 64, 0, 1, "file records of 1 bytes", "invalid bytes_per_file_record 1\n"},
    {"record size of 256", 64, 0xF8, 1, "file records of 256 bytes", "invalid bytes_per_file_record 256\n"},
    {"record size of 128 KiB", 64, 0xEF, 1, "file records of 131072 bytes",
     "invalid bytes_per_file_record 131072\n"},
    {"record size of 127 clusters", 64, 127, 1, "file records of 520192 bytes",
     "invalid bytes_per_file_record 520192\n"},
    {"record size of 2 to the 128", 64, 0x80, 1, "file records of 1 bytes",
     "invalid bytes_per_file_record 1\n"},
};

TEST(Ntfs, RefusesABootSectorThatMakesNoSense) {
    ntfs_builder_t builder = small_volume();
    const ntfs_build_bytes_t sound = ntfs_build_image(&builder);
    for (const boot_case_t &boot : BOOT_CASES) {
        SCOPED_TRACE(boot.name);
        ntfs_build_bytes_t image = sound;
        ntfs_build_put(&image, boot.offset, boot.value, boot.size);
        os_volume_t *volume = os_volume_open_memory(image.data(), image.size());
        ntfs_info_t info;
        char reason[256];
        log_scope_t log;
        EXPECT_FALSE(ntfs_get_info(volume, &info, reason));
        EXPECT_NE(std::string(reason).find(boot.reason), std::string::npos) << reason;
        EXPECT_NE(log.text().find(boot.log), std::string::npos) << log.text();
        // A caller that goes on all the same gets nothing, and no crash.
        EXPECT_EQ(info.bytes_per_file_record, 0u);
        ntfs_read_volume(volume, &info, NTFS_MASK_ALL, nullptr, ntfs_collect, nullptr);
        os_volume_close(volume);
    }
}

TEST(Ntfs, TellsWhyAFileIsNoVolume) {
    struct {
        u64 size;
        u32 sector_size;
        u64 fail_from;
        const char *reason;
    } const CASES[] = {{0, 512, ~0ull, "it is empty"},
                       {100, 512, ~0ull, "it is too short to be a volume"},
                       {4096, 512, ~0ull, "it has no NTFS boot sector"},
                       {4096, 512, 0, "it cannot be read (error "},
                       {4096, 64, ~0ull, "its sectors have 64 bytes"},
                       {4096, 0, ~0ull, "its sector size cannot be told (error 87)"}};
    for (const auto &test : CASES) {
        ntfs_scripted_t script;
        script.image.resize(test.size);
        script.sector_size = test.sector_size;
        script.fail_from = test.fail_from;
        os_volume_t *volume = ntfs_open_scripted(&script);
        ntfs_info_t info;
        char reason[256];
        EXPECT_FALSE(ntfs_get_info(volume, &info, reason));
        EXPECT_EQ(std::string(reason).substr(0, strlen(test.reason)), test.reason);
        os_volume_close(volume);
    }
}

// --- Records -----------------------------------------------------------------------------------------------

struct record_case_t {
    const char *name;
    ntfs_build_record_t record;
    names_t names;
    u64 size = 0;
    u32 attributes = 0;
};

ntfs_build_record_t record_of(u16 flags, std::vector<ntfs_build_bytes_t> attributes) {
    ntfs_build_record_t record;
    record.flags = flags;
    record.attributes = std::move(attributes);
    return record;
}

// An attribute with its form byte set to non-resident, and enough room behind it for the longer header.
ntfs_build_bytes_t as_non_resident(ntfs_build_bytes_t attribute) {
    attribute[8] = 1;
    return attribute;
}

TEST(Ntfs, TakesNamesSizesAndAttributes) {
    const auto name = [](const std::u16string &text, u8 name_space = 1, u64 parent = NTFS_FRN_ROOT) {
        return ntfs_build_file_name(parent, text, name_space);
    };
    const auto data = [](u64 size, u64 vcn = 0, const std::u16string &stream = {}) {
        return ntfs_build_non_resident_attribute(0x80, size, ntfs_build_pairs({}), vcn, stream);
    };
    const std::u16string longest(255, u'\u4e2d');
    const std::u16string surrogates = {0xDC00, u'a', 0xD800};
    const std::u16string control = {1, 0x1F, u'\t', u'\n', 0x7F};
    const record_case_t CASES[] = {
        {"long and short name",
         record_of(1, {name(u"longer name.text"), name(u"LONGER~1.TEX", 2)}),
         {u"longer name.text"}},
        {"short name first",
         record_of(1, {name(u"LONGER~1.TEX", 2), name(u"longer name.text", 0)}),
         {u"longer name.text"}},
        {"short name only", record_of(1, {name(u"LONGER~1.TEX", 2)}), {}},
        {"no name", record_of(1, {ntfs_build_resident_data(10)}), {}},
        {"hard links",
         record_of(1, {name(u"a", 0), name(u"b", 3, ntfs_build_frn(30)), name(u"c", 1)}),
         {u"a", u"b", u"c"}},
        {"unknown namespace", record_of(1, {name(u"a", 4), name(u"b")}), {u"b"}},
        {"empty name", record_of(1, {name(u""), name(u"b")}), {u"b"}},
        {"in a folder of the system", record_of(1, {name(u"$ObjId", 1, ntfs_build_frn(11))}), {}},
        {"longest name", record_of(1, {name(longest)}), {longest}},
        {"lone surrogates", record_of(1, {name(surrogates)}), {surrogates}},
        {"control characters", record_of(1, {name(control)}), {control}},
        {"not in use", record_of(0, {name(u"a")}), {}},
        {"resident data", record_of(1, {name(u"a"), ntfs_build_resident_data(123)}), {u"a"}, 123},
        {"data of 16 TiB", record_of(1, {name(u"a"), data(1ull << 44)}), {u"a"}, 1ull << 44},
        {"later part of the data", record_of(1, {name(u"a"), data(50, 7)}), {u"a"}, 0},
        {"both parts of the data", record_of(1, {name(u"a"), data(50), data(60, 7)}), {u"a"}, 50},
        {"streams",
         record_of(1, {name(u"a"), ntfs_build_resident_data(5), data(900, 0, u"stream"),
                       ntfs_build_resident_data(70, u"other")}),
         {u"a"},
         5},
        {"folder without its bit",
         record_of(3, {ntfs_build_standard_information(2), name(u"a")}),
         {u"a"},
         0,
         0x12},
        {"file with a folder's bit",
         record_of(1, {ntfs_build_standard_information(0x36), name(u"a")}),
         {u"a"},
         0,
         0x26},
        {"two sets of dates",
         record_of(1, {ntfs_build_standard_information(1), ntfs_build_standard_information(2), name(u"a")}),
         {u"a"},
         0,
         1},
        {"non-resident standard information",
         record_of(1, {as_non_resident(ntfs_build_standard_information(2)), name(u"a")}),
         {u"a"}},
        {"non-resident name",
         record_of(1, {as_non_resident(name(u"a long enough name")), name(u"b")}),
         {u"b"}},
        {"named name",
         record_of(1, {ntfs_build_resident_attribute(0x30, ntfs_build_bytes_t(80), u"x"), name(u"b")}),
         {u"b"}},
        {"other attributes",
         record_of(1, {ntfs_build_resident_attribute(0x100, {1, 2, 3}), name(u"b"),
                       ntfs_build_resident_attribute(0xC0, {4})}),
         {u"b"}},
        {"dates of the distant past and future",
         record_of(1, {ntfs_build_standard_information(0, 0, ~0ull, 1ull << 63), name(u"a")}),
         {u"a"}},
    };
    for (const record_case_t &test : CASES) {
        SCOPED_TRACE(test.name);
        ntfs_builder_t builder;
        builder.record_size = 4096;
        builder.records[FIRST] = test.record;
        const ntfs_items_t read = ntfs_read_items(ntfs_build_image(&builder));
        EXPECT_EQ(read.names(), test.names);
        for (const ntfs_item_t &item : read.items) {
            EXPECT_EQ(item.frn, ntfs_build_frn(FIRST));
            EXPECT_EQ(item.size, test.size);
            EXPECT_EQ(item.attributes, test.attributes);
        }
    }
    ntfs_builder_t builder;
    builder.records[FIRST] = CASES[4].record;
    EXPECT_EQ(ntfs_read_items(ntfs_build_image(&builder)).items[1].parent_frn, ntfs_build_frn(30));
    builder.records[FIRST] = std::end(CASES)[-1].record;
    const ntfs_item_t item = ntfs_read_items(ntfs_build_image(&builder)).items.at(0);
    EXPECT_EQ(std::make_tuple(item.date_created, item.date_modified, item.date_accessed),
              std::make_tuple(0ull, ~0ull, 1ull << 63));
}

TEST(Ntfs, LeavesOutWhatIsTheFileSystemsOwn) {
    ntfs_builder_t builder;
    for (u64 index = 1; index <= 16; index++) {
        ntfs_build_file(&builder, index, NTFS_FRN_ROOT, {u'r', static_cast<char16_t>(u'0' + index)}, 1);
    }
    EXPECT_EQ(ntfs_read_items(ntfs_build_image(&builder)).names(), (names_t{u"r5", u"r@"}));
}

TEST(Ntfs, TakesOnlyWhatTheMaskAsksFor) {
    ntfs_builder_t builder;
    ntfs_build_file(&builder, FIRST, NTFS_FRN_ROOT, u"a", 99);
    const ntfs_build_bytes_t image = ntfs_build_image(&builder);
    for (u32 mask = 0; mask <= NTFS_MASK_ALL; mask++) {
        const ntfs_item_t item = ntfs_read_items(image, mask).items.at(0);
        EXPECT_EQ(item.size, mask & 1 ? 99u : 0u);
        EXPECT_EQ(item.date_created, mask & ~1u ? NTFS_BUILD_CREATED : VALUE_UNKNOWN);
        EXPECT_EQ(item.attributes, mask & ~1u ? 0x20u : 0u);
    }
}

TEST(Ntfs, PutsBackTheUpdateSequence) {
    struct {
        const char *name;
        std::vector<ntfs_build_edit_t> edits, damage;
        bool listed;
        const char *log;
    } const CASES[] = {
        {"sound", {}, {}, true, ""},
        {"first block torn", {}, {{510, 0x1111, 2}}, false, "bad US 1111 != 7\n"},
        {"last block torn", {}, {{4094, 0x2222, 2}}, false, "bad US 2222 != 7\n"},
        {"array outside", {}, {{4, 4090, 2}}, false, "invalid file record access at offset 4090 len 18\n"},
        {"more blocks than the record has",
         {},
         {{6, 10, 2}},
         false,
         "invalid file record access at offset 4606 len 2\n"},
        {"count of 65535",
         {},
         {{6, 0xFFFF, 2}},
         false,
         "invalid file record access at offset 48 len 131070\n"},
        // Without an array the record is as it stands: the check values overwrite nothing of its attributes.
        {"count of 1", {}, {{6, 1, 2}}, true, ""},
        {"count of 0", {}, {{6, 0, 2}}, true, ""},
    };
    for (const auto &test : CASES) {
        SCOPED_TRACE(test.name);
        ntfs_builder_t builder;
        builder.sector_size = builder.record_size = 4096;
        ntfs_build_file(&builder, FIRST, NTFS_FRN_ROOT, u"a", 1)->damage = test.damage;
        const ntfs_build_bytes_t image = ntfs_build_image(&builder);
        log_scope_t log;
        EXPECT_EQ(ntfs_read_items(image).items.size(), test.listed ? 1u : 0u);
        EXPECT_NE(log.text().find(test.log), std::string::npos) << log.text();
    }
    // A name that lies across the end of a block comes back whole.
    ntfs_builder_t builder;
    const std::u16string name(250, u'\u0414');
    builder.records[FIRST].attributes = {ntfs_build_file_name(NTFS_FRN_ROOT, name)};
    EXPECT_EQ(ntfs_read_items(ntfs_build_image(&builder)).names(), names_t{name});
}

// --- Files in several records ------------------------------------------------------------------------------

// A base record with an attribute list and these attributes beside it.
void add_base(ntfs_builder_t *builder, u64 index, u16 sequence, std::vector<ntfs_build_bytes_t> attributes) {
    attributes.insert(attributes.begin(),
                      ntfs_build_attribute_list({{0x10, ntfs_build_frn(index, sequence)}}));
    builder->records[index] = record_of(1, std::move(attributes));
    builder->records[index].sequence = sequence;
}

ntfs_build_bytes_t data_part(u64 size, u64 vcn = 0) {
    return ntfs_build_non_resident_attribute(0x80, size, ntfs_build_pairs({}), vcn);
}

TEST(Ntfs, JoinsTheRecordsOfAFile) {
    ntfs_builder_t builder;
    const u64 base = ntfs_build_frn(28, 9);
    // The parts lie in front of and behind the base, and the base itself has neither dates nor size.
    ntfs_build_extension(
        &builder, FIRST, base,
        {ntfs_build_standard_information(0x22), ntfs_build_file_name(NTFS_FRN_ROOT, u"one")});
    add_base(&builder, 28, 9, {ntfs_build_file_name(NTFS_FRN_ROOT, u"two")});
    ntfs_build_extension(&builder, 30, base, {data_part(5000)});
    ntfs_build_extension(&builder, 31, base,
                         {ntfs_build_standard_information(1), ntfs_build_file_name(NTFS_FRN_ROOT, u"three"),
                          data_part(77, 3)});
    ntfs_build_file(&builder, 33, NTFS_FRN_ROOT, u"ordinary", 4);
    const ntfs_items_t read = ntfs_read_items(ntfs_build_image(&builder));
    EXPECT_EQ(read.names(), (names_t{u"ordinary", u"two", u"one", u"three"}));
    for (size_t i = 1; i < read.items.size(); i++) {
        EXPECT_EQ(read.items[i].frn, base);
        EXPECT_EQ(read.items[i].size, 5000u);
        EXPECT_EQ(read.items[i].attributes, 0x22u);
        EXPECT_EQ(read.items[i].date_modified, NTFS_BUILD_MODIFIED);
    }
}

TEST(Ntfs, JoinsAFolderAndAddsSizes) {
    ntfs_builder_t builder;
    add_base(&builder, FIRST, 1,
             {ntfs_build_standard_information(6), ntfs_build_file_name(NTFS_FRN_ROOT, u"d"), data_part(10)});
    builder.records[FIRST].flags = 3;
    ntfs_build_extension(&builder, 25, ntfs_build_frn(FIRST),
                         {ntfs_build_standard_information(1), data_part(20)});
    const ntfs_items_t read = ntfs_read_items(ntfs_build_image(&builder));
    ASSERT_EQ(read.items.size(), 1u);
    EXPECT_EQ(read.items[0].size, 30u);
    EXPECT_EQ(read.items[0].attributes, 0x16u);
}

// Records that were used again: in record order their references are in no order at all.
TEST(Ntfs, TellsFilesApartWhoseRecordsWereUsedAgain) {
    ntfs_builder_t builder;
    const u16 SEQUENCES[] = {9, 1, 0xFFFF, 2, 0x8000, 3, 7, 1};
    for (u32 i = 0; i < std::size(SEQUENCES); i++) {
        const char16_t letter = static_cast<char16_t>(u'a' + i);
        add_base(&builder, FIRST + i, SEQUENCES[i], {ntfs_build_file_name(NTFS_FRN_ROOT, {letter, u'1'})});
        ntfs_build_extension(&builder, 60 - i, ntfs_build_frn(FIRST + i, SEQUENCES[i]),
                             {ntfs_build_file_name(NTFS_FRN_ROOT, {letter, u'2'}), data_part(100 + i)});
    }
    // What is left of a file that had one of the records before.
    ntfs_build_extension(&builder, 61, ntfs_build_frn(FIRST, 8),
                         {ntfs_build_file_name(NTFS_FRN_ROOT, u"gone"), data_part(1)});
    const ntfs_items_t read = ntfs_read_items(ntfs_build_image(&builder));
    ASSERT_EQ(read.items.size(), 2 * std::size(SEQUENCES) + 1);
    EXPECT_EQ(read.items[0].name, u"gone");
    EXPECT_EQ(read.items[0].frn, ntfs_build_frn(FIRST, 8));
    for (u32 i = 0; i < std::size(SEQUENCES); i++) {
        for (u32 k = 0; k < 2; k++) {
            const ntfs_item_t &item = read.items[1 + i * 2 + k];
            EXPECT_EQ(item.name,
                      (std::u16string{static_cast<char16_t>(u'a' + i), static_cast<char16_t>(u'1' + k)}));
            EXPECT_EQ(item.frn, ntfs_build_frn(FIRST + i, SEQUENCES[i]));
            EXPECT_EQ(item.size, 100u + i);
        }
    }
}

TEST(Ntfs, ReportsAnExtensionWhoseBaseIsMissing) {
    ntfs_builder_t builder;
    ntfs_build_file(&builder, 25, NTFS_FRN_ROOT, u"no list", 1);
    ntfs_build_extension(&builder, 26, ntfs_build_frn(25),
                         {ntfs_build_file_name(NTFS_FRN_ROOT, u"a"), data_part(8)});
    ntfs_build_extension(&builder, 27, ntfs_build_frn(500),
                         {ntfs_build_standard_information(2), ntfs_build_file_name(NTFS_FRN_ROOT, u"b")});
    ntfs_build_extension(&builder, 28, ntfs_build_frn(9),
                         {ntfs_build_file_name(NTFS_FRN_ROOT, u"the system's")});
    log_scope_t log;
    const ntfs_items_t read = ntfs_read_items(ntfs_build_image(&builder));
    EXPECT_EQ(read.names(), (names_t{u"no list", u"a", u"b"}));
    EXPECT_EQ(read.items[1].frn, ntfs_build_frn(25));
    EXPECT_EQ(read.items[1].size, 8u);
    EXPECT_EQ(read.items[2].attributes, 2u);
    EXPECT_NE(log.text().find("missing base file record with attribute list 00010000000001f4\n"),
              std::string::npos);
    EXPECT_NE(log.text().find("ignore internal extended fragmented file record 0001000000000009\n"),
              std::string::npos);
}

// --- Tables in pieces --------------------------------------------------------------------------------------

// A volume of `count` files named by their numbers.
ntfs_builder_t numbered_volume(u64 count) {
    ntfs_builder_t builder;
    for (u64 i = 0; i < count; i++) {
        ntfs_build_file(&builder, FIRST + i, NTFS_FRN_ROOT,
                        std::u16string{u'n', static_cast<char16_t>(0x1000 + i)}, i);
    }
    return builder;
}

void expect_numbered(const ntfs_items_t &read, u64 count) {
    ASSERT_EQ(read.items.size(), count);
    for (u64 i = 0; i < count; i++) {
        EXPECT_EQ(read.items[i].name, (std::u16string{u'n', static_cast<char16_t>(0x1000 + i)}));
        EXPECT_EQ(read.items[i].frn, ntfs_build_frn(FIRST + i));
        EXPECT_EQ(read.items[i].size, i);
    }
}

TEST(Ntfs, FollowsTheRunsOfTheTable) {
    struct {
        const char *name;
        u32 cluster_size, record_size;
        std::vector<ntfs_build_run_t> runs;
    } const CASES[] = {
        {"backwards", 4096, 1024, {{6, 40}, {6, 20}, {13, 4}}},
        {"holes, which hold no records", 4096, 1024, {{6, 40}, {9, 0, true}, {6, 20}, {1, 0, true}, {13, 4}}},
        {"records across runs", 512, 1024, {{15, 300}, {1, 10}, {1, 200}, {33, 210}, {150, 20}}},
        {"records across many runs", 512, 4096, {{9, 500}, {1, 40}, {2, 60}, {1, 900}, {3, 70}, {800, 1000}}},
        {"runs of no clusters", 4096, 1024, {{0, 7}, {25, 40}, {0, 0, true}}},
    };
    for (const auto &test : CASES) {
        SCOPED_TRACE(test.name);
        ntfs_builder_t builder = numbered_volume(76);
        builder.cluster_size = test.cluster_size;
        builder.record_size = test.record_size;
        builder.table_runs = test.runs;
        if (builder.table_runs[0].clusters == 0) {
            // The boot sector gives the place of record 0 by itself.
            ntfs_build_bytes_t image = ntfs_build_image(&builder);
            ntfs_build_put(&image, 48, 40, 8);
            expect_numbered(ntfs_read_items(image), 76);
            continue;
        }
        expect_numbered(ntfs_read_items(ntfs_build_image(&builder)), 76);
    }
}

TEST(Ntfs, FollowsTheTableIntoItsExtensionRecords) {
    const std::vector<ntfs_build_table_extension_t> ORDERS[] = {
        {{15, 1, 1}, {16, 2, 1}, {17, 3, 2}},
        {{17, 1, 1}, {16, 2, 1}, {15, 3, 2}},
        {{16, 1, 1}, {17, 2, 1}, {15, 3, 2}},
        // The later ones lie where only the earlier ones tell.
        {{15, 1, 1}, {30, 2, 1}, {50, 3, 2}},
    };
    for (const auto &extensions : ORDERS) {
        ntfs_builder_t builder = numbered_volume(0);
        builder.table_runs = {{6, 40}, {6, 20}, {6, 50}, {4, 4}, {3, 10}};
        builder.table_extensions = extensions;
        for (u64 i = 0; i < 76; i++) {
            const bool taken = FIRST + i == 30 || FIRST + i == 50;
            if (!taken) {
                ntfs_build_file(&builder, FIRST + i, NTFS_FRN_ROOT,
                                std::u16string{u'n', static_cast<char16_t>(0x1000 + i)}, i);
            }
        }
        const ntfs_items_t read = ntfs_read_items(ntfs_build_image(&builder));
        EXPECT_EQ(read.items.size(), builder.records.size());
        for (const ntfs_item_t &item : read.items) {
            EXPECT_EQ(item.name[1], 0x1000 + (item.frn & NTFS_FRN_INDEX_MASK) - FIRST);
        }
    }
}

// More records than one read holds, and a table whose last cluster has room behind its last record.
TEST(Ntfs, ReadsATableLargerThanItsBuffer) {
    ntfs_builder_t builder = numbered_volume(3001);
    expect_numbered(ntfs_read_items(ntfs_build_image(&builder)), 3001);
    builder.record_size = 3 * 512; // no power of two
    builder.cluster_size = 1536;
    ntfs_build_bytes_t image = ntfs_build_image(&builder);
    image[64] = 1;
    expect_numbered(ntfs_read_items(image), 3001);
}

TEST(Ntfs, StopsWhenProgressSaysSo) {
    ntfs_builder_t builder = numbered_volume(3000);
    add_base(&builder, 20, 1, {ntfs_build_file_name(NTFS_FRN_ROOT, u"to be joined")});
    const ntfs_build_bytes_t image = ntfs_build_image(&builder);
    os_volume_t *volume = os_volume_open_memory(image.data(), image.size());
    ntfs_info_t info;
    ASSERT_TRUE(ntfs_get_info(volume, &info, nullptr));
    ntfs_items_t items;
    ntfs_read_volume(volume, &info, NTFS_MASK_ALL, &items, ntfs_collect,
                     [](void *, u64, u64) { return false; });
    EXPECT_GT(items.items.size(), 0u);
    EXPECT_LT(items.items.size(), 1100u);
    os_volume_close(volume);
}

} // namespace
} // namespace findwright
