// SPDX-License-Identifier: Apache-2.0
// State of a camera grabber, the same on both platforms.
#pragma once

#include "app/core/Clock.h"
#include "vcam/capture/CameraGrabber.h"
#include "vcam/capture/CaptureGraph.h"
#include "vcam/capture/CaptureRules.h"
#include "vcam/capture/ImagePool.h"

#include <QImage>

#include <atomic>
#include <memory>
#include <mutex>

/** Takes the samples of the graph that runs and keeps the latest as an image. */
class CameraGrabber::Opaque final : public lumivora::BasicSampleGrabberCB
{
public:
    explicit Opaque(CameraGrabber &grabber, lumivora::Clock clock = lumivora::systemClock());
    ~Opaque() override;

    Opaque(const Opaque &) = delete;
    Opaque &operator=(const Opaque &) = delete;

    /** Begins a capture: what is left of the one before goes. */
    void setGraph(std::unique_ptr<lumivora::CaptureGraph> graph);
    /** Stops and releases the graph, when there is one. */
    void closeGraph();

    void onSample(const lumivora::SampleOutline &outline,
                  const lumivora::SampleWriter &write) noexcept override;

    // Starting and stopping, one at a time; never taken by the streaming thread, which a stop waits
    // for. A start that waits for its camera gives up as soon as a stop waits for the start.
    std::mutex startStop;
    std::atomic<int> waitingStops{0};

    // Guards all below.
    std::recursive_mutex lock;
    std::unique_ptr<lumivora::CaptureGraph> graph;
    QImage latestImage;
    bool flipRows = false; // the caller wants the top row first

private:
    CameraGrabber &_grabber;
    lumivora::Clock _clock;
    lumivora::FrameRateCap _rateCap;
    lumivora::ImagePool _images;
};
