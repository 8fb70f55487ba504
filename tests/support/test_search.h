// A database with one query on it, whose searches are waited for.
#pragma once

#include "base/mem.h"
#include "query/db_query_internal.h"
#include "support/test_db.h"

namespace findwright {

struct test_search_t {
    db_t *db;
    db_query_t *query;

    // Takes the database over.
    explicit test_search_t(db_t *of) : db(of), query(db_query_create(of, false, nullptr, nullptr)) {}
    explicit test_search_t(const std::vector<std::string> &paths)
        : test_search_t(test_db_create({test_volume_from_paths(paths)}, 0)) {}
    ~test_search_t() {
        db_destroy_query(query);
        db_destroy(db);
    }

    // The number of results.
    u32 run(const std::string &text, u32 options = 0, const char *filter = "") {
        db_query_params_t params = {};
        params.match_case = options & DB_MATCH_CASE;
        params.match_whole_word = options & DB_MATCH_WHOLE_WORD;
        params.match_path = options & DB_MATCH_PATH;
        params.match_diacritics = options & DB_MATCH_DIACRITICS;
        params.match_regex = options & DB_MATCH_REGEX;
        params.search = text.c_str();
        params.filter_search = filter;
        db_query_search(query, &params);
        return db_get_result_count(query);
    }

    // The results of the last search with a path; 0 for none.
    const db_item_t *find(const std::string &path) {
        std::vector<std::string> paths = test_result_paths(query);
        for (u32 i = 0; i < paths.size(); i++) {
            if (paths[i] == path)
                return db_get_result_item(query, static_cast<i32>(i));
        }
        return nullptr;
    }
};

// Data of terms, made by hand. Lists come sorted.
template<class data_t>
inline data_t *test_data_alloc(u32 extra) {
    data_t *data = static_cast<data_t *>(mem_alloc(sizeof(data_t) + extra));
    std::memset(static_cast<void *>(data), 0, sizeof(data_t) + extra);
    data->free = [](db_term_data_t *block) { mem_free(block); };
    return data;
}

inline db_extensions_t *test_extensions(const std::vector<const char *> &items) {
    u32 count = static_cast<u32>(items.size());
    auto *data = test_data_alloc<db_extensions_t>(count * static_cast<u32>(sizeof(db_extension_t)));
    data->count = count;
    for (u32 i = 0; i < count; i++)
        data->items[i] = {items[i], static_cast<u32>(std::strlen(items[i]))};
    return data;
}

inline db_file_list_names_t *test_file_list_names(const std::vector<const char *> &items) {
    u32 count = static_cast<u32>(items.size());
    auto *data = test_data_alloc<db_file_list_names_t>(count * static_cast<u32>(sizeof(db_file_list_name_t)));
    data->count = count;
    for (u32 i = 0; i < count; i++)
        data->items[i] = {items[i], static_cast<u32>(std::strlen(items[i])),
                          std::strchr(items[i], '\\') != nullptr};
    return data;
}

// At most one of each sort.
inline db_anchors_t *test_anchors(const db_item_t *inner, const db_item_t *outer, const db_item_t *file) {
    auto *data = test_data_alloc<db_anchors_t>(3 * sizeof(mem_ref_t));
    mem_ref_t *refs = reinterpret_cast<mem_ref_t *>(data + 1);
    auto add = [&](const db_item_t *item, u32 *count, mem_ref_t **list) {
        *list = refs;
        *count = item != nullptr;
        if (item)
            *refs++ = mem_ref(item);
    };
    add(inner, &data->inner_count, &data->inner);
    add(outer, &data->outer_count, &data->outer);
    add(file, &data->file_count, &data->files);
    return data;
}

} // namespace findwright
