// SPDX-License-Identifier: Apache-2.0
// The virtual camera controller with a camera played by hand, and the real channel and counter.
#include "vcam/VCam.h"

#include "app/core/BaseSettings.h"
#include "tests/support/LogCapture.h"
#include "tests/support/TemporaryRuntime.h"
#include "tests/vcam/FakeGrabber.h"
#include "vcam/framechannel/FrameChannel.h"
#include "vcam/framechannel/FrameChannelReader.h"
#include "vcam/framechannel/InstanceCounter.h"

#include <gmock/gmock.h>

#include <cstring>
#include <future>
#include <thread>
#include <vector>

namespace {

using lumivora::test::FakeCameras;
using lumivora::test::FakeGrabber;
using lumivora::test::LogCapture;
using lumivora::test::TemporaryRuntime;

constexpr std::size_t kFrameBytes = 1280u * 720u * 4u;

QImage plainFrame(QRgb colour, int width = 1280, int height = 720,
                  QImage::Format format = QImage::Format_RGB32)
{
    QImage image(width, height, format);
    image.fill(QColor::fromRgb(colour));
    return image;
}

class VCamTest : public ::testing::Test
{
protected:
    VCamTest()
    {
        VCam::forgetVirtualCamera();
        // A virtual camera with one client, unless a test says otherwise.
        EXPECT_TRUE(counter.open());
        setClients(1);
        vcam = std::make_unique<VCam>(&settings, environment());
        QObject::connect(
            vcam.get(), &VCam::onMessage, &receiver,
            [this](const QString &message) { messages.append(message); }, Qt::DirectConnection);
        QObject::connect(
            vcam.get(), &VCam::onClientsConnectedChanged, &receiver,
            [this](bool connected) { clientChanges.append(connected); }, Qt::DirectConnection);
        QObject::connect(
            vcam.get(), &VCam::onNewFrameAvailable, &receiver, [this] { ++framesDone; },
            Qt::DirectConnection);
    }

    VCam::Environment environment()
    {
        return {
            [this] { return std::make_unique<FakeGrabber>(cameras); },
            [this] { return permission.load(); },
            [this] { return nowMs.load(); },
        };
    }

    void setClients(std::uint32_t count) { ASSERT_TRUE(counter.write(count)); }

    /** One tick of the watchdog, on the thread it runs on. */
    void tick()
    {
        QMetaObject::invokeMethod(vcam.get(), &VCam::checkHealth, Qt::BlockingQueuedConnection);
    }

    /** Waits until the worker has done everything posted so far. */
    void settle()
    {
        QMetaObject::invokeMethod(vcam.get(), [] {}, Qt::BlockingQueuedConnection);
    }

    TemporaryRuntime runtime;
    LogCapture log;
    BaseSettings settings{QStringLiteral("Orvane"), QStringLiteral("LumivoraControlVCamTest")};
    std::shared_ptr<FakeCameras> cameras = std::make_shared<FakeCameras>();
    std::atomic<bool> permission = true;
    std::atomic<qint64> nowMs = 1'000'000;
    lumivora::InstanceCounter counter;
    QStringList messages;
    QList<bool> clientChanges;
    std::atomic<int> framesDone = 0;
    QObject receiver;
    std::unique_ptr<VCam> vcam;
};

TEST_F(VCamTest, start_withoutVirtualCamera_tellsTheUserAndFails)
{
    cameras->names = {QStringLiteral("Lumivora Camera"), QStringLiteral("Other")};
    EXPECT_FALSE(vcam->start());
    EXPECT_EQ(messages,
              QStringList{QStringLiteral("Lumivora Control camera not installed. "
                                         "Try to uninstall and reinstall the application.")});
    EXPECT_TRUE(cameras->starts.isEmpty());
}

TEST_F(VCamTest, start_withoutPermission_failsWithTheNotInstalledMessage)
{
    permission = false;
    EXPECT_FALSE(vcam->start());
    EXPECT_EQ(cameras->listings, 0);
    EXPECT_EQ(messages,
              QStringList{QStringLiteral("Lumivora Control camera not installed. "
                                         "Try to uninstall and reinstall the application.")});
}

TEST_F(VCamTest, start_withoutPermissionAfterTheVirtualCameraWasSeen_succeeds)
{
    ASSERT_TRUE(vcam->start());
    permission = false;
    EXPECT_TRUE(vcam->start());
    EXPECT_TRUE(messages.isEmpty());
}

TEST_F(VCamTest, start_twice_restartsTheCaptureAndLooksForTheVirtualCameraOnce)
{
    ASSERT_TRUE(vcam->start());
    EXPECT_EQ(cameras->listings, 2); // the virtual camera, then the physical one
    ASSERT_TRUE(vcam->start());
    EXPECT_EQ(cameras->listings, 3);
    EXPECT_EQ(cameras->starts.size(), 2);
    EXPECT_EQ(cameras->stops, 1);
    EXPECT_TRUE(vcam->isGrabberRunning());
}

TEST_F(VCamTest, start_twoPhysicalCameras_usesTheOneListedFirst)
{
    cameras->names = {QStringLiteral("Lumivora Control"), QStringLiteral("A Lumivora Camera 2"),
                      QStringLiteral("Lumivora Camera")};
    ASSERT_TRUE(vcam->start());
    ASSERT_EQ(cameras->starts.size(), 1);
    const FakeCameras::Start &start = cameras->starts.first();
    EXPECT_EQ(start.width, 1280);
    EXPECT_EQ(start.height, -720);
    EXPECT_EQ(start.index, 1);
    EXPECT_EQ(start.name, QStringLiteral("A Lumivora Camera 2"));
    EXPECT_TRUE(start.altName.isEmpty());
}

TEST_F(VCamTest, start_withoutPhysicalCamera_isQuietAndIdle)
{
    cameras->names = {QStringLiteral("Lumivora Control")};
    EXPECT_TRUE(vcam->start());
    EXPECT_FALSE(vcam->isGrabberRunning());
    EXPECT_TRUE(messages.isEmpty());

    cameras->names.append(QStringLiteral("Lumivora Camera"));
    tick();
    EXPECT_TRUE(vcam->isGrabberRunning());
    EXPECT_TRUE(
        log.contains(QStringLiteral("restarting VCam physical grabber, it's not running!")));
}

TEST_F(VCamTest, start_cameraRefuses_tellsTheUserAndTheNextTickRetries)
{
    cameras->startSucceeds = false;
    EXPECT_TRUE(vcam->start());
    EXPECT_FALSE(vcam->isGrabberRunning());
    EXPECT_EQ(messages, QStringList{QStringLiteral(
                            "Unable to start physical camera.<br>Make sure you've allowed access "
                            "to camera devices.")});

    cameras->startSucceeds = true;
    tick();
    EXPECT_TRUE(vcam->isGrabberRunning());
}

TEST_F(VCamTest, start_secondProducer_isRefusedAndTellsTheUser)
{
    const auto other = lumivora::FrameChannel::create(64, 64, 330000);
    ASSERT_TRUE(other);
    EXPECT_TRUE(vcam->start());
    EXPECT_FALSE(vcam->isGrabberRunning());
    EXPECT_EQ(messages, QStringList{QStringLiteral(
                            "Unable to create communication mechanism between physical and "
                            "virtual drivers!")});
}

TEST_F(VCamTest, startGrabber_reportsWhetherItRuns)
{
    QList<bool> reports;
    QObject::connect(
        vcam.get(), &VCam::onReconnecting, &receiver, [&](bool status) { reports.append(status); },
        Qt::DirectConnection);
    EXPECT_TRUE(vcam->startGrabber());
    cameras->startSucceeds = false;
    EXPECT_FALSE(vcam->startGrabber());
    EXPECT_EQ(reports, (QList<bool>{true, false}));
}

TEST_F(VCamTest, watchdog_noClients_stopsTheCaptureAndSaysSoOnce)
{
    ASSERT_TRUE(vcam->start());
    setClients(0);
    tick();
    EXPECT_FALSE(vcam->isGrabberRunning());
    EXPECT_FALSE(vcam->areClientsConnected());
    tick();
    tick();
    EXPECT_EQ(clientChanges, QList<bool>{false});
    EXPECT_EQ(log.count(QStringLiteral(
                  "stopping VCam physical grabber - there are no clients connected!")),
              1);
    EXPECT_EQ(log.count(QStringLiteral("Opaque::areAnyClientsConnected() == FALSE")), 3);
    EXPECT_TRUE(log.lines(QtWarningMsg).contains(QStringLiteral("Connected clients: 0")));
}

TEST_F(VCamTest, watchdog_negativeCount_meansNoClients)
{
    ASSERT_TRUE(vcam->start());
    setClients(0xFFFFFFFFu);
    tick();
    EXPECT_FALSE(vcam->isGrabberRunning());
    EXPECT_TRUE(log.lines(QtWarningMsg).contains(QStringLiteral("Connected clients: -1")));
}

TEST_F(VCamTest, watchdog_clientReturns_startsTheCaptureAgain)
{
    ASSERT_TRUE(vcam->start());
    setClients(0);
    tick();
    setClients(2);
    tick();
    EXPECT_TRUE(vcam->isGrabberRunning());
    EXPECT_EQ(clientChanges, (QList<bool>{false, true}));
    EXPECT_TRUE(log.contains(QStringLiteral("Opaque::areAnyClientsConnected() == TRUE")));
}

TEST_F(VCamTest, watchdog_silentFor1999Ms_leavesTheCaptureAlone)
{
    ASSERT_TRUE(vcam->start());
    ASSERT_TRUE(cameras->deliver(plainFrame(qRgb(1, 2, 3))));
    settle();
    nowMs += 1999;
    tick();
    EXPECT_EQ(cameras->starts.size(), 1);
}

TEST_F(VCamTest, watchdog_silentFor2000Ms_restartsTheCapture)
{
    ASSERT_TRUE(vcam->start());
    ASSERT_TRUE(cameras->deliver(plainFrame(qRgb(1, 2, 3))));
    settle();
    nowMs += 2000;
    tick();
    EXPECT_EQ(cameras->starts.size(), 2);
    EXPECT_TRUE(vcam->isGrabberRunning());
    EXPECT_TRUE(log.contains(QStringLiteral("restarting VCam physical grabber - elapsed >= 2000")));
}

TEST_F(VCamTest, frame_reachesTheChannelUnchanged)
{
    ASSERT_TRUE(vcam->start());
    QImage frame(1280, 720, QImage::Format_RGB32);
    for (int y = 0; y < frame.height(); ++y) {
        auto *row = reinterpret_cast<QRgb *>(frame.scanLine(y));
        for (int x = 0; x < frame.width(); ++x) {
            row[x] = static_cast<QRgb>(y * 131 + x * 7); // alpha bytes included
        }
    }
    ASSERT_TRUE(cameras->deliver(frame));
    settle();
    EXPECT_EQ(framesDone, 1);

    const auto reader = lumivora::FrameChannelReader::open();
    ASSERT_TRUE(reader);
    std::vector<std::byte> pixels(kFrameBytes);
    ASSERT_EQ(reader->copyLatest(pixels, 0), std::optional<std::uint32_t>(1));
    EXPECT_EQ(std::memcmp(pixels.data(), frame.constBits(), kFrameBytes), 0);
}

TEST_F(VCamTest, frame_nullImage_writesNothing)
{
    ASSERT_TRUE(vcam->start());
    ASSERT_TRUE(cameras->deliver(QImage()));
    settle();
    EXPECT_EQ(framesDone, 0);
}

TEST_F(VCamTest, frame_ofOtherSizeOrDepth_isMadeToFit)
{
    ASSERT_TRUE(vcam->start());
    const auto reader = lumivora::FrameChannelReader::open();
    ASSERT_TRUE(reader);
    const QList<QImage> frames{
        plainFrame(qRgb(10, 20, 30), 1280, 960),
        plainFrame(qRgb(10, 20, 30), 1280, 720, QImage::Format_BGR888),
        plainFrame(qRgb(10, 20, 30), 641, 479, QImage::Format_RGB888),
        plainFrame(qRgb(10, 20, 30), 1, 1),
        plainFrame(qRgb(10, 20, 30), 3000, 300),
    };
    std::uint32_t sequence = 0;
    for (const QImage &frame : frames) {
        ASSERT_TRUE(cameras->deliver(frame));
        settle();
        std::vector<std::byte> pixels(kFrameBytes);
        ASSERT_EQ(reader->copyLatest(pixels, sequence), std::optional<std::uint32_t>(sequence + 1));
        ++sequence;
        bool same = true;
        for (std::size_t i = 0; i < kFrameBytes; i += 4) {
            same = same && pixels[i] == std::byte{30} && pixels[i + 1] == std::byte{20} &&
                   pixels[i + 2] == std::byte{10};
        }
        EXPECT_TRUE(same) << frame.width() << " x " << frame.height();
    }
}

TEST_F(VCamTest, frame_whileTwoArePending_isDroppedWithALine)
{
    ASSERT_TRUE(vcam->start());
    std::promise<void> entered;
    std::promise<void> gate;
    bool first = true;
    QObject::connect(
        vcam.get(), &VCam::onNewFrameAvailable, &receiver,
        [&] {
            if (std::exchange(first, false)) {
                entered.set_value();
                gate.get_future().wait();
            }
        },
        Qt::DirectConnection);
    const QImage frame = plainFrame(qRgb(4, 5, 6));
    const QString skipped =
        QStringLiteral("skipping processSampleBuffer, too much work in queue...");
    std::thread streaming([&] {
        cameras->deliver(frame);
        entered.get_future().wait();
        cameras->deliver(frame); // waits
        EXPECT_EQ(log.count(skipped), 0);
        cameras->deliver(frame); // one running and one waiting: dropped
        EXPECT_EQ(log.count(skipped), 1);
        gate.set_value();
    });
    streaming.join();
    settle();
    EXPECT_EQ(framesDone, 2);
    cameras->deliver(frame);
    settle();
    EXPECT_EQ(framesDone, 3);
    EXPECT_EQ(log.count(skipped), 1);
}

TEST_F(VCamTest, stopGrabber_closesTheChannelAndReleasesTheCamera)
{
    ASSERT_TRUE(vcam->start());
    const auto reader = lumivora::FrameChannelReader::open();
    ASSERT_TRUE(reader);
    vcam->stopGrabber();
    EXPECT_FALSE(cameras->isRunning());
    EXPECT_FALSE(vcam->isGrabberRunning());
    EXPECT_EQ(reader->state(), lumivora::ChannelState::Closed);
    settle(); // deferred deletion
    settle();
    EXPECT_EQ(cameras->alive, 0);
}

TEST_F(VCamTest, destruction_whileRunning_stopsEverything)
{
    ASSERT_TRUE(vcam->start());
    const auto reader = lumivora::FrameChannelReader::open();
    ASSERT_TRUE(reader);
    vcam.reset();
    EXPECT_FALSE(cameras->isRunning());
    EXPECT_EQ(cameras->alive, 0);
    EXPECT_EQ(reader->state(), lumivora::ChannelState::Closed);
    EXPECT_TRUE(log.contains(QStringLiteral("VCam::Opaque DCTOR")));
}

TEST_F(VCamTest, startStop_whileFramesArrive_neverBlocks)
{
    std::atomic<bool> running = true;
    std::thread streaming([&] {
        const QImage frame = plainFrame(qRgb(7, 8, 9));
        while (running) {
            cameras->deliver(frame);
            std::this_thread::yield();
        }
    });
    for (int cycle = 0; cycle < 50; ++cycle) {
        EXPECT_TRUE(vcam->startGrabber());
        tick();
        vcam->stopGrabber();
    }
    running = false;
    streaming.join();
}

TEST_F(VCamTest, setClientsConnected_sameValue_emitsNothing)
{
    EXPECT_TRUE(vcam->areClientsConnected());
    vcam->setClientsConnected(true);
    EXPECT_TRUE(clientChanges.isEmpty());
    vcam->setClientsConnected(false);
    vcam->setClientsConnected(false);
    EXPECT_EQ(clientChanges, QList<bool>{false});
}

} // namespace
