// SPDX-License-Identifier: Apache-2.0
// The application's one window.
#pragma once

#include <QPixmap>
#include <QWidget>

class PreviewCapture;
class QLabel;
class QPushButton;
class RenderFrame;

namespace lumivora {
class ApplicationInterface;
}

/** A frameless, translucent panel that the tray icon opens: the live preview, a line that says what
 *  the camera does, and a footer.
 *
 *  The preview opens the virtual camera only while the window is visible, so that an unseen window
 *  never keeps the camera running.
 *
 *  @thread thread-bound: the interface thread
 */
class MainWidget : public QWidget
{
    Q_OBJECT

public:
    explicit MainWidget(lumivora::ApplicationInterface &application, QWidget *parent = nullptr);
    ~MainWidget() override;

    [[nodiscard]] RenderFrame &preview() const { return *_preview; }
    [[nodiscard]] QString statusText() const;
    /** Null while the application has no grabber yet. */
    [[nodiscard]] PreviewCapture *previewCapture() const { return _capture; }

    /** Asks the application anew and updates the status line; a timer of the window calls it. */
    void updateStatus();

protected:
    void showEvent(QShowEvent *event) override;
    void hideEvent(QHideEvent *event) override;
    void paintEvent(QPaintEvent *event) override;

private:
    void buildPanel();
    void placeOnScreen();
    [[nodiscard]] QPixmap renderShadow() const;

    lumivora::ApplicationInterface &_application;
    RenderFrame *_preview = nullptr;
    QLabel *_status = nullptr;
    QPushButton *_quit = nullptr;
    PreviewCapture *_capture = nullptr;
    QPixmap _shadow; // of the window's size
};
