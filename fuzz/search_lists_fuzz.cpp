// Reads the input as a file of filters, of bookmarks or of the search history, as its first byte says. What
// is written then must be read again to the same bytes; the second byte is the size of a piece that is read.
#include "os/os.h"
#include "query/bookmark.h"
#include "query/db_search_expand.h"
#include "query/filter.h"
#include "query/search_history.h"
#include "support/memory_file.h"

#include <cstdlib>

using namespace findwright;

struct list_t {
    void (*load)();
    void (*write)(file_writer_t *writer);
    void (*free)();
};
static constexpr list_t lists[] = {
    {[] { filter_list_load(""); }, filter_list_write, filter_list_free},
    {[] { bookmark_list_load(""); }, bookmark_list_write, bookmark_list_free},
    {[] { search_history_load("", 0); }, search_history_write, search_history_free},
};

static std::string rewrite(const list_t &list, const std::string &bytes, u32 piece) {
    memory_file.bytes = bytes;
    memory_file.piece = piece;
    list.load();
    file_writer_t *writer = file_writer_open("");
    list.write(writer);
    if (!file_writer_close(writer))
        std::abort();
    return memory_file.bytes;
}

// Whatever the macros of the list are, expansion ends, and adds no more than it may.
static void expand(const std::string &text) {
    utf8_buf_t out;
    utf8_buf_init(&out);
    db_search_expand(&out, text.c_str());
    if (static_cast<size_t>(out.length) > text.size() + DB_SEARCH_EXPAND_MAX)
        std::abort();
    utf8_buf_kill(&out);
}

extern "C" int LLVMFuzzerTestOneInput(const u8 *bytes, size_t size) {
    static bool is_up;
    if (!is_up) {
        os_init();
        is_up = true;
    }
    if (size < 2)
        return 0;
    memory_file_install();
    const list_t &list = lists[bytes[0] % 3];
    const std::string text(reinterpret_cast<const char *>(bytes) + 2, size - 2);
    const std::string written = rewrite(list, text, 0xFFFFFFFF);
    if (rewrite(list, text, bytes[1] + 1u) != written || rewrite(list, written, 0xFFFFFFFF) != written)
        std::abort();
    expand(text);
    list.free();
    return 0;
}
