// Reads the input as each of the files in which a desktop keeps what it knows. What comes out is as bounded
// and as clean as it is promised to be.
#include "base/utf8_buf.h"
#include "os/os_shell_text.h"

#include <cstdlib>
#include <string>
#include <string_view>

using namespace findwright;

static void check(bool holds) {
    if (!holds)
        std::abort();
}

static void check_patterns(std::string_view text, bool has_weights) {
    const char *cursor = text.data(), *end = cursor + text.size();
    os_shell_pattern_t pattern;
    for (const char *before = cursor; os_shell_next_pattern(&cursor, end, has_weights, &pattern);
         before = cursor) {
        check(cursor > before && cursor <= end);
        const std::string_view type(pattern.type, pattern.type_length);
        check(type.find("/.") == type.npos && type.find('/') == type.rfind('/') && type.find('/') != 0);
        check(type.find('\0') == type.npos && type.front() != '.' && type.back() != '/');
        check(pattern.extension_length > 0 && pattern.weight <= 100);
    }
    check(cursor == end);
}

extern "C" int LLVMFuzzerTestOneInput(const u8 *bytes, size_t size) {
    const std::string_view text(reinterpret_cast<const char *>(bytes), size);
    const auto length = static_cast<u32>(size);
    check_patterns(text, true);
    check_patterns(text, false);
    utf8_buf_t out;
    utf8_buf_init(&out);
    for (std::string_view locale : {"", "de", "de_DE"}) {
        const bool found =
            os_shell_find_comment(text.data(), length, locale.data(), static_cast<u32>(locale.size()), &out);
        check(found == (out.length != 0) && out.length <= static_cast<i32>(OS_SHELL_COMMENT_MAX));
        for (char c : std::string_view(out.data, static_cast<size_t>(out.length)))
            check(c >= ' ');
    }
    for (const char *home : {"/home", ""}) {
        const bool found = os_shell_find_user_folder(text.data(), length, "XDG_MUSIC_DIR", home, &out);
        check(found ? out.data[0] == '/' : out.length == 0);
        check(std::string_view(out.data).size() == static_cast<size_t>(out.length));
    }
    utf8_buf_kill(&out);
    return 0;
}
