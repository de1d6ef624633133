// SPDX-License-Identifier: Apache-2.0
// What the virtual camera shows while no picture comes.
#include "virtual_devices/Placeholder.h"

#include "virtual_devices/FrameSource.h"

#include <QColor>
#include <QPainter>

#include <array>
#include <cmath>
#include <numbers>
#include <utility>

namespace lumivora {

namespace {

constexpr double kWavePeriodMs = 1500;
constexpr double kRadius = 8;
constexpr std::array<QPoint, 3> kDots = {QPoint(608, 580), QPoint(640, 580), QPoint(672, 580)};
constexpr QRect kDotArea(590, 570, 100, 20);
constexpr QRgb kDim = qRgb(44, 58, 98);
constexpr QRgb kBright = qRgb(127, 227, 255);

QColor mixed(QRgb from, QRgb to, double part)
{
    const auto mix = [part](int a, int b) {
        return a + static_cast<int>((b - a) * part);
    };
    return {mix(qRed(from), qRed(to)), mix(qGreen(from), qGreen(to)), mix(qBlue(from), qBlue(to))};
}

} // namespace

Placeholder::Placeholder(MonotonicClock clock)
    : _clock(std::move(clock)),
      _still(
          QImage(QStringLiteral(":/devices/placeholder.png")).convertToFormat(QImage::Format_RGB32))
{
    if (_still.size() != QSize(kCameraWidth, kCameraHeight)) {
        _still = QImage(kCameraWidth, kCameraHeight, QImage::Format_RGB32);
        _still.fill(Qt::black);
    }
    _picture = _still;
}

std::span<const std::byte> Placeholder::draw()
{
    QPainter painter(&_picture);
    painter.drawImage(kDotArea.topLeft(), _still, kDotArea);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(Qt::NoPen);
    const double wave = static_cast<double>(_clock().count()) / kWavePeriodMs;
    for (std::size_t i = 0; i < kDots.size(); ++i) {
        const double turn = 2 * std::numbers::pi * (wave - static_cast<double>(i) / 6);
        painter.setBrush(mixed(kDim, kBright, 0.5 + 0.5 * std::sin(turn)));
        painter.drawEllipse(QPointF(kDots[i]), kRadius, kRadius);
    }
    painter.end();
    return {reinterpret_cast<const std::byte *>(_picture.constBits()),
            static_cast<std::size_t>(_picture.sizeInBytes())};
}

} // namespace lumivora
