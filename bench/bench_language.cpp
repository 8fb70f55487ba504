// Language rows: what the search language has beyond a plain term, each beside ripgrep with an expression of
// the same meaning over the same names, or the same full paths.
//
// The answers are compared line by line, names or paths with their repetitions, before anything is timed.
#include "bench.h"

#include "db/db_item.h"
#include "os/os.h"

#include <algorithm>
#include <cstdio>
#include <iterator>
#include <sys/stat.h>
#include <unordered_set>

namespace findwright {

static constexpr double LANGUAGE_TARGET = 1.0; // times the peer's time
static constexpr u32 THREADS = 2;
static constexpr u32 EXAMPLES_MAX = 5;
static constexpr u32 EMPTY_FOLDERS = 1000;

// --- Lines -------------------------------------------------------------------------------------------------

using _bench_lines_t = std::vector<std::string_view>;

static void _bench_split(const std::string &text, _bench_lines_t *lines) {
    for (size_t start = 0; start < text.size();) {
        size_t end = std::min(text.find('\n', start), text.size());
        lines->push_back(std::string_view(text).substr(start, end - start));
        start = end + 1;
    }
    std::sort(lines->begin(), lines->end());
}

static bool _bench_is_ascii(std::string_view text) {
    return std::all_of(text.begin(), text.end(), [](char c) { return static_cast<u8>(c) < 0x80; });
}

// A name as it is on its disk, where a `\` may stand in it.
static void _bench_add_name(std::string *text, const db_item_t *item) {
    static constexpr char BACKSLASH[] = "\uF05C"; // in the index
    u32 length;
    const char *name = db_item_get_name(item, &length);
    size_t start = text->size();
    text->append(name, length).push_back('\n');
    while ((start = text->find(BACKSLASH, start)) != text->npos)
        text->replace(start, sizeof BACKSLASH - 1, "\\");
}

static void _bench_add_path(std::string *text, utf8_buf_t *path, const db_item_t *item) {
    db_item_get_full_path_name(path, item);
    text->append(path->data, static_cast<size_t>(path->length)).push_back('\n');
}

// --- The file of full paths --------------------------------------------------------------------------------

static bool _bench_is_newer(const std::string &name, const std::string &other) {
    struct stat info, other_info;
    return stat(name.c_str(), &info) == 0 && stat(other.c_str(), &other_info) == 0 &&
           info.st_mtime >= other_info.st_mtime;
}

// Writes the full paths of all items, as the program shows them, one per line; once.
static bool _bench_write_items(const std::string &data, const db_t *db, const std::string &name) {
    if (_bench_is_newer(name, data + "/paths.txt"))
        return true;
    std::string part = data + "/items.part";
    FILE *file = fopen(part.c_str(), "wb");
    if (!file)
        return false;
    bool ok = true;
    utf8_buf_t path;
    utf8_buf_init(&path);
    for (const array_t *array : {&db->folder_name_array, &db->file_name_array}) {
        std::string text;
        auto write = [&] {
            ok = ok && fwrite(text.data(), 1, text.size(), file) == text.size();
            text.clear();
        };
        bench_for_each(array, [&](const db_item_t *item) {
            _bench_add_path(&text, &path, item);
            if (text.size() > 1 << 20)
                write();
        });
        write();
    }
    utf8_buf_kill(&path);
    ok = fclose(file) == 0 && ok;
    return ok && rename(part.c_str(), name.c_str()) == 0;
}

// --- The searches ------------------------------------------------------------------------------------------

// Sixty real extensions, most of them among the most frequent of these names.
static const std::vector<std::string> _bench_extensions = {
    "html", "png", "svg", "gz",   "py",  "js",  "txt",   "mo",  "go",      "rs",   "xml",   "hpp",
    "rb",   "php", "pm",  "so",   "jpg", "css", "gif",   "ogg", "md",      "po",   "cpp",   "hxx",
    "jar",  "xpm", "lua", "pdf",  "tex", "yml", "cfg",   "wav", "conf",    "java", "cmake", "pl",
    "ts",   "sh",  "dat", "json", "ttf", "otf", "yaml",  "qml", "sql",     "ini",  "vim",   "toml",
    "doc",  "bmp", "tcl", "asm",  "bin", "elc", "xhtml", "rst", "desktop", "desc", "scm",   "exe"};

static std::string _bench_join(const std::vector<std::string> &texts, char between) {
    std::string joined;
    for (const std::string &text : texts)
        joined.append(joined.empty() ? "" : std::string(1, between)).append(text);
    return joined;
}

enum _bench_lines_kind_t : u32 {
    BENCH_NAMES,
    BENCH_FILES, // names; the search finds no folders, which the peer cannot tell apart
    BENCH_PATHS,
};

struct _bench_line_t {
    std::string what; // in the table
    std::string search;
    std::vector<std::string> peer; // its arguments, as they list what it finds
    _bench_lines_kind_t kind;
    std::vector<double> ours_times, peer_times;
    bool equal;
};

// ripgrep's arguments; with `-c` it counts, without it lists.
static std::vector<std::string> _bench_rg(const std::vector<std::string> &options, const std::string &file) {
    std::vector<std::string> arguments = {"rg", "-j1", "-i"};
    arguments.insert(arguments.end(), options.begin(), options.end());
    arguments.push_back(file);
    return arguments;
}

static std::vector<_bench_line_t> _bench_make_lines(const std::string &names, const std::string &items) {
    std::vector<_bench_line_t> lines;
    auto add = [&](const std::string &what, const std::string &search, const std::vector<std::string> &peer,
                   _bench_lines_kind_t kind = BENCH_NAMES) {
        lines.push_back({what, search, peer, kind, {}, {}, false});
    };
    auto add_wildcards = [&](const char *search, const char *expression) {
        add(bench_format("`%s`, rg %s", search, expression), search, _bench_rg({"-e", expression}, names));
    };
    auto add_regex = [&](const std::string &search, const char *expression) {
        add("`" + search + "`, rg with the same", search, _bench_rg({"-e", expression}, names));
    };
    add("whole word `ww:config`, rg -w", "ww:config", _bench_rg({"-w", "-F", "config"}, names));
    add_wildcards("*.png", "\\.png$");
    add_wildcards("lib*", "^lib");
    add_wildcards("lib*config*.h", "^lib.*config.*\\.h$");
    add(bench_format("`ext:` with %zu extensions, rg \\.(...)$", _bench_extensions.size()),
        "ext:" + _bench_join(_bench_extensions, ';'),
        _bench_rg({"-e", "\\.(" + _bench_join(_bench_extensions, '|') + ")$"}, names), BENCH_FILES);
    add("`path:python path:test` over full paths, rg (python.*test|test.*python)", "path:python path:test",
        _bench_rg({"-e", "(python.*test|test.*python)"}, items), BENCH_PATHS);
    // The second argument of the script, where there is one, is the `-c`.
    add("three terms `config|notify !qt`, rg | rg -v", "config|notify !qt",
        {"sh", "-c", "rg -j1 -i 'config|notify' \"$1\" | rg -j1 -i -v ${2:+\"$2\"} -F qt", "sh", names});
    add_regex("regex:\"^lib.*\\.so\\.[0-9]+$\"", "^lib.*\\.so\\.[0-9]+$");
    add_regex(BENCH_SLOW_SEARCH, BENCH_SLOW_EXPRESSION);
    return lines;
}

// --- Answers -----------------------------------------------------------------------------------------------

// What the search has found; and, where it finds files only, the folders that it would find else, by their
// names' ends. Returns their number.
static u64 _bench_collect(db_t *db, db_query_t *query, const _bench_line_t &line, std::string *text) {
    utf8_buf_t path;
    utf8_buf_init(&path);
    u32 count = db_get_result_count(query);
    for (u32 i = 0; i < count; i++) {
        const db_item_t *item = db_get_result_item(query, static_cast<i32>(i));
        if (line.kind == BENCH_PATHS)
            _bench_add_path(text, &path, item);
        else
            _bench_add_name(text, item);
    }
    utf8_buf_kill(&path);
    u64 folders = 0;
    if (line.kind != BENCH_FILES)
        return folders;
    std::unordered_set<std::string> extensions(_bench_extensions.begin(), _bench_extensions.end());
    bench_for_each(&db->folder_name_array, [&](const db_item_t *item) {
        u32 length;
        const char *name = db_item_get_name(item, &length);
        std::string end(name, length);
        size_t dot = end.rfind('.');
        end.erase(0, dot == end.npos ? end.size() : dot + 1);
        std::transform(end.begin(), end.end(), end.begin(),
                       [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; });
        if (dot == end.npos || !extensions.count(end))
            return;
        _bench_add_name(text, item);
        folders++;
    });
    return folders;
}

// What differs is explained where all of it has characters above ASCII.
static bool _bench_is_explained(const _bench_lines_t &only, const char *whose) {
    u32 shown = 0;
    for (std::string_view line : only) {
        if (!_bench_is_ascii(line))
            continue;
        if (shown++ < EXAMPLES_MAX)
            fprintf(stderr, "only %s: %.*s\n", whose, static_cast<int>(line.size()), line.data());
    }
    return shown == 0;
}

static bool _bench_check_line(db_t *db, db_query_t *query, _bench_line_t *line) {
    std::string ours, peer;
    u32 found;
    bench_run_search(query, line->search.c_str(), false, THREADS, &found);
    u64 folders = _bench_collect(db, query, *line, &ours);
    if (!bench_run_peer(line->peer, &peer, nullptr).ok)
        return false;
    _bench_lines_t our_lines, peer_lines, only_ours, only_peer;
    _bench_split(ours, &our_lines);
    _bench_split(peer, &peer_lines);
    std::set_difference(our_lines.begin(), our_lines.end(), peer_lines.begin(), peer_lines.end(),
                        std::back_inserter(only_ours));
    std::set_difference(peer_lines.begin(), peer_lines.end(), our_lines.begin(), our_lines.end(),
                        std::back_inserter(only_peer));
    line->equal = _bench_is_explained(only_ours, "ours") && _bench_is_explained(only_peer, "the peer's");
    std::string note = bench_format("%s: %u found", line->what.c_str(), found);
    if (line->kind == BENCH_FILES)
        note += bench_format(", and %llu folders counted apart, which have no extension",
                             static_cast<unsigned long long>(folders));
    note += bench_format("; the peer finds %zu: ", peer_lines.size());
    if (only_ours.empty() && only_peer.empty())
        note += line->kind == BENCH_PATHS ? "the same paths" : "the same names";
    else
        note += bench_format("%zu only ours, %zu only the peer's, %s", only_ours.size(), only_peer.size(),
                             line->equal ? "all with characters above ASCII, where accents and the borders "
                                           "of words differ; else the same"
                                         : "NOT THE SAME");
    bench_add_note("%s", note.c_str());
    return true;
}

// --- The rows ----------------------------------------------------------------------------------------------

static std::vector<std::string> _bench_get_counting(const _bench_line_t &line) {
    std::vector<std::string> arguments = line.peer;
    if (arguments[0] == "sh")
        arguments.push_back("-c"); // the script hands it on
    else
        arguments.insert(arguments.begin() + 1, "-c");
    return arguments;
}

static void _bench_run_lines(const bench_options_t &options, db_query_t *query,
                             std::vector<_bench_line_t> *lines) {
    for (u32 run = 0; run < options.runs; run++) {
        for (_bench_line_t &line : *lines) {
            u32 count;
            std::string output;
            line.ours_times.push_back(bench_run_search(query, line.search.c_str(), false, THREADS, &count));
            line.peer_times.push_back(bench_run_peer(_bench_get_counting(line), &output, nullptr).seconds);
        }
    }
    for (const _bench_line_t &line : *lines) {
        double ours = bench_median(line.ours_times), peer = bench_median(line.peer_times);
        bench_add_row({line.what, bench_seconds(ours), bench_seconds(peer), ours / peer, BENCH_AT_MOST,
                       LANGUAGE_TARGET, line.equal ? "" : "answers differ"});
    }
}

// The contents index knows no empty folders: some are made, with names that no row looks for.
static std::string _bench_make_empty_folders() {
    std::string paths;
    for (u32 i = 0; i < EMPTY_FOLDERS; i++)
        paths += bench_format("nothing/%u/\n", i);
    return paths;
}

bool bench_language(const bench_options_t &options) {
    bench_file_t paths = bench_map(options.data + "/paths.txt");
    if (!paths.bytes)
        return false;
    max_threads = 0;
    db_t *db = bench_index_paths(paths, ~0ull, nullptr, nullptr, _bench_make_empty_folders());
    bench_unmap(paths);
    db_query_t *query = db_query_create(db, false, nullptr, nullptr);
    const std::string items = options.data + "/items.txt";
    bool ok = _bench_write_items(options.data, db, items);
    bench_add_note(
        "language: %llu items, %u empty folders among them; %u threads, %u runs in turns, medians; "
        "ripgrep on one thread",
        static_cast<unsigned long long>(bench_item_count(db)), EMPTY_FOLDERS, THREADS, options.runs);
    std::vector<_bench_line_t> lines = _bench_make_lines(options.data + "/names.txt", items);
    for (_bench_line_t &line : lines)
        ok = ok && _bench_check_line(db, query, &line);
    if (ok)
        _bench_run_lines(options, query, &lines);
    db_destroy_query(query);
    if (ok)
        bench_functions(options, db);
    if (ok)
        ok = bench_waiting(options, db);
    db_destroy(db);
    return ok;
}

} // namespace findwright
