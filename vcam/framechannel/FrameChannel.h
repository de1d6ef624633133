// SPDX-License-Identifier: Apache-2.0
// The producer's side of the shared-memory channel to the virtual camera.
#pragma once

#include "vcam/framechannel/FrameChannelLayout.h"
#include "vcam/framechannel/SharedSection.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>

namespace lumivora {

/** Writes finished frames into the three slots of the channel "LumivoraCamVideo".
 *
 *  At most one producer exists at a time; readers attach by name. No lock is taken: the sequence
 *  words are the whole protocol.
 *
 *  @thread reentrant: one thread at a time per channel
 */
class FrameChannel
{
public:
    /** Creates the channel.
     *  @param width, height         of a frame, pixels; a frame is width * height * 4 bytes
     *  @param frameDuration100ns    in units of 100 ns
     *  @return none when a producer has the channel already (it is left untouched) or the system
     *          refuses the section
     */
    [[nodiscard]] static std::unique_ptr<FrameChannel>
    create(std::uint32_t width, std::uint32_t height, std::uint64_t frameDuration100ns);

    /** Closes: readers see the producer gone. */
    ~FrameChannel();

    FrameChannel(const FrameChannel &) = delete;
    FrameChannel &operator=(const FrameChannel &) = delete;

    /** Copies one frame into slot (sequence mod 3) and publishes it.
     *  @param byteCount  not checked: exactly width * height * 4
     *  @param timestamp  stored in the slot's head
     */
    void writeFrame(const void *pixels, std::size_t byteCount, std::uint64_t timestamp);

    /** Marks the channel closed and releases it; the destructor does the same. Idempotent. */
    void close();

private:
    FrameChannel() = default;

    std::unique_ptr<SharedSection> _section;
    FrameChannelHeader *_header = nullptr;
    std::array<std::uint64_t *, 3> _timestamps{};
    std::array<std::byte *, 3> _pixels{};
    bool _owner = false;
};

} // namespace lumivora
