// SPDX-License-Identifier: Apache-2.0
// Wall-clock time that a test can replace.
#pragma once

#include <QDateTime>

#include <functional>

namespace lumivora {

/** Milliseconds since the epoch. Injected wherever a rule has a duration in it, so that tests set
 *  the time instead of sleeping. */
using Clock = std::function<qint64()>;

/** The wall clock. @thread thread-safe */
inline Clock systemClock()
{
    return &QDateTime::currentMSecsSinceEpoch;
}

} // namespace lumivora
