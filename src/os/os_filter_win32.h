// Where the text filters of Windows come from: a seam for tests, which bring filters of their own.
#pragma once

#include <windows.h>

#include <objidl.h>

namespace findwright {

// LoadIFilter of query.dll: path, outer object, the IFilter.
using os_load_filter_t = HRESULT WINAPI(PCWSTR path, IUnknown *outer, void **filter);

// Has filters loaded by another function from now on; with 0 by the system's again.
void os_filter_set_loader(os_load_filter_t *loader);

} // namespace findwright
