// SPDX-License-Identifier: Apache-2.0
// What a platform's capture gives to the grabber.
#pragma once

#include "vcam/capture/CameraGrabber.h"

#include <QSize>

#include <functional>
#include <memory>

namespace lumivora {

/** A sample as its platform declares it. */
struct SampleOutline
{
    QSize size;            // pixels; may be absurd
    int bitsPerPixel = 32; // of the image that it becomes: 24 or 32
    qsizetype bytes = 0;   // length of its data
};

/** Writes a sample into an image of its outline, top row first when topDown is set and last
 *  otherwise; false when the sample does not fit. */
using SampleWriter = std::function<bool(QImage &image, bool topDown)>;

/** Takes a graph's samples. */
class BasicSampleGrabberCB
{
public:
    virtual ~BasicSampleGrabberCB() = default;

    /** One sample; not every one is asked for its pixels.
     *  @thread the graph's streaming thread, one sample at a time */
    virtual void onSample(const SampleOutline &outline, const SampleWriter &write) noexcept = 0;
};

/** A capture that runs until it is destroyed. Its destruction waits for the streaming thread, so no
 *  lock that onSample() takes may be held meanwhile.
 *  @thread thread-safe */
class CaptureGraph
{
public:
    virtual ~CaptureGraph() = default;

    /** False once the camera has gone or has failed. */
    [[nodiscard]] virtual bool isRunning() const = 0;
    /** Of the connected format: 32 or 24; 0 where neither is known. */
    [[nodiscard]] virtual int bitsPerPixel() const = 0;
};

/** Appends every video input device in the system's order. */
void listCaptureDevices(QList<CameraDevice> &devices);

/** Captures a device at the format nearest to the wanted size.
 *  @param samples    outlives the graph
 *  @param abandoned  asked while it waits for the camera: whether to give up
 *  @return null when any of it fails */
[[nodiscard]] std::unique_ptr<CaptureGraph>
openCaptureGraph(const CameraDevice &device, const QSize &wanted, BasicSampleGrabberCB &samples,
                 const std::function<bool()> &abandoned);

} // namespace lumivora
