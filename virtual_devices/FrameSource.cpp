// SPDX-License-Identifier: Apache-2.0
// Where the service's frames come from.
#include "virtual_devices/FrameSource.h"

#include "vcam/framechannel/FrameChannelReader.h"

#include <utility>

namespace lumivora {

namespace {

class ChannelSource : public FrameSource
{
public:
    explicit ChannelSource(std::unique_ptr<FrameChannelReader> reader) : _reader(std::move(reader))
    {}

    bool wait(std::chrono::milliseconds timeout) override
    {
        return _reader->waitForFrame(_sequence, timeout);
    }

    bool copy(std::span<std::byte> out) override
    {
        const auto sequence = _reader->copyLatest(out, _sequence);
        _sequence = sequence.value_or(_sequence);
        return sequence.has_value();
    }

    bool isAlive() const override { return _reader->producerAlive() && _reader->isCurrent(); }

private:
    std::unique_ptr<FrameChannelReader> _reader;
    std::uint32_t _sequence = 0;
};

} // namespace

std::unique_ptr<FrameSource> openFrameChannel()
{
    auto reader = FrameChannelReader::open();
    if (!reader || !reader->producerAlive() || reader->width() != kCameraWidth ||
        reader->height() != kCameraHeight) {
        return nullptr;
    }
    return std::make_unique<ChannelSource>(std::move(reader));
}

} // namespace lumivora
