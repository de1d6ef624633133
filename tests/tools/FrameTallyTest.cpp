// SPDX-License-Identifier: Apache-2.0
// Counts of what reaches a client, from hand-made frame sequences.
#include "tools/probe/FrameTally.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <optional>

using lumivora::tools::FrameStamp;
using lumivora::tools::FrameTally;

namespace {

/** A whole frame that took latencyUs to arrive. */
FrameTally::Kind addWhole(FrameTally &tally, std::uint32_t number, std::uint64_t offeredUs,
                          std::uint64_t latencyUs)
{
    const FrameStamp stamp{number, offeredUs};
    return tally.add(stamp, stamp, offeredUs + latencyUs);
}

} // namespace

TEST(FrameTally, fresh_hasNothing)
{
    const FrameTally tally;
    EXPECT_EQ(tally.delivered(), 0U);
    EXPECT_EQ(tally.fps(), 0.0);
    EXPECT_EQ(tally.liveSeconds(), 0.0);
    EXPECT_EQ(tally.latencyMs(0.5), 0.0);
    EXPECT_FALSE(tally.first());
}

TEST(FrameTally, add_consecutiveFrames_countsThemWithRateAndLatency)
{
    FrameTally tally;
    for (std::uint32_t n = 0; n < 31; ++n) {
        const auto kind = addWhole(tally, 100 + n, 1'000'000 + n * 100'000ULL, 5'000);
        EXPECT_EQ(kind, FrameTally::Kind::Live);
    }
    EXPECT_EQ(tally.delivered(), 31U);
    EXPECT_EQ(tally.skipped(), 0U);
    EXPECT_DOUBLE_EQ(tally.liveSeconds(), 3.0);
    EXPECT_DOUBLE_EQ(tally.fps(), 10.0);
    EXPECT_DOUBLE_EQ(tally.latencyMs(0.5), 5.0);
    EXPECT_EQ(tally.first(), (FrameStamp{100, 1'000'000}));
    EXPECT_EQ(tally.last(), (FrameStamp{130, 4'000'000}));
    EXPECT_EQ(tally.firstArrivalUs(), 1'005'000U);
}

TEST(FrameTally, add_oneFrame_hasNoRate)
{
    FrameTally tally;
    addWhole(tally, 1, 10, 5);
    EXPECT_EQ(tally.delivered(), 1U);
    EXPECT_EQ(tally.fps(), 0.0);
}

TEST(FrameTally, add_sameFrameAgain_isRepeatedAndChangesNoFigure)
{
    FrameTally tally;
    addWhole(tally, 1, 1'000'000, 1'000);
    EXPECT_EQ(addWhole(tally, 1, 1'000'000, 900'000), FrameTally::Kind::Repeated);
    EXPECT_EQ(tally.delivered(), 1U);
    EXPECT_EQ(tally.repeated(), 1U);
    EXPECT_DOUBLE_EQ(tally.latencyMs(1.0), 1.0);
}

TEST(FrameTally, add_gapInNumbers_isSkipped)
{
    FrameTally tally;
    addWhole(tally, 5, 0, 10);
    addWhole(tally, 9, 100, 10);
    EXPECT_EQ(tally.skipped(), 3U);
    EXPECT_EQ(tally.delivered(), 2U);
}

TEST(FrameTally, add_numbersStartAnew_leavesNoGap)
{
    FrameTally tally;
    addWhole(tally, 900, 1'000, 10);
    EXPECT_EQ(addWhole(tally, 0, 9'000, 10), FrameTally::Kind::Live);
    addWhole(tally, 1, 10'000, 10);
    EXPECT_EQ(tally.skipped(), 0U);
    EXPECT_EQ(tally.delivered(), 3U);
}

TEST(FrameTally, add_differentBands_isTornAndNotDelivered)
{
    FrameTally tally;
    EXPECT_EQ(tally.add(FrameStamp{2, 20}, FrameStamp{1, 10}, 30), FrameTally::Kind::Torn);
    EXPECT_EQ(tally.add(FrameStamp{2, 20}, std::nullopt, 30), FrameTally::Kind::Torn);
    EXPECT_EQ(tally.add(std::nullopt, FrameStamp{2, 20}, 30), FrameTally::Kind::Torn);
    EXPECT_EQ(tally.torn(), 3U);
    EXPECT_EQ(tally.delivered(), 0U);
}

TEST(FrameTally, add_noStamp_isPlaceholderAndKeepsTheLastNumber)
{
    FrameTally tally;
    addWhole(tally, 1, 0, 10);
    EXPECT_EQ(tally.add(std::nullopt, std::nullopt, 50), FrameTally::Kind::Placeholder);
    addWhole(tally, 2, 100, 10);
    EXPECT_EQ(tally.placeholders(), 1U);
    EXPECT_EQ(tally.skipped(), 0U);
}

TEST(FrameTally, latencyMs_knownSpread_givesTheNearestRank)
{
    FrameTally tally;
    // 1 to 100 ms, out of order: 37 has no common factor with 100.
    for (std::uint32_t n = 0; n < 100; ++n) {
        addWhole(tally, n, n * 1'000'000ULL, (n * 37 % 100 + 1) * 1'000ULL);
    }
    EXPECT_DOUBLE_EQ(tally.latencyMs(0.0), 1.0);
    EXPECT_DOUBLE_EQ(tally.latencyMs(0.5), 50.0);
    EXPECT_DOUBLE_EQ(tally.latencyMs(0.99), 99.0);
    EXPECT_DOUBLE_EQ(tally.latencyMs(1.0), 100.0);
}

TEST(FrameTally, latencyMs_sinceAFrame_leavesTheOnesBeforeOut)
{
    FrameTally tally;
    addWhole(tally, 0, 0, 90'000);
    addWhole(tally, 1, 100'000, 10'000);
    EXPECT_DOUBLE_EQ(tally.latencyMs(1.0, 1), 10.0);
    EXPECT_DOUBLE_EQ(tally.latencyMs(1.0, 2), 0.0);
}
