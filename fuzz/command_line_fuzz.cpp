// Parses any text as a command line, alone and behind a program's name: both find the same. Its lines, put
// together by command_line_cat_word, come back as words as they were. Nothing is left behind.
#include "app/command_line.h"
#include "app/command_line_internal.h"
#include "base/mem.h"
#include "support/memory_file.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

using namespace findwright;

static void check_words(const std::string &text) {
    utf8_buf_t line, word;
    utf8_buf_init(&line);
    utf8_buf_init(&word);
    utf8_buf_cat_string(&line, "findwright");
    for (size_t start = 0; start <= text.size(); start = text.find('\n', start) + 1) {
        const size_t end = std::min(text.find('\n', start), text.size());
        utf8_buf_cat_byte(&line, ' ');
        command_line_cat_word(&line, text.data() + start, static_cast<u32>(end - start));
        if (end == text.size())
            break;
    }
    const char *cursor = line.data;
    bool quoted;
    _command_line_next_word(&cursor, &word, &quoted);
    std::string back;
    while (_command_line_next_word(&cursor, &word, &quoted))
        back.append(word.data, static_cast<size_t>(word.length)) += '\n';
    if (back != text + "\n")
        std::abort();
    utf8_buf_kill(&word);
    utf8_buf_kill(&line);
}

extern "C" int LLVMFuzzerTestOneInput(const u8 *bytes, size_t size) {
    memory_file_install();
    memory_file.bytes = "one\r\ntwo|three\n";
    const std::string text(reinterpret_cast<const char *>(bytes),
                           strnlen(reinterpret_cast<const char *>(bytes), size));
    const size_t live = mem_live_count();
    command_line_t *a = command_line_parse(text.c_str(), "C:\\base", true);
    command_line_t *b = command_line_parse(("program " + text).c_str(), "C:\\base", false);
    if (a->flags != b->flags || a->on != b->on || a->off != b->off || (a->on & a->off) != 0 ||
        std::memcmp(a->given, b->given, sizeof(a->given)) != 0 || !a->search != !b->search)
        std::abort();
    utf8_buf_t lacking;
    utf8_buf_init(&lacking);
    command_line_get_lacking(a, &lacking);
    utf8_buf_kill(&lacking);
    command_line_free(a);
    command_line_free(b);
    check_words(text);
    if (mem_live_count() != live)
        std::abort();
    return 0;
}
