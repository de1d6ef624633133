// SPDX-License-Identifier: Apache-2.0
// Opens the virtual camera for the window's preview.
#pragma once

#include "app/core/Clock.h"

#include <QImage>
#include <QObject>

#include <atomic>
#include <memory>

class CameraGrabber;
class QTimer;
class Worker;

/** Captures the virtual camera while it is wanted, as a client like any other.
 *
 *  Opening and closing run on a worker, never on the interface thread. A capture that cannot be
 *  opened, or from which nothing comes, is opened again every kRetryMs.
 *
 *  @thread thread-bound: the interface thread
 */
class PreviewCapture : public QObject
{
    Q_OBJECT

public:
    static constexpr qint64 kRetryMs = 5000;

    /** @param grabber  outlives the object */
    explicit PreviewCapture(CameraGrabber &grabber, lumivora::Clock clock = lumivora::systemClock(),
                            QObject *parent = nullptr);
    ~PreviewCapture() override;

    /** Opens or lets go of the virtual camera; returns at once. */
    void setWanted(bool wanted);
    /** Opens again what has been silent for too long; the object's own timer calls it. */
    void check();
    /** Waits until what was asked has been done. */
    void settle();

Q_SIGNALS:
    void onFrame(QImage image);

private:
    void reopen();
    void takeFrame();

    CameraGrabber &_grabber;
    lumivora::Clock _clock;
    std::shared_ptr<Worker> _worker;
    QTimer *_timer;
    std::atomic<bool> _wanted{false};
    std::atomic<bool> _frameQueued{false};
    qint64 _lastSignMs = 0; // of life: the last opening or frame
};
