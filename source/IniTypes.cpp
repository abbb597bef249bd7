// The texts of the codes, from the list in the header. A host's own codes, which come back from its functions, have
// none.
#include "IniTypes.h"

namespace {

struct ErrTexts {
    int result;
    const char* name;
    const char* text;
};

constexpr ErrTexts kErrTexts[] = {{1, "success", "success"},
                                  {0, "not found", "not found"},
#define INI_ERR_TEXTS(constant, value, meaning) {value, #constant, meaning},
                                  INI_ERR_LIST(INI_ERR_TEXTS)
#undef INI_ERR_TEXTS
};

constexpr ErrTexts kUnknown{0, "unknown", "unknown error"};

const ErrTexts& TextsOf(int result)
{
    for (const ErrTexts& texts : kErrTexts) {
        if (texts.result == result) {
            return texts;
        }
    }
    return kUnknown;
}

}  // namespace

const char* IniErrName(int result)
{
    return TextsOf(result).name;
}

const char* IniErrText(int result)
{
    return TextsOf(result).text;
}
