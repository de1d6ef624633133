// SPDX-License-Identifier: Apache-2.0
// A camera that a test plays by hand.
#pragma once

#include "vcam/capture/CameraGrabber.h"

#include <QMutex>
#include <QStringList>

#include <memory>

namespace lumivora::test {

/** The system's cameras as a test wants them, and what was asked of them. Outlives the grabbers.
 *  @thread thread-safe */
struct FakeCameras
{
    struct Start
    {
        int width;
        int height;
        int index;
        QString name;
        QString altName;
    };

    QRecursiveMutex lock;
    QStringList names{QStringLiteral("Lumivora Camera"), QStringLiteral("Lumivora Control")};
    bool startSucceeds = true;
    QImage latest;

    int listings = 0;
    int stops = 0;
    int alive = 0;
    QList<Start> starts;
    CameraGrabber *running = nullptr;

    /** Offers a frame, as the platform's streaming thread does. @return whether a camera runs */
    bool deliver(const QImage &image)
    {
        const QMutexLocker guard(&lock);
        latest = image;
        if (running == nullptr) {
            return false;
        }
        Q_EMIT running->onNewFrameAvailable();
        return true;
    }

    [[nodiscard]] bool isRunning()
    {
        const QMutexLocker guard(&lock);
        return running != nullptr;
    }
};

class FakeGrabber : public CameraGrabber
{
public:
    explicit FakeGrabber(std::shared_ptr<FakeCameras> cameras) : _cameras(std::move(cameras))
    {
        const QMutexLocker guard(&_cameras->lock);
        ++_cameras->alive;
    }

    ~FakeGrabber() override
    {
        const QMutexLocker guard(&_cameras->lock);
        --_cameras->alive;
        if (_cameras->running == this) {
            _cameras->running = nullptr;
        }
    }

    void listDevices(QList<CameraDevice> &devices) override
    {
        const QMutexLocker guard(&_cameras->lock);
        ++_cameras->listings;
        devices.clear();
        for (const QString &name : std::as_const(_cameras->names)) {
            devices.append({name, nullptr});
        }
    }

    bool startCamera(int width, int height, int index, const QString &name,
                     const QString &altName) override
    {
        const QMutexLocker guard(&_cameras->lock);
        _cameras->starts.append({width, height, index, name, altName});
        if (_cameras->startSucceeds) {
            _cameras->running = this;
        }
        return _cameras->startSucceeds;
    }

    void stopCamera() override
    {
        const QMutexLocker guard(&_cameras->lock);
        ++_cameras->stops;
        _cameras->running = nullptr;
    }

    [[nodiscard]] bool isRunning() const override
    {
        const QMutexLocker guard(&_cameras->lock);
        return _cameras->running == this;
    }

    void copyLatestImage(QImage &image, const std::function<void(bool)> &callback) override
    {
        const QMutexLocker guard(&_cameras->lock);
        image = _cameras->latest;
        if (callback) {
            callback(!image.isNull());
        }
    }

private:
    std::shared_ptr<FakeCameras> _cameras;
};

} // namespace lumivora::test
