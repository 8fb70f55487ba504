#include "app/localization.h"

#include "base/bz2.h"
#include "base/mem.h"
#include "base/utf8.h"
#include "base/utf8_buf.h"
#include "base/utf8_format.h"
#include "os/debug.h"

#include <cstring>

namespace findwright {

static constexpr const char *LOCALIZATION_FILENAME = "Findwright.lng";
static constexpr u32 LOCALIZATION_VERSION = 1;
static constexpr u32 LOCALIZATION_PREFIX = 8; // bytes in front of the header: its size and the version
static constexpr u32 LOCALIZATION_FLAG_RTL = 1;
// More than there are identifiers is damage, and so is a text as long as no window shows. With these limits
// no file, however well it compresses, takes more than some 100 MB.
static constexpr u32 LOCALIZATION_LANGUAGE_MAX = 0x10000;
static constexpr u32 LOCALIZATION_TEXT_MAX = 0x10000;

const char *const *localization_strings = localization_english.strings;
localization_language_t *localization_languages;
u32 localization_language_count;
bool localization_is_rtl;
i32 localization_current = -1;

static const char **_localization_table; // the private copy; 0 while the built-in table is in use

// Where a language's block is in the pack.
struct _localization_block_t {
    i32 index; // in the list; -1: none
    u32 offset;
    u32 size;
};

static constexpr _localization_block_t LOCALIZATION_NO_BLOCK = {-1, 0, 0};

// --- Tables ------------------------------------------------------------------------------------------------

static void _localization_apply_size_units() {
    for (u32 i = 0; i < UTF8_SIZE_UNITS; i++)
        utf8_size_units[i] = localization_strings[LOCALIZATION_SIZE_BYTES + i];
}

static void _localization_free_table() {
    if (!_localization_table)
        return;
    for (u32 i = 0; i < LOCALIZATION_STRING_COUNT; i++) {
        if (_localization_table[i] != localization_english.strings[i])
            mem_free(const_cast<char *>(_localization_table[i]));
    }
    mem_free(_localization_table);
    _localization_table = nullptr;
    localization_strings = localization_english.strings;
    _localization_apply_size_units();
}

static void _localization_make_table() {
    _localization_table = static_cast<const char **>(mem_alloc(sizeof(localization_english)));
    std::memcpy(_localization_table, localization_english.strings, sizeof(localization_english));
    localization_strings = _localization_table;
}

static void _localization_free_languages() {
    for (u32 i = 0; i < localization_language_count; i++)
        mem_free(localization_languages[i].name);
    if (localization_languages)
        mem_free(localization_languages);
    localization_languages = nullptr;
    localization_language_count = 0;
}

void localization_shutdown() {
    _localization_free_table();
    _localization_free_languages();
    localization_is_rtl = false;
    localization_current = -1;
}

// --- The header --------------------------------------------------------------------------------------------

static u16 _localization_read_u16(bz2_stream_t *stream) {
    const u32 low = bz2_read_u8(stream);
    return static_cast<u16>(low | bz2_read_u8(stream) << 8);
}

// Room for one language more; the list grows as languages come, whatever number the pack tells.
static localization_language_t *_localization_add_language() {
    const u32 count = localization_language_count;
    if ((count & (count - 1)) == 0) { // 0 or a power of two: full
        auto *grown = static_cast<localization_language_t *>(
            mem_alloc(sizeof(localization_language_t) * (count ? size_t{count} * 2 : 1)));
        if (localization_languages) {
            std::memcpy(grown, localization_languages, sizeof(localization_language_t) * count);
            mem_free(localization_languages);
        }
        localization_languages = grown;
    }
    return &localization_languages[localization_language_count++];
}

static void _localization_read_language(bz2_stream_t *stream, _localization_block_t *block) {
    localization_language_t *language = _localization_add_language();
    language->lid = _localization_read_u16(stream);
    block->index = static_cast<i32>(localization_language_count - 1);
    block->offset = bz2_read_u32(stream);
    block->size = bz2_read_u32(stream);
    const u32 size = bz2_read_u8(stream);
    language->name = static_cast<char *>(mem_alloc(size ? size : 1));
    bz2_read(stream, language->name, size);
    language->name[size ? size - 1 : 0] = 0;
}

// Reads the list of languages and picks the one to use. False when the header is damaged.
static bool _localization_read_languages(bz2_stream_t *stream, u32 language, u32 system_language,
                                         _localization_block_t *out) {
    const u32 count = bz2_read_u32(stream);
    if (!stream->error) {
        debug_printf("got header\n");
        debug_printf("system default lid %04x\n", system_language);
        debug_printf("count %d\n", count);
    }
    if (count > LOCALIZATION_LANGUAGE_MAX)
        bz2_set_error(stream);
    const u32 primary_language = system_language & 0xFF;
    _localization_block_t chosen = LOCALIZATION_NO_BLOCK, system = chosen, fallback = chosen;
    for (u32 i = 0; i < count && !stream->error; i++) {
        _localization_block_t block;
        _localization_read_language(stream, &block);
        const u32 lid = localization_languages[block.index].lid;
        if (lid == system_language)
            system = block;
        if (lid == primary_language)
            fallback = block;
        if (lid == language)
            chosen = block;
    }
    if (system.index < 0)
        system = fallback;
    if (chosen.index < 0 && language != LOCALIZATION_LID_ENGLISH)
        chosen = system;
    *out = chosen;
    return bz2_read_close(stream);
}

// The pack's first bytes: false unless they tell a header's size in a version that is known.
static bool _localization_read_prefix(const char *filename, u32 *header_size) {
    bz2_stream_t *stream = bz2_read_open_plain(filename);
    if (!stream)
        return false;
    debug_printf("lng file opened!\n");
    *header_size = bz2_read_u32(stream);
    debug_printf("header size %d\n", *header_size);
    const u32 version = bz2_read_u32(stream);
    debug_printf("version %d\n", version);
    if (!bz2_read_close(stream)) {
        debug_printf("language pack %s is damaged: too short; using English\n", filename);
        return false;
    }
    if (version != LOCALIZATION_VERSION)
        debug_printf("language pack %s has an unknown version: using English\n", filename);
    return version == LOCALIZATION_VERSION;
}

static bool _localization_read_header(const char *filename, u32 header_size, u32 language,
                                      u32 system_language, _localization_block_t *block) {
    bz2_stream_t *stream = bz2_read_open_part(filename, LOCALIZATION_PREFIX, header_size);
    if (stream && _localization_read_languages(stream, language, system_language, block))
        return true;
    debug_printf("language pack %s is damaged: bad header; using English\n", filename);
    _localization_free_languages();
    return false;
}

// --- A language's texts ------------------------------------------------------------------------------------

static bz2_stream_t *_localization_open_block(const char *filename, u32 header_size,
                                              const _localization_block_t *block) {
    return bz2_read_open_part(filename, u64{LOCALIZATION_PREFIX} + header_size + block->offset, block->size);
}

// Reads one text into its place, unless the pack has none, or one that must not be used there. Returns the
// bytes read.
static u64 _localization_read_string(bz2_stream_t *stream, u32 number) {
    const u32 size = bz2_read_u32(stream);
    if (size > LOCALIZATION_TEXT_MAX)
        bz2_set_error(stream);
    if (size == 0 || stream->error)
        return sizeof(size);
    char *text = static_cast<char *>(mem_alloc(size));
    bz2_read(stream, text, size);
    text[size - 1] = 0;
    if (stream->error) {
        mem_free(text);
    } else if (!utf8_format_takes_same(text, localization_english.strings[number])) {
        debug_printf("language pack: string %d has other conversions than the English one\n", number);
        mem_free(text);
    } else {
        _localization_table[number] = text;
    }
    return sizeof(size) + size;
}

// Reads the texts into the private copy. `good` is how many bytes of the block came before a failure.
static bool _localization_read_strings(bz2_stream_t *stream, u64 *good) {
    const u32 flags = bz2_read_u32(stream);
    const u32 count = bz2_read_u32(stream);
    *good = stream->error ? 0 : sizeof(flags) + sizeof(count);
    for (u32 i = 0; i < count && i < LOCALIZATION_STRING_COUNT && !stream->error; i++) {
        const u64 size = _localization_read_string(stream, i);
        if (!stream->error)
            *good += size;
    }
    localization_is_rtl = (flags & LOCALIZATION_FLAG_RTL) != 0;
    return bz2_read_close(stream);
}

// A block that ended early may be a pack with fewer texts than it says, or damage, which gives any bytes and
// shows only in the check at the end of what was compressed together. Tells which: true when its first `good`
// bytes are what was compressed.
static bool _localization_check_block(const char *filename, u32 header_size,
                                      const _localization_block_t *block, u64 good) {
    bz2_stream_t *stream = _localization_open_block(filename, header_size, block);
    if (!stream)
        return false;
    bz2_skip(stream, good);
    return bz2_read_close(stream) && good != 0;
}

static void _localization_read_block(const char *filename, u32 header_size,
                                     const _localization_block_t *block) {
    bz2_stream_t *stream = _localization_open_block(filename, header_size, block);
    if (!stream)
        return;
    _localization_make_table();
    u64 good;
    if (_localization_read_strings(stream, &good)) {
        localization_current = block->index;
    } else {
        localization_is_rtl = false;
        if (_localization_check_block(filename, header_size, block, good)) {
            debug_printf("language pack %s ends early: the rest stays English\n", filename);
        } else {
            _localization_free_table();
            debug_printf("language pack %s is damaged: bad texts of %s; using English\n", filename,
                         localization_languages[block->index].name);
        }
    }
    _localization_apply_size_units();
}

// --- Loading -----------------------------------------------------------------------------------------------

void localization_load_file(const char *filename, u32 language, u32 system_language) {
    localization_shutdown();
    u32 header_size;
    _localization_block_t block;
    if (!_localization_read_prefix(filename, &header_size) ||
        !_localization_read_header(filename, header_size, language, system_language, &block))
        return;
    if (block.index >= 0)
        _localization_read_block(filename, header_size, &block);
}

void localization_load(u32 language) {
    utf8_buf_t filename;
    utf8_buf_init(&filename);
    if (utf8_buf_get_exe_path(&filename)) {
        utf8_buf_path_cat_filename(&filename, filename.data, static_cast<u32>(filename.length),
                                   LOCALIZATION_FILENAME, utf8_length(LOCALIZATION_FILENAME));
        localization_load_file(filename.data, language, localization_get_system_language());
    } else {
        localization_shutdown();
    }
    utf8_buf_kill(&filename);
}

} // namespace findwright
