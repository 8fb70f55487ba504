// Runs the input as a search over a few names. The first byte chooses the match options, the second the
// settings of the parser.
//
// Each of the vector scans must find the same. A search and its negation as a group must divide the items
// between them: each stands in exactly one of the two.
#include "base/mem.h"
#include "db/db.h"
#include "index/db_create.h"
#include "os/event.h"
#include "os/os.h"
#include "query/db_query.h"
#include "query/db_search.h"
#include "support/memory_file.h"

#include <cstdlib>
#include <string>

using namespace findwright;

static const char list[] =
    "Filename\nC:\\abc.txt\nC:\\ABC def\nC:\\r\xC3\xA9sum\xC3\xA9\\\xFF\xC3\n"
    "C:\\r\xC3\xA9sum\xC3\xA9\\a_b-c++\nc:\\\xE2\x84\xAA\xC4\xB0\\\xF0\x9F\x98\x80.a\n";

static db_query_t *create_query() {
    os_init();
    memory_file_scope_t scope;
    memory_file.bytes = list;
    db_t *db = db_create();
    db_wanted_t wanted;
    db_wanted_init(&wanted);
    db_wanted_add_file_list(&wanted, "C:\\list.fwl", true);
    db_rebuild_start(db, &wanted, nullptr);
    while (!db_is_ready(db))
        event_wait_and_dispatch(OS_INFINITE);
    event_dispatch();
    return db_query_create(db, false, nullptr, nullptr);
}

// The items that are found, one behind the other.
static std::string run(db_query_t *query, u8 options, const std::string &text) {
    db_query_params_t params = {};
    params.match_case = options & DB_MATCH_CASE;
    params.match_whole_word = options & DB_MATCH_WHOLE_WORD;
    params.match_path = options & DB_MATCH_PATH;
    params.match_diacritics = options & DB_MATCH_DIACRITICS;
    params.match_regex = options & DB_MATCH_REGEX;
    params.search = text.c_str();
    params.filter_search = "";
    db_query_search(query, &params);
    std::string found;
    for (u32 i = 0, count = db_get_result_count(query); i < count; i++) {
        const u32 ref = mem_ref(db_get_result_item(query, static_cast<i32>(i)));
        found.append(reinterpret_cast<const char *>(&ref), sizeof ref);
    }
    event_dispatch();
    return found;
}

extern "C" int LLVMFuzzerTestOneInput(const u8 *bytes, size_t size) {
    static db_query_t *query;
    static size_t all;
    if (!query) {
        query = create_query();
        all = run(query, 0, "").size();
        if (all == 0)
            std::abort();
    }
    if (size < 2)
        return 0;
    operator_precedence = bytes[1] & 1;
    allow_literal_operators = bytes[1] & 2;
    allow_round_bracket_parenthesis = bytes[1] & 4;
    convert_forward_slash_to_backslash = bytes[1] & 8;
    fast_ascii_search = !(bytes[1] & 16);
    // Up to the first 0, as a search ends there.
    const std::string text = std::string(reinterpret_cast<const char *>(bytes) + 2, size - 2).c_str();
    const std::string plain = run(query, bytes[0], text);
    db_find_scans_set(&db_find_scans_sse2);
    const std::string other = run(query, bytes[0], text);
    db_find_scans_set(nullptr);
    if (plain != other)
        std::abort();
    // A group that the text closes itself, a quote that it leaves open or an operator at its start means
    // something else behind `!<`; the match limit can end both an expression and its negation; and of a path
    // that leads nowhere no file is found, negated or not.
    if (bytes[0] & DB_MATCH_REGEX || text.find_first_of("<>()\"| \t\r\n:!") != std::string::npos ||
        text.find_first_of("\\/") != std::string::npos)
        return 0;
    if (plain.size() + run(query, bytes[0], "!<" + text + ">").size() != all)
        std::abort();
    return 0;
}
