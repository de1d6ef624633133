// SPDX-License-Identifier: Apache-2.0
// What the virtual camera shows while no picture comes.
#pragma once

#include "virtual_devices/MonotonicClock.h"

#include <QImage>

#include <cstddef>
#include <span>

namespace lumivora {

/** The product's name and three dots that move, so that a person sees that the camera works.
 *  @thread reentrant */
class Placeholder
{
public:
    explicit Placeholder(MonotonicClock clock);

    /** The picture of this moment.
     *  @return kCameraBytes bytes, valid until the next call */
    [[nodiscard]] std::span<const std::byte> draw();

private:
    MonotonicClock _clock;
    QImage _still;
    QImage _picture;
};

} // namespace lumivora
