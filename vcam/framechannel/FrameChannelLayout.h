// SPDX-License-Identifier: Apache-2.0
// Byte layout of the frame channel, shared with the virtual camera's side.
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>

namespace lumivora {

inline constexpr auto kChannelName = "LumivoraCamVideo";
inline constexpr std::size_t kSlotCount = 3;
inline constexpr std::size_t kSlotHeadBytes = 32;
inline constexpr std::size_t kHeaderBytes = 96; // up to slot 0
inline constexpr std::size_t kBytesPerPixel = 4;

enum class ChannelState : std::uint32_t {
    Created = 1,   // no frame yet
    Streaming = 2, // at least one frame written
    Closed = 3,    // the producer has gone
};

/** Head of the channel; integers are little-endian. The first three words change while other
 *  processes look: they are read and written atomically. */
struct FrameChannelHeader
{
    std::atomic<std::uint32_t> writeSequence; // frame being, or last, written
    std::atomic<std::uint32_t> readySequence; // last frame whose copy is complete
    std::atomic<std::uint32_t> state;         // a ChannelState
    std::array<std::uint32_t, kSlotCount> slotOffset;
    std::uint32_t reserved0;
    std::uint32_t width;
    std::uint32_t height;
    std::uint32_t reserved1;
    std::uint64_t frameDuration100ns;
    std::array<std::uint8_t, 48> reserved2;
};

static_assert(std::atomic<std::uint32_t>::is_always_lock_free);
static_assert(sizeof(std::atomic<std::uint32_t>) == 4);
static_assert(offsetof(FrameChannelHeader, slotOffset) == 0x0C);
static_assert(offsetof(FrameChannelHeader, width) == 0x1C);
static_assert(offsetof(FrameChannelHeader, frameDuration100ns) == 0x28);
static_assert(offsetof(FrameChannelHeader, reserved2) == 0x30);
static_assert(sizeof(FrameChannelHeader) == kHeaderBytes);

/** Where things lie in a channel of a given frame size. */
struct FrameChannelLayout
{
    std::uint64_t frameBytes = 0;
    std::array<std::uint64_t, kSlotCount> slotOffset{};
    std::uint64_t sectionBytes = 0;

    /** Offset of the slot (or the end) after a slot at offset: slots start at multiples of 32. */
    [[nodiscard]] static constexpr std::uint64_t next(std::uint64_t offset,
                                                      std::uint64_t frameBytes)
    {
        return (offset + kSlotHeadBytes + frameBytes + 31) & ~std::uint64_t{31};
    }

    [[nodiscard]] static constexpr FrameChannelLayout forFrame(std::uint32_t width,
                                                               std::uint32_t height)
    {
        FrameChannelLayout layout;
        layout.frameBytes = std::uint64_t{width} * height * kBytesPerPixel;
        layout.slotOffset[0] = kHeaderBytes;
        layout.slotOffset[1] = next(layout.slotOffset[0], layout.frameBytes);
        layout.slotOffset[2] = next(layout.slotOffset[1], layout.frameBytes);
        layout.sectionBytes = next(layout.slotOffset[2], layout.frameBytes);
        return layout;
    }
};

} // namespace lumivora
