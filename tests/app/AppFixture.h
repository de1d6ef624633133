// SPDX-License-Identifier: Apache-2.0
// The application object without devices, for tests and for the processes that tests start.
#pragma once

#include "app/App.h"
#include "tests/vcam/FakeGrabber.h"
#include "vcam/VCam.h"

#include <QDeadlineTimer>
#include <QMessageBox>
#include <QPushButton>
#include <QStyleHints>
#include <QTimer>

#include <memory>

namespace lumivora::test {

/** What the application's parts were asked, and how they answer. Outlives the application. */
struct FakeParts
{
    std::shared_ptr<FakeCameras> cameras = std::make_shared<FakeCameras>();
    bool virtualCameraInstalled = true;
    int vcamStarts = 0;
    int vcamStops = 0;
    int vcamsAlive = 0;
    VCam *vcam = nullptr; // the last one made
    int windowsMade = 0;
    int windowsAlive = 0;
    int serviceChecks = 0;
    bool dark = false;   // the platform's look
    int startingFor = 0; // so many more questions are answered with "devices are starting"
};

/** Starts no camera; tells what it was asked. */
class FakeVCam : public VCam
{
public:
    FakeVCam(BaseSettings *settings, FakeParts &parts)
        : VCam(settings, {[&parts] { return std::make_unique<FakeGrabber>(parts.cameras); },
                          [] { return true; }, lumivora::systemClock()}),
          _parts(parts)
    {
        ++_parts.vcamsAlive;
        _parts.vcam = this;
    }
    ~FakeVCam() override { --_parts.vcamsAlive; }

    bool start() override
    {
        ++_parts.vcamStarts;
        if (!_parts.virtualCameraInstalled) {
            Q_EMIT onMessage(QStringLiteral("Not installed."));
        }
        return _parts.virtualCameraInstalled;
    }
    void stop() override { ++_parts.vcamStops; }

private:
    FakeParts &_parts;
};

class FakeWindow : public QWidget
{
public:
    explicit FakeWindow(FakeParts &parts) : _parts(parts)
    {
        ++_parts.windowsMade;
        ++_parts.windowsAlive;
    }
    ~FakeWindow() override { --_parts.windowsAlive; }

private:
    FakeParts &_parts;
};

/** Parts that touch nothing outside the process, with the real delays. */
inline App::Parts appPartsWith(FakeParts &fakes)
{
    App::Parts parts = App::Parts::real();
    parts.createVCam = [&fakes](BaseSettings *settings) {
        return std::make_unique<FakeVCam>(settings, fakes);
    };
    parts.createGrabber = [&fakes] {
        return std::make_unique<FakeGrabber>(fakes.cameras);
    };
    parts.createMainWindow = [&fakes](App &) {
        return std::make_unique<FakeWindow>(fakes);
    };
    parts.keepVirtualDevicesRunning = [&fakes](QObject *) {
        ++fakes.serviceChecks;
    };
    parts.areVirtualDevicesStarting = [&fakes] {
        return fakes.startingFor > 0 && fakes.startingFor-- > 0;
    };
    parts.isPlatformDark = [&fakes] {
        return fakes.dark;
    };
    return parts;
}

/** Switches the platform to light or dark and tells the application, as the platform does. */
inline void setPlatformDark(FakeParts &fakes, bool dark)
{
    fakes.dark = dark;
    Q_EMIT QApplication::styleHints()->colorSchemeChanged(dark ? Qt::ColorScheme::Dark
                                                               : Qt::ColorScheme::Light);
}

/** The message box on the screen; null when there is none. */
inline QMessageBox *shownBox()
{
    return qobject_cast<QMessageBox *>(QApplication::activeModalWidget());
}

/** Clicks that button of the next message box, from within its own event loop.
 *  @param text  receives what it says */
inline void clickNextBox(const QString &button, QString *text = nullptr)
{
    auto *timer = new QTimer(QCoreApplication::instance());
    QObject::connect(timer, &QTimer::timeout, timer, [timer, button, text] {
        QMessageBox *const box = shownBox();
        if (box == nullptr) {
            return;
        }
        timer->deleteLater();
        timer->stop();
        if (text != nullptr) {
            *text = box->text();
        }
        for (QAbstractButton *candidate : box->buttons()) {
            if (candidate->text() == button) {
                candidate->click();
            }
        }
    });
    timer->start(5);
}

/** Handles events until the condition holds; false when it does not within ten seconds. */
template <typename Condition>
[[nodiscard]] bool pumpUntil(const Condition &condition)
{
    const QDeadlineTimer deadline(10'000);
    while (!condition()) {
        if (deadline.hasExpired()) {
            return false;
        }
        QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
    }
    return true;
}

} // namespace lumivora::test
