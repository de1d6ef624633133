// SPDX-License-Identifier: Apache-2.0
#include "vcam/capture/CaptureRules.h"

#include <algorithm>
#include <cstdlib>

namespace lumivora {

namespace {

constexpr double kMinSampleDistanceMs = 1000.0 / 60.0;
constexpr int kMaxSide = 16384;
constexpr qint64 kMaxPixels = qint64{8192} * 8192;

} // namespace

const CameraDevice *chooseDevice(const QList<CameraDevice> &devices, int index, const QString &name,
                                 const QString &altName)
{
    if (index < 0 || index >= devices.size()) {
        return nullptr;
    }
    if (!altName.isEmpty()) {
        const auto found =
            std::find_if(devices.begin(), devices.end(), [&altName](const CameraDevice &device) {
                return device.name.contains(altName);
            });
        return found != devices.end() ? &*found : nullptr;
    }
    const CameraDevice &device = devices[index];
    return device.name.contains(name) ? &device : nullptr;
}

qint64 formatScore(const QSize &offered, const QSize &wanted)
{
    const qint64 heights = std::abs(qint64{offered.height()} - wanted.height());
    const qint64 widths = std::abs(qint64{offered.width()} - wanted.width());
    return heights * widths;
}

qsizetype nearestFormat(const QList<QSize> &offered, const QSize &wanted)
{
    const auto nearest =
        std::min_element(offered.begin(), offered.end(), [&wanted](const QSize &a, const QSize &b) {
            return formatScore(a, wanted) < formatScore(b, wanted);
        });
    return nearest != offered.end() ? nearest - offered.begin() : -1;
}

bool isPlausibleSize(const QSize &size)
{
    return !size.isEmpty() && size.width() <= kMaxSide && size.height() <= kMaxSide &&
           qint64{size.width()} * size.height() <= kMaxPixels;
}

bool FrameRateCap::isDue(qint64 nowMs) const
{
    if (!_lastSampleMs) {
        return true;
    }
    const qint64 elapsedMs = nowMs - *_lastSampleMs;
    return elapsedMs < 0 || static_cast<double>(elapsedMs) >= kMinSampleDistanceMs;
}

} // namespace lumivora
