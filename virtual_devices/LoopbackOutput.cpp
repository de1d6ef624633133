// SPDX-License-Identifier: Apache-2.0
// The virtual camera's second way out: a v4l2loopback device.
#include "virtual_devices/LoopbackOutput.h"

#include "virtual_devices/FrameSource.h"
#include "virtual_devices/PictureFormat.h"

#include <QLoggingCategory>

#include <linux/videodev2.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <string_view>
#include <utility>

namespace lumivora {

namespace {

Q_LOGGING_CATEGORY(lcLoopback, "lumivora.devices.loopback")

constexpr const char *kLabel = "Lumivora Control";
constexpr const char *kDriver = "v4l2 loopback";
constexpr PictureFormat kFormat = {PixelFormat::Yuy2, kCameraWidth, kCameraHeight};

// The driver's own event; it changed its number with version 0.13. The payload is one word.
constexpr std::array<std::uint32_t, 2> kClientUsageEvents = {
    V4L2_EVENT_PRIVATE_START + 0x08E00000 + 1,
    V4L2_EVENT_PRIVATE_START,
};

template <std::size_t Size>
bool holds(const unsigned char (&field)[Size], std::string_view text)
{
    const auto *begin = reinterpret_cast<const char *>(field);
    return std::string_view(begin, strnlen(begin, Size)) == text;
}

} // namespace

LoopbackOutput::LoopbackOutput(V4l2 &system, MonotonicClock clock)
    : _system(system), _clock(std::move(clock))
{}

LoopbackOutput::~LoopbackOutput()
{
    close();
}

void LoopbackOutput::poll()
{
    if (isOpen()) {
        readEvents();
    }
    if (_clock() - _looked < kLookAgain) {
        return;
    }
    _looked = _clock();
    if (!isOpen()) {
        look();
    }
    if (isOpen() && !_eventSeen) {
        _clients = _system.otherOpeners(_path);
    }
}

void LoopbackOutput::look()
{
    for (const std::string &path : _system.devicesNamed(kLabel)) {
        _device = _system.open(path);
        if (!isOpen()) {
            continue;
        }
        if (setUp()) {
            _path = path;
            qCDebug(lcLoopback) << "writing to" << path.c_str();
            subscribe();
            readEvents();
            return;
        }
        close();
    }
}

bool LoopbackOutput::setUp()
{
    v4l2_capability capability{};
    if (_system.control(_device, VIDIOC_QUERYCAP, &capability) != 0 ||
        !holds(capability.driver, kDriver) || !holds(capability.card, kLabel)) {
        return false;
    }
    const PictureLayout layout = PictureLayout::of(kFormat);
    const auto stride = static_cast<std::uint32_t>(layout.stride[0]);
    v4l2_format format{};
    format.type = V4L2_BUF_TYPE_VIDEO_OUTPUT;
    format.fmt.pix.width = kCameraWidth;
    format.fmt.pix.height = kCameraHeight;
    format.fmt.pix.pixelformat = V4L2_PIX_FMT_YUYV;
    format.fmt.pix.field = V4L2_FIELD_NONE;
    format.fmt.pix.bytesperline = stride;
    format.fmt.pix.sizeimage = static_cast<std::uint32_t>(layout.bytes);
    format.fmt.pix.colorspace = V4L2_COLORSPACE_SRGB;
    format.fmt.pix.ycbcr_enc = V4L2_YCBCR_ENC_601;
    format.fmt.pix.quantization = V4L2_QUANTIZATION_LIM_RANGE;
    // A client that came first may have fixed another format; what it expects we cannot write.
    return _system.control(_device, VIDIOC_S_FMT, &format) == 0 &&
           format.fmt.pix.width == kCameraWidth && format.fmt.pix.height == kCameraHeight &&
           format.fmt.pix.pixelformat == V4L2_PIX_FMT_YUYV && format.fmt.pix.bytesperline == stride;
}

void LoopbackOutput::subscribe()
{
    for (const std::uint32_t event : kClientUsageEvents) {
        v4l2_event_subscription subscription{};
        subscription.type = event;
        subscription.flags = V4L2_EVENT_SUB_FL_SEND_INITIAL;
        if (_system.control(_device, VIDIOC_SUBSCRIBE_EVENT, &subscription) == 0) {
            return;
        }
    }
    qCDebug(lcLoopback) << "the driver does not tell of clients";
}

void LoopbackOutput::readEvents()
{
    v4l2_event event{};
    while (_system.control(_device, VIDIOC_DQEVENT, &event) == 0) {
        if (event.type == kClientUsageEvents[0] || event.type == kClientUsageEvents[1]) {
            std::uint32_t count = 0;
            std::memcpy(&count, &event.u, sizeof(count));
            _clients = static_cast<int>(count);
            _eventSeen = true;
        }
    }
}

void LoopbackOutput::show(std::span<const std::byte> bgra)
{
    if (!isOpen()) {
        return;
    }
    _picture.resize(PictureLayout::of(kFormat).bytes);
    convertPicture(reinterpret_cast<const std::uint8_t *>(bgra.data()), kCameraStride, kFormat,
                   _picture.data());
    if (_system.write(_device, _picture) < 0 && errno != EAGAIN) {
        qCWarning(lcLoopback) << "lost" << _path.c_str() << ":" << qt_error_string(errno);
        close();
    }
}

void LoopbackOutput::close()
{
    if (isOpen()) {
        _system.close(std::exchange(_device, -1));
    }
    _path.clear();
    _eventSeen = false;
    _clients = 0;
}

} // namespace lumivora
