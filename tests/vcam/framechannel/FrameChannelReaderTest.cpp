// SPDX-License-Identifier: Apache-2.0
// The reader's side: what it believes, what it copies, how it waits.

#include "vcam/framechannel/FrameChannelReader.h"
#include "tests/vcam/framechannel/RawSection.h"
#include "vcam/framechannel/FrameChannel.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <ostream>
#include <thread>

namespace lumivora::test {

namespace {

constexpr auto kName = "LumivoraCamVideo";

// A channel of 64 x 32 pixels, worked out by hand: 8192 bytes a frame.
constexpr std::size_t kFrameBytes = 8192;
constexpr std::size_t kSlot0 = 96;
constexpr std::size_t kSlot1 = 8320;  // 96 + 32 + 8192, a multiple of 32 already
constexpr std::size_t kSlot2 = 16544; // 8320 + 8224
constexpr std::size_t kSectionBytes = 24768;

using Content = std::vector<std::byte>;

void put(Content &content, std::size_t offset, std::uint32_t value)
{
    std::memcpy(content.data() + offset, &value, sizeof(value));
}

/** A channel in which frame number 2 is the latest; the pixels of slot k are all k + 1. */
Content soundContent()
{
    Content content(kSectionBytes);
    put(content, 0x00, 2);
    put(content, 0x04, 2);
    put(content, 0x08, 2);
    put(content, 0x0C, kSlot0);
    put(content, 0x10, kSlot1);
    put(content, 0x14, kSlot2);
    put(content, 0x1C, 64);
    put(content, 0x20, 32);
    put(content, 0x28, 330000);
    std::fill_n(content.begin() + kSlot0 + 32, kFrameBytes, std::byte{1});
    std::fill_n(content.begin() + kSlot1 + 32, kFrameBytes, std::byte{2});
    std::fill_n(content.begin() + kSlot2 + 32, kFrameBytes, std::byte{3});
    return content;
}

bool isAll(const Content &frame, int value)
{
    return std::ranges::all_of(frame, [&](std::byte byte) { return byte == std::byte(value); });
}

class FrameChannelReaderTest : public ::testing::Test
{
protected:
    const PrivateRuntime _runtime;
    Content _frame = Content(kFrameBytes);
};

struct HostileHeader
{
    const char *name;
    std::function<void(Content &)> damage;
};

void PrintTo(const HostileHeader &header, std::ostream *out)
{
    *out << header.name;
}

class HostileHeaderTest : public FrameChannelReaderTest,
                          public ::testing::WithParamInterface<HostileHeader>
{};

} // namespace

TEST_P(HostileHeaderTest, open_headerThatDoesNotHoldTogether_isRefused)
{
    Content content = soundContent();
    GetParam().damage(content);
    const auto raw = RawSection::make(kName, content);
    ASSERT_TRUE(raw);
    EXPECT_FALSE(FrameChannelReader::open());
}

INSTANTIATE_TEST_SUITE_P(
    , HostileHeaderTest,
    ::testing::Values(
        HostileHeader{"stateZero", [](Content &c) { put(c, 0x08, 0); }},
        HostileHeader{"stateFour", [](Content &c) { put(c, 0x08, 4); }},
        HostileHeader{"stateHuge", [](Content &c) { put(c, 0x08, 0xFFFFFFFF); }},
        HostileHeader{"widthZero", [](Content &c) { put(c, 0x1C, 0); }},
        HostileHeader{"heightZero", [](Content &c) { put(c, 0x20, 0); }},
        HostileHeader{"widthBeyondBound", [](Content &c) { put(c, 0x1C, 8193); }},
        HostileHeader{"heightBeyondBound", [](Content &c) { put(c, 0x20, 8193); }},
        HostileHeader{"widthNegative", [](Content &c) { put(c, 0x1C, 0xFFFFFFC0); }},
        HostileHeader{"productOverflows",
                      [](Content &c) {
                          put(c, 0x1C, 0x80000000);
                          put(c, 0x20, 0x80000000);
                      }},
        HostileHeader{"widerThanTheSection", [](Content &c) { put(c, 0x1C, 128); }},
        HostileHeader{"narrowerThanTheSection", [](Content &c) { put(c, 0x1C, 16); }},
        HostileHeader{"largestFrameInASmallSection",
                      [](Content &c) {
                          put(c, 0x1C, 8192);
                          put(c, 0x20, 8192);
                      }},
        HostileHeader{"slot0InTheHeader", [](Content &c) { put(c, 0x0C, 0); }},
        HostileHeader{"slot0Unaligned", [](Content &c) { put(c, 0x0C, 97); }},
        HostileHeader{"slot0BeyondTheSection", [](Content &c) { put(c, 0x0C, 0xFFFFFFE0); }},
        HostileHeader{"slot1OnSlot0", [](Content &c) { put(c, 0x10, kSlot0); }},
        HostileHeader{"slot1BeyondTheSection", [](Content &c) { put(c, 0x10, kSectionBytes); }},
        HostileHeader{"slot2LeavesTheSection", [](Content &c) { put(c, 0x14, kSlot2 + 32); }},
        HostileHeader{"slotsSwapped",
                      [](Content &c) {
                          put(c, 0x10, kSlot2);
                          put(c, 0x14, kSlot1);
                      }},
        HostileHeader{"sectionTooSmall", [](Content &c) { c.resize(kSectionBytes - 8192); }},
        HostileHeader{"sectionTooLarge", [](Content &c) { c.resize(kSectionBytes + 8192); }},
        HostileHeader{"headerOnly", [](Content &c) { c.resize(96); }},
        HostileHeader{"onlyZeros", [](Content &c) { std::ranges::fill(c, std::byte{0}); }},
        HostileHeader{"onlyOnes", [](Content &c) { std::ranges::fill(c, std::byte{0xFF}); }},
        HostileHeader{"text",
                      [](Content &c) {
                          for (std::size_t i = 0; i < c.size(); ++i) {
                              c[i] = static_cast<std::byte>("channel "[i % 8]);
                          }
                      }}),
    [](const auto &test) { return std::string(test.param.name); });

TEST_F(FrameChannelReaderTest, open_noChannel_returnsNone)
{
    EXPECT_FALSE(FrameChannelReader::open());
}

TEST_F(FrameChannelReaderTest, open_soundChannel_tellsItsFormat)
{
    const auto raw = RawSection::make(kName, soundContent());
    ASSERT_TRUE(raw);
    const auto reader = FrameChannelReader::open();
    ASSERT_TRUE(reader);
    EXPECT_EQ(reader->width(), 64U);
    EXPECT_EQ(reader->height(), 32U);
    EXPECT_EQ(reader->frameBytes(), kFrameBytes);
    EXPECT_EQ(reader->frameDuration100ns(), 330000U);
    EXPECT_EQ(reader->state(), ChannelState::Streaming);
}

TEST_F(FrameChannelReaderTest, open_channelOfAProducer_followsIt)
{
    auto channel = FrameChannel::create(64, 32, 330000);
    ASSERT_TRUE(channel);
    const auto reader = FrameChannelReader::open();
    ASSERT_TRUE(reader);
    EXPECT_EQ(reader->state(), ChannelState::Created);
    EXPECT_TRUE(reader->producerAlive());
    EXPECT_TRUE(reader->isCurrent());
    EXPECT_EQ(reader->copyLatest(_frame, 0), std::nullopt) << "no frame yet";

    const Content pixels(kFrameBytes, std::byte{7});
    channel->writeFrame(pixels.data(), pixels.size(), 0);
    EXPECT_EQ(reader->state(), ChannelState::Streaming);
    EXPECT_EQ(reader->copyLatest(_frame, 0), 1U);
    EXPECT_EQ(_frame, pixels);
    EXPECT_EQ(reader->copyLatest(_frame, 1), std::nullopt) << "nothing new";

    channel.reset();
    EXPECT_EQ(reader->state(), ChannelState::Closed);
    EXPECT_FALSE(reader->producerAlive());
    EXPECT_EQ(reader->copyLatest(_frame, 0), 1U) << "the last frame stays";
}

TEST_F(FrameChannelReaderTest, copyLatest_eachSequence_takesItsSlot)
{
    const auto raw = RawSection::make(kName, soundContent());
    ASSERT_TRUE(raw);
    const auto reader = FrameChannelReader::open();
    ASSERT_TRUE(reader);
    for (std::uint32_t sequence = 1; sequence <= 6; ++sequence) {
        raw->set(0x00, sequence);
        raw->set(0x04, sequence);
        EXPECT_EQ(reader->copyLatest(_frame, 0), sequence);
        EXPECT_TRUE(isAll(_frame, static_cast<int>(sequence % 3 + 1))) << sequence;
    }
}

TEST_F(FrameChannelReaderTest, copyLatest_bufferTooSmall_returnsNone)
{
    const auto raw = RawSection::make(kName, soundContent());
    ASSERT_TRUE(raw);
    const auto reader = FrameChannelReader::open();
    ASSERT_TRUE(reader);
    EXPECT_EQ(reader->copyLatest(std::span(_frame).first(kFrameBytes - 1), 0), std::nullopt);
    EXPECT_TRUE(isAll(_frame, 0)) << "nothing was copied";
}

TEST_F(FrameChannelReaderTest, copyLatest_bufferTooLarge_leavesTheRest)
{
    const auto raw = RawSection::make(kName, soundContent());
    ASSERT_TRUE(raw);
    const auto reader = FrameChannelReader::open();
    ASSERT_TRUE(reader);
    Content buffer(kFrameBytes + 16, std::byte{9});
    EXPECT_EQ(reader->copyLatest(buffer, 0), 2U);
    EXPECT_EQ(buffer[kFrameBytes - 1], std::byte{3});
    EXPECT_EQ(buffer[kFrameBytes], std::byte{9});
}

TEST_F(FrameChannelReaderTest, copyLatest_slotBeingOverwritten_returnsNone)
{
    const auto raw = RawSection::make(kName, soundContent());
    ASSERT_TRUE(raw);
    const auto reader = FrameChannelReader::open();
    ASSERT_TRUE(reader);
    // Frame 2 is ready. While 3 or 4 is written, its slot is safe; 5 goes into the same slot.
    for (const std::uint32_t safe : {2U, 3U, 4U}) {
        raw->set(0x00, safe);
        EXPECT_EQ(reader->copyLatest(_frame, 0), 2U) << safe;
    }
    for (const std::uint32_t unsafe : {5U, 6U, 7U, 1U, 0x80000000U, 0xFFFFFFFFU}) {
        raw->set(0x00, unsafe);
        EXPECT_EQ(reader->copyLatest(_frame, 0), std::nullopt) << unsafe;
    }
}

TEST_F(FrameChannelReaderTest, copyLatest_numbersWrapIntoTheSameSlot_returnsNone)
{
    const auto raw = RawSection::make(kName, soundContent());
    ASSERT_TRUE(raw);
    const auto reader = FrameChannelReader::open();
    ASSERT_TRUE(reader);
    raw->set(0x00, 0xFFFFFFFF);
    raw->set(0x04, 0xFFFFFFFF); // slot 0
    EXPECT_EQ(reader->copyLatest(_frame, 1), 0xFFFFFFFFU);
    raw->set(0x00, 0); // is written to slot 0, too
    EXPECT_EQ(reader->copyLatest(_frame, 1), std::nullopt);
    raw->set(0x04, 0);
    EXPECT_EQ(reader->copyLatest(_frame, 0xFFFFFFFF), 0U);
}

TEST_F(FrameChannelReaderTest, copyLatest_headerDamagedAfterOpening_staysInsideTheSection)
{
    const auto raw = RawSection::make(kName, soundContent());
    ASSERT_TRUE(raw);
    const auto reader = FrameChannelReader::open();
    ASSERT_TRUE(reader);
    for (const std::size_t offset : {0x08U, 0x0CU, 0x10U, 0x14U, 0x1CU, 0x20U, 0x28U}) {
        raw->set(offset, 0xFFFFFFFF);
    }
    EXPECT_EQ(reader->state(), ChannelState::Closed);
    EXPECT_EQ(reader->frameBytes(), kFrameBytes);
    EXPECT_EQ(reader->copyLatest(_frame, 0), 2U);
    EXPECT_TRUE(isAll(_frame, 3));
}

TEST_F(FrameChannelReaderTest, waitForFrame_frameThereAlready_returnsTrue)
{
    const auto raw = RawSection::make(kName, soundContent());
    ASSERT_TRUE(raw);
    const auto reader = FrameChannelReader::open();
    ASSERT_TRUE(reader);
    EXPECT_TRUE(reader->waitForFrame(1, std::chrono::milliseconds(0)));
}

TEST_F(FrameChannelReaderTest, waitForFrame_noFrame_endsWithTheTimeout)
{
    const auto raw = RawSection::make(kName, soundContent());
    ASSERT_TRUE(raw);
    const auto reader = FrameChannelReader::open();
    ASSERT_TRUE(reader);
    EXPECT_FALSE(reader->waitForFrame(2, std::chrono::milliseconds(0)));
    EXPECT_FALSE(reader->waitForFrame(2, std::chrono::milliseconds(-5)));
    EXPECT_FALSE(reader->waitForFrame(2, std::chrono::milliseconds(3)));
}

TEST_F(FrameChannelReaderTest, waitForFrame_closedChannel_doesNotWait)
{
    const auto raw = RawSection::make(kName, soundContent());
    ASSERT_TRUE(raw);
    const auto reader = FrameChannelReader::open();
    ASSERT_TRUE(reader);
    raw->set(0x08, 3);
    EXPECT_FALSE(reader->waitForFrame(2, std::chrono::hours(1)));
    EXPECT_TRUE(reader->waitForFrame(1, std::chrono::hours(1))) << "the last frame is still news";
}

TEST_F(FrameChannelReaderTest, waitForFrame_producerWrites_wakes)
{
    const auto channel = FrameChannel::create(64, 32, 330000);
    ASSERT_TRUE(channel);
    const auto reader = FrameChannelReader::open();
    ASSERT_TRUE(reader);
    // Each side answers the other, so that the reader is asleep for most of the frames.
    std::atomic<std::uint32_t> seen = 0;
    std::thread producer([&] {
        const Content pixels(kFrameBytes);
        for (std::uint32_t sequence = 1; sequence <= 100; ++sequence) {
            channel->writeFrame(pixels.data(), pixels.size(), 0);
            seen.wait(sequence - 1);
        }
    });
    for (std::uint32_t sequence = 1; sequence <= 100; ++sequence) {
        EXPECT_TRUE(reader->waitForFrame(sequence - 1, std::chrono::hours(1)));
        seen = sequence;
        seen.notify_one();
    }
    producer.join();
}

} // namespace lumivora::test
