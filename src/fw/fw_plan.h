// What a run of the client searches: a database file, or sources that are read into memory.
//
//     sources of the options        --> they are read; with --config under that file's exclusions
//     --db FILE                     --> this file
//     none, with or without         --> the database file of the settings; where there is none yet, the
//     sources
//       --config FILE                   that the settings name are read
//
// Nothing is ever written: neither settings nor databases.
//
// Owner: whoever called fw_plan_init, until fw_plan_kill. Main thread, between config_init and config_kill.
#pragma once

#include "fw/fw_options.h"
#include "index/db_wanted.h"

namespace findwright {

struct fw_plan_t {
    std::string database; // a file; empty: `wanted` is read
    db_wanted_t wanted;
    std::string warnings; // lines for the user
};

void fw_plan_init(fw_plan_t *plan);
void fw_plan_kill(fw_plan_t *plan);
// Loads the settings where they are needed, and decides. The text of an error, or empty.
std::string fw_plan_make(fw_plan_t *plan, const fw_options_t *options);

} // namespace findwright
