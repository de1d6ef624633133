// SPDX-License-Identifier: Apache-2.0
#include "vcam/capture/CameraGrabber.h"

#include "vcam/capture/CameraGrabber_p.h"
#include "vcam/capture/SampleRows.h"

#include <QLoggingCategory>

#include <algorithm>
#include <cstdlib>
#include <limits>
#include <utility>

using namespace lumivora;

namespace {

Q_LOGGING_CATEGORY(lcCapture, "lumivora.vcam.capture")

// Every capture renders the device's preview stream.
const QLatin1StringView kPreviewWord("PREVIEWING");

int magnitude(int height)
{
    return std::abs(std::max(height, -std::numeric_limits<int>::max()));
}

} // namespace

CameraGrabber::Opaque::Opaque(CameraGrabber &grabber, Clock clock)
    : _grabber(grabber), _clock(std::move(clock))
{}

CameraGrabber::Opaque::~Opaque()
{
    closeGraph();
}

void CameraGrabber::Opaque::setGraph(std::unique_ptr<CaptureGraph> newGraph)
{
    const std::lock_guard guard(lock);
    latestImage = QImage();
    graph = std::move(newGraph);
}

void CameraGrabber::Opaque::closeGraph()
{
    std::unique_ptr<CaptureGraph> closing;
    {
        const std::lock_guard guard(lock);
        closing = std::move(graph);
    }
    // Destroyed without the lock: a sample on its way takes it, and the graph waits for the sample.
}

void CameraGrabber::Opaque::onSample(const SampleOutline &outline,
                                     const SampleWriter &write) noexcept
{
    const std::lock_guard guard(lock);
    const qint64 nowMs = _clock();
    if (!_rateCap.isDue(nowMs) || outline.bytes < 1 || !graph || !isPlausibleSize(outline.size)) {
        return;
    }
    QImage workImage = _images.take(outline.size, imageFormat(outline.bitsPerPixel));
    if (workImage.isNull() || !write(workImage, flipRows)) {
        return;
    }
    latestImage = std::move(workImage);
    _rateCap.taken(nowMs);
    Q_EMIT _grabber.onNewFrameAvailable();
}

CameraGrabber::CameraGrabber(QObject *parent)
    : QObject(parent), _opaque(std::make_shared<Opaque>(*this))
{}

CameraGrabber::~CameraGrabber()
{
    _opaque->closeGraph();
    qCDebug(lcCapture) << "CameraGrabber DCTOR!";
}

void CameraGrabber::listDevices(QList<CameraDevice> &devices)
{
    devices.clear();
    listCaptureDevices(devices);
}

bool CameraGrabber::startCamera(int width, int height, int index, const QString &name,
                                const QString &altName)
{
    qCDebug(lcCapture) << "CameraGrabber::startCamera";
    stopCamera();

    const std::lock_guard starting(_opaque->startStop);
    _opaque->closeGraph(); // of a start that came in between
    const QSize wanted(width, magnitude(height));
    {
        const std::lock_guard guard(_opaque->lock);
        _opaque->flipRows = height < 0;
    }
    QList<CameraDevice> devices;
    listDevices(devices);
    const CameraDevice *device = chooseDevice(devices, index, name, altName);
    if (device == nullptr) {
        return false;
    }

    const QString capture =
        QStringLiteral("%1 camera at %2x%3")
            .arg(device->name, QString::number(wanted.width()), QString::number(wanted.height()));
    qCDebug(lcCapture).noquote() << "Starting" << capture << kPreviewWord;
    std::unique_ptr<CaptureGraph> graph =
        openCaptureGraph(*device, wanted, *_opaque, [this] { return _opaque->waitingStops > 0; });
    if (!graph) {
        qCDebug(lcCapture).noquote() << "Failed to start" << capture << kPreviewWord;
        return false;
    }
    const QString bits = QStringLiteral("%1bits").arg(graph->bitsPerPixel());
    _opaque->setGraph(std::move(graph));
    qCDebug(lcCapture).noquote() << "Successfully started" << capture << bits << kPreviewWord;
    return true;
}

void CameraGrabber::stopCamera()
{
    qCDebug(lcCapture) << "CameraGrabber::stopCamera";
    ++_opaque->waitingStops;
    const std::lock_guard stopping(_opaque->startStop);
    --_opaque->waitingStops;
    _opaque->closeGraph();
}

bool CameraGrabber::isRunning() const
{
    const std::lock_guard guard(_opaque->lock);
    return _opaque->graph && _opaque->graph->isRunning();
}

void CameraGrabber::copyLatestImage(QImage &image, const std::function<void(bool)> &callback)
{
    const std::lock_guard guard(_opaque->lock);
    image = _opaque->latestImage;
    if (callback) {
        callback(!image.isNull());
    }
}
