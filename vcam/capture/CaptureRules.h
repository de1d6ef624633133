// SPDX-License-Identifier: Apache-2.0
// Which camera, which of its formats and how many of its samples are taken.
#pragma once

#include "vcam/capture/CameraGrabber.h"

#include <QSize>

#include <optional>

namespace lumivora {

/** The device to capture, or null. An index beyond the list chooses none, whatever the names are.
 *  @param index    into devices
 *  @param name     contained in the name of the device at index; not looked at with an altName
 *  @param altName  when not empty: the first device whose name contains it, wherever it is
 */
[[nodiscard]] const CameraDevice *chooseDevice(const QList<CameraDevice> &devices, int index,
                                               const QString &name, const QString &altName);

/** How far a format is from the wanted one; 0 is best. The product of the differences is
 * deliberate: a format that has the wanted width, or the wanted height, is as good as one that has
 * both. */
[[nodiscard]] qint64 formatScore(const QSize &offered, const QSize &wanted);

/** Index of the nearest format, the first of equal ones; -1 when there is none. */
[[nodiscard]] qsizetype nearestFormat(const QList<QSize> &offered, const QSize &wanted);

/** Whether an image of that size is worth having memory for; cameras have declared anything. */
[[nodiscard]] bool isPlausibleSize(const QSize &size);

/** Lets at most 60 samples a second through.
 *  @thread reentrant */
class FrameRateCap
{
public:
    /** Whether a sample that arrives now may be taken: always, when the clock was set back. */
    [[nodiscard]] bool isDue(qint64 nowMs) const;
    void taken(qint64 nowMs) { _lastSampleMs = nowMs; }

private:
    std::optional<qint64> _lastSampleMs;
};

} // namespace lumivora
