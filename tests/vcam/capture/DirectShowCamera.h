// SPDX-License-Identifier: Apache-2.0
// A camera for DirectShow's device enumerator, whose pictures and faults a test decides.
#pragma once

#include <QList>
#include <QSize>
#include <QString>

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

#include <windows.h>

#include <dshow.h>

namespace lumivora::test {

/** One format that the camera offers, as a video information header has it. */
struct CameraFormat
{
    GUID subtype;
    LONG width;
    LONG height; // negative: top row first
    WORD bits;

    [[nodiscard]] long rowBytes() const { return (width * bits + 31) / 32 * 4; }
    [[nodiscard]] long bytes() const { return rowBytes() * (height < 0 ? -height : height); }
};

/** What a camera does; shared by the test and the filters that the system makes of the camera. */
struct CameraScript
{
    QString name;
    std::vector<CameraFormat> formats;
    bool oldDriverModel = false;

    /** Writes one sample of format.bytes() bytes and returns how many of them count. */
    std::function<long(const CameraFormat &format, BYTE *data)> draw;

    // Of the video control interface.
    std::atomic<long> flipsAble = 0;
    std::atomic<long> flipMode = 0;

    std::atomic<bool> stalled = false;

    /** Ends the stream and tells the graph, as drivers do when a device is pulled out. */
    void unplug();

    // The filter that streams.
    std::mutex lock;
    IMediaEventSink *eventSink = nullptr;
    IBaseFilter *streaming = nullptr;
};

/** Keeps a camera in the category of video input devices. @thread thread-bound */
class RegisteredCamera
{
public:
    /** @param order  place among the test's cameras, 0 to 9 */
    RegisteredCamera(int order, std::shared_ptr<CameraScript> script);
    ~RegisteredCamera();

    RegisteredCamera(const RegisteredCamera &) = delete;
    RegisteredCamera &operator=(const RegisteredCamera &) = delete;

private:
    CLSID _id;
    DWORD _class = 0;
    QString _key;
};

} // namespace lumivora::test
