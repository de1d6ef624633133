// SPDX-License-Identifier: Apache-2.0
// Paints the live preview.
#pragma once

#include <QImage>
#include <QString>
#include <QWidget>

/** A rounded frame that shows the newest picture, scaled to fill, or a line of text while there is
 *  none. @thread thread-bound: the interface thread */
class RenderFrame : public QWidget
{
    Q_OBJECT

public:
    explicit RenderFrame(QWidget *parent = nullptr);

    /** Shows a picture; a null one brings the text back. */
    void setImage(const QImage &image);
    /** What is shown while there is no picture. */
    void setText(const QString &text);

    [[nodiscard]] const QImage &image() const { return _image; }

protected:
    void paintEvent(QPaintEvent *event) override;

private:
    QImage _image; // already of the widget's size in device pixels
    QString _text;
};
