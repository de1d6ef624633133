// SPDX-License-Identifier: Apache-2.0
#include "vcam/FrameFit.h"

namespace lumivora {

void fitToChannel(QImage &frame, const QSize &size)
{
    if (frame.depth() != 32) {
        frame = frame.convertToFormat(QImage::Format_RGB32);
    }
    if (frame.size() == size) {
        return;
    }
    frame = frame.scaled(size, Qt::KeepAspectRatioByExpanding, Qt::SmoothTransformation);
    const QPoint corner((frame.width() - size.width()) / 2, (frame.height() - size.height()) / 2);
    frame = frame.copy(QRect(corner, size));
}

} // namespace lumivora
