// The functions of a search: the table of their names, and what each makes of its argument.
#include "query/db_query_internal.h"

namespace findwright {

bool db_term_compile_function(db_query_t *, db_term_t *) {
    return false;
}

} // namespace findwright
