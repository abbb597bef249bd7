// With the environment variable KZ_TEST_LOCALE each test starts in that locale, which a start of the library keeps too.
#include <gtest/gtest.h>

#include <clocale>
#include <cstdlib>

namespace {

class LocaleListener : public testing::EmptyTestEventListener {
public:
    explicit LocaleListener(const char* locale) : mLocale(locale) {}

    void OnTestStart(const testing::TestInfo& /*test*/) override
    {
        unsetenv("LC_ALL");
        setenv("LANG", mLocale, 1);
        ASSERT_NE(std::setlocale(LC_ALL, mLocale), nullptr) << "there is no locale " << mLocale;
    }

private:
    const char* mLocale;
};

[[maybe_unused]] const bool gInstalled = [] {
    if (const char* const locale = std::getenv("KZ_TEST_LOCALE")) {
        testing::UnitTest::GetInstance()->listeners().Append(new LocaleListener(locale));
    }
    return true;
}();

}  // namespace
