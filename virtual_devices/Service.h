// SPDX-License-Identifier: Apache-2.0
// The virtual camera's side of the frame channel and of the client counter.
#pragma once

#include "vcam/framechannel/InstanceCounter.h"
#include "virtual_devices/FrameFeeder.h"
#include "virtual_devices/GracedCount.h"
#include "virtual_devices/LoopbackOutput.h"
#include "virtual_devices/Placeholder.h"
#include "virtual_devices/V4l2.h"
#include "virtual_devices/VideoSourceNode.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>

namespace lumivora {

/** The camera "Lumivora Control": gives its clients what the application writes into the frame
 *  channel, and tells the application how many they are.
 *
 *  Two threads: run()'s, which waits for frames, converts and sends them and keeps the count, and
 *  PipeWire's, which only notes what it is told. */
class Service
{
public:
    Service();
    /** Leaves the count at zero. */
    ~Service();

    Service(const Service &) = delete;
    Service &operator=(const Service &) = delete;

    /** Makes the camera and sets the count to zero.
     *  @return false when the system refuses; the reason goes to the log */
    [[nodiscard]] bool start();

    /** Serves until stopRequested becomes true, which is noticed within a tenth of a second. */
    void run(const std::atomic<bool> &stopRequested);

private:
    [[nodiscard]] FrameFeeder::Environment environment();
    void show(std::span<const std::byte> picture);
    void sleep(std::chrono::milliseconds time);
    void countClients();

    MonotonicClock _clock;
    InstanceCounter _counter;
    bool _counterOpen = false;
    int _written = 0;
    GracedCount _clients;
    V4l2 _v4l2;
    LoopbackOutput _loopback;
    Placeholder _placeholder;
    FrameFeeder _feeder;

    std::mutex _lock;
    std::condition_variable _clientsChanged;
    int _nodeClients = 0; // under the lock

    std::unique_ptr<VideoSourceNode> _node; // last: its thread ends before what it touches
};

} // namespace lumivora
