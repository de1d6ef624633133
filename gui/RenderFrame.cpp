// SPDX-License-Identifier: Apache-2.0
#include "gui/RenderFrame.h"

#include <QPainter>
#include <QPainterPath>

namespace {

constexpr qreal kCornerRadius = 8.0;
const QColor kEmptyColour(24, 26, 31); // a dark screen, in either theme
const QColor kTextColour(168, 176, 190);

} // namespace

RenderFrame::RenderFrame(QWidget *parent) : QWidget(parent)
{
    setObjectName(QStringLiteral("RenderFrame"));
    setAccessibleName(tr("Camera preview"));
}

void RenderFrame::setImage(const QImage &image)
{
    if (image.isNull()) {
        _image = QImage();
    } else {
        const QSize size = this->size() * devicePixelRatioF();
        _image = image.scaled(size, Qt::KeepAspectRatioByExpanding, Qt::SmoothTransformation);
        _image.setDevicePixelRatio(devicePixelRatioF());
    }
    update();
}

void RenderFrame::setText(const QString &text)
{
    _text = text;
    update();
}

void RenderFrame::paintEvent(QPaintEvent * /*event*/)
{
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    QPainterPath outline;
    outline.addRoundedRect(rect(), kCornerRadius, kCornerRadius);
    if (_image.isNull()) {
        painter.fillPath(outline, kEmptyColour);
        painter.setPen(kTextColour);
        painter.drawText(rect(), Qt::AlignCenter | Qt::TextWordWrap, _text);
        return;
    }
    painter.setClipPath(outline);
    const QSizeF shown = _image.deviceIndependentSize();
    painter.drawImage(QPointF((width() - shown.width()) / 2, (height() - shown.height()) / 2),
                      _image);
}
