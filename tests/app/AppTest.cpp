// SPDX-License-Identifier: Apache-2.0
// The application object: what stands when, one instance, theme, tray, messages and the way out.
#include "app/AutoStart.h"
#include "tests/app/AppFixture.h"
#include "tests/support/LogCapture.h"
#include "tests/support/TemporaryRuntime.h"

#include <QAction>
#include <QDir>
#include <QMenu>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QTemporaryDir>

#include <gmock/gmock.h>

#include <array>
#include <optional>

namespace {

using lumivora::test::appPartsWith;
using lumivora::test::clickNextBox;
using lumivora::test::FakeParts;
using lumivora::test::LogCapture;
using lumivora::test::pumpUntil;
using lumivora::test::setPlatformDark;
using lumivora::test::shownBox;
using lumivora::test::TemporaryRuntime;

using namespace std::chrono_literals;

class AppTest : public ::testing::Test
{
protected:
    AppTest()
    {
        // The lock file and the settings of this test alone.
        for (const char *name : kTemporaryFolderNames) {
            previous.append(qgetenv(name));
            qputenv(name, QDir::toNativeSeparators(folder.path()).toLocal8Bit());
        }
        QSettings::setPath(QSettings::NativeFormat, QSettings::UserScope, folder.path());
        QSettings(QStringLiteral("Orvane"), QStringLiteral("LumivoraControl")).clear();
        VCam::forgetVirtualCamera();
    }

    ~AppTest() override
    {
        app.reset();
        lumivora::removeFromLogin();
        for (const char *name : kTemporaryFolderNames) {
            qputenv(name, previous.takeFirst());
        }
    }

    /** Makes the application; it starts as soon as events are handled, unless told otherwise. */
    App &make(std::chrono::milliseconds startDelay = 0ms)
    {
        App::Parts parts = appPartsWith(fakes);
        parts.startDelay = startDelay;
        parts.updateDelay = 0ms;
        parts.clock = [this] {
            return nowMs;
        };
        app = std::make_unique<App>(argc, argv.data(), std::move(parts));
        return *app;
    }

    /** Makes the application and waits until its window is there and shown. */
    App &makeStarted()
    {
        App &made = make();
        EXPECT_TRUE(pumpUntil(
            [&made] { return made.mainWindow() != nullptr && made.mainWindow()->isVisible(); }));
        return made;
    }

    static void store(BaseSettings::SubSettings key, const QVariant &value)
    {
        BaseSettings(QStringLiteral("Orvane"), QStringLiteral("LumivoraControl"))
            .setSubSetting(BaseSettings::Settings::General, key, value);
    }

    static constexpr std::array kTemporaryFolderNames{"TMPDIR", "TMP", "TEMP"};

    QTemporaryDir folder;
    QByteArrayList previous; // an empty value counts as none
    TemporaryRuntime runtime;
    qint64 nowMs = 1'000'000;
    FakeParts fakes;
    int argc = 1;
    std::string program = "lumivora-control";
    std::array<char *, 2> argv{program.data(), nullptr};
    std::unique_ptr<App> app;
};

TEST_F(AppTest, delays_ofTheRealParts_areTwoAndAHalfSecondsAndOne)
{
    const App::Parts parts = App::Parts::real();
    EXPECT_EQ(parts.startDelay, 2500ms);
    EXPECT_EQ(parts.updateDelay, 1000ms);
}

TEST_F(AppTest, construction_logsTheSettingsFileFirst)
{
    const LogCapture log;
    make();
    ASSERT_FALSE(log.lines().isEmpty());
    EXPECT_THAT(log.lines().first().toStdString(), ::testing::StartsWith("Settings at"));
    EXPECT_THAT(log.lines().first().toStdString(), ::testing::HasSubstr("LumivoraControl"));
}

TEST_F(AppTest, construction_setsNamesLocksAndShowsTheTrayButNothingElse)
{
    const App &made = make(1h);
    QCoreApplication::processEvents();
    EXPECT_EQ(QApplication::applicationDisplayName(), QStringLiteral("Lumivora Control"));
    EXPECT_EQ(QCoreApplication::applicationName(), QStringLiteral("Lumivora Control"));
    EXPECT_EQ(QCoreApplication::applicationVersion(), QStringLiteral("v0.25.5"));
    EXPECT_FALSE(QApplication::quitOnLastWindowClosed());
    EXPECT_TRUE(made.isLocked());
    EXPECT_FALSE(made.isQuitting());
    EXPECT_TRUE(QFile::exists(folder.filePath(QStringLiteral("Lumivora.lock"))));
    ASSERT_NE(made.trayIcon(), nullptr);
    EXPECT_TRUE(made.trayIcon()->isVisible());
    EXPECT_EQ(made.mainWindow(), nullptr);
    EXPECT_EQ(made.cameraGrabber(), nullptr);
    EXPECT_EQ(fakes.vcamStarts, 0);
    EXPECT_EQ(fakes.serviceChecks, 1);
}

TEST_F(AppTest, trayMenu_hasOpenQuitAndTheVersion)
{
    const App &made = make(1h);
    const QMenu *menu = made.trayMenu();
    ASSERT_NE(menu, nullptr);
    EXPECT_EQ(menu->title(), QStringLiteral("Lumivora Control"));
    QStringList entries;
    for (const QAction *action : menu->actions()) {
        entries.append(action->isSeparator() ? QStringLiteral("-") : action->text());
    }
    EXPECT_EQ(entries,
              (QStringList{QStringLiteral("Open"), QStringLiteral("Quit"), QStringLiteral("-"),
                           QStringLiteral("Lumivora Control v0.25.5 - Public Beta")}));
    EXPECT_EQ(made.menuAction(QStringLiteral("Open")), menu->actions().at(0));
    EXPECT_EQ(made.menuAction(QStringLiteral("Quit")), menu->actions().at(1));
}

TEST_F(AppTest, lock_heldByAnother_leavesABareApplication)
{
    QLockFile other(folder.filePath(QStringLiteral("Lumivora.lock")));
    ASSERT_TRUE(other.tryLock());
    const App &made = make();
    EXPECT_FALSE(made.isLocked());
    EXPECT_EQ(made.trayIcon(), nullptr);
    EXPECT_EQ(made.trayMenu(), nullptr);
    QCoreApplication::processEvents();
    EXPECT_EQ(fakes.vcamStarts, 0);
    EXPECT_EQ(fakes.serviceChecks, 0);
}

TEST_F(AppTest, run_withTheLockHeldByAnother_saysSoAndReturnsOne)
{
    QLockFile other(folder.filePath(QStringLiteral("Lumivora.lock")));
    ASSERT_TRUE(other.tryLock());
    App &made = make();
    QString text;
    clickNextBox(QStringLiteral("Ok"), &text);
    EXPECT_EQ(made.run(), 1);
    EXPECT_EQ(text, QStringLiteral("The application is already running.<br>you are allowed to run "
                                   "only one instance of the application."));
}

TEST_F(AppTest, run_afterAShutdown_returnsZeroAtOnce)
{
    App &made = make();
    made.shutdown();
    EXPECT_EQ(made.run(), 0);
}

TEST_F(AppTest, lock_isReleased_whenTheApplicationGoes)
{
    make();
    app.reset();
    QLockFile other(folder.filePath(QStringLiteral("Lumivora.lock")));
    EXPECT_TRUE(other.tryLock());
}

TEST_F(AppTest, start_withAVirtualCamera_bringsUpTheDevicesAndTheWindow)
{
    const App &made = makeStarted();
    EXPECT_EQ(fakes.vcamStarts, 1);
    EXPECT_EQ(fakes.windowsMade, 1);
    EXPECT_NE(made.cameraGrabber(), nullptr);
}

TEST_F(AppTest, start_whileTheDevicesAreStartingThemselves_waitsForThem)
{
    fakes.startingFor = 1;
    makeStarted();
    EXPECT_EQ(fakes.startingFor, 0);
    EXPECT_EQ(fakes.vcamStarts, 1);
    EXPECT_EQ(fakes.vcamsAlive, 1);
}

TEST_F(AppTest, start_withoutAVirtualCamera_showsTheMessageAndShutsDown)
{
    fakes.virtualCameraInstalled = false;
    App &made = make();
    QString text;
    clickNextBox(QStringLiteral("Ok"), &text);
    EXPECT_EQ(made.run(), 0);
    EXPECT_EQ(text, QStringLiteral("Not installed."));
    EXPECT_TRUE(made.isQuitting());
    EXPECT_EQ(fakes.windowsMade, 0);
    EXPECT_EQ(fakes.vcamsAlive, 0);
}

TEST_F(AppTest, message_ofAController_isShownOnceAtATimeAndStopsNothing)
{
    const App &made = makeStarted();
    Q_EMIT fakes.vcam->onMessage(QStringLiteral("one<br>two"));
    Q_EMIT fakes.vcam->onMessage(QStringLiteral("one<br>two"));
    QString text;
    clickNextBox(QStringLiteral("Ok"), &text);
    ASSERT_TRUE(pumpUntil([&text] { return !text.isEmpty(); }));
    QCoreApplication::processEvents();
    EXPECT_EQ(text, QStringLiteral("one<br>two"));
    EXPECT_EQ(shownBox(), nullptr);
    EXPECT_FALSE(made.isQuitting());
}

TEST_F(AppTest, showMessage_tellsWhetherTheFirstButtonWasClicked)
{
    App &made = make(1h);
    QString text;
    clickNextBox(QStringLiteral("Yes"), &text);
    EXPECT_TRUE(made.showMessage(QStringLiteral("a\nb\nc"), QStringLiteral("Yes"),
                                 QStringLiteral("No"), QString()));
    EXPECT_EQ(text, QStringLiteral("a<br>b<br>c"));
    clickNextBox(QStringLiteral("No"));
    EXPECT_FALSE(made.showMessage(QStringLiteral("a"), QStringLiteral("Yes"), QStringLiteral("No"),
                                  QString()));
}

TEST_F(AppTest, theme_changed_recreatesTheWindowOncePerChangeAndSwapsTheIcon)
{
    App &made = makeStarted();
    const QSignalSpy changes(&made, &App::appearenceChanged);
    const auto pictureOf = [](const QIcon &icon) {
        return icon.pixmap(64, 64).toImage();
    };
    for (const bool visible : {true, false}) {
        made.mainWindow()->setVisible(visible);
        for (const bool dark : {true, false}) {
            const int before = fakes.windowsMade;
            setPlatformDark(fakes, dark);
            setPlatformDark(fakes, dark); // told twice: no change
            ASSERT_EQ(made.isDarkTheme(), dark);
            EXPECT_EQ(fakes.windowsMade, before + 1);
            EXPECT_EQ(fakes.windowsAlive, 1);
            EXPECT_EQ(made.mainWindow()->isVisible(), visible);
            const QIcon expected(dark ? QStringLiteral(":/assets/app_dark.png")
                                      : QStringLiteral(":/assets/app.png"));
            EXPECT_EQ(pictureOf(made.trayIcon()->icon()), pictureOf(expected));
            EXPECT_EQ(pictureOf(QApplication::windowIcon()), pictureOf(expected));
        }
    }
    EXPECT_EQ(changes.count(), 4);
}

TEST_F(AppTest, theme_darkFromTheBeginning_isTakenOver)
{
    fakes.dark = true;
    const App &made = make(1h);
    EXPECT_TRUE(made.isDarkTheme());
    EXPECT_FALSE(made.trayIcon()->icon().isNull());
}

TEST_F(AppTest, theme_changedBeforeTheStart_onlySwapsTheIcon)
{
    App &made = make(1h);
    setPlatformDark(fakes, true);
    EXPECT_TRUE(made.isDarkTheme());
    EXPECT_EQ(fakes.windowsMade, 0);
}

TEST_F(AppTest, startAtLogin_byDefaultAndWhenSet_isAppliedOnEveryStart)
{
    const QString added = QStringLiteral("Application set to launch at startup.");
    const QString removed = QStringLiteral("Application removed from startup.");
    const auto logOfAStart = [this] {
        make(1h);
        const LogCapture log;
        app->start();
        app.reset();
        return log.lines().filter(QRegularExpression(QStringLiteral("startup\\.$")));
    };
    EXPECT_EQ(logOfAStart(), QStringList{added});
    store(BaseSettings::SubSettings::StartAtLogin, false);
    EXPECT_EQ(logOfAStart(), QStringList{removed});
    EXPECT_EQ(logOfAStart(), QStringList{removed});
    store(BaseSettings::SubSettings::StartAtLogin, true);
    EXPECT_EQ(logOfAStart(), QStringList{added});
}

TEST_F(AppTest, recreateMainWindow_logsIt)
{
    App &made = makeStarted();
    const LogCapture log;
    made.recreateMainWindow();
    EXPECT_EQ(log.count(QStringLiteral("recreating main window")), 1);
}

TEST_F(AppTest, deactivation_hidesTheWindowBeforeOthersHearOfIt)
{
    struct Watcher : QObject
    {
        explicit Watcher(App &watched) : app(watched) { app.installEventFilter(this); }
        bool eventFilter(QObject * /*object*/, QEvent *event) override
        {
            if (event->type() == QEvent::ApplicationDeactivate) {
                visibleThen = app.mainWindow()->isVisible();
            }
            return false;
        }
        App &app;
        std::optional<bool> visibleThen;
    };
    App &made = makeStarted();
    const Watcher watcher(made);
    QEvent deactivation(QEvent::ApplicationDeactivate);
    QCoreApplication::sendEvent(&made, &deactivation);
    EXPECT_FALSE(made.mainWindow()->isVisible());
    EXPECT_EQ(watcher.visibleThen, false);
}

TEST_F(AppTest, trayIcon_plainClick_togglesTheWindowAndNothingElseDoes)
{
    App &made = makeStarted();
    const auto activate = [&made](QSystemTrayIcon::ActivationReason reason) {
        Q_EMIT made.trayIcon()->activated(reason);
        return made.mainWindow()->isVisible();
    };
    EXPECT_FALSE(activate(QSystemTrayIcon::Trigger));
    for (const auto reason : {QSystemTrayIcon::Context, QSystemTrayIcon::DoubleClick,
                              QSystemTrayIcon::MiddleClick, QSystemTrayIcon::Unknown}) {
        EXPECT_FALSE(activate(reason));
    }
    EXPECT_TRUE(activate(QSystemTrayIcon::Trigger));
    for (const auto reason : {QSystemTrayIcon::Context, QSystemTrayIcon::DoubleClick,
                              QSystemTrayIcon::MiddleClick, QSystemTrayIcon::Unknown}) {
        EXPECT_TRUE(activate(reason));
    }
}

TEST_F(AppTest, trayIcon_clickedBeforeTheStart_isHarmless)
{
    const App &made = make(1h);
    Q_EMIT made.trayIcon()->activated(QSystemTrayIcon::Trigger);
    made.menuAction(QStringLiteral("Open"))->trigger();
    EXPECT_EQ(made.mainWindow(), nullptr);
}

TEST_F(AppTest, open_ofTheMenu_showsTheWindow)
{
    const App &made = makeStarted();
    made.mainWindow()->hide();
    made.menuAction(QStringLiteral("Open"))->trigger();
    EXPECT_TRUE(made.mainWindow()->isVisible());
}

TEST_F(AppTest, quit_chosenTwice_shutsDownOnce)
{
    App &made = make();
    const QSignalSpy ends(&made, &QCoreApplication::aboutToQuit);
    QTimer::singleShot(0, &made, [this, &made] {
        ASSERT_TRUE(pumpUntil([&made] { return made.mainWindow() != nullptr; }));
        made.menuAction(QStringLiteral("Quit"))->trigger();
        made.menuAction(QStringLiteral("Quit"))->trigger();
        EXPECT_EQ(fakes.vcamStops, 1);
    });
    EXPECT_EQ(made.run(), 0);
    EXPECT_EQ(ends.count(), 1);
    EXPECT_TRUE(made.isQuitting());
    EXPECT_EQ(fakes.vcamStops, 1);
    EXPECT_EQ(fakes.vcamsAlive, 0);
    EXPECT_EQ(fakes.windowsAlive, 0);
    EXPECT_EQ(fakes.cameras->stops, 1);
    EXPECT_EQ(fakes.cameras->alive, 0);
    EXPECT_FALSE(made.trayIcon()->isVisible());
}

TEST_F(AppTest, quit_duringTheStartDelay_startsNothingAnyMore)
{
    App &made = make(20ms);
    made.menuAction(QStringLiteral("Quit"))->trigger();
    // Beyond the moment at which it would have started.
    bool later = false;
    QTimer::singleShot(60, &made, [&later] { later = true; });
    ASSERT_TRUE(pumpUntil([&later] { return later; }));
    EXPECT_TRUE(made.isQuitting());
    EXPECT_EQ(fakes.vcamsAlive, 0);
    EXPECT_EQ(fakes.vcamStarts, 0);
    EXPECT_EQ(fakes.windowsMade, 0);
}

TEST_F(AppTest, quit_withAMessageOnTheScreen_endsTheEventLoop)
{
    App &made = make(1h);
    QTimer::singleShot(0, &made, [&made] {
        static_cast<void>(
            made.showMessage(QStringLiteral("stays"), QStringLiteral("Ok"), QString(), QString()));
    });
    QTimer::singleShot(20, &made, [&made] {
        ASSERT_TRUE(pumpUntil([] { return shownBox() != nullptr; }));
        made.shutdown();
    });
    EXPECT_EQ(made.run(), 0);
}

TEST_F(AppTest, quit_askedForByTheWindow_mayDeleteTheWindow)
{
    App &made = makeStarted();
    made.requestShutdown();
    EXPECT_NE(made.mainWindow(), nullptr);
    EXPECT_TRUE(pumpUntil([&made] { return made.isQuitting(); }));
    EXPECT_EQ(made.mainWindow(), nullptr);
}

TEST_F(AppTest, isCameraRunning_untilTwoSecondsAfterTheLastFrame)
{
    App &made = makeStarted();
    EXPECT_FALSE(made.isCameraRunning());
    Q_EMIT fakes.vcam->onNewFrameAvailable();
    EXPECT_TRUE(made.isCameraRunning());
    nowMs += 1999;
    EXPECT_TRUE(made.isCameraRunning());
    nowMs += 1;
    EXPECT_FALSE(made.isCameraRunning());
}

} // namespace
