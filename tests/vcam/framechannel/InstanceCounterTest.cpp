// SPDX-License-Identifier: Apache-2.0
// The client counter as both its sides see it.

#include "vcam/framechannel/InstanceCounter.h"
#include "tests/vcam/framechannel/ActorProcess.h"
#include "tests/vcam/framechannel/RawSection.h"
#include "vcam/framechannel/SharedMutex.h"

#include <gtest/gtest.h>

#include <array>
#include <thread>

namespace lumivora::test {

namespace {

constexpr auto kSection = "GlobalLumivoraInstanceCounterSM";
constexpr auto kMutex = "GlobalLumivoraInstanceCounterMux";

class InstanceCounterTest : public ::testing::Test
{
protected:
    const PrivateRuntime _runtime;
    InstanceCounter _counter;
    std::uint32_t _count = 99;
};

} // namespace

TEST_F(InstanceCounterTest, read_neverOpened_returnsFalse)
{
    EXPECT_FALSE(_counter.read(_count));
    EXPECT_EQ(_count, 99U);
    EXPECT_FALSE(_counter.write(1));
}

TEST_F(InstanceCounterTest, open_nothingThere_startsAtZero)
{
    ASSERT_TRUE(_counter.open());
    ASSERT_TRUE(_counter.read(_count));
    EXPECT_EQ(_count, 0U);
    const auto raw = RawSection::open(kSection);
    ASSERT_TRUE(raw);
    EXPECT_EQ(raw->at<std::uint32_t>(0), 0U);
}

TEST_F(InstanceCounterTest, open_counterThere_keepsItsValue)
{
    const auto raw = RawSection::make(kSection, std::array<std::byte, 4>{std::byte{7}});
    ASSERT_TRUE(raw);
    ASSERT_TRUE(_counter.open());
    EXPECT_EQ(raw->at<std::uint32_t>(0), 7U);
    ASSERT_TRUE(_counter.read(_count));
    EXPECT_EQ(_count, 7U);
}

TEST_F(InstanceCounterTest, read_clientsCountedOutside_followsThem)
{
    ASSERT_TRUE(_counter.open());
    const auto raw = RawSection::open(kSection);
    ASSERT_TRUE(raw);
    for (const std::uint32_t clients : {1U, 2U, 0U, 0xFFFFFFFFU}) {
        raw->set(0, clients);
        ASSERT_TRUE(_counter.read(_count));
        EXPECT_EQ(_count, clients);
    }
}

TEST_F(InstanceCounterTest, write_isSeenByOthersAndStays)
{
    ASSERT_TRUE(_counter.open());
    EXPECT_TRUE(_counter.write(0x01020304));
    const auto raw = RawSection::open(kSection);
    ASSERT_TRUE(raw);
    const std::array expected = {std::byte{4}, std::byte{3}, std::byte{2}, std::byte{1}};
    EXPECT_TRUE(std::equal(expected.begin(), expected.end(), raw->bytes().begin()));

    InstanceCounter other;
    ASSERT_TRUE(other.open());
    ASSERT_TRUE(other.read(_count));
    EXPECT_EQ(_count, 0x01020304U);
}

TEST_F(InstanceCounterTest, read_mutexHeldElsewhere_waitsForIt)
{
    ASSERT_TRUE(_counter.open());
    ActorProcess holder({QStringLiteral("hold"), QStringLiteral("42")});
    ASSERT_EQ(holder.readLine(), "held");
    bool succeeded = false;
    std::thread reader([&] { succeeded = _counter.read(_count); });
    holder.go(); // it stores 42 before it lets go
    reader.join();
    EXPECT_TRUE(succeeded);
    EXPECT_EQ(_count, 42U);
}

TEST_F(InstanceCounterTest, read_holderKilled_isNotBlocked)
{
    ASSERT_TRUE(_counter.open());
    ASSERT_TRUE(_counter.write(3));
    ActorProcess holder({QStringLiteral("hold"), QStringLiteral("42")});
    ASSERT_EQ(holder.readLine(), "held");
    holder.kill();
    for (int i = 0; i < 2; ++i) { // once to take the mutex over, once to see that it works again
        ASSERT_TRUE(_counter.read(_count));
        EXPECT_EQ(_count, 3U);
    }
    const auto mutex = SharedMutex::openOrCreate(kMutex).mutex;
    ASSERT_TRUE(mutex);
    EXPECT_TRUE(mutex->lock());
    mutex->unlock();
}

TEST_F(InstanceCounterTest, write_manyThreadsAndObjects_staysWhole)
{
    // Every byte of a value is the same: a torn one would be seen.
    ASSERT_TRUE(_counter.open());
    std::vector<std::thread> threads;
    for (std::uint32_t byte = 1; byte <= 4; ++byte) {
        threads.emplace_back([byte] {
            InstanceCounter counter;
            ASSERT_TRUE(counter.open());
            for (int i = 0; i < 500; ++i) {
                std::uint32_t count = 0;
                ASSERT_TRUE(counter.write(byte * 0x01010101U));
                ASSERT_TRUE(counter.read(count));
                ASSERT_EQ(count, (count & 0xFF) * 0x01010101U);
                ASSERT_NE(count, 0U);
            }
        });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
}

} // namespace lumivora::test
