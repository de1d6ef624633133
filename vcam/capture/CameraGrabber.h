// SPDX-License-Identifier: Apache-2.0
// Captures a camera and keeps its latest frame.
#pragma once

#include <QImage>
#include <QList>
#include <QObject>
#include <QString>

#include <functional>
#include <memory>

/** One video input device, in the order of the system's enumerator. */
struct CameraDevice
{
    QString name;                 // the friendly name
    std::shared_ptr<void> handle; // the platform's device, kept alive by the entry
};

/** Captures one camera, converts each sample to an image and keeps the latest.
 *
 *  Samples arrive on the platform's streaming thread at no more than 60 a second; those that do not
 *  fit are dropped silently.
 *
 *  @thread thread-safe: every operation takes the grabber's recursive lock
 */
class CameraGrabber : public QObject
{
    Q_OBJECT

public:
    class Opaque;

    explicit CameraGrabber(QObject *parent = nullptr);
    ~CameraGrabber() override;

    /** Lists every video input device in the system's order; empty when there is none. */
    virtual void listDevices(QList<CameraDevice> &devices);

    /** Stops a running capture, chooses a device and captures at the format nearest to
     *  width x |height|.
     *  @param height   negative: the image is wanted top-down
     *  @param index    into the device list; beyond it the start fails without touching a device
     *  @param name     contained in the friendly name of the device at index
     *  @param altName  when not empty: the first device whose friendly name contains it is used
     *                  instead
     *  @return whether the capture runs
     */
    virtual bool startCamera(int width, int height, int index, const QString &name,
                             const QString &altName);

    /** Stops the capture and releases the device. */
    virtual void stopCamera();

    /** Whether a capture graph exists and runs. */
    [[nodiscard]] virtual bool isRunning() const;

    /** Assigns the latest frame (null before the first) to image and calls the callback, when there
     *  is one, with whether it is not null; both under the grabber's lock. */
    virtual void copyLatestImage(QImage &image, const std::function<void(bool)> &callback);

Q_SIGNALS:
    /** One per accepted sample. @thread emitted from the streaming thread */
    void onNewFrameAvailable();

private:
    std::shared_ptr<Opaque> _opaque;
};
