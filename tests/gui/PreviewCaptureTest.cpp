// SPDX-License-Identifier: Apache-2.0
// The preview's own capture: opened while wanted, retried with patience, off the interface thread.
#include "gui/PreviewCapture.h"

#include "tests/vcam/FakeGrabber.h"

#include <QCoreApplication>

#include <gmock/gmock.h>

namespace {

using lumivora::test::FakeCameras;
using lumivora::test::FakeGrabber;

QCoreApplication &qtApplication()
{
    static int argc = 1;
    static char name[] = "preview_test";
    static char *argv[] = {name, nullptr};
    static QCoreApplication application(argc, argv);
    return application;
}

class PreviewCaptureTest : public ::testing::Test
{
protected:
    void want(bool wanted)
    {
        capture.setWanted(wanted);
        capture.settle();
    }

    void check()
    {
        capture.check();
        capture.settle();
    }

    QCoreApplication &qt = qtApplication();
    qint64 nowMs = 50'000;
    std::shared_ptr<FakeCameras> cameras = std::make_shared<FakeCameras>();
    FakeGrabber grabber{cameras};
    PreviewCapture capture{grabber, [this] {
                               return nowMs;
                           }};
};

TEST_F(PreviewCaptureTest, setWanted_sameAgain_doesNothing)
{
    want(true);
    want(true);
    EXPECT_EQ(cameras->starts.size(), 1);
    want(false);
    want(false);
    EXPECT_EQ(cameras->stops, 1);
}

TEST_F(PreviewCaptureTest, noVirtualCamera_isRetriedNoSoonerThan5000Ms)
{
    cameras->names = {QStringLiteral("Lumivora Camera")};
    want(true);
    EXPECT_TRUE(cameras->starts.isEmpty());
    cameras->names.append(QStringLiteral("Lumivora Control"));
    nowMs += 4999;
    check();
    EXPECT_TRUE(cameras->starts.isEmpty());
    nowMs += 1;
    check();
    EXPECT_EQ(cameras->starts.size(), 1);
}

TEST_F(PreviewCaptureTest, refusedStart_isRetriedEvery5000Ms)
{
    cameras->startSucceeds = false;
    want(true);
    for (int i = 2; i < 5; ++i) {
        nowMs += 5000;
        check();
        EXPECT_EQ(cameras->starts.size(), i);
        check(); // at once again: patience
        EXPECT_EQ(cameras->starts.size(), i);
    }
}

TEST_F(PreviewCaptureTest, silentCapture_isOpenedAgain_oneWithFramesIsNot)
{
    want(true);
    for (int i = 0; i < 5; ++i) {
        nowMs += 3000;
        ASSERT_TRUE(cameras->deliver(QImage(4, 4, QImage::Format_RGB32)));
        QCoreApplication::processEvents();
        check();
    }
    EXPECT_EQ(cameras->starts.size(), 1);
    nowMs += 5000;
    check();
    EXPECT_EQ(cameras->starts.size(), 2);
}

TEST_F(PreviewCaptureTest, check_whileNotWanted_opensNothing)
{
    nowMs += 60'000;
    check();
    EXPECT_EQ(cameras->listings, 0);
}

TEST_F(PreviewCaptureTest, manyFramesBeforeTheEventLoop_arriveAsOneNewest)
{
    want(true);
    QList<QImage> received;
    QObject::connect(&capture, &PreviewCapture::onFrame, &capture,
                     [&](const QImage &image) { received.append(image); });
    for (int i = 1; i <= 10; ++i) {
        ASSERT_TRUE(cameras->deliver(QImage(i, 1, QImage::Format_RGB32)));
    }
    QCoreApplication::processEvents();
    ASSERT_EQ(received.size(), 1);
    EXPECT_EQ(received.first().width(), 10);
}

TEST_F(PreviewCaptureTest, frameAfterLettingGo_isNotShown)
{
    want(true);
    int received = 0;
    QObject::connect(&capture, &PreviewCapture::onFrame, &capture, [&] { ++received; });
    ASSERT_TRUE(cameras->deliver(QImage(4, 4, QImage::Format_RGB32)));
    want(false);
    QCoreApplication::processEvents();
    EXPECT_EQ(received, 0);
}

} // namespace
