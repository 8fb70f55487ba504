// Writes a language pack from the texts of its languages:
//
//   make_language_pack Findwright.lng german.ini ...     one file a language, in the order of the list
//   make_language_pack --template                        prints a file of all texts in English to begin with
//
// A language's file has a section [language] with its Windows identifier `lid`, its own `name` and, where it
// is written from right to left, `rtl=1`; and a section [strings] with lines `name=text`. The names are those
// of the string table, in any case. In a text `\n` is a line end, `\t` a tab and `\\` a backslash. What is
// missing stays English. Names that the table does not have, and texts that take other arguments than the
// English ones, are errors: the program would not show them.
#include "app/localization.h"
#include "base/bz2.h"
#include "base/ini.h"
#include "base/utf8.h"
#include "base/utf8_buf.h"
#include "base/utf8_format.h"
#include "os/os.h"

#include <cstdio>
#include <string>
#include <vector>

using namespace findwright;

static constexpr u32 PACK_VERSION = 1;
static constexpr u32 FLAG_RTL = 1;
static constexpr u32 NAME_MAX_BYTES = 254;

struct string_name_t {
    u32 number;
    const char *name;
};

static constexpr string_name_t string_names[] = {
#define LOCALIZATION_STRING(number, name, english) {number, #name},
#include "app/localization_strings.inl"
#undef LOCALIZATION_STRING
};

struct language_t {
    u32 lid = 0;
    std::string name;
    bool is_rtl = false;
    std::vector<std::string> strings; // by number; empty: not translated
};

// --- Reading a language ------------------------------------------------------------------------------------

static bool fail(const char *file, u32 line, const char *problem, const char *what) {
    std::fprintf(stderr, "%s:%u: %s: %s\n", file, line, problem, what);
    return false;
}

static std::string unescape(const char *text) {
    std::string out;
    for (; *text; text++) {
        if (text[0] == '\\' && text[1])
            out += utf8_escape_value(*++text);
        else
            out += *text;
    }
    return out;
}

static bool read_string(const char *file, const ini_entry_t *entry, language_t *language) {
    for (const string_name_t &row : string_names) {
        if (utf8_compare_lower(row.name, utf8_length(row.name), entry->key, utf8_length(entry->key)) != 0)
            continue;
        std::string &text = language->strings[row.number];
        if (!text.empty())
            return fail(file, entry->line_number, "given twice", entry->key);
        text = unescape(entry->value);
        if (!utf8_format_takes_same(text.c_str(), localization_english.strings[row.number]))
            return fail(file, entry->line_number, "takes other arguments than the English text", entry->key);
        return true;
    }
    return fail(file, entry->line_number, "no such text", entry->key);
}

static bool read_language(const char *file, language_t *language) {
    utf8_buf_t text;
    utf8_buf_init(&text);
    bool done = utf8_buf_read_file(&text, file) || fail(file, 0, "cannot be read", file);
    const u32 length = static_cast<u32>(text.length);
    ini_t *head = ini_open(text.data, length, "language");
    ini_t *strings = ini_open(text.data, length, "strings");
    language->strings.resize(LOCALIZATION_STRING_COUNT);
    if (head) {
        const char *lid = ini_get(head, "lid", "");
        language->lid = static_cast<u32>(utf8_to_int(lid, utf8_length(lid)));
        language->name = ini_get(head, "name", "");
        language->is_rtl = std::string(ini_get(head, "rtl", "0")) == "1";
    }
    if (done && (language->lid == 0 || language->lid > 0xFFFF || language->name.empty() ||
                 language->name.size() > NAME_MAX_BYTES))
        done = fail(file, 0, "has no good [language]", "lid and name");
    for (u32 i = 0; done && strings && i < strings->count; i++)
        done = read_string(file, strings->entries[i], language);
    if (strings)
        ini_close(strings);
    if (head)
        ini_close(head);
    utf8_buf_kill(&text);
    return done;
}

// --- Writing the pack --------------------------------------------------------------------------------------

static void put_number(std::string *out, u32 value, u32 bytes) {
    for (u32 i = 0; i < bytes; i++)
        *out += static_cast<char>(value >> (8 * i));
}

// A terminated text behind its size of `size_bytes` bytes.
static void put_string(std::string *out, const std::string &text, u32 size_bytes) {
    put_number(out, text.empty() ? 0 : static_cast<u32>(text.size()) + 1, size_bytes);
    if (!text.empty())
        out->append(text.c_str(), text.size() + 1);
}

static std::string make_block(const language_t &language) {
    u32 count = LOCALIZATION_STRING_COUNT;
    while (count && language.strings[count - 1].empty())
        count--;
    std::string block;
    put_number(&block, language.is_rtl ? FLAG_RTL : 0, 4);
    put_number(&block, count, 4);
    for (u32 i = 0; i < count; i++)
        put_string(&block, language.strings[i], 4);
    return block;
}

// Compresses through a file beside the pack, and gives back what it holds.
static bool compress(const char *temp, const std::string &bytes, std::string *out) {
    bz2_stream_t *stream = bz2_write_open(temp);
    if (!stream)
        return false;
    bz2_write(stream, bytes.data(), static_cast<u32>(bytes.size()));
    utf8_buf_t packed;
    utf8_buf_init(&packed);
    const bool done = bz2_write_close(stream) && utf8_buf_read_file(&packed, temp);
    out->assign(packed.data, static_cast<size_t>(packed.length));
    utf8_buf_kill(&packed);
    return done;
}

static bool make_pack(const char *temp, const std::vector<language_t> &languages, std::string *pack) {
    std::string header, blocks;
    put_number(&header, static_cast<u32>(languages.size()), 4);
    for (const language_t &language : languages) {
        std::string block;
        if (!compress(temp, make_block(language), &block))
            return false;
        put_number(&header, language.lid, 2);
        put_number(&header, static_cast<u32>(blocks.size()), 4);
        put_number(&header, static_cast<u32>(block.size()), 4);
        put_string(&header, language.name, 1);
        blocks += block;
    }
    std::string packed_header;
    if (!compress(temp, header, &packed_header))
        return false;
    put_number(pack, static_cast<u32>(packed_header.size()), 4);
    put_number(pack, PACK_VERSION, 4);
    *pack += packed_header + blocks;
    return true;
}

static bool write_pack(const char *name, const std::vector<language_t> &languages) {
    const std::string temp = std::string(name) + ".tmp";
    std::string pack;
    bool done = make_pack(temp.c_str(), languages, &pack);
    bz2_stream_t *stream = done ? bz2_write_open_plain(temp.c_str()) : nullptr;
    if (stream) {
        bz2_write(stream, pack.data(), static_cast<u32>(pack.size()));
        done = bz2_write_close(stream) && os_replace_file(temp.c_str(), name);
    }
    if (!stream || !done) {
        std::fprintf(stderr, "%s: cannot be written\n", name);
        os_delete_file(temp.c_str());
        return false;
    }
    std::printf("%s: %zu bytes\n", name, pack.size());
    return true;
}

// --- The program -------------------------------------------------------------------------------------------

static void print_template() {
    std::printf("[language]\nlid=0x0409\nname=English\n\n[strings]\n");
    for (const string_name_t &row : string_names) {
        std::printf("%s=", row.name);
        for (const char *text = localization_english.strings[row.number]; *text; text++) {
            if (*text == '\n')
                std::printf("\\n");
            else if (*text == '\t')
                std::printf("\\t");
            else
                std::printf(*text == '\\' ? "\\\\" : "%c", *text);
        }
        std::printf("\n");
    }
}

static int run(u32 count, const char *const *arguments) {
    if (count == 2 && std::string(arguments[1]) == "--template") {
        print_template();
        return 0;
    }
    if (count < 3) {
        std::fprintf(stderr, "usage: make_language_pack OUT.lng LANGUAGE.ini... | --template\n");
        return 2;
    }
    std::vector<language_t> languages(count - 2);
    for (u32 i = 2; i < count; i++) {
        if (!read_language(arguments[i], &languages[i - 2]))
            return 1;
    }
    return write_pack(arguments[1], languages) ? 0 : 1;
}

int main(int argc, char **argv) {
    os_init();
    const char *const *arguments;
    const u32 count = os_get_arguments(argc, argv, &arguments);
    const int status = run(count, arguments);
    os_kill();
    return status;
}
