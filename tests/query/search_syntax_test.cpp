// The page for users of the search language: each of its examples finds as many items as it says, and each
// name that a search knows is on it.
//
// Examples are the tables whose head begins with `| Search | Results |`. A comment of the page,
// `<!-- examples: NAME=VALUE ... -->`, tells what the next one of them needs:
//
//     source=folder, source=both   the folder with texts, or that behind the list of the sample
//     source=linux                 the list of paths of Linux
//     columns=0                    an index of names alone
//     folder_sizes=1               one with the sizes of folders
//     history=1                    the page's table of runs and changes
//     only=linux                   not run on Windows
//     a setting or match option    for these examples
#include "db/db_file.h"
#include "db/db_folder.h"
#include "os/os_test_support.h"
#include "query/db_explain.h"
#include "query/db_highlight.h"
#include "query/db_query_internal.h"
#include "query/db_query_value.h"
#include "query/db_search_expand.h"
#include "query/filter.h"
#include "support/test_search.h"
#include "track/db_recent_change.h"
#include "track/db_run_history.h"

#include <map>
#include <memory>
#include <set>
#include <sstream>

namespace findwright {
namespace {

using conditions_t = std::map<std::string, std::string>;
using cells_t = std::vector<std::string>;

struct example_t {
    u32 line;
    std::string search;
    std::string count;
    conditions_t conditions;
};
struct change_t {
    std::string path;
    u32 runs;
    u64 run_date, change_date; // 0 for none
};
struct page_t {
    std::string text;
    std::vector<example_t> examples;
    std::vector<change_t> changes;
    std::vector<std::string> names; // that the tables of modifiers and functions tell of
};

// --- The page ----------------------------------------------------------------------------------------------

bool begins(const std::string &text, const char *prefix) {
    return text.rfind(prefix, 0) == 0;
}

// The cells of a line of a table, without the blanks around them; `\|` is a `|` in one.
cells_t split_cells(const std::string &line) {
    cells_t cells(1);
    for (size_t i = 1; i < line.size(); i++) {
        if (line[i] == '\\' && i + 1 < line.size() && line[i + 1] == '|')
            cells.back() += line[++i];
        else if (line[i] == '|')
            cells.emplace_back();
        else
            cells.back() += line[i];
    }
    cells.pop_back(); // behind the last `|`
    for (std::string &cell : cells) {
        size_t first = cell.find_first_not_of(' ');
        cell = first == std::string::npos ? "" : cell.substr(first, cell.find_last_not_of(' ') + 1 - first);
    }
    return cells;
}

// All texts between backticks.
cells_t split_code(const std::string &cell) {
    cells_t codes;
    std::string text = cell;
    for (size_t start; (start = text.find('`')) != std::string::npos;) {
        size_t end = text.find('`', start + 1);
        if (end == std::string::npos)
            break;
        codes.push_back(text.substr(start + 1, end - start - 1));
        text.erase(0, end + 1);
    }
    return codes;
}

u64 read_date(const std::string &text) {
    return text.empty() ? 0 : db_query_parse_date(text.c_str(), false).low;
}

conditions_t read_conditions(const std::string &line) {
    conditions_t conditions;
    std::istringstream words(line);
    for (std::string word; words >> word;) {
        if (size_t equals = word.find('='); equals != std::string::npos)
            conditions[word.substr(0, equals)] = word.substr(equals + 1);
    }
    return conditions;
}

void read_row(page_t *page, const std::string &head, const example_t &row, const cells_t &cells) {
    cells_t codes = split_code(cells[0]);
    if (begins(head, "| Search | Results |")) {
        page->examples.push_back(row);
        page->examples.back().search = codes.empty() ? "" : codes[0];
        page->examples.back().count = cells[1];
    } else if (begins(head, "| Item | Opened |")) {
        page->changes.push_back({codes[0], static_cast<u32>(std::strtoul(cells[1].c_str(), nullptr, 10)),
                                 read_date(cells[2]), read_date(cells[3])});
    } else if (begins(head, "| Modifier |") || begins(head, "| Function |")) {
        page->names.insert(page->names.end(), codes.begin(), codes.end());
    }
}

page_t read_page() {
    page_t page;
    utf8_buf_t text;
    utf8_buf_init(&text);
    EXPECT_TRUE(utf8_buf_read_file(&text, FINDWRIGHT_TEST_DATA "/../../docs/search-syntax.md"));
    page.text = text.data;
    utf8_buf_kill(&text);
    std::istringstream lines(page.text);
    std::string line, head;
    example_t row = {};
    while (std::getline(lines, line)) {
        row.line++;
        while (!line.empty() && line.back() == '\r')
            line.pop_back();
        if (begins(line, "<!-- examples:"))
            row.conditions = read_conditions(line);
        if (!begins(line, "|")) {
            if (begins(head, "| Search |"))
                row.conditions.clear();
            head.clear();
        } else if (head.empty()) {
            head = line;
        } else if (!begins(line, "|---")) {
            read_row(&page, head, row, split_cells(line));
        }
    }
    return page;
}

// --- The index ---------------------------------------------------------------------------------------------

constexpr u32 FLAGS = TEST_FLAGS_ALL & ~DB_FLAG_FOLDER_SIZE;

std::string get_data_path(const char *name) {
    const std::string data = std::string(FINDWRIGHT_TEST_DATA) + "/" + name;
    utf8_buf_t inside, clean;
    utf8_buf_init(&inside);
    utf8_buf_init(&clean);
    os_path_from_system(data.data(), static_cast<u32>(data.size()), &inside);
    db_wanted_clean_path(inside.data, &clean);
    std::string path = clean.data;
    utf8_buf_kill(&clean);
    utf8_buf_kill(&inside);
    return path;
}

std::string get(const conditions_t &conditions, const char *name) {
    auto found = conditions.find(name);
    return found == conditions.end() ? "" : found->second;
}

db_t *create_db(const conditions_t &conditions) {
    db_wanted_t wanted;
    db_wanted_init(&wanted);
    wanted.index_flags = get(conditions, "columns") == "0"        ? 0
                         : get(conditions, "folder_sizes") == "1" ? TEST_FLAGS_ALL
                                                                  : FLAGS;
    const std::string source = get(conditions, "source");
    if (source == "linux")
        db_wanted_add_file_list(&wanted, get_data_path("search-syntax-linux.fwl").c_str(), false);
    else if (source != "folder")
        db_wanted_add_file_list(&wanted, get_data_path("search-syntax.fwl").c_str(), false);
    if (source == "folder" || source == "both")
        db_wanted_add_folder(&wanted, get_data_path("search-syntax").c_str());
    db_t *db = db_create();
    db_rebuild_start(db, &wanted, nullptr);
    test_db_wait(db);
    db_wanted_kill(&wanted);
    return db;
}

void add_changes(test_search_t *search, const std::vector<change_t> &changes) {
    for (const change_t &change : changes) {
        search->run("");
        const db_item_t *item = search->find(change.path);
        ASSERT_NE(item, nullptr) << change.path;
        bool is_folder = search->run("folder:wfn:\"" + change.path + "\"") == 1;
        if (change.runs)
            db_run_history_set_item(search->db, item, is_folder, change.runs, change.run_date);
        if (change.change_date)
            db_recent_change_set(search->db, is_folder, item, change.change_date);
    }
}

// --- One example -------------------------------------------------------------------------------------------

struct setting_t {
    const char *name;
    u32 *value;
};
const setting_t settings[] = {
    {"operator_precedence", &operator_precedence},
    {"allow_literal_operators", &allow_literal_operators},
    {"allow_round_bracket_parenthesis", &allow_round_bracket_parenthesis},
    {"match_whole_filename_when_using_wildcards", &match_whole_filename_when_using_wildcards},
    {"match_path_when_search_contains_path_separator", &match_path_when_search_contains_path_separator},
};
const struct {
    const char *name;
    u32 option;
} options[] = {
    {"match_case", DB_MATCH_CASE},
    {"match_path", DB_MATCH_PATH},
    {"match_regex", DB_MATCH_REGEX},
};
const char *const index_conditions[] = {"source", "columns", "folder_sizes", "history"};

// Takes the settings out of the conditions for as long as it lives.
struct settings_t {
    std::map<u32 *, u32> old;
    u32 match_options = 0;

    explicit settings_t(conditions_t conditions) {
        for (const setting_t &setting : settings) {
            old[setting.value] = *setting.value;
            if (conditions.count(setting.name))
                *setting.value = get(conditions, setting.name) == "1";
            conditions.erase(setting.name);
        }
        for (auto option : options) {
            match_options |= get(conditions, option.name) == "1" ? option.option : 0;
            conditions.erase(option.name);
        }
        for (const char *name : index_conditions)
            conditions.erase(name);
        conditions.erase("only");
        EXPECT_TRUE(conditions.empty()) << conditions.begin()->first;
    }
    ~settings_t() {
        for (auto [value, was] : old)
            *value = was;
    }
};

std::string expand(const std::string &text) {
    utf8_buf_t out;
    utf8_buf_init(&out);
    db_search_expand(&out, text.c_str());
    std::string expanded = out.data;
    utf8_buf_kill(&out);
    return expanded;
}

// What else is told of a search: its terms, and what of its results to mark, which is the text itself.
void look_at_results(db_query_t *query, u32 count, const std::string &where) {
    utf8_buf_t text;
    utf8_buf_init(&text);
    db_query_explain(query, &text);
    EXPECT_NE(text.length, 0) << where;
    db_highlight_t marked;
    db_highlight_init(&marked);
    for (u32 i = 0; i < count; i++) {
        db_get_result_full_path_name(query, static_cast<i32>(i), &text);
        db_get_highlighted_full_path_name(query, static_cast<i32>(i), &marked);
        EXPECT_STREQ(text.data, marked.text.data) << where;
    }
    db_highlight_kill(&marked);
    utf8_buf_kill(&text);
}

// The day that the page's counts hold on, and how it writes dates.
struct clock_page_t {
    clock_page_t() {
        const os_calendar_t calendar = {1, OS_ORDER_DAY_MONTH_YEAR, 2049};
        db_query_set_calendar(&calendar);
        db_query_set_now(read_date("2026-07-15T12:00"));
        filter_list_load((folder / "none").c_str());
    }
    ~clock_page_t() {
        filter_list_free();
        db_query_set_now(0);
        db_query_set_calendar(nullptr);
    }
    temp_folder_t folder;
};

TEST(SearchSyntaxPage, ExamplesFindWhatItSays) {
    clock_page_t clock;
    const page_t page = read_page();
    std::map<conditions_t, std::unique_ptr<test_search_t>> searches;
    EXPECT_GE(page.examples.size(), 150u);
    EXPECT_FALSE(page.changes.empty());
    for (const example_t &example : page.examples) {
        if (get(example.conditions, "only") == "linux" && os_path_separator != '/')
            continue;
        conditions_t index;
        for (const char *name : index_conditions)
            index[name] = get(example.conditions, name);
        std::unique_ptr<test_search_t> &search = searches[index];
        if (!search) {
            search = std::make_unique<test_search_t>(create_db(example.conditions));
            if (get(index, "history") == "1")
                add_changes(search.get(), page.changes);
        }
        settings_t taken(example.conditions);
        u32 count = search->run(expand(example.search), taken.match_options);
        const std::string where =
            "docs/search-syntax.md:" + std::to_string(example.line) + ": " + example.search;
        EXPECT_EQ(example.count, std::to_string(count)) << where;
        look_at_results(search->query, count, where);
    }
}

TEST(SearchSyntaxPage, TellsOfEachName) {
    const page_t page = read_page();
    const std::set<std::string> told(page.names.begin(), page.names.end());
    std::set<std::string> known;
    for (auto get_name : {db_query_get_modifier_name, db_query_get_function_name}) {
        for (u32 i = 0; const char *name = get_name(i); i++) {
            EXPECT_TRUE(known.insert(name).second) << name << " is known twice";
            EXPECT_TRUE(told.count(name)) << name << " is not on the page";
        }
    }
    EXPECT_GT(known.size(), 80u);
    for (const std::string &name : told)
        EXPECT_TRUE(known.count(name)) << name << " is not known";
}

} // namespace
} // namespace findwright
