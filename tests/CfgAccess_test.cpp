#include "CfgAccess.h"
#include "CfgSlot.h"

#include <gtest/gtest.h>

namespace {

TEST(CfgAccess, AnswersFromTheRunningConfigurationOnly)
{
    static const unsigned char kToken[] = "\5Token";
    static int sManagerBytes = 0;
    const auto manager = reinterpret_cast<ConfigManager*>(&sManagerBytes);
    static const kz::CfgAccess kAccess = {manager,
                                          [](ConfigManager*, uInt32 type, const unsigned char*, void* out) -> KzErr {
                                              *static_cast<uInt32*>(out) = type;
                                              return 0;
                                          }};
    uInt32 value = 5;
    EXPECT_EQ(CfgGetDefault(kz::FourCharCode("I32 "), kToken, &value), 42);
    EXPECT_EQ(CfgGetDefault(kz::FourCharCode("I32 "), nullptr, &value), 1);
    EXPECT_EQ(GetMainCfgAccess(), nullptr);
    EXPECT_EQ(value, 5u);

    kz::SetMainCfgAccess(&kAccess);
    EXPECT_EQ(GetMainCfgAccess(), manager);
    EXPECT_EQ(CfgGetDefault(7, reinterpret_cast<const unsigned char*>(""), &value), 1);
    EXPECT_EQ(value, 5u);
    EXPECT_EQ(CfgGetDefault(7, kToken, &value), 0);
    EXPECT_EQ(value, 7u);
    kz::SetMainCfgAccess(nullptr);
    EXPECT_EQ(CfgGetDefault(7, kToken, &value), 42);
}

}  // namespace
