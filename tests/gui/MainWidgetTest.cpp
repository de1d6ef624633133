// SPDX-License-Identifier: Apache-2.0
// The window: its preview, which must never keep the camera running unseen, status and footer.
#include "gui/MainWidget.h"

#include "gui/PreviewCapture.h"
#include "gui/RenderFrame.h"
#include "tests/gui/FakeApplication.h"
#include "tests/support/LogCapture.h"

#include <QApplication>
#include <QPushButton>
#include <QTest>

#include <gmock/gmock.h>

namespace {

using lumivora::test::FakeApplication;
using lumivora::test::FakeCameras;
using lumivora::test::LogCapture;

/** One for the process: the framework allows no second. */
QApplication &qtApplication()
{
    static int argc = 1;
    static char name[] = "gui_test";
    static char *argv[] = {name, nullptr};
    static QApplication application(argc, argv);
    return application;
}

QImage plain(const QColor &colour, int width = 1280, int height = 720)
{
    QImage image(width, height, QImage::Format_RGB32);
    image.fill(colour);
    return image;
}

class MainWidgetTest : public ::testing::Test
{
protected:
    void show()
    {
        window.show();
        window.previewCapture()->settle();
    }

    QApplication &qt = qtApplication();
    FakeApplication application;
    MainWidget window{application};
};

TEST_F(MainWidgetTest, window_hasTheFixedWidthOfItsPreviewAndMargins)
{
    show();
    EXPECT_EQ(window.preview().size(), QSize(320, 180));
    EXPECT_EQ(window.width(), 320 + 72);
    EXPECT_TRUE(window.windowFlags().testFlag(Qt::FramelessWindowHint));
}

TEST_F(MainWidgetTest, preview_opensTheVirtualCameraOnlyWhileVisible)
{
    EXPECT_FALSE(application.cameras->isRunning());
    EXPECT_EQ(application.cameras->listings, 0);
    show();
    ASSERT_EQ(application.cameras->starts.size(), 1);
    const FakeCameras::Start &start = application.cameras->starts.first();
    EXPECT_EQ(start.name, QStringLiteral("Lumivora Control"));
    EXPECT_EQ(start.index, 1);
    EXPECT_EQ(start.width, 1280);
    EXPECT_EQ(start.height, -720);
    EXPECT_TRUE(application.cameras->isRunning());

    window.hide();
    window.previewCapture()->settle();
    EXPECT_FALSE(application.cameras->isRunning());

    show();
    EXPECT_TRUE(application.cameras->isRunning());
}

TEST_F(MainWidgetTest, preview_hiddenBeforeItWasOpened_isNotOpened)
{
    window.show();
    window.hide();
    window.previewCapture()->settle();
    EXPECT_FALSE(application.cameras->isRunning());
}

TEST(MainWidgetLifeTest, destruction_whileVisible_letsGoOfTheCamera)
{
    qtApplication();
    FakeApplication application;
    LogCapture log;
    {
        MainWidget window(application);
        window.show();
        window.previewCapture()->settle();
        ASSERT_TRUE(application.cameras->isRunning());
    }
    EXPECT_FALSE(application.cameras->isRunning());
    EXPECT_TRUE(log.contains(QStringLiteral("MainWidget DCTOR!")));
}

TEST(MainWidgetLifeTest, withoutGrabber_showsWithoutPreview)
{
    qtApplication();
    FakeApplication application;
    application.hasGrabber = false;
    MainWidget window(application);
    window.show();
    EXPECT_EQ(window.previewCapture(), nullptr);
    EXPECT_TRUE(window.preview().image().isNull());
}

TEST_F(MainWidgetTest, preview_paintsTheNewestFrame)
{
    application.running = true;
    show();
    ASSERT_TRUE(application.cameras->deliver(plain(QColor(200, 30, 40))));
    ASSERT_TRUE(application.cameras->deliver(plain(QColor(10, 120, 220))));
    QCoreApplication::processEvents();
    const QImage shown = window.preview().grab().toImage();
    EXPECT_EQ(shown.pixelColor(160, 90), QColor(10, 120, 220));
    EXPECT_EQ(shown.pixelColor(4, 90), QColor(10, 120, 220));
    // Rounded: the very corner is not of the picture.
    EXPECT_NE(shown.pixelColor(0, 0), QColor(10, 120, 220));
}

TEST_F(MainWidgetTest, preview_ofAnotherShape_fillsTheFrameUndistorted)
{
    application.running = true;
    show();
    QImage image = plain(Qt::black, 1280, 960);
    for (int y = 0; y < image.height(); ++y) { // a white square in the middle
        for (int x = 0; x < image.width(); ++x) {
            if (std::abs(x - 640) < 200 && std::abs(y - 480) < 200) {
                image.setPixelColor(x, y, Qt::white);
            }
        }
    }
    ASSERT_TRUE(application.cameras->deliver(image));
    QCoreApplication::processEvents();
    const QImage shown = window.preview().grab().toImage();
    // Scaled by 320 / 1280: the square's edges lie 50 pixels from the middle, both ways.
    EXPECT_EQ(shown.pixelColor(160 + 47, 90), QColor(Qt::white));
    EXPECT_EQ(shown.pixelColor(160 + 53, 90), QColor(Qt::black));
    EXPECT_EQ(shown.pixelColor(160, 90 + 47), QColor(Qt::white));
    EXPECT_EQ(shown.pixelColor(160, 90 + 53), QColor(Qt::black));
}

TEST_F(MainWidgetTest, preview_afterHiding_forgetsThePicture)
{
    application.running = true;
    show();
    ASSERT_TRUE(application.cameras->deliver(plain(Qt::red)));
    QCoreApplication::processEvents();
    ASSERT_FALSE(window.preview().image().isNull());
    window.hide();
    EXPECT_TRUE(window.preview().image().isNull());
}

TEST_F(MainWidgetTest, status_saysWhatTheCameraDoes)
{
    window.updateStatus();
    EXPECT_EQ(window.statusText(), QStringLiteral("Camera is off: no program uses it"));
    application.clients = true;
    window.updateStatus();
    EXPECT_EQ(window.statusText(), QStringLiteral("Waiting for Lumivora Camera"));
    application.running = true;
    window.updateStatus();
    EXPECT_EQ(window.statusText(), QStringLiteral("Camera is running"));
}

TEST_F(MainWidgetTest, quit_byMouseAndKeyboard_asksTheApplication)
{
    show();
    auto *quit = window.findChild<QPushButton *>();
    ASSERT_NE(quit, nullptr);
    EXPECT_EQ(quit->text(), QStringLiteral("Quit"));
    QTest::mouseClick(quit, Qt::LeftButton);
    EXPECT_EQ(application.shutdowns, 1);
    quit->setFocus();
    QTest::keyClick(quit, Qt::Key_Space);
    EXPECT_EQ(application.shutdowns, 2);
}

TEST(MainWidgetLookTest, theme_darkAndLight_differInThePanelAndStayReadable)
{
    qtApplication();
    const auto contrast = [](bool dark) {
        FakeApplication application;
        application.dark = dark;
        MainWidget window(application);
        window.show();
        const QImage shot = window.grab().toImage();
        const int panel = qGray(shot.pixel(30, 30));
        const auto *preview = &window.preview();
        const QPoint below = preview->mapTo(&window, QPoint(0, preview->height() + 14));
        int darkest = 255;
        int lightest = 0;
        for (int y = below.y(); y < std::min(below.y() + 40, shot.height()); ++y) {
            for (int x = below.x(); x < below.x() + 200; ++x) {
                darkest = std::min(darkest, qGray(shot.pixel(x, y)));
                lightest = std::max(lightest, qGray(shot.pixel(x, y)));
            }
        }
        return std::pair(panel, lightest - darkest);
    };
    const auto [lightPanel, lightContrast] = contrast(false);
    const auto [darkPanel, darkContrast] = contrast(true);
    EXPECT_GT(lightPanel, 200);
    EXPECT_LT(darkPanel, 70);
    EXPECT_GT(lightContrast, 90);
    EXPECT_GT(darkContrast, 90);
}

} // namespace
