// SPDX-License-Identifier: Apache-2.0
#include "vcam/VCam.h"

#include "app/core/Worker.h"
#include "effects/PostProcessor.h"
#include "vcam/FrameFit.h"
#include "vcam/capture/CameraGrabber.h"
#include "vcam/framechannel/FrameChannel.h"
#include "vcam/framechannel/InstanceCounter.h"

#include <QCoreApplication>
#include <QLoggingCategory>
#include <QPermissions>
#include <QTimer>

#include <algorithm>

namespace {

Q_LOGGING_CATEGORY(lcVCam, "lumivora.vcam")

constexpr int kFrameWidth = 1280;
constexpr int kFrameHeight = 720;
constexpr std::uint64_t kFrameDuration100ns = 330000;
constexpr int kMaxPendingFrames = 2;
// One constant for the period and for the silence that counts as a stall: with clients connected,
// a stalled capture is restarted at the first tick that can tell.
constexpr int kWatchdogPeriodMs = 2000;

const QLatin1StringView kPhysicalCamera("Lumivora Camera");
const QLatin1StringView kVirtualCamera("Lumivora Control");

/** A grabber may be released from within a call that one of its own signals started. */
struct DeleteLater
{
    void operator()(QObject *object) const { object->deleteLater(); }
};

} // namespace

std::atomic<bool> VCam::virtualCameraInstalled{false};

/** State that touches devices. Its pointers change on the worker thread only, under the lock;
 *  other threads look at them under the lock. */
class VCam::Opaque
{
public:
    explicit Opaque(VCam *controller) : owner(controller) {}
    ~Opaque() { qCDebug(lcVCam) << "VCam::Opaque DCTOR"; }

    Opaque(const Opaque &) = delete;
    Opaque &operator=(const Opaque &) = delete;

    VCam *owner;
    QString deviceName;
    std::unique_ptr<CameraGrabber, DeleteLater> grabber;
    std::unique_ptr<lumivora::FrameChannel> channel;
    lumivora::InstanceCounter counter;

    QRecursiveMutex lock;
    Environment environment;
};

VCam::Environment VCam::Environment::real()
{
    return {
        [] { return std::make_unique<CameraGrabber>(); },
        [] { return qApp->checkPermission(QCameraPermission()) == Qt::PermissionStatus::Granted; },
        lumivora::systemClock(),
    };
}

VCam::VCam(BaseSettings *settings, QObject *parent) : VCam(settings, Environment::real(), parent) {}

VCam::VCam(BaseSettings *settings, Environment environment, QObject *parent)
    : QObject(parent), _opaque(std::make_shared<Opaque>(this))
{
    _opaque->environment = std::move(environment);
    if (!_opaque->counter.open()) {
        qCWarning(lcVCam) << "Unable to create InstanceCounter!!!";
    }
    _postProcessor = std::make_shared<PostProcessor>(settings, this);
    _worker = Worker::create(this, true);
    _worker->setMaxQueueSize(kMaxPendingFrames);
    _worker->runFunctionSync([this](QObject *) { _watchdogTimer = new QTimer(this); });
    connect(_watchdogTimer, &QTimer::timeout, this, &VCam::checkHealth);
}

VCam::~VCam()
{
    _worker->runFunctionSync([this](QObject *) { _watchdogTimer->stop(); });
    closeCamera();
    _opaque->deviceName.clear();
    _worker->stop();
    _worker.reset();
    _postProcessor.reset();
    _opaque.reset();
}

void VCam::forgetVirtualCamera()
{
    virtualCameraInstalled = false;
}

bool VCam::start()
{
    stop();
    if (!virtualCameraInstalled && _opaque->environment.hasCameraPermission()) {
        QList<CameraDevice> devices;
        _opaque->environment.createGrabber()->listDevices(devices);
        if (std::ranges::any_of(devices, [](const CameraDevice &device) {
                return device.name.contains(kVirtualCamera);
            })) {
            virtualCameraInstalled = true;
        }
    }
    if (!virtualCameraInstalled) {
        Q_EMIT onMessage(QStringLiteral("Lumivora Control camera not installed. "
                                        "Try to uninstall and reinstall the application."));
        return false;
    }
    startGrabber();
    _worker->runFunctionSync([this](QObject *) {
        if (!_watchdogTimer->isActive()) {
            _watchdogTimer->start(kWatchdogPeriodMs);
        }
    });
    return true;
}

bool VCam::startGrabber()
{
    stopGrabber();
    _worker->runFunctionSync([this](QObject *) { openCamera(); });
    const bool running = isGrabberRunning();
    Q_EMIT onReconnecting(running);
    return running;
}

void VCam::stopGrabber()
{
    closeCamera();
}

void VCam::stop()
{
    stopGrabber();
    _opaque->deviceName.clear();
}

bool VCam::isGrabberRunning()
{
    const QMutexLocker guard(&_opaque->lock);
    return _opaque->grabber && _opaque->grabber->isRunning() && _opaque->channel;
}

bool VCam::areClientsConnected()
{
    return _clientsConnected;
}

void VCam::setClientsConnected(bool connected)
{
    if (_clientsConnected.exchange(connected) != connected) {
        Q_EMIT onClientsConnectedChanged(connected);
    }
}

void VCam::openCamera()
{
    _lastFrameTimeMs = 0;
    {
        auto created = _opaque->environment.createGrabber();
        const QMutexLocker guard(&_opaque->lock);
        _opaque->grabber.reset(created.release());
    }
    CameraGrabber *grabber = _opaque->grabber.get();
    QList<CameraDevice> devices;
    grabber->listDevices(devices);
    const auto camera = std::ranges::find_if(
        devices, [](const CameraDevice &device) { return device.name.contains(kPhysicalCamera); });
    if (camera == devices.end()) {
        return; // the watchdog looks again
    }
    _opaque->deviceName = camera->name;
    const int index = static_cast<int>(std::distance(devices.begin(), camera));
    // A negative height asks for a top-down image.
    if (!grabber->startCamera(kFrameWidth, -kFrameHeight, index, camera->name, QString())) {
        Q_EMIT onMessage(QStringLiteral("Unable to start physical camera.<br>"
                                        "Make sure you've allowed access to camera devices."));
        return;
    }
    auto channel = lumivora::FrameChannel::create(kFrameWidth, kFrameHeight, kFrameDuration100ns);
    if (!channel) {
        Q_EMIT onMessage(QStringLiteral("Unable to create communication mechanism between "
                                        "physical and virtual drivers!"));
        return;
    }
    {
        const QMutexLocker guard(&_opaque->lock);
        _opaque->channel = std::move(channel);
    }
    // Direct, on the streaming thread: a hand-off queued to the worker's own thread would find an
    // empty queue each time it ran, so the bound could never refuse a frame and the events
    // themselves would pile up behind a slow one. The worker as context ends the connection.
    connect(
        grabber, &CameraGrabber::onNewFrameAvailable, _worker.get(), [this] { handOffFrame(); },
        Qt::DirectConnection);
}

void VCam::closeCamera()
{
    _worker->runFunctionSync([this](QObject *) {
        std::unique_ptr<CameraGrabber, DeleteLater> grabber;
        std::unique_ptr<lumivora::FrameChannel> channel;
        {
            const QMutexLocker guard(&_opaque->lock);
            grabber = std::move(_opaque->grabber);
            channel = std::move(_opaque->channel);
        }
        if (grabber) {
            disconnect(grabber.get(), &CameraGrabber::onNewFrameAvailable, _worker.get(), nullptr);
            grabber->stopCamera();
        }
        if (channel) {
            channel->close();
        }
    });
}

void VCam::handOffFrame()
{
    if (!_worker->runFunctionAsync([this](QObject *) { processFrame(); })) {
        qCDebug(lcVCam) << "skipping processSampleBuffer, too much work in queue...";
    }
}

void VCam::processFrame()
{
    if (!_opaque || !_opaque->grabber || !_postProcessor || !_opaque->channel) {
        return;
    }
    _lastFrameTimeMs = _opaque->environment.clock();
    QImage frame;
    _opaque->grabber->copyLatestImage(frame, nullptr);
    if (frame.isNull()) {
        return;
    }
    _postProcessor->processFrame(frame);
    if (frame.isNull()) {
        return;
    }
    lumivora::fitToChannel(frame, QSize(kFrameWidth, kFrameHeight));
    const auto byteCount = static_cast<std::size_t>(frame.sizeInBytes());
    _opaque->channel->writeFrame(frame.constBits(), byteCount, 0);
    Q_EMIT onNewFrameAvailable();
}

void VCam::checkHealth()
{
    std::uint32_t count = 0;
    if (_opaque->counter.read(count)) {
        const auto clients = static_cast<std::int32_t>(count);
        qCWarning(lcVCam) << "Connected clients:" << clients;
        if (clients <= 0) {
            setClientsConnected(false);
            qCDebug(lcVCam) << "Opaque::areAnyClientsConnected() == FALSE";
            if (isGrabberRunning()) {
                qCDebug(lcVCam)
                    << "stopping VCam physical grabber - there are no clients connected!";
                stopGrabber();
            }
            return;
        }
    } else {
        qCWarning(lcVCam) << "Unable to check if there are any clients connected";
    }
    setClientsConnected(true);
    qCDebug(lcVCam) << "Opaque::areAnyClientsConnected() == TRUE";
    if (!isGrabberRunning()) {
        qCDebug(lcVCam) << "restarting VCam physical grabber, it's not running!";
        startGrabber();
        return;
    }
    if (_opaque->environment.clock() - _lastFrameTimeMs < kWatchdogPeriodMs) {
        return;
    }
    qCDebug(lcVCam) << "restarting VCam physical grabber - elapsed >=" << kWatchdogPeriodMs;
    startGrabber();
}
