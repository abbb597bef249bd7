// The tables are keyed by number, not by the system's E... and ...Err names: a number means the same error on every
// platform that the codes are stored or compared on, whatever name the platform at hand gives it.
#include "KzErr.h"

#include <cerrno>

namespace {

struct Folding {
    int systemCode;
    KzErr err;
};

constexpr Folding kUnixFoldings[] = {
    {0, kzErrNone},          {1, kzErrNoPermission},  {2, kzErrNotFound},      {9, kzErrArgument},
    {11, kzErrNoPermission}, {12, kzErrMemoryFull},   {13, kzErrNoPermission}, {17, kzErrDuplicatePath},
    {22, kzErrArgument},     {23, kzErrTooManyFiles}, {24, kzErrTooManyFiles}, {26, kzErrFileBusy},
    {28, kzErrDiskFull},     {29, kzErrEndOfFile},    {35, kzErrNoPermission}, {77, kzErrNoPermission},
};

constexpr Folding kMacFoldings[] = {
    {0, kzErrNone},
    {-34, kzErrDiskFull},
    {-35, kzErrNotFound},
    {-37, kzErrArgument},
    {-38, kzErrArgument},
    {-39, kzErrEndOfFile},
    {-40, kzErrEndOfFile},
    {-42, kzErrTooManyFiles},
    {-43, kzErrNotFound},
    {-44, kzErrNoPermission},
    {-45, kzErrNoPermission},
    {-46, kzErrNoPermission},
    {-47, kzErrFileBusy},
    {-48, kzErrDuplicatePath},
    {-49, kzErrFileBusy},
    {-50, kzErrArgument},
    {-51, kzErrArgument},
    {-54, kzErrNoPermission},
    {-61, kzErrNoPermission},
    {-108, kzErrMemoryFull},
    {-120, kzErrNotFound},
    {-192, kzErrResNotFound},
    {-193, kzErrResFileNotOpen},
    {-194, kzErrResAddFailed},
    {-5000, kzErrNoPermission},
    {-5025, kzErrNotPossible},
    {-5033, kzErrNotPossible},
    {-5043, kzErrNotPossible},
};

// Searched from the start, because only failures come here and the tables are short. A number without a row is kzErrIO,
// so that a system error is never taken for success.
template <int N>
KzErr Fold(const Folding (&foldings)[N], int systemCode)
{
    for (const Folding& folding : foldings) {
        if (folding.systemCode == systemCode) {
            return folding.err;
        }
    }
    return kzErrIO;
}

struct ErrTexts {
    KzErr err;
    const char* name;
    const char* text;
};

constexpr ErrTexts kErrTexts[] = {
#define KZ_ERR_TEXTS(constant, value, meaning) {value, #constant, meaning},
    KZ_ERR_LIST(KZ_ERR_TEXTS)
#undef KZ_ERR_TEXTS
};

constexpr ErrTexts kUnknown{0, "unknown", "unknown error"};

const ErrTexts& TextsOf(KzErr err)
{
    for (const ErrTexts& texts : kErrTexts) {
        if (texts.err == err) {
            return texts;
        }
    }
    return kUnknown;
}

}  // namespace

const char* KzErrName(KzErr err)
{
    return TextsOf(err).name;
}

const char* KzErrText(KzErr err)
{
    return TextsOf(err).text;
}

KzErr MacToKZErr(short osErr)
{
    return Fold(kMacFoldings, osErr);
}

KzErr UnixToKZErr(int unixErr)
{
    return Fold(kUnixFoldings, unixErr < 0 ? errno : unixErr);
}
