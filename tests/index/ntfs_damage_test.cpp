// The NTFS reader over damaged volumes: what is sound is listed, and no damage costs more than the volume's
// size.
#include "base/mem.h"
#include "support/ntfs_items.h"

#include <random>
#include <set>

namespace findwright {
namespace {

constexpr u64 FIRST = 24;
constexpr u32 ATTRIBUTES = 56;        // of a record of 1 KiB: its first attribute
constexpr u32 NAME = ATTRIBUTES + 72; // behind the standard information
constexpr u32 NAME_VALUE = NAME + 24;
constexpr u32 DATA = NAME_VALUE + 72; // behind a name of one or two units

using names_t = std::vector<std::u16string>;

// Reads, and checks what holds whatever the volume says.
ntfs_items_t read_bounded(const ntfs_build_bytes_t &image) {
    ntfs_scripted_t script;
    script.image = image;
    os_volume_t *volume = ntfs_open_scripted(&script);
    const size_t live_before = mem_live_count();
    const ntfs_items_t read = ntfs_read_items(volume);
    // The boot sector and the table's first record are read beside the runs.
    EXPECT_LE(script.bytes_read, image.size() + 4096 + 65536);
    // A name takes at least 92 bytes of a record.
    EXPECT_LE(read.items.size(), script.bytes_read / 92);
    os_volume_close(volume);
    EXPECT_EQ(mem_live_count(), live_before - 1);
    return read;
}

// --- Damaged records ---------------------------------------------------------------------------------------

struct damage_case_t {
    const char *name;
    std::vector<ntfs_build_edit_t> edits; // of the middle one of three files
    bool listed;
    u64 size; // of that file
    const char *log;
};

const damage_case_t RECORD_CASES[] = {
    {"none", {}, true, 1000, ""},
    {"signature", {{0, 0x44414142, 4}}, false, 0, ""},
    {"first attribute outside",
     {{20, 0xFFFF, 2}},
     false,
     0,
     "invalid file record access at offset 65535 len 16\n"},
    {"first attribute at the very end",
     {{20, 1023, 2}},
     false,
     0,
     "invalid file record access at offset 1023 len 16\n"},
    {"first attribute cut off",
     {{20, 1016, 2}},
     false,
     0,
     "invalid file record access at offset 1016 len 16\n"},
    {"attribute of no length", {{ATTRIBUTES + 4, 0, 4}}, false, 0, "\t25: BAD record length 0 < 16\n"},
    {"attribute of 15 bytes", {{ATTRIBUTES + 4, 15, 4}}, false, 0, "\t25: BAD record length 15 < 16\n"},
    {"attribute longer than the record",
     {{ATTRIBUTES + 4, 969, 4}},
     false,
     0,
     "invalid file record access at offset 56 len 969\n"},
    {"attribute of 4 GiB",
     {{NAME + 4, 0xFFFFFFFF, 4}},
     false,
     0,
     "invalid file record access at offset 128 len 4294967295\n"},
    {"last attribute of no length", {{DATA + 4, 0, 4}}, true, 0, "BAD record length 0 < 16\n"},
    {"date value outside",
     {{ATTRIBUTES + 20, 37, 2}},
     true,
     1000,
     "invalid file record access at offset 93 len 36\n"},
    {"name value outside",
     {{NAME + 20, 0xFFFF, 2}},
     false,
     0,
     "invalid file record access at offset 65663 len 66\n"},
    {"name value too short",
     {{NAME + 20, 32, 2}},
     false,
     0,
     "invalid file record access at offset 160 len 66\n"},
    {"name of 255 units in the room of two",
     {{NAME_VALUE + 64, 255, 1}},
     false,
     0,
     "invalid file record access at offset 152 len 576\n"},
    {"namespace", {{NAME_VALUE + 65, 77, 1}}, false, 0, "bad name flag 4d\n"},
    {"name non-resident", {{NAME + 8, 1, 1}}, false, 0, "nonresident name attribute\n"},
    {"dates non-resident", {{ATTRIBUTES + 8, 1, 1}}, true, 1000, "nonresident standard information\n"},
    {"data of 40 bytes", {{DATA + 4, 40, 4}}, true, 0, "invalid file record access at offset 224 len 64\n"},
    {"data of 16 bytes",
     {{DATA + 4, 16, 4}, {DATA + 8, 0, 1}},
     true,
     0,
     "invalid file record access at offset 224 len 24\n"},
    {"attribute list in an extension",
     {{32, ntfs_build_frn(200), 8}, {ATTRIBUTES, 0x20, 4}},
     true,
     1000,
     "attribute list attribute with base frn\n"},
};

TEST(NtfsDamage, OfOneRecordCostsThatRecordAtMost) {
    for (const damage_case_t &test : RECORD_CASES) {
        SCOPED_TRACE(test.name);
        ntfs_builder_t builder;
        ntfs_build_file(&builder, FIRST, NTFS_FRN_ROOT, u"a", 1);
        ntfs_build_file(&builder, FIRST + 1, NTFS_FRN_ROOT, u"b", 1000)->edits = test.edits;
        ntfs_build_file(&builder, FIRST + 2, NTFS_FRN_ROOT, u"c", 3);
        const ntfs_build_bytes_t image = ntfs_build_image(&builder);
        log_scope_t log;
        const ntfs_items_t read = read_bounded(image);
        std::set<std::u16string> names;
        for (const ntfs_item_t &item : read.items) {
            names.insert(item.name);
            EXPECT_EQ(item.size, item.name == u"a" ? 1 : item.name == u"b" ? test.size : 3);
        }
        EXPECT_EQ(names, test.listed ? (std::set<std::u16string>{u"a", u"b", u"c"})
                                     : (std::set<std::u16string>{u"a", u"c"}));
        EXPECT_NE(log.text().find(test.log), std::string::npos) << log.text();
    }
}

// Attributes up to the last byte, and no end mark.
TEST(NtfsDamage, ARecordWithoutAnEndIsReadToItsEnd) {
    ntfs_builder_t builder;
    builder.records[FIRST].attributes = {ntfs_build_file_name(NTFS_FRN_ROOT, u"full"),
                                         ntfs_build_resident_data(848)};
    EXPECT_EQ(read_bounded(ntfs_build_image(&builder)).names(), names_t{u"full"});
    // 600 names that all claim the same bytes of the record.
    builder.record_size = 65536;
    for (u32 i = 0; i < 600; i++) {
        ntfs_build_bytes_t name = ntfs_build_file_name(NTFS_FRN_ROOT, u"x");
        name.resize(16);
        ntfs_build_put(&name, 4, 16, 4);
        builder.records[FIRST + 1].attributes.push_back(name);
    }
    EXPECT_EQ(read_bounded(ntfs_build_image(&builder)).items.size(), 1u);
}

// --- Damage to the table's own record ----------------------------------------------------------------------

// Three files in a table of two runs, records 0 to 23 and those behind; the attribute that tells of them is
// made anew by each case.
struct table_case_t {
    const char *name;
    std::vector<ntfs_build_bytes_t> attributes;
    names_t names;
    const char *log;
};

constexpr u64 TABLE_BYTES = 32 * 1024;

ntfs_build_bytes_t table_data(const std::vector<ntfs_build_run_t> &runs, u64 vcn = 0,
                              u64 bytes = TABLE_BYTES) {
    return ntfs_build_non_resident_attribute(0x80, bytes, ntfs_build_pairs(runs), vcn);
}

ntfs_build_bytes_t table_pairs(const ntfs_build_bytes_t &pairs) {
    return ntfs_build_non_resident_attribute(0x80, TABLE_BYTES, pairs);
}

ntfs_build_bytes_t with(ntfs_build_bytes_t attribute, u64 offset, u64 value, u32 size) {
    ntfs_build_put(&attribute, offset, value, size);
    return attribute;
}

ntfs_builder_t table_volume() {
    ntfs_builder_t builder;
    builder.table_runs = {{6, 4}, {2, 20}};
    builder.volume_clusters = 40;
    for (u64 i = 0; i < 3; i++) {
        // One in the first run and two in the second.
        ntfs_build_file(&builder, FIRST - 1 + i, NTFS_FRN_ROOT,
                        std::u16string{static_cast<char16_t>(u'a' + i)}, i);
    }
    return builder;
}

TEST(NtfsDamage, OfTheTablesRunsIsBounded) {
    const names_t all = {u"a", u"b", u"c"};
    const names_t first = {u"a"};
    const u64 most = ~static_cast<u64>(0) / 2;
    std::vector<ntfs_build_run_t> again;
    for (u32 i = 0; i < 180; i++) {
        again.push_back({6, 4});
    }
    const table_case_t CASES[] = {
        {"none", {table_data({{6, 4}, {2, 20}})}, all, "processed 32 / 32 file records\n"},
        {"no data", {}, {}, "processed 0 / 0 file records\n"},
        {"resident data", {ntfs_build_resident_data(100)}, {}, "resident MFT data\n"},
        {"a named stream",
         {ntfs_build_non_resident_attribute(0x80, TABLE_BYTES, ntfs_build_pairs({{6, 4}}), 0, u"x")},
         {},
         ""},
        {"attribute of no length", {with(table_data({{6, 4}}), 4, 0, 4)}, {}, "\tBAD mft record length 0\n"},
        {"attribute of 64 bytes",
         {with(table_data({{6, 4}}), 4, 64, 4)},
         {},
         "bad MFT record length 64 for nonresident\n"},
        {"pairs outside", {with(table_data({{6, 4}}), 32, 0xFFFF, 2)}, {}, "bad mapping pair addr "},
        {"count of 9 bytes",
         {table_pairs({0x11, 6, 4, 0x19, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1})},
         first,
         "unsupported mapping pair len size 9\n"},
        {"offset of 15 bytes",
         {table_pairs({0x11, 6, 4, 0xF1, 1, 1})},
         first,
         "unsupported mapping offset size 15\n"},
        {"count cut off",
         {table_pairs({0x11, 6, 4, 0x18, 1})},
         first,
         "bad mapping pair cluster count addr "},
        {"offset cut off",
         {table_pairs({0x11, 6, 4, 0x81, 2, 16, 0, 0})},
         first,
         "bad mapping pair offset size addr "},
        {"first part missing", {table_data({{2, 20}}, 6)}, {}, "processed 0 / 0 file records\n"},
        {"first part missing, but not its size",
         {table_data({}), table_data({{2, 20}}, 6)},
         {u"b", u"c"},
         "MFT data runs missing from vcn 0 to 6\n"},
        {"valid length of 0", {table_data({{6, 4}, {2, 20}}, 0, 0)}, {}, "processed 0 / 0 file records\n"},
        {"valid length of 2 to the 63",
         {table_data({{6, 4}, {2, 20}}, 0, 1ull << 63)},
         all,
         "file records\n"},
        {"valid length too small",
         {table_data({{6, 4}, {2, 20}}, 0, 25 * 1024)},
         {u"a", u"b"},
         "more data than file record run 32 > 25\n"},
        {"run before the volume",
         {table_data({{6, 4}, {2, static_cast<u64>(-5)}})},
         first,
         "read cluster failed\n"},
        {"run behind the volume", {table_data({{6, 4}, {2, 1ull << 40}})}, first, "read cluster failed\n"},
        {"run at the end of all numbers",
         {table_data({{6, 4}, {2, 1ull << 62}})},
         first,
         "read cluster failed\n"},
        {"run behind the volume, and one in it",
         {table_data({{3, 4}, {3, 1ull << 40}, {2, 20}})},
         {u"b", u"c"},
         "read cluster failed\n"},
        {"run longer than the volume", {table_data({{most, 4}}, 0, most)}, all, "read cluster failed\n"},
        {"first run longer than its file",
         {table_data({{1000, 4}})},
         first,
         "more data than file record run"},
        {"hole longer than anything", {table_data({{6, 4}, {most, 0, true}, {2, 20}})}, all, ""},
        {"holes beyond all numbers",
         {table_data({{6, 4}, {most, 0, true}, {most, 0, true}, {5, 0, true}, {2, 20}})},
         first,
         "is too long\n"},
        {"the same run again and again",
         {table_data(again, 0, most)},
         {},
         "MFT data runs are longer than the volume\n"},
        {"the same part twice",
         {table_data({{6, 4}, {2, 20}}), table_data({{6, 4}, {2, 20}})},
         all,
         "1 unprocessed MFT data runs\n"},
        {"parts in the wrong order",
         {table_data({{2, 20}}, 6), table_data({{6, 4}})},
         all,
         "found data run with vcn 6\n"},
        {"a part far away",
         {table_data({{6, 4}, {2, 20}}), table_data({{2, 20}}, 1ull << 62)},
         all,
         "1 unprocessed MFT data runs\n"},
        {"a part at the last number",
         {table_data({{6, 4}}, 0, most), table_data({{2, 20}}, ~0ull)},
         first,
         "MFT data run of 2 clusters is too long\n"},
    };
    for (const table_case_t &test : CASES) {
        SCOPED_TRACE(test.name);
        ntfs_builder_t builder = table_volume();
        builder.records[0].attributes = test.attributes;
        builder.records[0].attributes.push_back(ntfs_build_resident_attribute(0x100, {1}));
        const ntfs_build_bytes_t image = ntfs_build_image(&builder);
        log_scope_t log;
        const ntfs_items_t read = read_bounded(image);
        if (test.attributes.empty() || !test.names.empty()) {
            EXPECT_EQ(read.names(), test.names);
        }
        EXPECT_NE(log.text().find(test.log), std::string::npos) << log.text();
    }
}

TEST(NtfsDamage, OfRecordZeroIsTold) {
    const std::vector<ntfs_build_edit_t> CASES[] = {
        {{0, 0x44414142, 4}}, {{510, 0x1234, 2}}, {{4, 0xFFFF, 2}}};
    for (const auto &damage : CASES) {
        ntfs_builder_t builder = table_volume();
        builder.records[0].attributes = {table_data({{6, 4}, {2, 20}})};
        builder.records[0].damage = damage;
        log_scope_t log;
        EXPECT_EQ(read_bounded(ntfs_build_image(&builder)).items.size(), 0u);
        EXPECT_NE(log.text().find("MFT file record is damaged, the data runs that it holds are lost\n"),
                  std::string::npos);
    }
}

// An extension record of the table that is damaged takes its runs with it, but not those of the next one.
TEST(NtfsDamage, OfATableExtensionCostsItsRunsOnly) {
    ntfs_builder_t builder;
    builder.table_runs = {{8, 4}, {2, 20}, {2, 30}};
    builder.table_extensions = {{15, 1, 1}, {16, 2, 1}};
    ntfs_build_file(&builder, 30, NTFS_FRN_ROOT, u"first run", 1);
    ntfs_build_file(&builder, 33, NTFS_FRN_ROOT, u"second run", 1);
    ntfs_build_file(&builder, 41, NTFS_FRN_ROOT, u"third run", 1);
    ntfs_build_bytes_t image = ntfs_build_image(&builder);
    EXPECT_EQ(read_bounded(image).names(), (names_t{u"first run", u"second run", u"third run"}));
    image[ntfs_build_record_offset(&builder, 15) + 510] ^= 1;
    const ntfs_items_t read = read_bounded(image);
    EXPECT_EQ(read.names(), (names_t{u"first run", u"third run"}));
    EXPECT_EQ(read.items[1].frn, ntfs_build_frn(41));
}

// Records that all claim to extend the table are copied up to a limit.
TEST(NtfsDamage, MemoryForExtensionsOfTheTableIsBounded) {
    ntfs_builder_t builder;
    builder.record_size = builder.cluster_size = 65536;
    for (u64 i = 0; i < 1200; i++) {
        ntfs_build_extension(&builder, FIRST + i, ntfs_build_frn(0, static_cast<u16>(1 + i)), {});
    }
    const ntfs_build_bytes_t image = ntfs_build_image(&builder);
    os_volume_t *volume = os_volume_open_memory(image.data(), image.size());
    ntfs_info_t info;
    ASSERT_TRUE(ntfs_get_info(volume, &info, nullptr));
    size_t most = 0;
    ntfs_read_volume(volume, &info, NTFS_MASK_ALL, &most, ntfs_collect, [](void *user_data, u64, u64) {
        *static_cast<size_t *>(user_data) = std::max(*static_cast<size_t *>(user_data), mem_live_size());
        return true;
    });
    os_volume_close(volume);
    EXPECT_GT(most, 60u << 20);
    EXPECT_LT(most, 68u << 20);
}

// --- Volumes that end or fail early ------------------------------------------------------------------------

// A table in four runs in no order, some of them told of by extension records, with a record across two runs.
ntfs_builder_t scattered_volume() {
    ntfs_builder_t builder;
    builder.cluster_size = 512;
    builder.table_runs = {{70, 60}, {21, 8}, {31, 200}, {20, 150}};
    builder.table_extensions = {{16, 2, 1}, {17, 3, 1}};
    for (u64 i = FIRST; i < 71; i++) {
        ntfs_build_file(&builder, i, NTFS_FRN_ROOT, std::u16string{static_cast<char16_t>(0x1000 + i)}, i);
    }
    return builder;
}

// The end of a record on the volume: of its last byte, as it may lie in two places.
u64 record_end(const ntfs_builder_t *builder, u64 index) {
    return std::max(ntfs_build_table_offset(builder, index * builder->record_size + 511),
                    ntfs_build_table_offset(builder, index * builder->record_size + 1023)) +
           1;
}

// The records that lie before the cut with all that is needed to find them. The first 45 records, and half of
// one more, are told of by record 0, those up to the middle of record 60 by record 16, the rest by record 17.
std::set<u64> records_before(const ntfs_builder_t *builder, u64 cut) {
    std::set<u64> result;
    for (u64 index = FIRST; index < 71; index++) {
        const u64 told_by = index > 60 ? 17 : index > 45 ? 16 : 0;
        const u64 rest_told_by = index == 60 ? 17 : index == 45 ? 16 : told_by;
        const bool found = record_end(builder, 0) <= cut && record_end(builder, told_by) <= cut &&
                           record_end(builder, rest_told_by) <= cut;
        if (found && record_end(builder, index) <= cut) {
            result.insert(index);
        }
    }
    return result;
}

std::set<u64> indexes(const ntfs_items_t &read) {
    std::set<u64> result;
    for (const ntfs_item_t &item : read.items) {
        result.insert(item.frn & NTFS_FRN_INDEX_MASK);
        EXPECT_EQ(item.name[0], 0x1000 + item.size);
        EXPECT_EQ(item.frn & NTFS_FRN_INDEX_MASK, item.size);
    }
    EXPECT_EQ(result.size(), read.items.size());
    return result;
}

TEST(NtfsDamage, AVolumeCutOffListsWhatLiesBeforeTheCut) {
    const ntfs_builder_t builder = scattered_volume();
    const ntfs_build_bytes_t image = ntfs_build_image(&builder);
    ASSERT_EQ(indexes(read_bounded(image)).size(), 47u);
    std::set<u64> cuts = {0, 1, 79, 511, 512, 1000};
    for (u64 cut = 0; cut <= image.size(); cut += 512) {
        cuts.insert({cut, cut + 1, cut + 100, cut + 511});
    }
    for (u64 cut : cuts) {
        SCOPED_TRACE(cut);
        ntfs_build_bytes_t part(image.begin(),
                                image.begin() + static_cast<i64>(std::min<u64>(cut, image.size())));
        EXPECT_EQ(indexes(read_bounded(part)), records_before(&builder, part.size()));
        if (HasFailure()) {
            break;
        }
    }
}

TEST(NtfsDamage, AReadThatFailsEndsThePass) {
    ntfs_builder_t builder;
    for (u64 i = FIRST; i < 3000; i++) {
        ntfs_build_file(&builder, i, NTFS_FRN_ROOT, std::u16string{static_cast<char16_t>(0x1000 + i)}, i);
    }
    ntfs_scripted_t script;
    script.image = ntfs_build_image(&builder);
    script.fail_from = ntfs_build_record_offset(&builder, 2500);
    os_volume_t *volume = ntfs_open_scripted(&script);
    log_scope_t log;
    const ntfs_items_t read = ntfs_read_items(volume);
    EXPECT_GE(read.items.size(), 2000u);
    EXPECT_LT(read.items.size(), 2500u);
    EXPECT_NE(log.text().find("read cluster failed\n"), std::string::npos);
    os_volume_close(volume);
}

// A system that does not tell the volume's size: what is read is bounded by what the boot sector says.
TEST(NtfsDamage, AVolumeOfUnknownSizeIsBoundedByItsBootSector) {
    for (bool damaged : {false, true}) {
        ntfs_builder_t builder = table_volume();
        if (damaged) {
            builder.records[0].attributes = {
                table_data(std::vector<ntfs_build_run_t>(180, {6, 4}), 0, 1ull << 40)};
        }
        ntfs_scripted_t script;
        script.image = ntfs_build_image(&builder);
        script.is_size_known = false;
        os_volume_t *volume = ntfs_open_scripted(&script);
        const ntfs_items_t read = ntfs_read_items(volume);
        EXPECT_LE(script.bytes_read, script.image.size() + 4096);
        if (!damaged) {
            EXPECT_EQ(read.names(), (names_t{u"a", u"b", u"c"}));
        }
        os_volume_close(volume);
    }
}

// Any bytes at all may be wrong, in the records, in the runs and in the boot sector.
TEST(NtfsDamage, AnyFlippedBitsAreSurvived) {
    ntfs_builder_t builder = scattered_volume();
    builder.records[40].attributes = {ntfs_build_attribute_list({{0x80, ntfs_build_frn(41)}}),
                                      ntfs_build_file_name(NTFS_FRN_ROOT, u"x")};
    ntfs_build_extension(&builder, 41, ntfs_build_frn(40),
                         {ntfs_build_file_name(NTFS_FRN_ROOT, u"y"), ntfs_build_resident_data(9)});
    const ntfs_build_bytes_t image = ntfs_build_image(&builder);
    const u64 hot[] = {0, ntfs_build_record_offset(&builder, 0), ntfs_build_record_offset(&builder, 16),
                       ntfs_build_record_offset(&builder, 40), ntfs_build_record_offset(&builder, 41)};
    u64 listed = 0;
    for (u32 seed = 0; seed < 1500; seed++) {
        SCOPED_TRACE(seed);
        std::mt19937 random(seed);
        ntfs_build_bytes_t flipped = image;
        for (u64 flips = 1 + random() % 12; flips; flips--) {
            const u64 place =
                random() % 4 ? hot[random() % std::size(hot)] + random() % 320 : random() % image.size();
            flipped[place] ^= static_cast<u8>(random() % 2 ? 1u << random() % 8 : random());
        }
        const ntfs_items_t read = read_bounded(flipped);
        listed += !read.items.empty();
        os_volume_t *volume = os_volume_open_memory(flipped.data(), flipped.size());
        for (u64 index : {0, 16, 40, 41, 60}) {
            db_file_info_t fd;
            ntfs_get_fd(volume, ntfs_build_frn(index), &fd);
        }
        os_volume_close(volume);
    }
    EXPECT_GT(listed, 300u); // the damage must not be such that nothing is ever read
}

} // namespace
} // namespace findwright
