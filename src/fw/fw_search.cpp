#include "fw/fw_search.h"

#include "app/config.h"
#include "app/search_files.h"
#include "fw/fw.h"
#include "fw/fw_source.h"
#include "query/bookmark.h"
#include "query/db_query.h"
#include "query/db_search_expand.h"
#include "query/filter.h"

namespace findwright {

// --- Lists -------------------------------------------------------------------------------------------------

// The lists lie beside the user's settings even in a run that takes nothing else from there.
static void _fw_load_lists(const fw_options_t *options) {
    bool has_settings = !options->config.empty() || (options->db.empty() && !fw_source_is_given(options));
    if (!has_settings)
        config_load_placed(nullptr, nullptr);
    search_files_load_lists();
    if (!has_settings) {
        config_kill();
        config_init(FW_PIXELS_PER_INCH);
    }
}

// "there is no filter 'x'; the filters are A, B and C".
template<class Item>
static std::string _fw_tell_unknown(const char *kind, const std::string &name, const Item *head) {
    std::string known;
    for (const Item *item = head; item; item = item->next)
        known += std::string(item == head ? "" : item->next ? ", " : " and ") + item->name;
    std::string error = std::string("there is no ") + kind + " '" + name + "'";
    return known.empty() ? error + ", nor any other" : error + "; the " + kind + "s are " + known;
}

// --- The search --------------------------------------------------------------------------------------------

static std::string _fw_expand(const char *text) {
    utf8_buf_t out;
    utf8_buf_init(&out);
    db_search_expand(&out, text);
    std::string expanded = out.data;
    utf8_buf_kill(&out);
    return expanded;
}

// The options of the command line come first, then those that the bookmark stores, then those of a settings
// file that the command line names: in the user's own they are what a window's last search was.
static u32 _fw_get_match_flags(const fw_options_t *options, const bookmark_t *bookmark) {
    u32 flags = 0;
    if (!options->config.empty()) {
        flags = (match_case ? DB_MATCH_CASE : 0u) | (match_whole_word ? DB_MATCH_WHOLE_WORD : 0u) |
                (match_path ? DB_MATCH_PATH : 0u) | (match_diacritics ? DB_MATCH_DIACRITICS : 0u) |
                (match_regex ? DB_MATCH_REGEX : 0u);
    }
    if (bookmark) {
        u32 stored = bookmark->flags >> BOOKMARK_HAS_SHIFT;
        flags = (flags & ~stored) | (bookmark->flags & stored);
    }
    u32 given =
        (options->match_case ? DB_MATCH_CASE : 0u) | (options->match_whole_word ? DB_MATCH_WHOLE_WORD : 0u) |
        (options->match_path ? DB_MATCH_PATH : 0u) | (options->match_diacritics ? DB_MATCH_DIACRITICS : 0u) |
        (options->match_regex ? DB_MATCH_REGEX : 0u);
    flags = (flags & ~options->given_matches) | given;
    return flags &
           (DB_MATCH_CASE | DB_MATCH_WHOLE_WORD | DB_MATCH_PATH | DB_MATCH_DIACRITICS | DB_MATCH_REGEX);
}

static void _fw_take_sort(fw_options_t *options, const bookmark_t *bookmark) {
    if (!options->has_sort && bookmark->flags & BOOKMARK_HAS_SORT)
        options->sort = bookmark->sort | (bookmark->flags & BOOKMARK_DESCENDING ? DB_SORT_DESCENDING : 0u);
}

// --files and --folders stand in front of a filter, which keeps its meaning as a whole.
static void _fw_take_filter(fw_search_t *search, const fw_options_t *options, const filter_t *filter) {
    const char *kind = options->files_only ? "file:" : options->folders_only ? "folder:" : "";
    std::string text = filter ? _fw_expand(filter->search) : "";
    search->filter_flags = filter ? filter->flags : 0;
    if (!*kind || text.empty()) {
        search->filter_search = kind + text;
        return;
    }
    utf8_buf_t out;
    utf8_buf_init(&out);
    utf8_buf_copy_string(&out, kind);
    db_search_cat_operand(&out, text.c_str(), search->filter_flags & DB_MATCH_REGEX);
    search->filter_search = out.data;
    search->filter_flags &= ~static_cast<u32>(DB_MATCH_REGEX); // the text says it now
    utf8_buf_kill(&out);
}

static std::string _fw_make(fw_search_t *search, fw_options_t *options) {
    const bookmark_t *bookmark = nullptr;
    const filter_t *filter = nullptr;
    if (!options->bookmark.empty()) {
        bookmark = bookmark_find_by_name(options->bookmark.c_str());
        if (!bookmark)
            return _fw_tell_unknown("bookmark", options->bookmark, bookmark_head);
        _fw_take_sort(options, bookmark);
    }
    if (!options->filter.empty()) {
        filter = filter_find_by_name(options->filter.c_str());
        if (!filter)
            return _fw_tell_unknown("filter", options->filter, filter_head);
    } else if (bookmark && bookmark->flags & BOOKMARK_HAS_FILTER) {
        filter = filter_find_by_name(bookmark->filter);
        if (!filter)
            search->warnings += std::string("fw: the bookmark's filter, '") + bookmark->filter +
                                "', is not there; the results are not filtered\n";
    }
    search->match_flags = _fw_get_match_flags(options, bookmark);
    bool is_stored = bookmark && !options->has_text && bookmark->flags & BOOKMARK_HAS_SEARCH;
    search->search = _fw_expand(is_stored ? bookmark->search : options->search.c_str());
    _fw_take_filter(search, options, filter);
    return "";
}

std::string fw_search_make(fw_search_t *search, fw_options_t *options) {
    // A macro has a colon; most searches do without the lists.
    if (!options->filter.empty() || !options->bookmark.empty() ||
        options->search.find(':') != std::string::npos)
        _fw_load_lists(options);
    std::string error = _fw_make(search, options);
    search_files_free();
    return error;
}

} // namespace findwright
