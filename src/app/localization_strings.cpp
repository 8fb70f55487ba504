#include "app/localization.h"

#include <algorithm>
#include <iterator>

namespace findwright {

static constexpr u32 _localization_numbers[] = {
#define LOCALIZATION_STRING(number, name, english) number,
#include "app/localization_strings.inl"
#undef LOCALIZATION_STRING
};

static consteval bool _localization_numbers_fit() {
    for (const u32 &number : _localization_numbers) {
        if (number >= LOCALIZATION_STRING_COUNT ||
            std::count(std::begin(_localization_numbers), std::end(_localization_numbers), number) != 1)
            return false;
    }
    return true;
}
static_assert(_localization_numbers_fit(), "a number of the string table is given twice, or too high");

static consteval localization_table_t _localization_make_english() {
    localization_table_t table = {};
    for (const char *&string : table.strings)
        string = "";
#define LOCALIZATION_STRING(number, name, english) table.strings[number] = english;
#include "app/localization_strings.inl"
#undef LOCALIZATION_STRING
    return table;
}

constinit const localization_table_t localization_english = _localization_make_english();

} // namespace findwright
