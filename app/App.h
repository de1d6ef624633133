// SPDX-License-Identifier: Apache-2.0
// The application object: start order, tray icon, window, shutdown.
#pragma once

#include "app/core/ApplicationInterface.h"
#include "app/core/BaseSettings.h"
#include "app/core/Clock.h"

#include <QApplication>
#include <QHash>
#include <QLockFile>
#include <QStringList>
#include <QSystemTrayIcon>

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>

class CameraGrabber;
class QAction;
class QMenu;
class VCam;

/** A tray application: one instance, brought up in timed stages.
 *
 *  constructed (tray visible, lock held) -> started (devices and window) -> shutting down. An
 *  instance that does not get the lock stays bare: no tray icon, no devices.
 *
 *  @thread thread-bound: the main thread
 */
class App : public QApplication, public lumivora::ApplicationInterface
{
    Q_OBJECT

public:
    /** What the application is made of; tests replace parts of it. */
    struct Parts
    {
        std::function<std::unique_ptr<VCam>(BaseSettings *)> createVCam;
        std::function<std::unique_ptr<CameraGrabber>()> createGrabber;
        std::function<std::unique_ptr<QWidget>(App &)> createMainWindow;
        /** Keeps the virtual devices alive while the context lives, where that is our business. */
        std::function<void(QObject *context)> keepVirtualDevicesRunning;
        /** Whether they were started so lately that they may not be listed yet. */
        std::function<bool()> areVirtualDevicesStarting;
        /** Whether the platform asks for a dark look; its change is told by the style hints. */
        std::function<bool()> isPlatformDark;
        lumivora::Clock clock = lumivora::systemClock();

        std::chrono::milliseconds startDelay{2500};  // construction to start()
        std::chrono::milliseconds updateDelay{1000}; // start() to the window's first showing

        [[nodiscard]] static Parts real();
    };

    App(int &argc, char **argv);
    App(int &argc, char **argv, Parts parts);
    ~App() override;

    /** Runs the application, or tells the user that it runs already. @return the exit code */
    int run();

    /** Second stage: the virtual camera, the window, launch at login. */
    void start();
    void setLaunchAtLogin(bool enabled);
    /** Replaces the window by a new one of the same visibility, so that every style is rebuilt. */
    void recreateMainWindow();
    void updateAppIcon();
    void showMainWindow();
    /** Shows a modal box; every line break in the text becomes "<br>".
     *  @param secondButton  empty: there is none
     *  @return whether the first button was clicked */
    bool showMessage(const QString &text, const QString &firstButton, const QString &secondButton,
                     const QString &title);
    /** Ends the application; runs once, whatever triggers it. */
    void shutdown();

    [[nodiscard]] bool isLocked() const { return _locked; }
    [[nodiscard]] bool isQuitting() const { return _quitting; }
    [[nodiscard]] QWidget *mainWindow() const { return _mainWindow.get(); }
    [[nodiscard]] QSystemTrayIcon *trayIcon() const { return _trayIcon.get(); }
    /** The tray menu's entry of that text; null when there is none. */
    [[nodiscard]] QAction *menuAction(const QString &text) const { return _actions.value(text); }
    [[nodiscard]] QMenu *trayMenu() const { return _trayMenu.get(); }

    [[nodiscard]] bool isDarkTheme() const override { return _darkTheme; }
    [[nodiscard]] CameraGrabber *cameraGrabber() const override { return _cameraGrabber.get(); }
    [[nodiscard]] bool isCameraRunning() const override;
    [[nodiscard]] bool areClientsConnected() const override;
    void requestShutdown() override;

    bool notify(QObject *receiver, QEvent *event) override;

    /** The version as the user sees it, such as "v0.25.5". */
    [[nodiscard]] static QString versionText();

Q_SIGNALS:
    /** The platform went from light to dark or back. */
    void appearenceChanged();

private:
    void startup();
    void buildTray();
    void onColorSchemeChanged();
    void onControllerMessage(const QString &message);
    /** Shuts down as soon as no controller's message is on the screen. */
    void shutdownOnceRead();
    void onTrayActivated(QSystemTrayIcon::ActivationReason reason);

    Parts _parts;
    BaseSettings _settings;
    QHash<QString, QAction *> _actions;
    std::unique_ptr<QMenu> _trayMenu;
    std::unique_ptr<QSystemTrayIcon> _trayIcon;
    std::unique_ptr<CameraGrabber> _cameraGrabber; // not the one that feeds the virtual camera
    std::unique_ptr<VCam> _vcam;
    std::unique_ptr<QWidget> _mainWindow;
    QLockFile _lockFile;
    QStringList _shownMessages;          // controllers' messages on the screen now
    std::atomic<qint64> _lastFrameMs{0}; // when a frame last reached the virtual camera
    bool _locked = false;
    bool _quitting = false;
    bool _darkTheme = false;
    bool _shutdownWhenRead = false;
};
