// The engine against an independent judge of what a search means: random names and searches, in every
// combination of the options, on one thread and several, with each of the vector scans and with none.
//
// FINDWRIGHT_JUDGE_SEED and FINDWRIGHT_JUDGE_ROUNDS make a long run.
#include "index/db_create.h"
#include "os/os.h"
#include "query/db_search.h"
#include "support/memory_file.h"
#include "support/search_texts.h"
#include "support/test_db.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <map>
#include <set>

namespace findwright {
namespace {

u32 get_number(const char *name, u32 value) {
    const char *text = std::getenv(name);
    return text ? static_cast<u32>(std::atoi(text)) : value;
}

// A search as the window would ask for it.
struct request_t {
    std::string text, filter;
    u32 options = 0, filter_options = 0;
};

// A database of random paths, read from a list, since a list takes any bytes.
struct judged_db_t {
    db_t *db = db_create();
    db_query_t *query = nullptr;
    judge_items_t items; // folders, then files, as the name arrays have them
    std::vector<u32> refs;
    u32 folder_count = 0;

    judged_db_t(std::mt19937 &random, u32 count) {
        const std::vector<std::string> paths = random_paths(random, count);
        read_list(paths);
        query = db_query_create(db, false, nullptr, nullptr);
        std::map<u32, u32> places;
        std::set<std::string> found;
        for (const array_t *array : {&db->folder_name_array, &db->file_name_array}) {
            u32 page;
            i32 position;
            for (u32 i = 0; i < array->count; i++) {
                places[array_get(array, i, &page, &position)] = static_cast<u32>(refs.size());
                refs.push_back(array_get(array, i, &page, &position));
            }
            for (const std::string &path : test_array_paths(array))
                found.insert(path + (array == &db->folder_name_array ? "\\" : ""));
        }
        folder_count = db->folder_name_array.count;
        for (const std::string &path : paths)
            EXPECT_TRUE(found.contains(path)) << testing::PrintToString(path);
        items.resize(refs.size());
        for (u32 i = 0; i < refs.size(); i++)
            describe(places, i);
    }
    ~judged_db_t() {
        db_destroy_query(query);
        db_destroy(db);
    }

    void read_list(const std::vector<std::string> &paths) {
        memory_file_scope_t scope;
        memory_file.bytes = "Filename,Attributes\n";
        for (const std::string &path : paths) {
            memory_file.bytes += '"';
            for (char c : path)
                memory_file.bytes += c == '"' ? "\"\"" : std::string(1, c);
            memory_file.bytes += path.back() == '\\' ? "\",16\n" : "\",32\n";
        }
        db_wanted_t wanted;
        db_wanted_init(&wanted);
        db_wanted_add_file_list(&wanted, "C:\\list.fwl", true);
        db_rebuild_start(db, &wanted, nullptr);
        test_db_wait(db);
    }
    // Parents first.
    void describe(const std::map<u32, u32> &places, u32 place) {
        judge_item_t &judged = items[place];
        if (!judged.path.bytes.empty())
            return;
        const u32 parent = db_item(refs[place])->parent;
        u32 length;
        const char *name = db_item_get_name(db_item(refs[place]), &length);
        judged.is_folder = place < folder_count;
        judged.path = judged.name = judge_text(std::string(name, length));
        if (parent) {
            describe(places, places.at(parent));
            judged.parent = &items[places.at(parent)];
            judged.path = judge_join(judged.parent->path, judged.name);
        }
        if (!judged.path.is_valid)
            judged.flat_path = judge_text(judged.path.bytes);
    }

    // The answers of the engine, by item.
    std::vector<bool> run(const request_t &request) {
        db_query_params_t params = {};
        params.match_case = request.options & DB_MATCH_CASE;
        params.match_whole_word = request.options & DB_MATCH_WHOLE_WORD;
        params.match_path = request.options & DB_MATCH_PATH;
        params.match_diacritics = request.options & DB_MATCH_DIACRITICS;
        params.match_regex = request.options & DB_MATCH_REGEX;
        params.search = request.text.c_str();
        params.filter_search = request.filter.c_str();
        params.filter_flags = request.filter_options;
        db_query_search(query, &params);
        db_get_result_count(query);
        std::vector<bool> answers(refs.size());
        u32 place = 0;
        for (const array_t *results : {&query->folder_results, &query->file_results}) {
            u32 page;
            i32 position;
            for (u32 i = 0; i < results->count; i++) {
                const u32 ref = array_get(results, i, &page, &position);
                while (place < refs.size() && refs[place] != ref)
                    place++;
                if (place == refs.size()) {
                    ADD_FAILURE() << "a result is out of order or stands twice: " << request.text;
                    return answers;
                }
                answers[place++] = true;
            }
        }
        return answers;
    }
};

std::string escaped(const std::string &text) {
    std::string out;
    char buffer[8];
    for (char c : text) {
        std::snprintf(buffer, sizeof buffer, c < 0x20 || c >= 0x7F ? "\\x%02X" : "%c", static_cast<u8>(c));
        out += c == '\\' ? "\\\\" : buffer;
    }
    return out;
}

// How a search is run.
struct way_t {
    u32 threads;
    const db_find_scans_t *scans;
    bool in_chain; // behind a term that is always true, so that each item is tested for itself
};

struct tally_t {
    u64 pairs = 0, found = 0, open = 0;
    u32 failures = 0, limit = 1;
    std::map<u32, u64> ops; // items found by searches of one term, by the op
};

struct settings_t {
    ~settings_t() {
        operator_precedence = allow_literal_operators = allow_round_bracket_parenthesis = 0;
        convert_forward_slash_to_backslash = os_path_separator == '/';
        match_path_when_search_contains_path_separator = 1;
        match_whole_filename_when_using_wildcards = fast_ascii_search = 1;
        max_threads = 0;
        db_find_scans_set(nullptr);
    }
};

judge_flags_t get_flags(u32 options) {
    judge_flags_t flags = {};
    flags.match_case = options & DB_MATCH_CASE;
    flags.whole_word = options & DB_MATCH_WHOLE_WORD;
    flags.path = options & DB_MATCH_PATH;
    flags.diacritics = options & DB_MATCH_DIACRITICS;
    flags.regex = options & DB_MATCH_REGEX;
    flags.wildcards = true;
    flags.whole_name_wildcards = match_whole_filename_when_using_wildcards;
    flags.fast_ascii = fast_ascii_search;
    return flags;
}

// Runs a search and compares it with what the judge says of the same trees.
void check(judged_db_t &db, request_t request, const judge_node_t &search, const judge_node_t *filter,
           const way_t &way, tally_t *tally) {
    const judge_settings_t settings = {convert_forward_slash_to_backslash != 0,
                                       match_path_when_search_contains_path_separator != 0};
    std::vector<judge_answer_t> expected =
        judge_search(search, get_flags(request.options), settings, db.items);
    if (filter) {
        const auto more = judge_search(*filter, get_flags(request.filter_options), settings, db.items);
        for (u32 i = 0; i < more.size(); i++) {
            if (expected[i] == JUDGE_YES || (expected[i] == JUDGE_ANY && more[i] == JUDGE_NO))
                expected[i] = more[i];
        }
    }
    max_threads = way.threads;
    db_find_scans_set(way.scans);
    if (way.in_chain && !(request.options & DB_MATCH_REGEX))
        request.text = "\"\" <" + request.text + ">";
    const std::vector<bool> answers = db.run(request);
    u64 found = 0;
    for (u32 i = 0; i < answers.size(); i++) {
        found += answers[i];
        tally->open += expected[i] == JUDGE_ANY;
        if (expected[i] == JUDGE_ANY || answers[i] == (expected[i] == JUDGE_YES) ||
            tally->failures >= tally->limit)
            continue;
        tally->failures++;
        const db_exec_term_t *term = db.items[i].is_folder ? db.query->folder_terms : db.query->file_terms;
        ADD_FAILURE() << (db.items[i].is_folder ? "folder '" : "file '") << escaped(db.items[i].path.bytes)
                      << "'\n  search '" << escaped(request.text) << "' options " << request.options
                      << " filter '" << escaped(request.filter) << "' options " << request.filter_options
                      << "\n  precedence " << operator_precedence << " literal " << allow_literal_operators
                      << " brackets " << allow_round_bracket_parenthesis << " slash "
                      << convert_forward_slash_to_backslash << " separator "
                      << match_path_when_search_contains_path_separator << " wild "
                      << match_whole_filename_when_using_wildcards << " ascii " << fast_ascii_search
                      << " threads " << way.threads << " scans "
                      << (way.scans == &db_find_scans_sse2 ? "sse2" : "own") << " chain " << way.in_chain
                      << " first op " << term->op << "\n  the judge says " << !answers[i]
                      << ", the engine says " << answers[i];
        break;
    }
    tally->pairs += answers.size();
    tally->found += found;
    if (db.query->file_terms && !db.query->file_terms->link)
        tally->ops[db.query->file_terms->op] += found;
}

void choose_settings(std::mt19937 &random) {
    operator_precedence = random() % 2;
    allow_literal_operators = random() % 3 == 0;
    allow_round_bracket_parenthesis = random() % 3 == 0;
    match_path_when_search_contains_path_separator = random() % 4 != 0;
    match_whole_filename_when_using_wildcards = random() % 3 != 0;
    fast_ascii_search = random() % 4 != 0;
    convert_forward_slash_to_backslash = random() % 4 == 0;
}

search_syntax_t get_syntax() {
    return {operator_precedence != 0, allow_literal_operators != 0, allow_round_bracket_parenthesis != 0};
}

way_t random_way(std::mt19937 &random) {
    return {random() % 2 ? 4u : 1u, random() % 2 ? &db_find_scans_sse2 : nullptr, random() % 4 == 0};
}

judge_node_t wrap(judge_kind_t kind, const std::string &text, const judge_node_t &node) {
    judge_node_t outer;
    outer.kind = kind;
    outer.text = text;
    outer.nodes = {node};
    return outer;
}

// One term, with all combinations of the options and of negation in turn.
void check_term(judged_db_t &db, std::mt19937 &random, u32 turn, tally_t *tally) {
    choose_settings(random);
    request_t request;
    request.options = turn % 16;
    judge_node_t search;
    if (turn / 32 % 8 == 7) {
        search.text = random_regex(random, db.items);
        search = wrap(JUDGE_MODIFIED, "regex:", search);
    } else {
        search.text = random_term(random, db.items, request.options & DB_MATCH_PATH || random() % 8 == 0);
        if (turn / 32 % 8 == 6)
            search = wrap(JUDGE_MODIFIED, random() % 2 ? "wfn:" : "nowildcards:", search);
    }
    if (turn & 16)
        search = wrap(JUDGE_NOT, "", search);
    request.text = search_text(random, get_syntax(), search);
    check(db, request, search, nullptr, random_way(random), tally);
}

// A regular expression as the whole search.
void check_regex(judged_db_t &db, std::mt19937 &random, tally_t *tally) {
    choose_settings(random);
    judge_node_t search;
    search.text = random_regex(random, db.items);
    if (search.text.empty() || search.text[0] == ' ')
        return;
    request_t request = {search.text, "", DB_MATCH_REGEX | static_cast<u32>(random() % 16), 0};
    check(db, request, search, nullptr, random_way(random), tally);
}

void check_expression(judged_db_t &db, std::mt19937 &random, tally_t *tally) {
    choose_settings(random);
    const search_syntax_t syntax = get_syntax();
    request_t request;
    request.options = random() % 3 ? 0 : random() % 16;
    const judge_node_t search = random_search(random, syntax, db.items, 1 + random() % 4);
    request.text = search_text(random, syntax, search);
    judge_node_t filter;
    const bool has_filter = random() % 5 == 0;
    if (has_filter) {
        request.filter_options = random() % 16;
        filter = random_search(random, syntax, db.items, 1);
        request.filter = search_text(random, syntax, filter);
    }
    check(db, request, search, has_filter ? &filter : nullptr, random_way(random), tally);
}

TEST(DbSearchJudge, TheEngineFindsWhatTheSearchMeans) {
    settings_t restore;
    tally_t tally;
    tally.limit = get_number("FINDWRIGHT_JUDGE_FAILURES", 1);
    std::mt19937 random(get_number("FINDWRIGHT_JUDGE_SEED", 1));
    const u32 rounds = get_number("FINDWRIGHT_JUDGE_ROUNDS", 3);
    for (u32 round = 0; round < rounds && tally.failures < tally.limit; round++) {
        // The first index is large enough for two threads: more than 17 pages of files.
        judged_db_t db(random, round == 0 ? 19000 : 150);
        for (u32 i = 0; i < (round == 0 ? 8u : 256u); i++)
            check_term(db, random, round == 0 ? static_cast<u32>(random()) : i, &tally);
        for (u32 i = 0; i < (round == 0 ? 4u : 80u); i++)
            check_expression(db, random, &tally);
        for (u32 i = 0; i < (round == 0 ? 1u : 20u); i++)
            check_regex(db, random, &tally);
    }
    std::printf("%llu pairs, %llu found, %llu open, %zu ops\n", static_cast<unsigned long long>(tally.pairs),
                static_cast<unsigned long long>(tally.found), static_cast<unsigned long long>(tally.open),
                tally.ops.size());
    EXPECT_GE(tally.pairs, 200000u);
}

} // namespace
} // namespace findwright
