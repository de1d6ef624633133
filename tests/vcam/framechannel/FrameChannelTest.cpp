// SPDX-License-Identifier: Apache-2.0
// The producer's side, checked byte for byte through a mapping of its own.

#include "vcam/framechannel/FrameChannel.h"
#include "tests/vcam/framechannel/ActorProcess.h"
#include "tests/vcam/framechannel/RawSection.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>

namespace lumivora::test {

namespace {

constexpr auto kName = "LumivoraCamVideo";
constexpr std::uint64_t kDuration = 330000;

class FrameChannelTest : public ::testing::Test
{
protected:
    const PrivateRuntime _runtime;
};

std::vector<std::uint8_t> picture(std::size_t bytes, unsigned seed)
{
    std::vector<std::uint8_t> pixels(bytes);
    for (std::size_t i = 0; i < bytes; ++i) {
        pixels[i] = static_cast<std::uint8_t>(i * 31 + seed * 97 + (i >> 8));
    }
    return pixels;
}

std::vector<std::uint8_t> bytesAt(const RawSection &section, std::size_t offset, std::size_t count)
{
    std::vector<std::uint8_t> bytes(count);
    std::memcpy(bytes.data(), section.bytes().data() + offset, count);
    return bytes;
}

bool isZero(const RawSection &section, std::size_t from, std::size_t to)
{
    return std::ranges::all_of(section.bytes().subspan(from, to - from),
                               [](std::byte byte) { return byte == std::byte{0}; });
}

} // namespace

TEST_F(FrameChannelTest, create_hdFormat_writesTheHeaderByteForByte)
{
    const auto channel = FrameChannel::create(1280, 720, kDuration);
    ASSERT_TRUE(channel);
    const auto raw = RawSection::open(kName);
    ASSERT_TRUE(raw);

    const std::vector<std::uint8_t> expected = {
        0x00, 0x00, 0x00, 0x00,                         // write sequence
        0x00, 0x00, 0x00, 0x00,                         // ready sequence
        0x01, 0x00, 0x00, 0x00,                         // state
        0x60, 0x00, 0x00, 0x00,                         // slot 0: 96
        0x80, 0x40, 0x38, 0x00,                         // slot 1: 3686528
        0xA0, 0x80, 0x70, 0x00,                         // slot 2: 7372960
        0x00, 0x00, 0x00, 0x00,                         // reserved
        0x00, 0x05, 0x00, 0x00,                         // 1280
        0xD0, 0x02, 0x00, 0x00,                         // 720
        0x00, 0x00, 0x00, 0x00,                         // reserved
        0x10, 0x09, 0x05, 0x00, 0x00, 0x00, 0x00, 0x00, // 330000
    };
    EXPECT_EQ(bytesAt(*raw, 0, 0x30), expected);
    EXPECT_TRUE(isZero(*raw, 0x30, raw->bytes().size())) << "reserved bytes and slots";
    EXPECT_GE(raw->bytes().size(), 11059392U);
    EXPECT_LT(raw->bytes().size(), 11059392U + 4096U);
}

TEST_F(FrameChannelTest, create_oddFormat_startsSlotsAtMultiplesOf32)
{
    const auto channel = FrameChannel::create(3, 3, 0x1122334455667788);
    ASSERT_TRUE(channel);
    const auto raw = RawSection::open(kName);
    ASSERT_TRUE(raw);
    // 36 bytes of pixels behind a head of 32: 96 + 68 = 164, up to 192; 260, up to 288.
    EXPECT_EQ(raw->at<std::uint32_t>(0x0C), 96U);
    EXPECT_EQ(raw->at<std::uint32_t>(0x10), 192U);
    EXPECT_EQ(raw->at<std::uint32_t>(0x14), 288U);
    EXPECT_EQ(raw->at<std::uint64_t>(0x28), 0x1122334455667788U);
    EXPECT_GE(raw->bytes().size(), 384U);
}

TEST_F(FrameChannelTest, create_offsetsBeyond32Bits_returnsNone)
{
    EXPECT_FALSE(FrameChannel::create(32768, 32768, kDuration));
    EXPECT_FALSE(RawSection::exists(kName));
}

TEST_F(FrameChannelTest, writeFrame_firstFrame_landsInSlot1)
{
    const auto channel = FrameChannel::create(1280, 720, kDuration);
    ASSERT_TRUE(channel);
    const auto raw = RawSection::open(kName);
    ASSERT_TRUE(raw);
    const auto pixels = picture(3686400, 1);
    channel->writeFrame(pixels.data(), pixels.size(), 0);

    EXPECT_EQ(raw->at<std::uint32_t>(0x00), 1U);
    EXPECT_EQ(raw->at<std::uint32_t>(0x04), 1U);
    EXPECT_EQ(raw->at<std::uint32_t>(0x08), 2U);
    EXPECT_EQ(bytesAt(*raw, 3686560, pixels.size()), pixels);
    EXPECT_TRUE(isZero(*raw, 0x30, 3686560)) << "slot 0 and the head of slot 1";
    EXPECT_TRUE(isZero(*raw, 3686560 + pixels.size(), raw->bytes().size())) << "slot 2";
}

TEST_F(FrameChannelTest, writeFrame_threeFrames_fillSlots1And2And0)
{
    const auto channel = FrameChannel::create(1280, 720, kDuration);
    ASSERT_TRUE(channel);
    const auto raw = RawSection::open(kName);
    ASSERT_TRUE(raw);
    const std::array frames = {picture(3686400, 1), picture(3686400, 2), picture(3686400, 3)};
    for (const auto &frame : frames) {
        channel->writeFrame(frame.data(), frame.size(), 0);
    }

    EXPECT_EQ(raw->at<std::uint32_t>(0x00), 3U);
    EXPECT_EQ(raw->at<std::uint32_t>(0x04), 3U);
    EXPECT_EQ(raw->at<std::uint32_t>(0x08), 2U);
    EXPECT_EQ(bytesAt(*raw, 3686560, 3686400), frames[0]);
    EXPECT_EQ(bytesAt(*raw, 7372992, 3686400), frames[1]);
    EXPECT_EQ(bytesAt(*raw, 128, 3686400), frames[2]);
}

TEST_F(FrameChannelTest, writeFrame_timestamp_isStoredInTheSlotsHead)
{
    const auto channel = FrameChannel::create(3, 3, kDuration);
    ASSERT_TRUE(channel);
    const auto raw = RawSection::open(kName);
    ASSERT_TRUE(raw);
    const auto pixels = picture(36, 1);
    channel->writeFrame(pixels.data(), pixels.size(), 0x0123456789ABCDEF);

    EXPECT_EQ(raw->at<std::uint64_t>(192), 0x0123456789ABCDEFU);
    EXPECT_TRUE(isZero(*raw, 200, 224)) << "the rest of the head";
    EXPECT_EQ(bytesAt(*raw, 224, 36), pixels);
    EXPECT_TRUE(isZero(*raw, 260, 288)) << "the gap up to slot 2";
}

TEST_F(FrameChannelTest, writeFrame_byteCount_isTakenAsGiven)
{
    const auto channel = FrameChannel::create(4, 4, kDuration);
    ASSERT_TRUE(channel);
    const auto raw = RawSection::open(kName);
    ASSERT_TRUE(raw);
    const auto pixels = picture(64, 1);
    channel->writeFrame(pixels.data(), 10, 0);

    const std::size_t slot1 = raw->at<std::uint32_t>(0x10) + 32U;
    EXPECT_EQ(bytesAt(*raw, slot1, 10), std::vector(pixels.begin(), pixels.begin() + 10));
    EXPECT_TRUE(isZero(*raw, slot1 + 10, slot1 + 64));
}

TEST_F(FrameChannelTest, writeFrame_largestSequence_wrapsToZero)
{
    const auto channel = FrameChannel::create(4, 4, kDuration);
    ASSERT_TRUE(channel);
    const auto raw = RawSection::open(kName);
    ASSERT_TRUE(raw);
    raw->set(0x00, 0xFFFFFFFF);
    const auto pixels = picture(64, 5);
    channel->writeFrame(pixels.data(), pixels.size(), 0);

    EXPECT_EQ(raw->at<std::uint32_t>(0x00), 0U);
    EXPECT_EQ(raw->at<std::uint32_t>(0x04), 0U);
    EXPECT_EQ(bytesAt(*raw, 128, 64), pixels);
}

TEST_F(FrameChannelTest, create_secondProducer_returnsNoneAndLeavesTheFirstUntouched)
{
    const auto channel = FrameChannel::create(64, 32, kDuration);
    ASSERT_TRUE(channel);
    const auto pixels = picture(8192, 1);
    channel->writeFrame(pixels.data(), pixels.size(), 0);
    const auto raw = RawSection::open(kName);
    ASSERT_TRUE(raw);
    const auto before = raw->copy();

    EXPECT_FALSE(FrameChannel::create(64, 32, kDuration));
    EXPECT_FALSE(FrameChannel::create(1280, 720, kDuration));
    ActorProcess other({QStringLiteral("produce")});
    EXPECT_EQ(other.readLine(), "refused");

    EXPECT_EQ(raw->copy(), before);
    channel->writeFrame(pixels.data(), pixels.size(), 0);
    EXPECT_EQ(raw->at<std::uint32_t>(0x04), 2U) << "the first producer carries on";
    const auto named = RawSection::open(kName);
    ASSERT_TRUE(named);
    EXPECT_EQ(named->copy(), raw->copy()) << "the name still stands for the first channel";
}

TEST_F(FrameChannelTest, create_producerInAnotherProcess_returnsNone)
{
    ActorProcess other({QStringLiteral("produce")});
    ASSERT_EQ(other.readLine(), "created");
    EXPECT_FALSE(FrameChannel::create(64, 32, kDuration));
    other.kill();
    EXPECT_TRUE(FrameChannel::create(64, 32, kDuration)) << "a killed producer is in nobody's way";
}

TEST_F(FrameChannelTest, close_storesTheClosedStateAndFreesTheName)
{
    auto channel = FrameChannel::create(64, 32, kDuration);
    ASSERT_TRUE(channel);
    auto raw = RawSection::open(kName);
    ASSERT_TRUE(raw);
    const auto before = raw->copy();

    channel->close();
    EXPECT_EQ(raw->at<std::uint32_t>(0x08), 3U);
    raw->set(0x08, 1);
    EXPECT_EQ(raw->copy(), before) << "nothing but the state changes";
    channel->close();
    EXPECT_EQ(raw->at<std::uint32_t>(0x08), 1U) << "a second close does nothing";

    raw.reset();
    EXPECT_FALSE(RawSection::exists(kName));
    EXPECT_TRUE(FrameChannel::create(64, 32, kDuration));
}

TEST_F(FrameChannelTest, destructor_openChannel_closesIt)
{
    auto channel = FrameChannel::create(64, 32, kDuration);
    ASSERT_TRUE(channel);
    const auto raw = RawSection::open(kName);
    ASSERT_TRUE(raw);
    channel.reset();
    EXPECT_EQ(raw->at<std::uint32_t>(0x08), 3U);
}

} // namespace lumivora::test
