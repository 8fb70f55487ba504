#include "support/test_db.h"

#include "base/utf8.h"
#include "os/event.h"

#include <map>

namespace findwright {

static constexpr u64 FIRST_FRN = 32;

static std::u16string _test_name(const std::string &text) {
    std::u16string name(text.size() + 1, 0);
    name.resize(wchar_from_utf8(name.data(), text.data(), static_cast<u32>(text.size())));
    return name;
}

test_volume_t test_volume_from_paths(const std::vector<std::string> &paths) {
    test_volume_t volume;
    std::map<std::string, u64> folders = {{"", NTFS_FRN_ROOT}};
    u64 next = FIRST_FRN;
    for (size_t place = 0; place < paths.size(); place++) {
        const std::string &path = paths[place];
        u64 parent = NTFS_FRN_ROOT;
        for (size_t start = 0; start < path.size();) {
            size_t end = std::min(path.find('\\', start), path.size());
            std::u16string name = _test_name(path.substr(start, end - start));
            if (end == path.size()) {
                volume.records.push_back({next++, parent, name, false, place, place, 0x20});
            } else {
                auto [folder, added] = folders.try_emplace(path.substr(0, end), next);
                if (added)
                    volume.records.push_back({next++, parent, name, true, 0, place, 0x10});
                parent = folder->second;
            }
            start = end + 1;
        }
    }
    return volume;
}

// The read hook: gives a test volume's records to the sink.
static void _test_read(void *param, void *user_data, ntfs_record_proc_t *sink, ntfs_progress_proc_t *) {
    const test_volume_t *volume = static_cast<const test_volume_t *>(param);
    auto give = [&](u64 frn, u64 parent, const std::u16string &name, const test_record_t &from) {
        std::vector<u8> bytes;
        for (char16_t unit : name) {
            bytes.push_back(static_cast<u8>(unit & 0xFF));
            bytes.push_back(static_cast<u8>(unit >> 8));
        }
        u32 attributes = (from.attributes & ~0x10u) | (from.is_folder ? 0x10u : 0u);
        ntfs_record_t record = {frn,
                                parent,
                                from.size,
                                from.date,
                                from.date_created ? from.date_created : from.date,
                                from.date_accessed ? from.date_accessed : from.date,
                                attributes,
                                static_cast<u32>(name.size()),
                                bytes.data()};
        sink(user_data, &record);
    };
    if (volume->has_root)
        give(NTFS_FRN_ROOT, NTFS_FRN_ROOT, u".", {0, 0, u".", true, 0, 7, 0x16});
    for (const test_record_t &record : volume->records)
        give(record.frn, record.parent_frn, record.name, record);
}

void test_add_volumes(db_wanted_t *wanted, const std::vector<test_volume_t> &volumes) {
    for (const test_volume_t &volume : volumes) {
        std::string guid = "test" + std::to_string(&volume - volumes.data());
        db_source_t *source = db_wanted_add_volume(wanted, guid.c_str(), volume.path.c_str(),
                                                   volume.root.c_str(), volume.include_only.c_str());
        source->read = _test_read;
        source->read_param = const_cast<void *>(static_cast<const void *>(&volume));
    }
}

db_t *test_db_start(const std::vector<test_volume_t> &volumes, u32 flags, const db_exclude_set_t *exclude,
                    db_rebuild_stats_t *stats) {
    db_wanted_t wanted;
    db_wanted_init(&wanted);
    test_add_volumes(&wanted, volumes);
    wanted.index_flags = flags;
    if (exclude)
        db_exclude_copy(&wanted.exclude, exclude);
    db_t *db = db_create();
    db_rebuild_start(db, &wanted, stats);
    return db;
}

void test_db_wait(db_t *db) {
    while (!db_is_ready(db))
        event_wait_and_dispatch(OS_INFINITE);
    event_dispatch();
}

db_t *test_db_create(const std::vector<test_volume_t> &volumes, u32 flags, const db_exclude_set_t *exclude,
                     db_rebuild_stats_t *stats) {
    db_t *db = test_db_start(volumes, flags, exclude, stats);
    test_db_wait(db);
    return db;
}

static std::string _test_full_path(const db_item_t *item) {
    utf8_buf_t path;
    utf8_buf_init(&path);
    db_item_get_full_path_name(&path, item);
    std::string result(path.data, static_cast<size_t>(path.length));
    utf8_buf_kill(&path);
    return result;
}

std::vector<std::string> test_array_paths(const array_t *array) {
    std::vector<std::string> paths;
    u32 page;
    i32 position;
    for (u32 i = 0; i < array->count; i++)
        paths.push_back(_test_full_path(db_item(array_get(array, i, &page, &position))));
    return paths;
}

std::vector<std::string> test_result_paths(db_query_t *query) {
    std::vector<std::string> paths;
    for (u32 i = 0, count = db_get_result_count(query); i < count; i++)
        paths.push_back(_test_full_path(db_get_result_item(query, static_cast<i32>(i))));
    return paths;
}

} // namespace findwright
