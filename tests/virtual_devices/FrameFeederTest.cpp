// SPDX-License-Identifier: Apache-2.0
#include "virtual_devices/FrameFeeder.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <string>
#include <vector>

namespace lumivora {

namespace {

using namespace std::chrono_literals;
using std::chrono::milliseconds;

/** A producer that a test drives. */
struct Producer
{
    bool alive = true;
    bool torn = false;                    // copy() fails
    std::vector<milliseconds> frameTimes; // ascending
    std::vector<char> frames;             // the byte that fills each
    std::size_t given = 0;
};

class FakeSource : public FrameSource
{
public:
    FakeSource(Producer &producer, milliseconds &now) : _producer(producer), _now(now) {}

    bool wait(milliseconds timeout) override
    {
        if (_producer.given == _producer.frames.size() ||
            _producer.frameTimes[_producer.given] > _now + timeout) {
            _now += timeout;
            return false;
        }
        _now = std::max(_now, _producer.frameTimes[_producer.given]);
        return true;
    }

    bool copy(std::span<std::byte> out) override
    {
        std::ranges::fill(out, std::byte(_producer.frames[_producer.given]));
        ++_producer.given;
        return !_producer.torn;
    }

    bool isAlive() const override { return _producer.alive; }

private:
    Producer &_producer;
    milliseconds &_now;
};

/** Time passes only while the feeder waits. */
class FrameFeederTest : public ::testing::Test
{
protected:
    FrameFeederTest() : _placeholder(kCameraBytes, std::byte('-')) {}

    /** Runs the feeder for a while.
     *  @return the first byte of each picture shown */
    std::string run(milliseconds time)
    {
        shown.clear();
        shownAt.clear();
        for (const milliseconds end = now + time; now < end;) {
            feeder.step();
        }
        return shown;
    }

    void frameAt(Producer &to, milliseconds time, char content)
    {
        to.frameTimes.push_back(time);
        to.frames.push_back(content);
    }

    milliseconds now{10000};
    bool watched = true;
    int opened = 0;
    Producer *current = nullptr; // what open() attaches to
    Producer producer;
    Producer successor;
    std::string shown;
    std::vector<milliseconds> shownAt;

private:
    std::vector<std::byte> _placeholder;

protected:
    FrameFeeder feeder{{
        .open =
            [this] {
                ++opened;
                return current != nullptr && current->alive
                           ? std::make_unique<FakeSource>(*current, now)
                           : std::unique_ptr<FrameSource>();
            },
        .isWatched = [this] { return watched; },
        .show =
            [this](std::span<const std::byte> picture) {
                EXPECT_EQ(picture.size(), kCameraBytes);
                shown += static_cast<char>(picture.front());
                shownAt.push_back(now);
            },
        .placeholder = [this] { return std::span<const std::byte>(_placeholder); },
        .sleep = [this](milliseconds time) { now += time; },
        .clock = [this] { return now; },
    }};
};

} // namespace

TEST_F(FrameFeederTest, step_noProducer_showsThePlaceholderTenTimesASecond)
{
    EXPECT_EQ(run(1000ms).find_first_not_of('-'), std::string::npos);
    ASSERT_GE(shownAt.size(), 10U);
    for (std::size_t i = 1; i < shownAt.size(); ++i) {
        EXPECT_EQ(shownAt[i] - shownAt[i - 1], 100ms);
    }
}

TEST_F(FrameFeederTest, step_nobodyLooks_neitherOpensNorShows)
{
    watched = false;
    current = &producer;
    frameAt(producer, now, 'a');
    EXPECT_EQ(run(2000ms), "");
    EXPECT_EQ(opened, 0);
    EXPECT_EQ(producer.given, 0U);
}

TEST_F(FrameFeederTest, step_producerGivesFrames_showsEachOnceAndNothingBetween)
{
    current = &producer;
    for (int i = 0; i < 26; ++i) {
        frameAt(producer, now + i * 33ms, static_cast<char>('a' + i));
    }
    EXPECT_EQ(run(25 * 33ms), "abcdefghijklmnopqrstuvwxyz");
}

TEST_F(FrameFeederTest, step_frameComes_isShownAtThatMoment)
{
    current = &producer;
    run(250ms);
    const milliseconds due = now + 7ms;
    frameAt(producer, due, 'a');
    while (producer.given == 0) {
        feeder.step();
    }
    EXPECT_EQ(now, due);
    EXPECT_EQ(shown.back(), 'a');
}

TEST_F(FrameFeederTest, step_producerAliveButStalled_repeatsItsLastFrame)
{
    current = &producer;
    frameAt(producer, now, 'a');
    EXPECT_EQ(run(5000ms).find_first_not_of('a'), std::string::npos);
    EXPECT_GE(shown.size(), 50U);
}

TEST_F(FrameFeederTest, step_producerGone_keepsTheLastFrameForTheGraceOnly)
{
    current = &producer;
    frameAt(producer, now, 'a');
    run(100ms);
    producer.alive = false;
    const milliseconds gone = now;
    const std::string pictures = run(3000ms);
    const std::size_t first = pictures.find('-');
    ASSERT_NE(first, std::string::npos);
    EXPECT_GE(shownAt[first] - gone, 1000ms);
    EXPECT_LE(shownAt[first] - gone, 1100ms);
    EXPECT_EQ(pictures.find('a', first), std::string::npos);
}

TEST_F(FrameFeederTest, step_producerRestartsWithinTheGrace_goesOnWithoutPlaceholder)
{
    current = &producer;
    frameAt(producer, now, 'a');
    run(100ms);
    producer.alive = false;
    current = &successor;
    frameAt(successor, now + 800ms, 'b');
    const std::string pictures = run(1500ms);
    EXPECT_EQ(pictures.find('-'), std::string::npos);
    EXPECT_EQ(pictures.front(), 'a');
    EXPECT_EQ(pictures.back(), 'b');
}

TEST_F(FrameFeederTest, step_successorGivesNoFrame_givesWayToThePlaceholder)
{
    current = &producer;
    frameAt(producer, now, 'a');
    run(100ms);
    producer.alive = false;
    current = &successor;
    EXPECT_EQ(run(2500ms).back(), '-');
}

TEST_F(FrameFeederTest, step_producerRestartsLater_reattaches)
{
    current = &producer;
    frameAt(producer, now, 'a');
    run(100ms);
    producer.alive = false;
    run(5000ms);
    current = &successor;
    frameAt(successor, now + 10ms, 'b');
    EXPECT_EQ(run(120ms).back(), 'b');
}

TEST_F(FrameFeederTest, step_copyFails_neverShowsWhatWasCopied)
{
    current = &producer;
    producer.torn = true;
    frameAt(producer, now, 'x');
    frameAt(producer, now + 33ms, 'y');
    EXPECT_EQ(run(500ms).find_first_of("xy"), std::string::npos);
}

TEST_F(FrameFeederTest, step_nobodyLookedForAWhile_showsNoFrameFromBefore)
{
    current = &producer;
    frameAt(producer, now, 'a');
    run(100ms);
    producer.alive = false;
    watched = false;
    run(200ms);
    watched = true;
    EXPECT_EQ(run(500ms).find_first_not_of('-'), std::string::npos);
}

} // namespace lumivora
