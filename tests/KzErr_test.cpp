#include "KzErr.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <initializer_list>
#include <map>

#include "IniTypes.h"

namespace {

struct Texts {
    int code;
    const char* name;
    const char* text;
};

TEST(KzErr, CodesHaveTexts)
{
    for (const auto& [code, name, text] : std::initializer_list<Texts>{
             {0, "kzErrNone", "no error"},
             {1, "kzErrArgument", "bad argument"},
             {19, "kzErrIniSyntax", "INI syntax"},
             {42, "kzErrGeneric", "generic failure"},
             {128, "kzErrNoUniqueId", "no free resource id left"},
             {16, "unknown", "unknown error"},
             {129, "unknown", "unknown error"},
             {-1, "unknown", "unknown error"},
         }) {
        EXPECT_STREQ(KzErrName(code), name) << code;
        EXPECT_STREQ(KzErrText(code), text) << code;
    }
    for (const auto& [code, name, text] : std::initializer_list<Texts>{
             {1, "success", "success"},
             {0, "not found", "not found"},
             {-2, "kIniErrLineTooShort", "the greatest line length leaves no room for a value"},
             {-5023, "kIniErrDouble", "not a number"},
             {2, "unknown", "unknown error"},
             {-1, "unknown", "unknown error"},
         }) {
        EXPECT_STREQ(IniErrName(code), name) << code;
        EXPECT_STREQ(IniErrText(code), text) << code;
    }
}

TEST(KzErr, UnixNumbersFold)
{
    const std::map<int, KzErr> listed = {
        {0, 0},  {1, 8},  {11, 8},  {13, 8},  {35, 8},  {77, 8}, {2, 7},  {9, 1},
        {22, 1}, {12, 2}, {17, 10}, {23, 11}, {24, 11}, {26, 5}, {28, 9}, {29, 4},
    };
    for (int number = 0; number < 200; ++number) {
        const auto found = listed.find(number);
        EXPECT_EQ(UnixToKZErr(number), found == listed.end() ? 6 : found->second) << number;
    }
    errno = ENOENT;
    EXPECT_EQ(UnixToKZErr(-1), 7);
    errno = 78;
    EXPECT_EQ(UnixToKZErr(-5), 6);
}

TEST(KzErr, MacResultsFold)
{
    const std::map<int, KzErr> listed = {
        {0, 0},    {-34, 9},   {-35, 7},   {-43, 7},   {-120, 7},   {-37, 1},    {-38, 1},
        {-50, 1},  {-51, 1},   {-39, 4},   {-40, 4},   {-42, 11},   {-44, 8},    {-45, 8},
        {-46, 8},  {-54, 8},   {-61, 8},   {-5000, 8}, {-47, 5},    {-49, 5},    {-48, 10},
        {-108, 2}, {-192, 15}, {-193, 13}, {-194, 14}, {-5025, 12}, {-5033, 12}, {-5043, 12},
    };
    for (int code = -6000; code <= 200; ++code) {
        const auto found = listed.find(code);
        EXPECT_EQ(MacToKZErr(static_cast<short>(code)), found == listed.end() ? 6 : found->second) << code;
    }
}

}  // namespace
