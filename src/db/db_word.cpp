#include "db/db_word.h"

#include "base/utf8.h"
#include "db/db.h"
#include "os/os_parallel.h"

namespace findwright {

static constexpr u32 PAIR_FIRST = DB_WORD_LETTERS + 1;
static constexpr u32 PAIR_BITS = 64 - PAIR_FIRST;
// Spreads pairs over the bits; of two dozen odd numbers the one that let the fewest names through.
static constexpr u32 PAIR_FACTOR = 0x35734F5D;
static constexpr u32 PAIR_RADIX = 251;
static constexpr u32 FILL_VALUES = 65536; // a thread is worth its start for so many names

static inline u64 _db_word_of_pair(u32 first, u32 second) {
    u32 hash = (first * PAIR_RADIX + second) * PAIR_FACTOR;
    return static_cast<u64>(1) << (PAIR_FIRST + (static_cast<u64>(hash) * PAIR_BITS >> 32));
}

static inline u64 _db_word_of_letter(u32 value) {
    u32 letter = value - 'a';
    return letter < DB_WORD_LETTERS ? static_cast<u64>(1) << letter : 0;
}

// Whether the character at `text` is whole, with true continuation bytes.
static bool _db_is_whole_character(const char *text, u32 length) {
    if (length == 1)
        return static_cast<u8>(*text) < 0x80;
    for (u32 i = 1; i < length; i++) {
        if ((text[i] & 0xC0) != 0x80)
            return false;
    }
    return true;
}

// The word of a text, or `malformed` if it is no UTF-8.
static u64 _db_word(const char *text, u32 length, u64 malformed) {
    u64 word = 0;
    u32 last = 0;
    const char *end = text + length;
    for (bool first = true; text != end; first = false) {
        u32 value;
        if (static_cast<u8>(*text) < 0x80) {
            value = utf8_lower_ascii[*text++];
        } else {
            u32 size = utf8_decode(text, end, &value);
            if (!_db_is_whole_character(text, size))
                return malformed;
            value = utf8_to_fold(value);
            word |= DB_WORD_NOT_ASCII;
            text += size;
        }
        word |= _db_word_of_letter(value);
        if (!first)
            word |= _db_word_of_pair(last, value);
        last = value;
    }
    return word;
}

u64 db_word_of_name(const char *name, u32 length) {
    return _db_word(name, length, DB_WORD_ALL);
}

u64 db_word_of_text(const char *text, u32 length) {
    return _db_word(text, length, 0);
}

// --- The name arrays ---------------------------------------------------------------------------------------

static u64 _db_word_of_item(u32 value) {
    u32 length;
    const char *name = db_item_get_name(db_item(value), &length);
    return db_word_of_name(name, length);
}

static void _db_words_fill_proc(void *param, u32 part, u32 parts) {
    const array_t *array = static_cast<const array_t *>(param);
    u64 pages = array->page_count;
    for (u64 page = pages * part / parts; page < pages * (part + 1) / parts; page++) {
        const u32 *values = array_page_values(array->pages[page]);
        u64 *words = array_page_words(array->pages[page]);
        for (u32 i = 0; i < array->pages[page]->item_count; i++)
            words[i] = _db_word_of_item(values[i]);
    }
}

void db_words_create(db_t *db) {
    for (array_t *array : {&db->folder_name_array, &db->file_name_array}) {
        array_words_create(array, _db_word_of_item);
        os_parallel(os_get_thread_count(array->count, FILL_VALUES), _db_words_fill_proc, array);
    }
}

} // namespace findwright
