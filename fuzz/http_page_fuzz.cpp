// Puts the input's texts, one a line, into a page and its JSON wherever a name, a path or a search can stand,
// and reads both with strict readers: no text leaves its place, and each comes out as it went in. The first
// byte chooses the kind of page, the four bytes behind it the offset and the count.
#include "remote/http_page.h"

#include "os/os.h"
#include "support/http_check.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

using namespace findwright;

static const http_texts_t texts = {"P",    "S",    "search", "one",      "%s",   "%s - %s of %s", "name",
                                   "path", "size", "date",   "previous", "next", "of %s",         "up"};

static void check(const http_checked_t &read, const utf8_buf_t &out) {
    if (read.error.empty())
        return;
    std::fprintf(stderr, "%s\n%s\n", read.error.c_str(), out.data);
    std::abort();
}

static void check_same(const std::string &is, const std::string &expected) {
    if (is == expected)
        return;
    std::fprintf(stderr, "%s\n%s\n", is.c_str(), expected.c_str());
    std::abort();
}

extern "C" int LLVMFuzzerTestOneInput(const u8 *bytes, size_t size) {
    static const bool is_started = (os_init(), true);
    static_cast<void>(is_started);
    if (size < 5)
        return 0;
    std::string parts[3];
    size_t part = 0;
    for (size_t i = 5; i < size; i++) {
        if (bytes[i] == '\n' && part < 2)
            part++;
        else
            parts[part] += static_cast<char>(bytes[i]);
    }
    const std::string &search = parts[0], &name = parts[1], &path = parts[2];
    http_query_t query;
    http_query_init(&query, 32);
    query.search = utf8_alloc_copy(search.c_str());
    query.live = query.path_column = query.size_column = true;
    query.match_case = bytes[0] & 1;
    query.offset = bytes[1] | bytes[2] << 8;
    query.count = bytes[3] & 63;
    query.sort_key = static_cast<http_sort_t>(bytes[0] >> 1 & 3);
    http_page_t page = {};
    page.texts = &texts;
    page.query = &query;
    page.title = search.c_str();
    page.is_folder_page = bytes[0] & 8;
    page.allow_file_download = bytes[0] & 16;
    page.is_fast_sort = true;
    page.folder = page.parent = path.data();
    page.folder_length = page.parent_length = static_cast<u32>(path.size());
    page.items_per_page = 32;
    page.total = bytes[4] * 16u;
    page.shown = 1;
    db_highlight_t marks;
    db_highlight_init(&marks);
    utf8_buf_copy_utf8(&marks.text, name.data(), static_cast<u32>(name.size()));
    db_highlight_run_t run = {0, static_cast<u32>(name.size())};
    marks.runs = &run;
    marks.run_count = name.empty() ? 0 : 1;
    const http_row_t row = {
        true,   name.data(), static_cast<u32>(name.size()), path.data(), static_cast<u32>(path.size()), 1, 2,
        &marks, &marks};
    utf8_buf_t out;
    utf8_buf_init(&out);
    http_page_cat_begin(&out, &page);
    http_page_cat_row(&out, &page, 0, &row);
    http_page_cat_end(&out, &page);
    const http_checked_t html = http_check_html({out.data, static_cast<size_t>(out.length)});
    check(html, out);
    check_same(html.get("input.value"), http_check_shown(search.c_str()));

    utf8_buf_empty(&out);
    http_json_cat_begin(&out, &page);
    http_json_cat_row(&out, &page, true, &row);
    http_json_cat_end(&out, &page, false);
    const http_checked_t json = http_check_json({out.data, static_cast<size_t>(out.length)});
    check(json, out);
    // Names of the system's own are shown in its form.
    if (path.find_first_of("\\/") != 0 && name.find('\\') != 0 && !name.empty())
        check_same(json.get("name"), http_check_shown(name));
    utf8_buf_kill(&out);
    marks.runs = nullptr;
    db_highlight_kill(&marks);
    http_query_kill(&query);
    return 0;
}
