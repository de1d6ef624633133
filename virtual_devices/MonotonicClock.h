// SPDX-License-Identifier: Apache-2.0
// Time for rules with a duration in them, which a test can replace.
#pragma once

#include <chrono>
#include <functional>

namespace lumivora {

/** Time since some fixed moment; setting the system's time does not change it. */
using MonotonicClock = std::function<std::chrono::milliseconds()>;

/** @thread thread-safe */
inline MonotonicClock steadyClock()
{
    return [] {
        return std::chrono::duration_cast<std::chrono::milliseconds>(
            std::chrono::steady_clock::now().time_since_epoch());
    };
}

} // namespace lumivora
