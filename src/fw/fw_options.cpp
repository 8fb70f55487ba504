// The one file that is compiled with exceptions: the options' library throws, and nothing leaves from here.
#include "fw/fw_options.h"

#include "base/version.h"
#include "query/db_query.h"
#include "query/db_sort_name.h"

#include <CLI/CLI.hpp>

namespace findwright {

static bool _fw_cut_suffix(std::string *text, const std::string &suffix) {
    if (text->size() <= suffix.size() ||
        text->compare(text->size() - suffix.size(), suffix.size(), suffix) != 0)
        return false;
    text->resize(text->size() - suffix.size());
    return true;
}

static std::string _fw_list_orders() {
    std::string names;
    for (u32 sort = 0; sort < DB_SORT_COUNT; sort += 2)
        names += std::string(sort == 0 ? "" : ", ") + db_sort_get_name(sort);
    return names;
}

static u32 _fw_parse_sort(std::string text) {
    u32 direction = _fw_cut_suffix(&text, "-descending") ? DB_SORT_DESCENDING : 0u;
    if (direction == 0)
        _fw_cut_suffix(&text, "-ascending");
    u32 sort;
    if (!db_sort_find_name(text.c_str(), &sort))
        throw CLI::ValidationError("--sort", "there is no order '" + text + "'; the orders are " +
                                                 _fw_list_orders() + ", each with -ascending or -descending");
    return sort | direction;
}

static std::vector<fw_column_t> _fw_parse_columns(const std::string &text) {
    std::vector<fw_column_t> columns;
    std::string error = fw_column_parse_list(text, &columns);
    if (!error.empty())
        throw CLI::ValidationError("--columns", error);
    return columns;
}

// An empty variable of a script must not turn into the current folder, or into no filter.
static CLI::Validator _fw_named() {
    return CLI::Validator(
        [](std::string &text) { return std::string(text.empty() ? "a name is missing" : ""); }, "");
}

static void _fw_add_source_options(CLI::App *app, fw_options_t *options) {
    const CLI::Validator named = _fw_named();
    auto *ntfs =
        app->add_option(
               "--ntfs", options->ntfs,
               "a raw NTFS volume, device or disk image; NAME is the root's name (default C:, D:, ...)")
            ->type_name("FILE[=NAME]")
            ->check(named)
            ->allow_extra_args(false)
            ->group("Sources");
    auto *file_list = app->add_option("--file-list", options->file_lists, "a file list, .fwl or .csv")
                          ->check(named)
                          ->type_name("FILE")
                          ->allow_extra_args(false)
                          ->group("Sources");
    auto *folder = app->add_option("--folder", options->folders, "a folder and all that lies below it")
                       ->type_name("DIR")
                       ->check(named)
                       ->allow_extra_args(false)
                       ->group("Sources");
    app->add_option("--db", options->db, "a database that findwright saved, in place of sources")
        ->check(named)
        ->type_name("FILE")
        ->excludes(ntfs)
        ->excludes(file_list)
        ->excludes(folder)
        ->group("Sources");
    app->add_option("--config", options->config,
                    "a settings file: its database, or with sources its exclusions; its search settings")
        ->check(named)
        ->type_name("FILE")
        ->group("Sources");
}

static void _fw_add_list_options(CLI::App *app, fw_options_t *options) {
    app->add_option("--filter", options->filter, "only what the filter of that name lets through")
        ->type_name("NAME")
        ->check(_fw_named())
        ->group("Matching");
    app->add_option("--bookmark", options->bookmark,
                    "the bookmark of that name; options beside it win over it")
        ->type_name("NAME")
        ->check(_fw_named())
        ->group("Matching");
}

// What the command line says, whatever it says.
static void _fw_note_given(const CLI::App *app, fw_options_t *options) {
    static constexpr struct {
        const char *name;
        u32 flag;
    } matches[] = {
        {"--case", DB_MATCH_CASE},   {"--whole-word", DB_MATCH_WHOLE_WORD},
        {"--path", DB_MATCH_PATH},   {"--diacritics", DB_MATCH_DIACRITICS},
        {"--regex", DB_MATCH_REGEX},
    };
    for (auto match : matches)
        options->given_matches |= app->count(match.name) != 0 ? match.flag : 0;
    options->has_sort = app->count("--sort") != 0;
    options->has_text = app->count("text") != 0;
}

fw_parse_t fw_options_parse(fw_options_t *options, u32 count, const char *const *arguments,
                            std::string *message) {
    CLI::App app("Finds files and folders by name, in milliseconds: in folders, on raw NTFS volumes, in file "
                 "lists.\nWithout a source it searches the database that findwright keeps.",
                 "fw");
    app.allow_windows_style_options(false);
    app.set_version_flag("--version", std::string("fw ") + FINDWRIGHT_VERSION);
    app.footer(
        "An empty search text lists everything. Exit status: 0 with results, 1 without, 2 on an error.\n"
        "Examples:\n"
        "  fw report .pdf\n"
        "  fw --folder ~/Documents --sort date-modified-descending -n 20 --columns dm,full\n"
        "  fw --ntfs disk.img --file-list server.fwl --sort size-descending --columns full,size .iso");

    std::vector<std::string> words;
    std::string sort = "name", columns = "full";
    bool null = false, json = false, csv = false;
    app.add_option("text", words, "the search text: words are joined by blanks");
    _fw_add_source_options(&app, options);
    app.add_flag("--case", options->match_case, "match case")->group("Matching");
    app.add_flag("--whole-word", options->match_whole_word, "match whole words")->group("Matching");
    app.add_flag("--path", options->match_path, "match the full path, not the name")->group("Matching");
    app.add_flag("--diacritics", options->match_diacritics, "match diacritics")->group("Matching");
    app.add_flag("--regex", options->match_regex, "the text is a regular expression")->group("Matching");
    auto *files = app.add_flag("--files", options->files_only, "only files")->group("Matching");
    app.add_flag("--folders", options->folders_only, "only folders")->group("Matching")->excludes(files);
    _fw_add_list_options(&app, options);
    app.add_option("--sort", sort, _fw_list_orders())
        ->type_name("NAME[-ascending|-descending]")
        ->group("Results");
    app.add_option("--offset", options->offset, "skip the first N results")->type_name("N")->group("Results");
    app.add_option("-n,--max", options->max, "print at most N results")->type_name("N")->group("Results");
    auto *count_flag =
        app.add_flag("--count", options->count, "print only the number of results")->group("Results");
    auto *run = app.add_option("--run", options->run,
                               "open the N-th of the results that are printed without "
                               "this option, and count that in the run history")
                    ->type_name("N")
                    ->check(CLI::Validator(
                        [](std::string &text) {
                            return std::string(text == "0" ? "results are counted from 1" : "");
                        },
                        ""))
                    ->excludes(count_flag)
                    ->group("Results");
    app.add_option("--columns", columns, "of " + fw_column_list_names(",", ",") + " (default full)")
        ->type_name("LIST")
        ->group("Results");
    auto *null_flag = app.add_flag("-0,--null", null, "end each name with a NUL")->group("Output");
    auto *json_flag =
        app.add_flag("--json", json, "one JSON array of objects")->group("Output")->excludes(null_flag);
    app.add_flag("--csv", csv, "CSV with a header")
        ->group("Output")
        ->excludes(null_flag)
        ->excludes(json_flag);
    app.add_option("--color", options->color, "mark what matched in text: auto, always or never")
        ->check(CLI::IsMember({"auto", "always", "never"}))
        ->type_name("WHEN")
        ->group("Output");
    app.add_option("--threads", options->threads, "use at most N threads")->type_name("N")->group("Other");
    app.add_flag("--stats", options->stats, "print counts and times to standard error")->group("Other");
    app.add_flag("--explain", options->explain, "print what the search text became, in place of results")
        ->excludes(run)
        ->group("Other");
    try {
        std::vector<std::string> list(arguments + (count != 0 ? 1 : 0), arguments + count);
        std::reverse(list.begin(), list.end());
        app.parse(list);
        _fw_note_given(&app, options);
        options->sort = _fw_parse_sort(sort);
        options->columns = _fw_parse_columns(columns);
    } catch (const CLI::Success &success) { // --help, --version
        std::ostringstream out, error;
        app.exit(success, out, error);
        *message = out.str();
        return FW_PARSE_DONE;
    } catch (const std::exception &error) {
        *message = std::string("fw: ") + error.what() + "\nfw --help lists the options.\n";
        return FW_PARSE_ERROR;
    }
    for (size_t i = 0; i < words.size(); i++)
        options->search += (i != 0 ? " " : "") + words[i];
    options->format = null ? FW_FORMAT_NULL : json ? FW_FORMAT_JSON : csv ? FW_FORMAT_CSV : FW_FORMAT_TEXT;
    return FW_PARSE_RUN;
}

} // namespace findwright
