// All texts that a user reads, by number, and the language packs that translate them.
//
// English is built in (localization_strings.inl). A pack, "Findwright.lng" in the program's folder, may hold
// several languages; the one that fits replaces entries of a private copy of the table. Its format is told in
// docs/language_pack.md.
//
// Owner: this module owns the texts and the list of languages until localization_shutdown. The main thread
// loads and shuts down, while no other thread reads texts; in between any thread may read.
//
// A pack is not trusted: a translation that takes other arguments than the English text is left out, so every
// text may be given to the program's formatter together with the arguments of the English one.
#pragma once

#include "base/types.h"

namespace findwright {

// Room of the table. It is larger than what the program uses so far: numbers that no text has yet are empty.
inline constexpr u32 LOCALIZATION_STRING_COUNT = 1638;

enum localization_string_t : u32 {
#define LOCALIZATION_STRING(number, name, english) LOCALIZATION_##name = (number),
#include "app/localization_strings.inl"
#undef LOCALIZATION_STRING
};

// The texts in the language in use: the built-in table, or a private copy of it.
extern const char *const *localization_strings;
// The English ones.
struct localization_table_t {
    const char *strings[LOCALIZATION_STRING_COUNT];
};
extern const localization_table_t localization_english;

struct localization_language_t {
    char *name; // UTF-8, in the language itself
    u16 lid;    // Windows language identifier
};

// The languages of the pack, in its order; empty without one.
extern localization_language_t *localization_languages;
extern u32 localization_language_count;

extern bool localization_is_rtl; // windows are laid out from right to left
extern i32 localization_current; // the language in use, in the list; -1 is the built-in English
inline constexpr u32 LOCALIZATION_LID_ENGLISH = 0x0409;

// Loads the program's pack. `language` is the identifier that the user chose, 0 for none: then it is the
// system's language. A pack that is missing or damaged leaves the program in English; what is wrong is
// logged.
void localization_load(u32 language);
// The same for any pack and any system language.
void localization_load_file(const char *filename, u32 language, u32 system_language);
// Back to English, and no languages. Pointers to texts are no longer good.
void localization_shutdown();

// The language that the system speaks to this user, as a Windows language identifier; English when it cannot
// be told. On POSIX it comes from LC_ALL, LC_MESSAGES or LANG.
u32 localization_get_system_language();

// The text of a number in the language in use.
inline const char *localization_get(localization_string_t number) {
    return localization_strings[number];
}

} // namespace findwright
