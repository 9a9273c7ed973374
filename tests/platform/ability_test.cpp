// The device ability stand-in: input words checked, ranges from the profile.
#include <gtest/gtest.h>

#include <cstring>

#include "ability.h"

namespace {

ABILITY_RANGE_S RangeAt(const DEVICE_ABILITY_S& a, int which)
{
    ABILITY_RANGE_S r;
    std::memcpy(&r, reinterpret_cast<const uint8_t*>(&a) + DEVICE_ABILITY_RANGES_OFFSET + which * sizeof(r),
                sizeof(r));
    return r;
}

TEST(Ability, FillsTheRangesOfTheInstalledProfile)
{
    DEVICE_ABILITY_S a{};
    a.uiChannel = 101;
    ASSERT_EQ(GetDeviceAbility(&a), 0);
    EXPECT_EQ(RangeAt(a, ABILITY_RANGE_HUE).llEnd, 100);

    ABILITY_PROFILE_S profile{};
    for (int i = 0; i < ABILITY_RANGE_COUNT; ++i) {
        profile.astRange[i] = {-i, 10 * i};
    }
    SetDeviceAbilityProfile(&profile);
    ASSERT_EQ(GetDeviceAbility(&a), 0);
    for (int i = 0; i < ABILITY_RANGE_COUNT; ++i) {
        EXPECT_EQ(RangeAt(a, i).llBegin, -i);
        EXPECT_EQ(RangeAt(a, i).llEnd, 10 * i);
    }
    SetDeviceAbilityProfile(nullptr);
    ASSERT_EQ(GetDeviceAbility(&a), 0);
    EXPECT_EQ(RangeAt(a, ABILITY_RANGE_SHARPNESS).llEnd, 100) << "defaults restored";
}

TEST(Ability, RefusesBadInputWordsAndLeavesTheRecord)
{
    const std::pair<uint32_t, uint32_t> bad[] = {{100, 0}, {0, 0}, {101, 1}};
    for (const auto& [channel, query] : bad) {
        DEVICE_ABILITY_S a{};
        a.uiChannel = channel;
        a.uiQuery = query;
        EXPECT_EQ(GetDeviceAbility(&a), -1);
        EXPECT_EQ(RangeAt(a, ABILITY_RANGE_BRIGHTNESS).llEnd, 0);
    }
    EXPECT_EQ(GetDeviceAbility(nullptr), -1);
}

}  // namespace
