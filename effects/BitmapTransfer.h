// SPDX-License-Identifier: Apache-2.0
// The two places where pixels cross between processor memory and Direct2D.
#pragma once

#include "direct2d/ComPtr.h"

#include <QtGlobal>

#include <d2d1_1.h>

class QImage;

namespace lumivora {

/** Uploads pixels into a Direct2D bitmap.
 *  @param pixels       height x width x 4 bytes, B G R A premultiplied, pitch width * 4; null for
 *                      an uninitialised bitmap
 *  @param cpuReadable  true: a bitmap to read back into, which cannot be drawn; false: one that
 *                      can be drawn and drawn on
 *  @return the bitmap at 96 DPI, or empty on failure (a warning is logged)
 *  @thread thread-bound: the pipeline's thread */
[[nodiscard]] ComPtr<ID2D1Bitmap1> createBitmapFromBuffer(const ComPtr<ID2D1DeviceContext> &context,
                                                          const void *pixels, quint32 width,
                                                          quint32 height, bool cpuReadable);

/** Copies a rendered bitmap into an image.
 *  @param context, target, cpuBitmap  consumed: released before the return. target is B G R A and
 *                                     becomes the context's target; cpuBitmap is of the same
 *                                     size, from createBitmapFromBuffer with cpuReadable
 *  @param image  receives the pixels; an image of another size, or of less than 32 bits a pixel,
 *                is replaced by one in QImage::Format_ARGB32
 *  @return false when something is missing or fails (a warning is logged for the latter); the
 *          image may have been replaced by then, but holds no part of the bitmap
 *  @thread thread-bound: the pipeline's thread */
[[nodiscard]] bool readBackBitmap(ComPtr<ID2D1DeviceContext> context, ComPtr<ID2D1Bitmap1> target,
                                  ComPtr<ID2D1Bitmap1> cpuBitmap, QImage &image);

} // namespace lumivora
