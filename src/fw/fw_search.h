// What the client searches for: the text of its options, or of a bookmark, with macros expanded, and the
// filter.
//
// Main thread, between config_init and config_kill.
#pragma once

#include "fw/fw_options.h"

#include <string>

namespace findwright {

struct fw_search_t {
    std::string search, filter_search;
    u32 match_flags = 0, filter_flags = 0; // DB_MATCH_...
    std::string warnings;                  // lines for the user
};

// Fills `search` after the settings of the run, if any, are loaded. A bookmark's order goes into the options.
// The text of an error, or empty.
std::string fw_search_make(fw_search_t *search, fw_options_t *options);

} // namespace findwright
