// SPDX-License-Identifier: Apache-2.0
// Decides what the virtual camera shows: frames, the last of them, or the placeholder.
#pragma once

#include "virtual_devices/FrameSource.h"
#include "virtual_devices/MonotonicClock.h"

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <span>
#include <vector>

namespace lumivora {

/** Shows each frame of the current producer as it comes.
 *
 *  While none comes, the picture before is shown again ten times a second, so that a client that
 *  joins gets one at once. When the producer went, its last frame stays for a grace, in which a
 *  restarted one may take over, and then gives way to the placeholder.
 *
 *  @thread reentrant */
class FrameFeeder
{
public:
    static constexpr std::chrono::milliseconds kRepeat{100};
    static constexpr std::chrono::milliseconds kGrace{1000};

    /** What the feeder asks of its surroundings. */
    struct Environment
    {
        /** The current producer's frames, or none. */
        std::function<std::unique_ptr<FrameSource>()> open;
        /** Whether somebody looks; if nobody does, nothing is copied or shown. */
        std::function<bool()> isWatched;
        /** A picture of kCameraBytes bytes. */
        std::function<void(std::span<const std::byte>)> show;
        /** The placeholder of this moment; valid until the next call. */
        std::function<std::span<const std::byte>()> placeholder;
        /** Returns after the time, or earlier for no reason. */
        std::function<void(std::chrono::milliseconds)> sleep;
        MonotonicClock clock;
    };

    explicit FrameFeeder(Environment environment);

    /** One turn; takes no longer than kRepeat. Call it again and again. */
    void step();

private:
    void attach();
    void showFrame();
    void showAgain();

    Environment _environment;
    std::unique_ptr<FrameSource> _source;
    std::vector<std::byte> _frame;
    bool _hasFrame = false;
    bool _sourceGaveFrame = false;
    std::chrono::milliseconds _lastSeen{0}; // the source of the frame
    std::chrono::milliseconds _shown{-kRepeat};
};

} // namespace lumivora
