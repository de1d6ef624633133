// SPDX-License-Identifier: Apache-2.0
// Makes any frame fit the one size and format that the channel carries.
#pragma once

#include <QImage>

namespace lumivora {

/** Turns a frame into exactly size.width x size.height x 4 bytes, B G R X.
 *
 *  A frame that fits already is left alone, uncopied. Others are converted to 32 bits and scaled
 *  so that they fill the size, with what stands over cut off evenly: a camera that has no format
 *  of the wanted size still gives an undistorted picture without borders.
 */
void fitToChannel(QImage &frame, const QSize &size);

} // namespace lumivora
