// SPDX-License-Identifier: Apache-2.0
// What a client got of a stamped camera: counts, frame rate and latency.
#pragma once

#include "tools/probe/FrameStamp.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

namespace lumivora::tools {

/** Counts the frames that reach a client.
 *
 *  A live frame is one whose two stamps agree. Numbers that go backwards mean that the camera
 *  started anew; they count as live and leave no gap.
 *
 *  @thread reentrant
 */
class FrameTally
{
public:
    enum class Kind {
        Live,        // a number not seen before
        Repeated,    // the live frame before, once more
        Torn,        // parts of different frames
        Placeholder, // no stamp at all
    };

    /** Counts one frame.
     *  @param top, bottom  its stamps
     *  @param arrivalUs    when it arrived, CLOCK_MONOTONIC, microseconds */
    Kind add(const std::optional<FrameStamp> &top, const std::optional<FrameStamp> &bottom,
             std::uint64_t arrivalUs);

    [[nodiscard]] std::uint64_t delivered() const { return _latenciesUs.size(); }
    [[nodiscard]] std::uint64_t repeated() const { return _repeated; }
    /** Numbers between two live frames that never came. */
    [[nodiscard]] std::uint64_t skipped() const { return _skipped; }
    [[nodiscard]] std::uint64_t torn() const { return _torn; }
    [[nodiscard]] std::uint64_t placeholders() const { return _placeholders; }

    /** Stamps of the first and of the last live frame; none before one came. */
    [[nodiscard]] const std::optional<FrameStamp> &first() const { return _first; }
    [[nodiscard]] const std::optional<FrameStamp> &last() const { return _last; }
    /** When the first live frame came; 0 before. */
    [[nodiscard]] std::uint64_t firstArrivalUs() const { return _firstArrivalUs; }

    /** Seconds between the arrivals of the first and of the last live frame. */
    [[nodiscard]] double liveSeconds() const;
    /** Live frames a second over liveSeconds(); 0 with fewer than two frames. */
    [[nodiscard]] double fps() const;

    /** The latency, in milliseconds, below which a part of the live frames stayed.
     *  @param part   0 to 1; 0.5 is the median
     *  @param since  the first so many live frames are left out
     *  @return 0 when there are none */
    [[nodiscard]] double latencyMs(double part, std::size_t since = 0) const;

private:
    std::uint64_t _repeated = 0;
    std::uint64_t _skipped = 0;
    std::uint64_t _torn = 0;
    std::uint64_t _placeholders = 0;
    std::optional<FrameStamp> _first;
    std::optional<FrameStamp> _last;
    std::uint64_t _firstArrivalUs = 0;
    std::uint64_t _lastArrivalUs = 0;
    std::vector<std::int64_t> _latenciesUs; // one for each live frame
};

} // namespace lumivora::tools
