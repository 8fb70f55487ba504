#include "os/os_filter_win32.h"

#include "base/mem.h"
#include "base/utf8.h"
#include "os/debug.h"
#include "os/os_filter.h"
#include "os/os_win32.h"

#include <filter.h>
#include <shlwapi.h>

namespace findwright {

// --- The loader -------------------------------------------------------------------------------------------

static std::atomic<os_load_filter_t *> _os_filter_loader;

static os_load_filter_t *_os_filter_find_system_loader() {
    // By its whole path, so that no other file of that name is taken.
    wchar_t path[MAX_PATH + 16];
    UINT length = GetSystemDirectoryW(path, MAX_PATH);
    if (!length || length >= MAX_PATH)
        return nullptr;
    wcscpy(path + length, L"\\query.dll");
    HMODULE module = LoadLibraryW(path);
    if (!module)
        return nullptr;
    return reinterpret_cast<os_load_filter_t *>(
        reinterpret_cast<void *>(GetProcAddress(module, "LoadIFilter")));
}

// The library stays loaded: filters that it made may have put parts of it to work.
static os_load_filter_t *_os_filter_get_loader() {
    os_load_filter_t *loader = _os_filter_loader.load();
    if (loader)
        return loader;
    static os_load_filter_t *const system_loader = _os_filter_find_system_loader();
    return system_loader;
}

void os_filter_set_loader(os_load_filter_t *loader) {
    _os_filter_loader.store(loader);
}

// --- Objects ----------------------------------------------------------------------------------------------

// A reference to an object, given back at the end of a scope.
template<class T>
struct os_com_t {
    os_com_t() = default;
    ~os_com_t() {
        if (object)
            object->Release();
    }
    os_com_t(const os_com_t &) = delete;
    os_com_t &operator=(const os_com_t &) = delete;

    T *object = nullptr;
};

// --- Text -------------------------------------------------------------------------------------------------

static constexpr u32 FILTER_UNITS = 32768; // asked for at once, UTF-16

struct os_filter_reading_t {
    IFilter *filter;
    const std::atomic<u32> *cancel;
    os_filter_text_proc_t *proc;
    void *param;
    char16_t *units; // FILTER_UNITS, and room for one in front that the piece before has left over
    char *text;      // three bytes for each of them
};

static bool _os_filter_is_cancelled(const os_filter_reading_t *reading) {
    return reading->cancel && reading->cancel->load(std::memory_order_relaxed);
}

static bool _os_filter_give(os_filter_reading_t *reading, u32 units) {
    u32 length = utf8_from_wchar_length(reading->text, reading->units, units);
    return !length || reading->proc(reading->param, reading->text, length);
}

// False when no more text is wanted. A character that the filter cuts in two is put together again.
static bool _os_filter_read_chunk(os_filter_reading_t *reading, bool is_first_chunk) {
    u32 left = 0;
    bool is_first_piece = true;
    while (!_os_filter_is_cancelled(reading)) {
        ULONG taken = FILTER_UNITS;
        SCODE result = reading->filter->GetText(&taken, reinterpret_cast<wchar_t *>(reading->units + left));
        if (FAILED(result))
            return _os_filter_give(reading, left);
        if (is_first_piece && !is_first_chunk && !reading->proc(reading->param, "\r\n", 2))
            return false;
        is_first_piece = false;
        u32 units = left + (taken < FILTER_UNITS ? static_cast<u32>(taken) : FILTER_UNITS);
        left = units && (reading->units[units - 1] & 0xFC00) == 0xD800 ? 1 : 0;
        if (!_os_filter_give(reading, units - left))
            return false;
        if (left)
            reading->units[0] = reading->units[units - 1];
    }
    return false;
}

static void _os_filter_read_chunks(os_filter_reading_t *reading) {
    reading->units = static_cast<char16_t *>(mem_alloc((FILTER_UNITS + 1) * sizeof(char16_t)));
    reading->text = static_cast<char *>(mem_alloc((FILTER_UNITS + 1) * 3));
    bool is_first = true;
    bool more = true;
    while (more && !_os_filter_is_cancelled(reading)) {
        STAT_CHUNK chunk = {};
        if (FAILED(reading->filter->GetChunk(&chunk)))
            break;
        more = _os_filter_read_chunk(reading, is_first);
        is_first = false;
    }
    mem_free(reading->text);
    mem_free(reading->units);
}

// --- A file -----------------------------------------------------------------------------------------------

static os_filter_result_t _os_filter_fail(const char *message) {
    debug_printf("%s", message);
    return OS_FILTER_FAILED;
}

os_filter_result_t os_filter_read(const char *path, const std::atomic<u32> *cancel,
                                  os_filter_text_proc_t *proc, void *param) {
    os_load_filter_t *load = _os_filter_get_loader();
    os_wide_t wide(path);
    // Released in the reverse order: the filter is the last that may use the stream.
    os_com_t<IStream> stream;
    os_com_t<IPersistStream> persist;
    os_com_t<IFilter> filter;
    if (!load || FAILED(load(wide.text(), nullptr, reinterpret_cast<void **>(&filter.object))) ||
        !filter.object)
        return OS_FILTER_NONE;
    if (FAILED(SHCreateStreamOnFileW(wide.text(), STGM_READ | STGM_SHARE_DENY_NONE, &stream.object))) {
        debug_printf("create stream from %s failed", path);
        return OS_FILTER_FAILED;
    }
    if (FAILED(filter.object->QueryInterface(IID_IPersistStream, reinterpret_cast<void **>(&persist.object))))
        return _os_filter_fail("failed to get IID_IPersistStream from stream");
    if (FAILED(persist.object->Load(stream.object)))
        return _os_filter_fail("failed to load stream");
    ULONG flags = 0;
    if (FAILED(filter.object->Init(IFILTER_INIT_CANON_PARAGRAPHS | IFILTER_INIT_HARD_LINE_BREAKS |
                                       IFILTER_INIT_CANON_HYPHENS | IFILTER_INIT_CANON_SPACES |
                                       IFILTER_INIT_APPLY_INDEX_ATTRIBUTES | IFILTER_INIT_INDEXING_ONLY,
                                   0, nullptr, &flags)))
        return _os_filter_fail("failed to init ifilter");
    os_filter_reading_t reading = {filter.object, cancel, proc, param, nullptr, nullptr};
    _os_filter_read_chunks(&reading);
    return OS_FILTER_DONE;
}

} // namespace findwright
