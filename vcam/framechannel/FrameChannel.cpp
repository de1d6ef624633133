// SPDX-License-Identifier: Apache-2.0
#include "vcam/framechannel/FrameChannel.h"

#include <cstring>
#include <limits>

namespace lumivora {

namespace {

void storeState(FrameChannelHeader &header, ChannelState state, std::memory_order order)
{
    header.state.store(static_cast<std::uint32_t>(state), order);
}

} // namespace

std::unique_ptr<FrameChannel> FrameChannel::create(std::uint32_t width, std::uint32_t height,
                                                   std::uint64_t frameDuration100ns)
{
    const FrameChannelLayout layout = FrameChannelLayout::forFrame(width, height);
    if (layout.sectionBytes > std::numeric_limits<std::uint32_t>::max()) {
        return {}; // the header's offsets have 32 bits
    }
    FrameChannelHeader *header = nullptr;
    std::unique_ptr<SharedSection> section =
        SharedSection::create(kChannelName, layout.sectionBytes, [&](std::byte *data) {
            header = std::construct_at(reinterpret_cast<FrameChannelHeader *>(data));
            for (std::size_t slot = 0; slot < kSlotCount; ++slot) {
                header->slotOffset[slot] = static_cast<std::uint32_t>(layout.slotOffset[slot]);
            }
            header->width = width;
            header->height = height;
            header->frameDuration100ns = frameDuration100ns;
            // Last: a reader that is quick enough to find the section believes none without it.
            storeState(*header, ChannelState::Created, std::memory_order_release);
        });
    if (!section) {
        return {};
    }
    std::unique_ptr<FrameChannel> channel(new FrameChannel);
    channel->_header = header;
    for (std::size_t slot = 0; slot < kSlotCount; ++slot) {
        std::byte *start = section->data() + layout.slotOffset[slot];
        channel->_timestamps[slot] = reinterpret_cast<std::uint64_t *>(start);
        channel->_pixels[slot] = start + kSlotHeadBytes;
    }
    channel->_section = std::move(section);
    channel->_owner = true;
    return channel;
}

FrameChannel::~FrameChannel()
{
    close();
}

void FrameChannel::writeFrame(const void *pixels, std::size_t byteCount, std::uint64_t timestamp)
{
    const std::uint32_t sequence = _header->writeSequence.load(std::memory_order_relaxed) + 1;
    _header->writeSequence.store(sequence, std::memory_order_relaxed);
    // A reader that sees any byte of this frame also sees the new writeSequence, by which it knows
    // that the slot's former frame is gone.
    std::atomic_thread_fence(std::memory_order_release);

    const std::size_t slot = sequence % kSlotCount;
    *_timestamps[slot] = timestamp;
    // Stores around the cache took 1.3 times as long, and 1.6 times with the reader's copy.
    std::memcpy(_pixels[slot], pixels, byteCount);

    _header->readySequence.store(sequence, std::memory_order_release);
    storeState(*_header, ChannelState::Streaming, std::memory_order_release);
    SharedSection::wake(_header->readySequence);
}

void FrameChannel::close()
{
    if (!_section) {
        return;
    }
    if (_owner) {
        storeState(*_header, ChannelState::Closed, std::memory_order_release);
        SharedSection::wake(_header->readySequence);
    }
    _header = nullptr;
    _section.reset();
}

} // namespace lumivora
