// SPDX-License-Identifier: Apache-2.0
// Images for frames, whose memory is used again once every reader has let go of it.
#pragma once

#include <QImage>
#include <QSize>

#include <memory>

namespace lumivora {

/** Hands out images; the memory of one comes back when its last copy is gone, so that a published
 *  frame is never written while someone holds it and none is copied for safety. Images may outlive
 *  the pool.
 *  @thread reentrant; images may be let go of on any thread */
class ImagePool
{
public:
    ImagePool();
    ~ImagePool();

    ImagePool(const ImagePool &) = delete;
    ImagePool &operator=(const ImagePool &) = delete;

    /** An image that nobody else holds, its pixels undefined; null when there is no memory.
     *  @param size  not empty */
    [[nodiscard]] QImage take(const QSize &size, QImage::Format format);

private:
    class Shelf;
    std::shared_ptr<Shelf> _shelf;
};

} // namespace lumivora
