// Reads the input as settings, in the section that its first line names. What is found again by its key is
// the first entry of that key, and entries stand in order.
#include "base/ini.h"
#include "base/utf8.h"

#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

using namespace findwright;

extern "C" int LLVMFuzzerTestOneInput(const u8 *bytes, size_t size) {
    const std::string_view input(reinterpret_cast<const char *>(bytes), size);
    const size_t line_end = std::min(input.find('\n'), size);
    const std::string section(input.substr(0, line_end));
    const std::string_view text = input.substr(std::min(line_end + 1, size));
    ini_t *ini = ini_open(text.data(), static_cast<u32>(text.size()), section.c_str());
    if (!ini)
        return 0;
    for (u32 i = 0; i < ini->count; i++) {
        const ini_entry_t *entry = ini->entries[i];
        const int order = i == 0 ? -1 : std::strcmp(ini->entries[i - 1]->key, entry->key);
        if (order > 0 || (order == 0 && ini->entries[i - 1]->line_number >= entry->line_number))
            std::abort();
        // A key of broken sequences may become another one when it is put into lower case again.
        if (order < 0 && utf8_is_ascii(entry->key, utf8_length(entry->key)) &&
            ini_get(ini, entry->key, nullptr) != entry->value)
            std::abort();
    }
    ini_close(ini);
    return 0;
}
