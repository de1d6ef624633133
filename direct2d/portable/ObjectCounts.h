// SPDX-License-Identifier: Apache-2.0
// Counts the objects of the portable Direct2D, so that leaks and needless objects show.
#pragma once

#include <atomic>
#include <cstddef>

namespace lumivora::direct2d {

/** @thread thread-safe */
struct ObjectCounts
{
    std::atomic<std::ptrdiff_t> live = 0; // made and not yet destroyed
    std::atomic<std::ptrdiff_t> made = 0; // since the start
};

/** Those of the process. */
inline ObjectCounts &objectCounts() noexcept
{
    static ObjectCounts counts;
    return counts;
}

} // namespace lumivora::direct2d
