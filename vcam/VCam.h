// SPDX-License-Identifier: Apache-2.0
// Brings the physical camera's picture, through the effects, to the virtual camera.
#pragma once

#include "app/core/Clock.h"

#include <QObject>
#include <QRecursiveMutex>

#include <atomic>
#include <functional>
#include <memory>

class BaseSettings;
class CameraGrabber;
class PostProcessor;
class QTimer;
class Worker;

/** Owns the video path: captures the physical camera while some client has the virtual camera
 *  open, runs each frame through the effects and writes it into the frame channel. A watchdog
 *  follows the clients and restarts a capture that stalls.
 *
 *  idle (no grabber, no channel) -> running -> idle. start() enables the watchdog, which drives
 *  the transitions from then on.
 *
 *  @thread thread-safe: device work is posted to a worker thread, on which the object lives and
 *          from which its signals come; start, stop and their kin wait for that work
 */
class VCam : public QObject
{
    Q_OBJECT

public:
    class Opaque;

    /** What the controller asks of its surroundings; tests replace it. */
    struct Environment
    {
        std::function<std::unique_ptr<CameraGrabber>()> createGrabber;
        std::function<bool()> hasCameraPermission;
        lumivora::Clock clock;

        /** Real cameras, the platform's permission and the wall clock. */
        [[nodiscard]] static Environment real();
    };

    explicit VCam(BaseSettings *settings, QObject *parent = nullptr);
    VCam(BaseSettings *settings, Environment environment, QObject *parent = nullptr);
    ~VCam() override;

    /** Brings the virtual camera up and enables the watchdog.
     *  @return false, after onMessage, when no virtual camera is installed */
    virtual bool start();
    /** (Re)starts the capture. @return isGrabberRunning() */
    virtual bool startGrabber();
    virtual void stopGrabber();
    /** Stops the capture and forgets the device. The watchdog stays as it is. */
    virtual void stop();
    /** Whether the camera runs and the channel to the virtual camera is open. */
    [[nodiscard]] virtual bool isGrabberRunning();
    /** Last known answer of the client counter; true at first. */
    [[nodiscard]] virtual bool areClientsConnected();
    /** Stores the answer; emits onClientsConnectedChanged when it changed. */
    virtual void setClientsConnected(bool connected);

    /** One turn of the watchdog, as its timer runs it. @thread thread-bound: the worker's */
    void checkHealth();

    /** Forgets that a virtual camera was seen; for tests, which share one process. */
    static void forgetVirtualCamera();

Q_SIGNALS:
    /** Rich text for the user. */
    void onMessage(QString message);
    void onNewFrameAvailable();
    void onReconnecting(bool status);
    void onClientsConnectedChanged(bool status);

private:
    void openCamera();
    void closeCamera();
    void handOffFrame();
    void processFrame();

    std::shared_ptr<Opaque> _opaque;
    QRecursiveMutex _mutex; // reserved
    std::shared_ptr<Worker> _worker;
    std::shared_ptr<PostProcessor> _postProcessor;
    QTimer *_watchdogTimer = nullptr;
    qint64 _lastFrameTimeMs = 0;
    std::atomic<bool> _clientsConnected{true};

    static std::atomic<bool> virtualCameraInstalled;
};
