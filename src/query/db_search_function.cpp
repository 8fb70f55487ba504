// The ops of functions: columns, places, duplicates, children.
#include "query/db_search.h"

namespace findwright {

db_op_functions_t db_op_get_function_functions(u32, db_op_pass_t) {
    return {};
}

void db_search_prepare_function(db_query_t *, db_exec_term_t *, bool) {}

} // namespace findwright
