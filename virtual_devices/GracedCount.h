// SPDX-License-Identifier: Apache-2.0
// A number of clients that rises at once and falls late.
#pragma once

#include "virtual_devices/MonotonicClock.h"

#include <chrono>
#include <optional>

namespace lumivora {

/** Programs open and close a camera while they look what there is, and again when their settings
 *  change. A fall that lasts less than the grace is not passed on, so that the physical camera is
 *  not switched off and on.
 *
 *  @thread reentrant */
class GracedCount
{
public:
    static constexpr std::chrono::milliseconds kGrace{1000};

    explicit GracedCount(MonotonicClock clock) : _clock(std::move(clock)) {}

    /** To be called at every change, and often enough for the end of a grace to be noticed.
     *  @param count  the number right now
     *  @return the number to pass on */
    int update(int count)
    {
        if (count >= _value) {
            _value = count;
            _fallenSince.reset();
            return _value;
        }
        const auto now = _clock();
        if (!_fallenSince) {
            _fallenSince = now;
        }
        if (now - *_fallenSince >= kGrace) {
            _value = count;
            _fallenSince.reset();
        }
        return _value;
    }

private:
    MonotonicClock _clock;
    int _value = 0;
    std::optional<std::chrono::milliseconds> _fallenSince;
};

} // namespace lumivora
