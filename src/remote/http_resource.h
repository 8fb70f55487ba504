// The files that the program brings for its pages: style sheet, script, artwork. They are data/http, made
// part of the program when it is built.
//
// Constant; any thread.
#pragma once

#include "base/types.h"

namespace findwright {

struct http_resource_t {
    const char *name;
    const char *type; // its content type
    const char *bytes;
    u32 size;
    u32 id; // among the program's resources
};

// The file of that name, case ignored; 0 for none.
const http_resource_t *http_resource_find(const char *name, u32 length);

} // namespace findwright
