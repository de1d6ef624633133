// SPDX-License-Identifier: Apache-2.0
#include "gui/PreviewCapture.h"

#include "app/core/Worker.h"
#include "vcam/capture/CameraGrabber.h"

#include <QTimer>

#include <algorithm>
#include <utility>

namespace {

constexpr int kCheckPeriodMs = 1000;
constexpr int kWidth = 1280;
constexpr int kHeight = 720;
const QLatin1StringView kVirtualCamera("Lumivora Control");

void openVirtualCamera(CameraGrabber &grabber)
{
    QList<CameraDevice> devices;
    grabber.listDevices(devices);
    const auto camera = std::ranges::find_if(
        devices, [](const CameraDevice &device) { return device.name.contains(kVirtualCamera); });
    if (camera != devices.end()) {
        const int index = static_cast<int>(std::distance(devices.begin(), camera));
        grabber.startCamera(kWidth, -kHeight, index, camera->name, QString());
    }
}

} // namespace

PreviewCapture::PreviewCapture(CameraGrabber &grabber, lumivora::Clock clock, QObject *parent)
    : QObject(parent), _grabber(grabber), _clock(std::move(clock)),
      _worker(Worker::create(nullptr, false)), _timer(new QTimer(this))
{
    // From the streaming thread: at most one frame waits for the interface thread, which takes
    // the latest picture whenever it gets to it.
    connect(
        &_grabber, &CameraGrabber::onNewFrameAvailable, this,
        [this] {
            if (!_frameQueued.exchange(true)) {
                QMetaObject::invokeMethod(this, &PreviewCapture::takeFrame, Qt::QueuedConnection);
            }
        },
        Qt::DirectConnection);
    connect(_timer, &QTimer::timeout, this, &PreviewCapture::check);
}

PreviewCapture::~PreviewCapture()
{
    setWanted(false);
    settle();
    _worker->stop();
}

void PreviewCapture::setWanted(bool wanted)
{
    if (_wanted.exchange(wanted) == wanted) {
        return;
    }
    if (wanted) {
        _timer->start(kCheckPeriodMs);
        reopen();
    } else {
        _timer->stop();
        _worker->runFunctionAsync([this](QObject *) {
            if (!_wanted) {
                _grabber.stopCamera();
            }
        });
    }
}

void PreviewCapture::check()
{
    if (_wanted && _clock() - _lastSignMs >= kRetryMs) {
        reopen();
    }
}

void PreviewCapture::settle()
{
    _worker->runFunctionSync([](QObject *) {});
}

void PreviewCapture::reopen()
{
    _lastSignMs = _clock();
    _worker->runFunctionAsync([this](QObject *) {
        if (_wanted) {
            openVirtualCamera(_grabber);
        }
    });
}

void PreviewCapture::takeFrame()
{
    _frameQueued = false;
    if (!_wanted) {
        return;
    }
    _lastSignMs = _clock();
    QImage image;
    _grabber.copyLatestImage(image, nullptr);
    if (!image.isNull()) {
        Q_EMIT onFrame(image);
    }
}
