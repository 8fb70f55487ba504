// Prints a window of results to standard output: as text with aligned columns, NUL-ended, JSON or CSV.
#pragma once

#include "fw/fw.h"
#include "fw/fw_options.h"
#include "fw/fw_progress.h"
#include "query/db_query.h"

namespace findwright {

// False when the output is closed, as by a pager that was left.
bool fw_output_results(const fw_options_t *options, db_query_t *query, const fw_io_t *io,
                       fw_progress_t *progress);
// Appends a text as a JSON string, quotes included: always valid UTF-8. A lone surrogate becomes its escape,
// a byte that is no UTF-8 the replacement character.
void fw_output_cat_json(std::string *out, const char *text, u32 length);
// Appends a text as a quoted CSV field.
void fw_output_cat_csv(std::string *out, const char *text, u32 length);

} // namespace findwright
