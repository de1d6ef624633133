// SPDX-License-Identifier: Apache-2.0
#include "app/App.h"

#include "app/AutoStart.h"
#include "app/TerminationSignals.h"
#include "app/VirtualDevices.h"
#include "gui/MainWidget.h"
#include "vcam/VCam.h"
#include "vcam/capture/CameraGrabber.h"

#include <QAction>
#include <QDir>
#include <QLoggingCategory>
#include <QMenu>
#include <QMessageBox>
#include <QPushButton>
#include <QStyleHints>
#include <QTimer>
#include <QWidget>

#include <utility>

namespace {

Q_LOGGING_CATEGORY(lcApp, "lumivora.app")

using namespace std::chrono_literals;

const QLatin1StringView kProductName("Lumivora Control");
constexpr auto kLockWait = 100ms;
constexpr auto kFirstShowDelay = 300ms;
constexpr auto kFailedStartDelay = 1ms;
constexpr auto kStartRetryDelay = 500ms;
constexpr qint64 kFrameFreshMs = 2000;

/** The framework's own output, whatever a library may have installed before. */
void passOn(QtMsgType type, const QMessageLogContext &context, const QString &message)
{
    static const QtMessageHandler defaultOutput = [] {
        const QtMessageHandler mine = qInstallMessageHandler(nullptr);
        const QtMessageHandler output = qInstallMessageHandler(mine);
        return output;
    }();
    defaultOutput(type, context, message);
}

} // namespace

App::Parts App::Parts::real()
{
    Parts parts;
    parts.createVCam = [](BaseSettings *settings) {
        return std::make_unique<VCam>(settings);
    };
    parts.createGrabber = [] {
        return std::make_unique<CameraGrabber>();
    };
    parts.createMainWindow = [](App &app) {
        return std::make_unique<MainWidget>(app);
    };
    parts.keepVirtualDevicesRunning = &lumivora::keepVirtualDevicesRunning;
    parts.areVirtualDevicesStarting = &lumivora::areVirtualDevicesStarting;
    parts.isPlatformDark = [] {
        return styleHints()->colorScheme() == Qt::ColorScheme::Dark;
    };
    return parts;
}

App::App(int &argc, char **argv) : App(argc, argv, Parts::real()) {}

App::App(int &argc, char **argv, Parts parts)
    : QApplication(argc, argv), _parts(std::move(parts)),
      _settings(QStringLiteral("Orvane"), QStringLiteral("LumivoraControl")),
      _lockFile(QDir::temp().filePath(QStringLiteral("%1.lock").arg(QStringLiteral("Lumivora"))))
{
    startup();
}

App::~App()
{
    // Windows and devices go while the application object they rely on is still whole.
    shutdown();
}

QString App::versionText()
{
    return QStringLiteral("v%1.%2.%3")
        .arg(LUMIVORA_VERSION_MAJOR)
        .arg(LUMIVORA_VERSION_MINOR)
        .arg(LUMIVORA_VERSION_PATCH);
}

void App::startup()
{
    qCDebug(lcApp) << "Settings at" << _settings.fileName();
    _settings.sync();
    setQuitOnLastWindowClosed(false);
    setApplicationDisplayName(kProductName);
    setApplicationName(kProductName);
    setApplicationVersion(versionText());
    _darkTheme = _parts.isPlatformDark();

    _locked = _lockFile.tryLock(kLockWait);
    if (!_locked) {
        return;
    }
    qInstallMessageHandler(&passOn);
    connect(styleHints(), &QStyleHints::colorSchemeChanged, this, &App::onColorSchemeChanged);
    _parts.keepVirtualDevicesRunning(this);
    QTimer::singleShot(_parts.startDelay, this, &App::start);
    buildTray();
    connect(this, &QCoreApplication::aboutToQuit, this, &App::shutdown);
}

int App::run()
{
    if (_quitting) {
        return 0;
    }
    if (!_locked) {
        showMessage(tr("The application is already running.\n"
                       "you are allowed to run only one instance of the application."),
                    tr("Ok"), QString(), QString());
        return 1;
    }
    const lumivora::TerminationSignals signalWatch([this] { shutdown(); });
    QTimer::singleShot(kFirstShowDelay, this, &App::showMainWindow);
    return exec();
}

void App::buildTray()
{
    _trayMenu = std::make_unique<QMenu>(kProductName);
    const auto addEntry = [this](const QString &text, void (App::*slot)()) {
        QAction *action = _trayMenu->addAction(text);
        connect(action, &QAction::triggered, this, slot);
        _actions.insert(text, action);
    };
    addEntry(tr("Open"), &App::showMainWindow);
    addEntry(tr("Quit"), &App::shutdown);
    _trayMenu->addSeparator();
    _trayMenu
        ->addAction(QStringLiteral("%1 %2%3").arg(kProductName, versionText(),
                                                  QStringLiteral(" - Public Beta")))
        ->setEnabled(false);

    _trayIcon = std::make_unique<QSystemTrayIcon>();
    updateAppIcon();
    _trayIcon->setToolTip(kProductName);
    _trayIcon->setContextMenu(_trayMenu.get());
    _trayIcon->setVisible(true);
    connect(_trayIcon.get(), &QSystemTrayIcon::activated, this, &App::onTrayActivated);
}

void App::start()
{
    if (_quitting) {
        return;
    }
    if (!_vcam) {
        _vcam = _parts.createVCam(&_settings);
        connect(_vcam.get(), &VCam::onMessage, this, &App::onControllerMessage,
                Qt::QueuedConnection);
        connect(
            _vcam.get(), &VCam::onNewFrameAvailable, this,
            [this] { _lastFrameMs = _parts.clock(); }, Qt::DirectConnection);
    }
    if (_parts.areVirtualDevicesStarting()) {
        // Devices that this application has just started itself are not missing, only late.
        QTimer::singleShot(kStartRetryDelay, this, &App::start);
        return;
    }
    if (!_vcam->start()) {
        QTimer::singleShot(kFailedStartDelay, this, &App::shutdownOnceRead);
        return;
    }
    connect(this, &App::appearenceChanged, this, [this] {
        _darkTheme = _parts.isPlatformDark();
        recreateMainWindow();
    });
    _cameraGrabber = _parts.createGrabber();
    recreateMainWindow();
    setLaunchAtLogin(
        _settings
            .getSubSetting(BaseSettings::Settings::General, BaseSettings::SubSettings::StartAtLogin)
            .toBool());
    QTimer::singleShot(_parts.updateDelay, this, &App::showMainWindow);
}

void App::setLaunchAtLogin(bool enabled)
{
    if (enabled) {
        lumivora::addToLogin(QDir::toNativeSeparators(applicationFilePath()));
        qCDebug(lcApp).noquote() << "Application set to launch at startup.";
    } else {
        lumivora::removeFromLogin();
        qCDebug(lcApp).noquote() << "Application removed from startup.";
    }
}

void App::recreateMainWindow()
{
    qCDebug(lcApp).noquote() << "recreating main window";
    const bool wasVisible = _mainWindow && _mainWindow->isVisible();
    std::unique_ptr<QWidget> old = std::exchange(_mainWindow, _parts.createMainWindow(*this));
    if (old) {
        // Before the new one is shown: both preview through the one grabber, and what the old one
        // lets go of must not be what the new one has opened.
        old->close();
        old.reset();
    }
    _mainWindow->setWindowIcon(windowIcon());
    _mainWindow->setVisible(wasVisible);
}

void App::updateAppIcon()
{
    const QIcon icon(_darkTheme ? QStringLiteral(":/assets/app_dark.png")
                                : QStringLiteral(":/assets/app.png"));
    setWindowIcon(icon);
    if (_trayIcon) {
        _trayIcon->setIcon(icon);
    }
}

void App::showMainWindow()
{
    if (!_mainWindow) {
        return;
    }
    _mainWindow->show();
    _mainWindow->raise();
    _mainWindow->activateWindow();
}

bool App::showMessage(const QString &text, const QString &firstButton, const QString &secondButton,
                      const QString &title)
{
    QMessageBox box;
    box.setTextFormat(Qt::RichText);
    box.setWindowTitle(title);
    box.setText(QString(text).replace(QLatin1Char('\n'), QLatin1StringView("<br>")));
    const QPushButton *first = box.addButton(firstButton, QMessageBox::AcceptRole);
    if (!secondButton.isEmpty()) {
        box.addButton(secondButton, QMessageBox::RejectRole);
    }
    box.exec();
    return box.clickedButton() == first;
}

void App::shutdown()
{
    _mainWindow.reset();
    if (_cameraGrabber) {
        _cameraGrabber->stopCamera();
        _cameraGrabber.reset();
    }
    if (_vcam) {
        _vcam->stop();
        _vcam.reset();
    }
    if (_trayIcon) {
        _trayIcon->hide();
    }
    if (!std::exchange(_quitting, true)) {
        quit();
    }
}

bool App::isCameraRunning() const
{
    // Not by asking the controller, which would wait for a camera that is being opened.
    return _vcam && _parts.clock() - _lastFrameMs < kFrameFreshMs;
}

bool App::areClientsConnected() const
{
    return _vcam && _vcam->areClientsConnected();
}

void App::requestShutdown()
{
    QMetaObject::invokeMethod(this, &App::shutdown, Qt::QueuedConnection);
}

bool App::notify(QObject *receiver, QEvent *event)
{
    // The window behaves like a tray pop-up: it goes when another application is chosen.
    if (event->type() == QEvent::ApplicationDeactivate && _mainWindow) {
        _mainWindow->hide();
    }
    return QApplication::notify(receiver, event);
}

void App::onColorSchemeChanged()
{
    const bool dark = _parts.isPlatformDark();
    if (dark == _darkTheme) {
        return;
    }
    _darkTheme = dark;
    updateAppIcon();
    Q_EMIT appearenceChanged();
}

void App::onControllerMessage(const QString &message)
{
    // The watchdog retries every two seconds and may say the same again before anyone has read it.
    if (_shownMessages.contains(message)) {
        return;
    }
    _shownMessages.append(message);
    showMessage(message, tr("Ok"), QString(), QString());
    _shownMessages.removeOne(message);
    if (_shutdownWhenRead && _shownMessages.isEmpty()) {
        shutdown();
    }
}

void App::shutdownOnceRead()
{
    // Quitting would take the box that says why from under the user's eyes.
    _shutdownWhenRead = !_shownMessages.isEmpty();
    if (!_shutdownWhenRead) {
        shutdown();
    }
}

void App::onTrayActivated(QSystemTrayIcon::ActivationReason reason)
{
    if (reason != QSystemTrayIcon::Trigger || !_mainWindow) {
        return;
    }
    if (_mainWindow->isVisible()) {
        _mainWindow->hide();
    } else {
        showMainWindow();
    }
}
