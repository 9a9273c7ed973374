// The device ability stand-in: input words checked, ranges from the profile.
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "ability.h"

namespace {

// GetDeviceAbility's result for the input words, and the record's ranges as begin, end pairs in record order.
std::vector<int64_t> Ranges(uint32_t channel, uint32_t query, int rc = 0)
{
    DEVICE_ABILITY_S a{};
    a.uiChannel = channel;
    a.uiQuery = query;
    EXPECT_EQ(rc, GetDeviceAbility(&a));
    std::vector<int64_t> r(2 * ABILITY_RANGE_COUNT);
    std::memcpy(r.data(), reinterpret_cast<const uint8_t*>(&a) + DEVICE_ABILITY_RANGES_OFFSET,
                sizeof(ABILITY_PROFILE_S));
    return r;
}

const std::vector<int64_t> kDefaults = {0, 100, 0, 100, 0, 100, 0, 100, 0, 100};

TEST(Ability, FillsTheRangesOfTheInstalledProfile)
{
    EXPECT_EQ(kDefaults, Ranges(101, 0));
    const ABILITY_PROFILE_S profile = {{{0, 0}, {-1, 10}, {-2, 20}, {-3, 30}, {-4, 40}}};
    SetDeviceAbilityProfile(&profile);
    EXPECT_EQ((std::vector<int64_t>{0, 0, -1, 10, -2, 20, -3, 30, -4, 40}), Ranges(102, 0));
    SetDeviceAbilityProfile(nullptr);
    EXPECT_EQ(kDefaults, Ranges(101, 0)) << "defaults restored";
}

TEST(Ability, RefusesBadInputWordsAndLeavesTheRecord)
{
    for (const auto& [channel, query] : {std::pair<uint32_t, uint32_t>{100, 0}, {101, 1}}) {
        EXPECT_EQ(std::vector<int64_t>(2 * ABILITY_RANGE_COUNT, 0), Ranges(channel, query, -1));
    }
    EXPECT_EQ(GetDeviceAbility(nullptr), -1);
}

}  // namespace
