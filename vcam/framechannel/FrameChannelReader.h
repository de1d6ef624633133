// SPDX-License-Identifier: Apache-2.0
// The reader's side of the shared-memory channel to the virtual camera.
#pragma once

#include "vcam/framechannel/FrameChannelLayout.h"
#include "vcam/framechannel/SharedSection.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>

namespace lumivora {

/** Reads whole frames out of the channel "LumivoraCamVideo" while its producer writes.
 *
 *  The channel is another process's memory: everything is checked when it is opened, and nothing
 *  that later changes in it can make the reader touch memory outside the section.
 *
 *  A producer that restarts makes a new channel. A reader stays on the one that it opened, so poll
 *  isCurrent() or producerAlive() and open again when either says false.
 *
 *  @thread reentrant
 */
class FrameChannelReader
{
public:
    /** Largest width and height that a reader accepts, in pixels. */
    static constexpr std::uint32_t kMaxDimension = 8192;

    /** Attaches to the channel that is there now, whatever its state.
     *  @return none when there is no channel, or its header does not hold together */
    [[nodiscard]] static std::unique_ptr<FrameChannelReader> open();

    /** Pixels, 1 to kMaxDimension. */
    [[nodiscard]] std::uint32_t width() const { return _width; }
    /** Pixels, 1 to kMaxDimension. */
    [[nodiscard]] std::uint32_t height() const { return _height; }
    /** width * height * 4: rows top to bottom without padding, B G R A. */
    [[nodiscard]] std::size_t frameBytes() const { return _frameBytes; }
    /** In units of 100 ns, as the producer gave it (unchecked: 0 is possible). */
    [[nodiscard]] std::uint64_t frameDuration100ns() const { return _frameDuration100ns; }

    /** What the producer says of itself; a word that is no state reads as Closed. */
    [[nodiscard]] ChannelState state() const;

    /** Copies the latest whole frame.
     *  @param out           at least frameBytes() bytes; undefined content when nothing is returned
     *  @param lastSequence  of the frame that the caller has already, 0 for none
     *  @return the frame's sequence number; none when there is no frame other than lastSequence, or
     *          the producer overwrote every attempt (try again) */
    [[nodiscard]] std::optional<std::uint32_t> copyLatest(std::span<std::byte> out,
                                                          std::uint32_t lastSequence) const;

    /** Waits until there is a frame other than lastSequence. Returns early when the channel is
     *  closed, but only the time-out is sure to end the wait for a producer that died.
     *  @return whether there is such a frame */
    [[nodiscard]] bool waitForFrame(std::uint32_t lastSequence,
                                    std::chrono::milliseconds timeout) const;

    /** Whether the producer has neither closed the channel nor (where the system can tell) died. */
    [[nodiscard]] bool producerAlive() const;

    /** Whether opening again would attach to this same channel. */
    [[nodiscard]] bool isCurrent() const;

private:
    FrameChannelReader() = default;

    std::unique_ptr<SharedSection> _section;
    const FrameChannelHeader *_header = nullptr;
    std::array<const std::byte *, kSlotCount> _pixels{};
    std::uint32_t _width = 0;
    std::uint32_t _height = 0;
    std::size_t _frameBytes = 0;
    std::uint64_t _frameDuration100ns = 0;
};

} // namespace lumivora
