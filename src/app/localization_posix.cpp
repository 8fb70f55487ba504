#include "app/localization.h"
#include "base/utf8.h"

#include <cstdlib>
#include <initializer_list>

namespace findwright {

// Windows identifiers of languages by their locale names. A language alone stands for the country it is
// mostly spoken in, and for all countries that are not listed.
struct _localization_locale_t {
    const char *name;
    u16 lid;
};

static constexpr _localization_locale_t _localization_locales[] = {
    {"af", 0x0436},    {"ar", 0x0401},    {"ar_AE", 0x3801}, {"ar_DZ", 0x1401}, {"ar_EG", 0x0C01},
    {"ar_IQ", 0x0801}, {"ar_LB", 0x3001}, {"ar_MA", 0x1801}, {"ar_SY", 0x2801}, {"ar_TN", 0x1C01},
    {"be", 0x0423},    {"bg", 0x0402},    {"bn", 0x0445},    {"bs", 0x141A},    {"ca", 0x0403},
    {"cs", 0x0405},    {"cy", 0x0452},    {"da", 0x0406},    {"de", 0x0407},    {"de_AT", 0x0C07},
    {"de_CH", 0x0807}, {"de_LI", 0x1407}, {"de_LU", 0x1007}, {"el", 0x0408},    {"en", 0x0409},
    {"en_AU", 0x0C09}, {"en_CA", 0x1009}, {"en_GB", 0x0809}, {"en_IE", 0x1809}, {"en_IN", 0x4009},
    {"en_NZ", 0x1409}, {"en_ZA", 0x1C09}, {"es", 0x0C0A},    {"es_AR", 0x2C0A}, {"es_CL", 0x340A},
    {"es_CO", 0x240A}, {"es_MX", 0x080A}, {"es_PE", 0x280A}, {"es_VE", 0x200A}, {"et", 0x0425},
    {"eu", 0x042D},    {"fa", 0x0429},    {"fi", 0x040B},    {"fr", 0x040C},    {"fr_BE", 0x080C},
    {"fr_CA", 0x0C0C}, {"fr_CH", 0x100C}, {"fr_LU", 0x140C}, {"ga", 0x083C},    {"gl", 0x0456},
    {"gu", 0x0447},    {"he", 0x040D},    {"hi", 0x0439},    {"hr", 0x041A},    {"hu", 0x040E},
    {"hy", 0x042B},    {"id", 0x0421},    {"is", 0x040F},    {"it", 0x0410},    {"it_CH", 0x0810},
    {"ja", 0x0411},    {"ka", 0x0437},    {"kk", 0x043F},    {"kn", 0x044B},    {"ko", 0x0412},
    {"lt", 0x0427},    {"lv", 0x0426},    {"mk", 0x042F},    {"mn", 0x0450},    {"mr", 0x044E},
    {"ms", 0x043E},    {"nb", 0x0414},    {"nl", 0x0413},    {"nl_BE", 0x0813}, {"nn", 0x0814},
    {"no", 0x0414},    {"pa", 0x0446},    {"pl", 0x0415},    {"pt", 0x0416},    {"pt_PT", 0x0816},
    {"ro", 0x0418},    {"ru", 0x0419},    {"sk", 0x041B},    {"sl", 0x0424},    {"sq", 0x041C},
    {"sr", 0x281A},    {"sv", 0x041D},    {"sv_FI", 0x081D}, {"ta", 0x0449},    {"te", 0x044A},
    {"th", 0x041E},    {"tr", 0x041F},    {"uk", 0x0422},    {"ur", 0x0420},    {"uz", 0x0443},
    {"vi", 0x042A},    {"zh", 0x0804},    {"zh_HK", 0x0C04}, {"zh_SG", 0x1004}, {"zh_TW", 0x0404},
};

static u32 _localization_find_locale(const char *name, u32 length) {
    for (const _localization_locale_t &locale : _localization_locales) {
        if (utf8_is_equal(locale.name, utf8_length(locale.name), name, length))
            return locale.lid;
    }
    return 0;
}

u32 localization_get_system_language() {
    const char *locale = "";
    for (const char *variable : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
        const char *value = std::getenv(variable);
        if (value && *value) {
            locale = value;
            break;
        }
    }
    // A name is "language_COUNTRY.encoding@variant", all but the language optional.
    const u32 country_end = static_cast<u32>(std::strcspn(locale, ".@"));
    const u32 language_end = static_cast<u32>(std::strcspn(locale, "_.@"));
    u32 lid = _localization_find_locale(locale, country_end);
    if (lid == 0)
        lid = _localization_find_locale(locale, language_end);
    return lid ? lid : LOCALIZATION_LID_ENGLISH;
}

} // namespace findwright
