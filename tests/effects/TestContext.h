// SPDX-License-Identifier: Apache-2.0
// A device context on whatever Direct2D the test is linked to.
#pragma once

#include "direct2d/ComPtr.h"

#include <QByteArray>
#include <QImage>

#include <d2d1_1.h>
#include <d3d11.h>

namespace lumivora::test {

/** Makes a context as the pipeline does; empty, with a test failure, when it cannot. */
ComPtr<ID2D1DeviceContext> createContext();

/** An image of pixels that all differ from their neighbours; opaque, hence premultiplied. */
QImage patternImage(int width, int height, QImage::Format format = QImage::Format_ARGB32);

/** The pixels of an image, without padding. */
QByteArray pixelsOf(const QImage &image);

} // namespace lumivora::test
