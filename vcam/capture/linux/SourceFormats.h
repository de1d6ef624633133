// SPDX-License-Identifier: Apache-2.0
// Formats that a GStreamer source offers.
#pragma once

#include "vcam/capture/linux/GstPointers.h"

#include <QSize>

#include <vector>

#include <gst/video/video.h>

namespace lumivora {

/** One format that a capture can ask the source for. */
struct SourceFormat
{
    QSize size;
    bool jpeg = false;     // compressed pictures, one a sample
    int bitsPerPixel = 32; // of the image made of it: a source of 24 bits keeps them
    GstPtr<GstCaps> caps;  // fixed, but for what a source may leave open
};

/** Bits per pixel of the image that a raw format becomes. */
[[nodiscard]] int imageBits(GstVideoFormat format);

/** Lists what of a source's caps can be captured, in the caps' order: raw pictures in memory and
 *  JPEG. A range of sizes gives the one nearest to the wanted size, a choice of rates the one
 *  nearest to 30 frames a second. */
[[nodiscard]] std::vector<SourceFormat> sourceFormats(const GstCaps &caps, const QSize &wanted);

} // namespace lumivora
