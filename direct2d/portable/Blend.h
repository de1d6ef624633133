// SPDX-License-Identifier: Apache-2.0
// Combines rows of premultiplied pixels, 8 bits a channel.
#pragma once

#include <cstddef>
#include <cstdint>

namespace lumivora::direct2d {

/** Combines a row of source pixels with a row of destination pixels, in place.
 *
 *  Rows are pixelCount * 4 bytes, alpha last, premultiplied; they do not overlap and need no
 *  alignment.
 *  @thread reentrant */
using BlendRow = void (*)(const std::uint8_t *source, std::uint8_t *destination,
                          std::size_t pixelCount);

/** S + D * (1 - Sa), rounded to nearest. A source with colours above its alpha, which is not
 *  premultiplied, saturates. */
void blendSourceOver(const std::uint8_t *source, std::uint8_t *destination, std::size_t pixelCount);

/** max(S, D), channel by channel. */
void blendMax(const std::uint8_t *source, std::uint8_t *destination, std::size_t pixelCount);

} // namespace lumivora::direct2d
