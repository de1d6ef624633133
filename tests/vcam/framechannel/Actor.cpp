// SPDX-License-Identifier: Apache-2.0
// The other process of the frame channel's tests. It prints one line per step and waits for a line
// on its standard input before the next; the end of the input ends it.
//
//   produce              creates the channel, prints "created" or "refused", waits
//   race THREADS         per line of input: that many threads try to create the channel at once;
//                        prints how many did; per next line: lets go of it, prints
//                        "closed"
//   hold COUNT           locks the counter's mutex, prints "held"; on the next line stores COUNT in
//                        the counter, then unlocks
//   write W H FRAMES     creates the channel; on the next line writes self-checking frames as fast
//                        as it can, prints "done", waits
//   read W H FRAMES      attaches to the channel, prints "attached", reads whatever it can get
//                        until frame number FRAMES; prints "FRAMES-READ TORN-FRAMES"

#include "tests/vcam/framechannel/RawSection.h"
#include "tests/vcam/framechannel/SelfCheckingFrame.h"
#include "vcam/framechannel/FrameChannel.h"
#include "vcam/framechannel/FrameChannelReader.h"
#include "vcam/framechannel/SharedMutex.h"

#include <QByteArray>
#include <QList>

#include <algorithm>
#include <barrier>
#include <iostream>
#include <string>
#include <thread>
#include <vector>

using namespace lumivora;
using namespace lumivora::test;

namespace {

bool waitForGo()
{
    std::string line;
    return static_cast<bool>(std::getline(std::cin, line));
}

template <typename T>
void print(const T &what)
{
    std::cout << what << std::endl;
}

int produce()
{
    const auto channel = FrameChannel::create(64, 32, 330000);
    print(channel ? "created" : "refused");
    waitForGo();
    return 0;
}

int race(int threadCount)
{
    print("ready");
    while (waitForGo()) {
        std::vector<std::unique_ptr<FrameChannel>> channels(static_cast<std::size_t>(threadCount));
        std::barrier start(threadCount);
        std::vector<std::thread> threads;
        for (auto &channel : channels) {
            threads.emplace_back([&] {
                start.arrive_and_wait();
                channel = FrameChannel::create(64, 32, 330000);
            });
        }
        for (std::thread &thread : threads) {
            thread.join();
        }
        print(std::ranges::count_if(channels, [](const auto &made) { return made != nullptr; }));
        waitForGo();
        channels.clear();
        print("closed");
    }
    return 0;
}

int hold(std::uint32_t count)
{
    const auto mutex = SharedMutex::openOrCreate("GlobalLumivoraInstanceCounterMux").mutex;
    const auto counter = RawSection::open("GlobalLumivoraInstanceCounterSM");
    if (!mutex || !counter || !mutex->lock()) {
        return 1;
    }
    print("held");
    waitForGo();
    counter->set(0, count);
    mutex->unlock();
    return 0;
}

int write(std::uint32_t width, std::uint32_t height, std::uint32_t frames)
{
    const auto channel = FrameChannel::create(width, height, 330000);
    if (!channel) {
        return 1;
    }
    print("created");
    waitForGo();
    SelfCheckingFrame frame(std::size_t{width} * height * kBytesPerPixel);
    for (std::uint32_t sequence = 1; sequence <= frames; ++sequence) {
        frame.fill(sequence);
        channel->writeFrame(frame.data(), frame.bytes(), 0);
    }
    print("done");
    waitForGo();
    return 0;
}

int read(std::uint32_t width, std::uint32_t height, std::uint32_t frames)
{
    const auto reader = FrameChannelReader::open();
    if (!reader || reader->width() != width || reader->height() != height) {
        return 1;
    }
    print("attached");
    SelfCheckingFrame frame(reader->frameBytes());
    std::uint32_t last = 0;
    std::uint32_t seen = 0;
    std::uint32_t torn = 0;
    while (last != frames) {
        if (!reader->waitForFrame(last, std::chrono::seconds(10))) {
            break;
        }
        if (const auto sequence = reader->copyLatest(frame.span(), last)) {
            ++seen;
            torn += frame.is(*sequence) ? 0 : 1;
            last = *sequence;
        }
    }
    print(std::to_string(seen) + ' ' + std::to_string(torn));
    return 0;
}

} // namespace

int main(int argc, char **argv)
{
    const QList<QByteArray> words(argv + 1, argv + argc);
    const QByteArray command = words.value(0);
    const auto number = [&](int index) {
        return words.value(index).toUInt();
    };
    if (command == "produce") {
        return produce();
    }
    if (command == "race") {
        return race(words.value(1).toInt());
    }
    if (command == "hold") {
        return hold(number(1));
    }
    if (command == "write") {
        return write(number(1), number(2), number(3));
    }
    if (command == "read") {
        return read(number(1), number(2), number(3));
    }
    return 2;
}
