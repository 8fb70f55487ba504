// Loads a language pack in two ways: the input as it is, and the input as what a good pack holds compressed,
// a header of 16-bit length and the block behind it, so that damage gets past the checksums. Whatever it is,
// each text takes the arguments of the English one, and nothing is left behind.
#include "app/localization.h"
#include "base/mem.h"
#include "base/utf8_format.h"
#include "support/language_pack.h"

#include <algorithm>
#include <cstdlib>

using namespace findwright;

static void load(const std::string &pack, u32 language) {
    memory_file.bytes = pack;
    localization_load_file("pack", language, 0x0407);
    for (u32 i = 0; i < LOCALIZATION_STRING_COUNT; i++) {
        if (!utf8_format_takes_same(localization_strings[i], localization_english.strings[i]))
            std::abort();
    }
    if (localization_current >= static_cast<i32>(localization_language_count))
        std::abort();
    mem_free(utf8_alloc_format(localization_get(LOCALIZATION_SCANNING_VOLUME), "a", "b"));
    localization_shutdown();
    if (memory_file.open_count != 0)
        std::abort();
}

extern "C" int LLVMFuzzerTestOneInput(const u8 *bytes, size_t size) {
    if (size < 2)
        return 0;
    memory_file_install();
    const std::string input(reinterpret_cast<const char *>(bytes), size);
    const size_t live = mem_live_count();
    load(input, 0);

    const size_t header_size = std::min<size_t>(bytes[0] | bytes[1] << 8, size - 2);
    const std::string header = test_pack_compress(input.substr(2, header_size));
    const std::string block = test_pack_compress(input.substr(2 + header_size));
    std::string pack;
    test_pack_put(&pack, static_cast<u32>(header.size()), 4);
    test_pack_put(&pack, 1, 4);
    load(pack + header + block, 0);
    load(pack + header + block, 0x040D);
    if (mem_live_count() != live)
        std::abort();
    return 0;
}
