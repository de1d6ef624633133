// SPDX-License-Identifier: Apache-2.0
// Turns GStreamer's samples into images.
#pragma once

#include "vcam/capture/CaptureGraph.h"
#include "vcam/capture/linux/GstPointers.h"

#include <QImage>

#include <memory>

#include <gst/video/video.h>

namespace lumivora {

/** Reads raw pictures of any pixel format, one stream's after another. The conversion writes
 *  straight into the image, so that no frame is copied a second time and a sample that nobody asks
 *  for costs nothing.
 *  @thread thread-bound: the streaming thread */
class SampleReader
{
public:
    SampleReader();

    /** What a sample declares; nothing when it is no picture. */
    [[nodiscard]] bool describe(GstSample &sample, SampleOutline &outline);

    /** Writes the sample that describe() saw last.
     *  @return false when it is shorter than it declares */
    [[nodiscard]] bool write(GstSample &sample, QImage &image, bool topDown);

private:
    struct ConverterDeleter
    {
        void operator()(GstVideoConverter *converter) const { gst_video_converter_free(converter); }
    };

    [[nodiscard]] bool convert(GstVideoFrame &from, QImage &image, bool reversed);

    GstPtr<GstCaps> _caps; // of the samples that _info describes
    GstVideoInfo _info;
    std::unique_ptr<GstVideoConverter, ConverterDeleter> _converter; // from _info, made when needed
};

} // namespace lumivora
