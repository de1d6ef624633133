// SPDX-License-Identifier: Apache-2.0
#include "vcam/framechannel/FrameChannelReader.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace lumivora {

namespace {

constexpr int kCopyAttempts = 10; // a producer would have to outrun each by three frames
constexpr std::uint64_t kPageBytes = 4096;

bool isDimension(std::uint32_t pixels)
{
    return pixels > 0 && pixels <= FrameChannelReader::kMaxDimension;
}

/** Whether a section of this size can be the one that the layout asks for: Windows tells sizes in
 *  whole pages. */
bool sizeFits(std::size_t bytes, const FrameChannelLayout &layout)
{
    return bytes >= layout.sectionBytes && bytes - layout.sectionBytes < kPageBytes;
}

ChannelState stateOf(const FrameChannelHeader &header)
{
    const std::uint32_t word = header.state.load(std::memory_order_acquire);
    const bool open = word == static_cast<std::uint32_t>(ChannelState::Created) ||
                      word == static_cast<std::uint32_t>(ChannelState::Streaming);
    return open ? static_cast<ChannelState>(word) : ChannelState::Closed;
}

} // namespace

std::unique_ptr<FrameChannelReader> FrameChannelReader::open()
{
    std::unique_ptr<SharedSection> section = SharedSection::openReadOnly(kChannelName);
    if (!section || section->size() < kHeaderBytes) {
        return {};
    }
    const auto *header = reinterpret_cast<const FrameChannelHeader *>(section->data());
    const std::uint32_t state = header->state.load(std::memory_order_acquire);
    if (state < static_cast<std::uint32_t>(ChannelState::Created) ||
        state > static_cast<std::uint32_t>(ChannelState::Closed)) {
        return {};
    }
    // Everything is taken once, so that what was checked is what is used.
    const std::uint32_t width = header->width;
    const std::uint32_t height = header->height;
    const auto slotOffset = header->slotOffset;
    if (!isDimension(width) || !isDimension(height)) {
        return {};
    }
    const FrameChannelLayout layout = FrameChannelLayout::forFrame(width, height);
    if (!sizeFits(section->size(), layout) ||
        !std::equal(slotOffset.begin(), slotOffset.end(), layout.slotOffset.begin())) {
        return {};
    }

    std::unique_ptr<FrameChannelReader> reader(new FrameChannelReader);
    for (std::size_t slot = 0; slot < kSlotCount; ++slot) {
        reader->_pixels[slot] = section->data() + layout.slotOffset[slot] + kSlotHeadBytes;
    }
    reader->_width = width;
    reader->_height = height;
    reader->_frameBytes = layout.frameBytes;
    reader->_frameDuration100ns = header->frameDuration100ns;
    reader->_header = header;
    reader->_section = std::move(section);
    return reader;
}

ChannelState FrameChannelReader::state() const
{
    return stateOf(*_header);
}

std::optional<std::uint32_t> FrameChannelReader::copyLatest(std::span<std::byte> out,
                                                            std::uint32_t lastSequence) const
{
    if (out.size() < _frameBytes) {
        return {};
    }
    for (int attempt = 0; attempt < kCopyAttempts; ++attempt) {
        const std::uint32_t sequence = _header->readySequence.load(std::memory_order_acquire);
        if (sequence == lastSequence) {
            return {};
        }
        std::memcpy(out.data(), _pixels[sequence % kSlotCount], _frameBytes);
        // Pairs with the writer's fence: had we read a byte of a later frame, we would see its
        // number in writeSequence.
        std::atomic_thread_fence(std::memory_order_acquire);
        const std::uint32_t writing = _header->writeSequence.load(std::memory_order_relaxed);
        // 2^32 - 1 is a multiple of 3: where the numbers wrap, 0 goes into the same slot.
        const bool wrapped = writing < sequence;
        if (!wrapped && writing - sequence < kSlotCount) {
            return sequence;
        }
    }
    return {};
}

bool FrameChannelReader::waitForFrame(std::uint32_t lastSequence,
                                      std::chrono::milliseconds timeout) const
{
    using Clock = std::chrono::steady_clock;
    const Clock::time_point deadline = Clock::now() + timeout;
    while (_header->readySequence.load(std::memory_order_acquire) == lastSequence) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
        if (left <= std::chrono::milliseconds::zero() || state() == ChannelState::Closed) {
            return false;
        }
        SharedSection::waitWhileEqual(_header->readySequence, lastSequence, left);
    }
    return true;
}

bool FrameChannelReader::producerAlive() const
{
    return state() != ChannelState::Closed && _section->ownerAlive();
}

bool FrameChannelReader::isCurrent() const
{
    return _section->isCurrent();
}

} // namespace lumivora
