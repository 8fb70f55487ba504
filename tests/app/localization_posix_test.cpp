#include "app/localization.h"

#include <cstdlib>
#include <gtest/gtest.h>
#include <string>

namespace findwright {
namespace {

TEST(localization_locale, language_of_the_environment) {
    const char *const names[] = {"LC_ALL", "LC_MESSAGES", "LANG"};
    std::string before[3];
    for (u32 i = 0; i < 3; i++)
        before[i] = std::getenv(names[i]) ? std::getenv(names[i]) : "";
    const struct {
        const char *values[3];
        u32 lid;
    } cases[] = {
        {{"", "", "de_DE.UTF-8"}, 0x0407},  {{"", "de_AT", "fr_FR"}, 0x0C07},
        {{"pt_PT@euro", "de", ""}, 0x0816}, {{"", "", "de_BE.UTF-8"}, 0x0407},
        {{"", "", "C.UTF-8"}, 0x0409},      {{"", "", ""}, 0x0409},
        {{"", "", "xx_DE.UTF-8"}, 0x0409},  {{"", "", "de@x"}, 0x0407},
    };
    for (const auto &row : cases) {
        for (u32 i = 0; i < 3; i++)
            setenv(names[i], row.values[i], 1);
        EXPECT_EQ(localization_get_system_language(), row.lid) << row.values[2];
    }
    for (u32 i = 0; i < 3; i++)
        before[i].empty() ? unsetenv(names[i]) : setenv(names[i], before[i].c_str(), 1);
}

} // namespace
} // namespace findwright
