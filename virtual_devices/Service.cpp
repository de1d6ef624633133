// SPDX-License-Identifier: Apache-2.0
// The virtual camera's side of the frame channel and of the client counter.
#include "virtual_devices/Service.h"

#include <QLoggingCategory>

#include <algorithm>
#include <utility>

namespace lumivora {

namespace {

Q_LOGGING_CATEGORY(lcService, "lumivora.devices.service")

VideoSourceNode::Config cameraConfig()
{
    VideoSourceNode::Config config;
    config.nodeName = "lumivora-control-camera";
    config.description = "Lumivora Control";
    // Browsers take the first format that they know; the last two are the frame as it is.
    for (const PixelFormat pixels : {PixelFormat::Yuy2, PixelFormat::I420, PixelFormat::Nv12,
                                     PixelFormat::Bgra, PixelFormat::Bgrx}) {
        config.formats.push_back({pixels, kCameraWidth, kCameraHeight});
    }
    return config;
}

} // namespace

Service::Service()
    : _clock(steadyClock()), _clients(_clock), _loopback(_v4l2, _clock), _placeholder(_clock),
      _feeder(environment())
{}

Service::~Service()
{
    _node.reset();
    if (_counterOpen) {
        _counter.write(0);
    }
}

bool Service::start()
{
    _counterOpen = _counter.open();
    // A service that was killed left its count behind.
    if (!_counterOpen || !_counter.write(0)) {
        qCWarning(lcService) << "the client counter cannot be used";
        return false;
    }
    _node = VideoSourceNode::create(cameraConfig(), [this](int clients) {
        {
            const std::lock_guard guard(_lock);
            _nodeClients = clients;
        }
        _clientsChanged.notify_one();
    });
    if (!_node) {
        qCWarning(lcService) << "the camera node cannot be made";
        return false;
    }
    return true;
}

void Service::run(const std::atomic<bool> &stopRequested)
{
    while (!stopRequested) {
        _loopback.poll();
        countClients();
        _feeder.step();
    }
}

FrameFeeder::Environment Service::environment()
{
    return {
        .open = &openFrameChannel,
        .isWatched = [this] { return _node->isStreaming() || _loopback.isOpen(); },
        .show = [this](std::span<const std::byte> picture) { show(picture); },
        .placeholder = [this] { return _placeholder.draw(); },
        .sleep = [this](std::chrono::milliseconds time) { sleep(time); },
        .clock = _clock,
    };
}

void Service::show(std::span<const std::byte> picture)
{
    _node->offer([picture](const PictureFormat &format, std::span<std::uint8_t> memory) {
        convertPicture(reinterpret_cast<const std::uint8_t *>(picture.data()), kCameraStride,
                       format, memory.data());
        return PictureLayout::of(format).bytes;
    });
    _loopback.show(picture);
}

void Service::sleep(std::chrono::milliseconds time)
{
    std::unique_lock guard(_lock);
    _clientsChanged.wait_for(guard, time);
}

void Service::countClients()
{
    int nodeClients = 0;
    {
        const std::lock_guard guard(_lock);
        nodeClients = _nodeClients;
    }
    const int count = _clients.update(nodeClients + _loopback.clientCount());
    if (count != std::exchange(_written, count)) {
        qCDebug(lcService) << "clients:" << count;
        _counter.write(static_cast<std::uint32_t>(count));
    }
}

} // namespace lumivora
