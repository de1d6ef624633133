// SPDX-License-Identifier: Apache-2.0
// What a client got of a stamped camera: counts, frame rate and latency.
#include "tools/probe/FrameTally.h"

#include <algorithm>
#include <cmath>

namespace lumivora::tools {

FrameTally::Kind FrameTally::add(const std::optional<FrameStamp> &top,
                                 const std::optional<FrameStamp> &bottom, std::uint64_t arrivalUs)
{
    if (!top && !bottom) {
        ++_placeholders;
        return Kind::Placeholder;
    }
    if (top != bottom) {
        ++_torn;
        return Kind::Torn;
    }
    if (_last == top) {
        ++_repeated;
        return Kind::Repeated;
    }
    if (!_last) {
        _first = top;
        _firstArrivalUs = arrivalUs;
    } else if (top->number > _last->number) {
        _skipped += top->number - _last->number - 1;
    }
    _last = top;
    _lastArrivalUs = arrivalUs;
    _latenciesUs.push_back(static_cast<std::int64_t>(arrivalUs - top->timeUs));
    return Kind::Live;
}

double FrameTally::liveSeconds() const
{
    return static_cast<double>(_lastArrivalUs - _firstArrivalUs) / 1e6;
}

double FrameTally::fps() const
{
    const double seconds = liveSeconds();
    return seconds > 0 ? static_cast<double>(delivered() - 1) / seconds : 0.0;
}

double FrameTally::latencyMs(double part, std::size_t since) const
{
    if (since >= _latenciesUs.size()) {
        return 0.0;
    }
    std::vector<std::int64_t> sorted(_latenciesUs.begin() + static_cast<std::ptrdiff_t>(since),
                                     _latenciesUs.end());
    const auto rank = std::ceil(part * static_cast<double>(sorted.size())) - 1;
    const auto nth = sorted.begin() + std::max<std::ptrdiff_t>(0, std::llround(rank));
    std::nth_element(sorted.begin(), nth, sorted.end());
    return static_cast<double>(*nth) / 1000.0;
}

} // namespace lumivora::tools
