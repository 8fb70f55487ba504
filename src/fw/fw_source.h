// The sources that a user names: NTFS volumes, file lists, folders.
//
// Main thread.
#pragma once

#include "fw/fw_options.h"
#include "index/db_wanted.h"

namespace findwright {

bool fw_source_is_given(const fw_options_t *options);
// Appends the sources of the options: volumes, lists, folders, each kind in the order given. The text of an
// error, or empty; what was added before an error stays in `wanted`.
std::string fw_source_add_all(const fw_options_t *options, db_wanted_t *wanted);
// Why a source of the settings cannot be read, with its name; empty when it can.
std::string fw_source_check(const db_source_t *source);

} // namespace findwright
