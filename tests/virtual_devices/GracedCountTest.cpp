// SPDX-License-Identifier: Apache-2.0
#include "virtual_devices/GracedCount.h"

#include <gmock/gmock.h>

namespace lumivora {

namespace {

using namespace std::chrono_literals;

class GracedCountTest : public ::testing::Test
{
protected:
    std::chrono::milliseconds now{50000};
    GracedCount count{[this] {
        return now;
    }};
};

} // namespace

TEST_F(GracedCountTest, update_rise_isPassedOnAtOnce)
{
    EXPECT_EQ(count.update(1), 1);
    EXPECT_EQ(count.update(3), 3);
}

TEST_F(GracedCountTest, update_fall_isPassedOnAfterTheGraceAndNotBefore)
{
    count.update(2);
    EXPECT_EQ(count.update(1), 2);
    now += 999ms;
    EXPECT_EQ(count.update(1), 2);
    now += 1ms;
    EXPECT_EQ(count.update(1), 1);
}

TEST_F(GracedCountTest, update_clientThatOpensAgainWithinTheGrace_leavesNoTrace)
{
    count.update(1);
    count.update(0);
    now += 900ms;
    EXPECT_EQ(count.update(1), 1);
    now += 900ms;
    EXPECT_EQ(count.update(1), 1);
    EXPECT_EQ(count.update(0), 1); // a new fall has a grace of its own
    now += 999ms;
    EXPECT_EQ(count.update(0), 1);
    now += 1ms;
    EXPECT_EQ(count.update(0), 0);
}

TEST_F(GracedCountTest, update_fallInSteps_endsAtTheLastStep)
{
    count.update(3);
    count.update(2);
    now += 500ms;
    EXPECT_EQ(count.update(0), 3);
    now += 500ms;
    EXPECT_EQ(count.update(0), 0);
}

} // namespace lumivora
