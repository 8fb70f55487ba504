// Parses and compiles the input as a search and runs it over a few names. The first byte chooses the match
// options, the second the settings of the parser.
//
// A search and its negation as a group must divide the items between them: each stands in exactly one of the
// two.
#include "base/mem.h"
#include "os/os.h"
#include "query/db_query.h"
#include "query/db_regex.h"
#include "query/db_search.h"

#include <cstdlib>
#include <string>

using namespace findwright;

static const char *const names[] = {"C:",       "abc.txt", "ABC def", "r\xC3\xA9sum\xC3\xA9",
                                    "\xFF\xC3", "a_b-c++", ""};

struct run_t {
    u32 found = 0; // a bit for each name
    bool has_regex = false;
};

static run_t run(db_query_t *query, u32 flags, const char *text, const db_item_t *const *items) {
    run_t result;
    db_term_t *terms = _db_query_term_parse_all(flags, text, false);
    for (db_term_t *term = terms; term; term = term->link)
        db_term_compile(query, term);
    for (db_term_t *term = terms; term; term = term->link) {
        term->file_term->next = term->next ? term->next->file_term : nullptr;
        term->file_term->notnext = term->notnext ? term->notnext->file_term : nullptr;
        result.has_regex = result.has_regex || term->file_term->regex;
    }
    db_scan_t scan = {};
    scan.query = query;
    utf8_buf_init(&scan.path);
    scan.regex_match = result.has_regex ? db_regex_match_create() : nullptr;
    for (u32 i = 0; i < std::size(names); i++) {
        for (const db_exec_term_t *term = query->file_terms; term;) {
            bool match = term->test(&scan, term, items[i]);
            term = match ? term->next : term->notnext;
            if (!term && match)
                result.found |= 1u << i;
        }
    }
    if (scan.regex_match)
        db_regex_match_free(scan.regex_match);
    utf8_buf_kill(&scan.path);
    db_term_free_all(terms);
    db_query_free_terms(query);
    return result;
}

extern "C" int LLVMFuzzerTestOneInput(const u8 *bytes, size_t size) {
    static db_t *db;
    static db_query_t *query;
    static const db_item_t *items[std::size(names)];
    if (!db) {
        os_init();
        db = db_create();
        query = db_query_create(db, false, nullptr, nullptr);
        for (u32 i = 0; i < std::size(names); i++) {
            u32 length = static_cast<u32>(std::strlen(names[i]));
            items[i] =
                db_item_write_head(static_cast<char *>(db_mem_alloc(&db->mem, 8 + DB_ITEM_HEAD + length)),
                                   i == 0 ? 0 : mem_ref(items[0]), i == 0, 0, names[i], length);
        }
    }
    if (size < 2)
        return 0;
    u32 flags = db_term_default_flags(bytes[0]);
    operator_precedence = bytes[1] & 1;
    allow_literal_operators = bytes[1] & 2;
    allow_round_bracket_parenthesis = bytes[1] & 4;
    convert_forward_slash_to_backslash = bytes[1] & 8;
    fast_ascii_search = !(bytes[1] & 16);
    const std::string text(reinterpret_cast<const char *>(bytes) + 2, size - 2);
    run_t plain = run(query, flags, text.c_str(), items);
    if (flags & TERM_REGEX)
        return 0;
    // The match limit can end both an expression and its negation, and a group that the text closes itself, a
    // quote that it leaves open or an operator at its start means something else behind `!<`.
    if (plain.has_regex || text.find_first_of("<>()\"| \t\r\n:!") != std::string::npos)
        return 0;
    run_t negated = run(query, flags, ("!<" + std::string(text.c_str()) + ">").c_str(), items);
    if ((plain.found ^ negated.found) != (1u << std::size(names)) - 1)
        std::abort();
    return 0;
}
