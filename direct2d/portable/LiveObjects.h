// SPDX-License-Identifier: Apache-2.0
// Counts the objects of the portable Direct2D that nobody has released yet.
#pragma once

#include <atomic>
#include <cstddef>

namespace lumivora::direct2d {

/** Grows with each object made and shrinks with each destroyed: a difference over a pipeline's
 *  life is a leak. @thread thread-safe */
inline std::atomic<std::ptrdiff_t> &liveObjects() noexcept
{
    static std::atomic<std::ptrdiff_t> count = 0;
    return count;
}

} // namespace lumivora::direct2d
