// The console client's options.
#pragma once

#include "fw/fw_column.h"

#include <string>
#include <vector>

namespace findwright {

enum fw_format_t : u32 { FW_FORMAT_TEXT, FW_FORMAT_NULL, FW_FORMAT_JSON, FW_FORMAT_CSV };

struct fw_options_t {
    std::vector<std::string> ntfs; // FILE or FILE=NAME
    std::vector<std::string> file_lists;
    std::vector<std::string> folders;
    std::string db;     // a database file; empty: none
    std::string config; // a settings file; empty: none
    std::string search;
    bool match_case = false, match_whole_word = false, match_path = false, match_diacritics = false,
         match_regex = false;
    bool files_only = false, folders_only = false;
    std::string filter, bookmark; // names; empty: none
    // What the command line says, as against what it leaves to a bookmark.
    u32 given_matches = 0; // DB_MATCH_...
    bool has_text = false, has_sort = false;
    u32 sort = 0; // db_sort_t
    u64 offset = 0;
    u64 max = ~static_cast<u64>(0);
    bool count = false;
    u64 run = 0; // the result that is opened, from 1 as they are printed; 0: none
    std::vector<fw_column_t> columns;
    fw_format_t format = FW_FORMAT_TEXT;
    std::string color = "auto";
    u32 threads = 0;
    bool stats = false;
    bool explain = false;
};

enum fw_parse_t { FW_PARSE_RUN, FW_PARSE_DONE, FW_PARSE_ERROR };

// Reads the arguments (UTF-8, program name first). FW_PARSE_DONE: `message` is to be printed to standard
// output,
// as for --help; FW_PARSE_ERROR: to standard error.
fw_parse_t fw_options_parse(fw_options_t *options, u32 count, const char *const *arguments,
                            std::string *message);

} // namespace findwright
