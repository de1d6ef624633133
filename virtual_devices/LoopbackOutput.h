// SPDX-License-Identifier: Apache-2.0
// The virtual camera's second way out: a v4l2loopback device.
#pragma once

#include "virtual_devices/MonotonicClock.h"
#include "virtual_devices/V4l2.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace lumivora {

/** Writes pictures into the v4l2loopback device labelled "Lumivora Control", for the many programs
 *  that know Video4Linux alone. Without such a device, it looks for one every two seconds.
 *
 *  The driver tells of clients by an event, which it gives for those that stream, not for those
 * that read(). Until the first event, and with drivers that have none, the processes that have the
 *  device open count.
 *
 *  @thread reentrant */
class LoopbackOutput
{
public:
    static constexpr std::chrono::milliseconds kLookAgain{2000};

    /** @param system  outlives the output */
    LoopbackOutput(V4l2 &system, MonotonicClock clock);
    ~LoopbackOutput();

    LoopbackOutput(const LoopbackOutput &) = delete;
    LoopbackOutput &operator=(const LoopbackOutput &) = delete;

    /** Looks for a device and for clients. Call it about ten times a second. */
    void poll();
    [[nodiscard]] bool isOpen() const { return _device >= 0; }
    [[nodiscard]] int clientCount() const { return _clients; }

    /** Writes a picture as YUY2; without a device, and while the driver is busy, it is dropped.
     *  @param bgra  kCameraBytes bytes */
    void show(std::span<const std::byte> bgra);

private:
    void look();
    [[nodiscard]] bool setUp();
    void subscribe();
    void readEvents();
    void close();

    V4l2 &_system;
    MonotonicClock _clock;
    std::chrono::milliseconds _looked{-kLookAgain};
    int _device = -1;
    std::string _path;
    bool _eventSeen = false;
    int _clients = 0;
    std::vector<std::uint8_t> _picture;
};

} // namespace lumivora
