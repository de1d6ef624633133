// SPDX-License-Identifier: Apache-2.0
// Captures cameras of a private PipeWire session.
#include "vcam/capture/CameraGrabber.h"

#include "tests/support/LogCapture.h"
#include "tests/support/PipeWireSession.h"
#include "virtual_devices/VideoSourceNode.h"

#include <QBuffer>
#include <QDir>
#include <QFile>

#include <gmock/gmock.h>

#include <array>
#include <atomic>
#include <chrono>
#include <memory>
#include <thread>

#include <malloc.h>

using namespace lumivora;
using namespace lumivora::test;
using namespace std::chrono_literals;
using testing::ElementsAre;

namespace {

constexpr QSize kSize(320, 240);

// Top left, top right, bottom left, bottom right: no two alike, so that swapped channels, sides or
// rows show. Dim, because the studio range has no brighter primaries.
constexpr std::array<QRgb, 4> kQuarters = {0xFFC80000U, 0xFF00C800U, 0xFF0000C8U, 0xFFC8C800U};

/** A camera that shows four coloured quarters, at 50 frames a second. */
class Camera
{
public:
    explicit Camera(const std::string &name,
                    const std::vector<PictureFormat> &formats = {{PixelFormat::Yuy2, kSize.width(),
                                                                  kSize.height()}},
                    const std::array<QRgb, 4> &quarters = kQuarters)
        : _node(VideoSourceNode::create({.nodeName = "test-" + name,
                                         .description = name,
                                         .formats = formats,
                                         .framesPerSecond = 50})),
          _thread([this, quarters] { offerUntilEnd(quarters); })
    {
        EXPECT_TRUE(PipeWireSession::waitForNode(QString::fromStdString("test-" + name)));
    }
    ~Camera()
    {
        _ended = true;
        _thread.join();
    }

    Camera(const Camera &) = delete;
    Camera &operator=(const Camera &) = delete;

    void stall() { _stalled = true; }
    void goOn() { _stalled = false; }

private:
    void offerUntilEnd(const std::array<QRgb, 4> &quarters)
    {
        while (!_ended) {
            if (!_stalled) {
                _node->offer([&](const PictureFormat &format, std::span<std::uint8_t> memory) {
                    return draw(quarters, format, memory);
                });
            }
            std::this_thread::sleep_for(20ms);
        }
    }

    static std::size_t draw(const std::array<QRgb, 4> &quarters, const PictureFormat &format,
                            std::span<std::uint8_t> memory)
    {
        QImage picture(format.width, format.height, QImage::Format_RGB32);
        for (int y = 0; y < format.height; ++y) {
            for (int x = 0; x < format.width; ++x) {
                picture.setPixel(
                    x, y,
                    quarters[(y < format.height / 2 ? 0U : 2U) + (x < format.width / 2 ? 0U : 1U)]);
            }
        }
        if (format.pixels == PixelFormat::Mjpg) {
            QByteArray bytes;
            QBuffer buffer(&bytes);
            buffer.open(QIODevice::WriteOnly);
            picture.save(&buffer, "JPG", 95);
            std::copy(bytes.begin(), bytes.end(), memory.begin());
            return static_cast<std::size_t>(bytes.size());
        }
        convertPicture(picture.constBits(), static_cast<std::size_t>(picture.bytesPerLine()),
                       format, memory.data());
        return PictureLayout::of(format).bytes;
    }

    std::unique_ptr<VideoSourceNode> _node;
    std::atomic<bool> _ended = false;
    std::atomic<bool> _stalled = false;
    std::thread _thread;
};

void expectQuarters(const QImage &image, const std::array<QRgb, 4> &quarters, bool topDown)
{
    for (const int right : {0, 1}) {
        for (const int lower : {0, 1}) {
            const QRgb actual = image.pixel((1 + 2 * right) * image.width() / 4,
                                            (1 + 2 * lower) * image.height() / 4);
            const int quarter = (topDown ? lower : 1 - lower) * 2 + right;
            const QRgb expected = quarters[static_cast<std::size_t>(quarter)];
            // There and back through studio range in eight bits, with JPEG in between.
            EXPECT_NEAR(qRed(actual), qRed(expected), 8) << quarter;
            EXPECT_NEAR(qGreen(actual), qGreen(expected), 8) << quarter;
            EXPECT_NEAR(qBlue(actual), qBlue(expected), 8) << quarter;
        }
    }
}

class GStreamerCapture : public testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(session.isRunning());
        QObject::connect(
            &grabber, &CameraGrabber::onNewFrameAvailable, &grabber, [this] { ++_frames; },
            Qt::DirectConnection);
    }

    [[nodiscard]] QStringList deviceNames()
    {
        QList<CameraDevice> devices;
        grabber.listDevices(devices);
        QStringList names;
        for (const CameraDevice &device : devices) {
            names.append(device.name);
        }
        return names;
    }

    [[nodiscard]] bool start(int index = 0, int height = -kSize.height())
    {
        return grabber.startCamera(kSize.width(), height, index, {}, {});
    }

    /** An image that arrives from now on. */
    [[nodiscard]] QImage nextImage()
    {
        EXPECT_TRUE(framesCome(1));
        QImage image;
        grabber.copyLatestImage(image, nullptr);
        return image;
    }

    /** Whether so many frames arrive from now on. */
    [[nodiscard]] bool framesCome(int count, std::chrono::milliseconds patience = kPatience)
    {
        const int before = _frames;
        return waitUntil([this, before, count] { return _frames >= before + count; }, patience);
    }

    PipeWireSession session;
    CameraGrabber grabber;

private:
    std::atomic<int> _frames = 0; // counted on the streaming thread
};

class CapturedFormats : public GStreamerCapture, public testing::WithParamInterface<PixelFormat>
{};

} // namespace

TEST_F(GStreamerCapture, listDevices_severalCameras_systemsOrderAndDescriptions)
{
    EXPECT_THAT(deviceNames(), ElementsAre());
    const Camera first("Zebra");
    const Camera second("Lumivora Camera");
    const Camera third("Antelope");
    EXPECT_THAT(deviceNames(),
                ElementsAre(QStringLiteral("Zebra"), QStringLiteral("Lumivora Camera"),
                            QStringLiteral("Antelope")));
}

TEST_F(GStreamerCapture, listDevices_withoutServer_empty)
{
    session.killServer();
    EXPECT_THAT(deviceNames(), ElementsAre());
    EXPECT_FALSE(start());
}

TEST_F(GStreamerCapture, listDevices_whileCapturing_sameAnswerEveryTime)
{
    const Camera camera("Camera");
    ASSERT_TRUE(start());
    CameraGrabber other;
    for (int round = 0; round < 3; ++round) {
        EXPECT_THAT(deviceNames(), ElementsAre(QStringLiteral("Camera")));
        QList<CameraDevice> devices;
        other.listDevices(devices);
        EXPECT_EQ(devices.size(), 1);
    }
    expectQuarters(nextImage(), kQuarters, true);
}

TEST_F(GStreamerCapture, capture_cameraThatHasAClientAlready_bothGetPictures)
{
    const Camera camera("Camera", {{PixelFormat::Nv12, kSize.width(), kSize.height()},
                                   {PixelFormat::Yuy2, kSize.width(), kSize.height()}});
    CameraGrabber first;
    ASSERT_TRUE(first.startCamera(320, -240, 0, {}, {}));
    ASSERT_TRUE(start());
    expectQuarters(nextImage(), kQuarters, true);
    first.stopCamera();
    expectQuarters(nextImage(), kQuarters, true);
}

TEST_P(CapturedFormats, capture_fourQuarters_rightColoursAndDepth)
{
    const Camera camera("Camera", {{GetParam(), kSize.width(), kSize.height()}});
    const LogCapture log;
    ASSERT_TRUE(start());
    EXPECT_TRUE(grabber.isRunning());
    const QImage image = nextImage();
    ASSERT_EQ(image.size(), kSize);
    const int bits = GetParam() == PixelFormat::Rgb ? 24 : 32;
    EXPECT_EQ(image.depth(), bits);
    expectQuarters(image, kQuarters, true);
    EXPECT_TRUE(log.contains(QStringLiteral("Starting Camera camera at 320x240 PREVIEWING")));
    EXPECT_TRUE(log.contains(
        QStringLiteral("Successfully started Camera camera at 320x240 %1bits PREVIEWING")
            .arg(bits)));
}

TEST_P(CapturedFormats, capture_positiveHeight_bottomRowFirst)
{
    const Camera camera("Camera", {{GetParam(), kSize.width(), kSize.height()}});
    ASSERT_TRUE(start(0, kSize.height()));
    expectQuarters(nextImage(), kQuarters, false);
}

INSTANTIATE_TEST_SUITE_P(All, CapturedFormats,
                         testing::Values(PixelFormat::Yuy2, PixelFormat::I420, PixelFormat::Nv12,
                                         PixelFormat::Bgra, PixelFormat::Bgrx, PixelFormat::Rgb,
                                         PixelFormat::Mjpg));

TEST_F(GStreamerCapture, capture_firstOfTwoZeroScores_opened)
{
    const Camera camera("Camera", {{PixelFormat::Yuy2, 640, 480},
                                   {PixelFormat::Yuy2, 1280, 960},
                                   {PixelFormat::Nv12, 1280, 720}});
    ASSERT_TRUE(grabber.startCamera(1280, -720, 0, {}, {}));
    EXPECT_EQ(nextImage().size(), QSize(1280, 960));
}

TEST_F(GStreamerCapture, capture_indexNameAndAltName_chooseTheCamera)
{
    const std::array<QRgb, 4> white = {0xFFC8C8C8U, 0xFFC8C8C8U, 0xFFC8C8C8U, 0xFFC8C8C8U};
    const Camera first("First");
    const Camera second("Second", {{PixelFormat::Bgrx, kSize.width(), kSize.height()}}, white);

    ASSERT_TRUE(grabber.startCamera(320, -240, 1, QStringLiteral("Sec"), {}));
    expectQuarters(nextImage(), white, true);
    ASSERT_TRUE(grabber.startCamera(320, -240, 0, {}, QStringLiteral("Second")));
    expectQuarters(nextImage(), white, true);
    ASSERT_TRUE(grabber.startCamera(320, -240, 0, QStringLiteral("First"), {}));
    expectQuarters(nextImage(), kQuarters, true);
    EXPECT_FALSE(grabber.startCamera(320, -240, 2, {}, {}));
    EXPECT_FALSE(grabber.isRunning());
}

TEST_F(GStreamerCapture, stopCamera_running_noFrameAfterAndStartsAgain)
{
    const Camera camera("Camera");
    for (int round = 0; round < 3; ++round) {
        ASSERT_TRUE(start());
        EXPECT_FALSE(nextImage().isNull());
        grabber.stopCamera();
        EXPECT_FALSE(grabber.isRunning());
        EXPECT_FALSE(framesCome(1, 200ms));
    }
}

TEST_F(GStreamerCapture, unplug_whileCapturing_notRunningAndNoOtherCameraInstead)
{
    auto camera = std::make_unique<Camera>("Camera");
    const Camera other("Other");
    ASSERT_TRUE(start());
    EXPECT_FALSE(nextImage().isNull());
    camera.reset();
    EXPECT_TRUE(waitUntil([this] { return !grabber.isRunning(); }));
    EXPECT_FALSE(framesCome(1, 300ms));
    grabber.stopCamera();

    camera = std::make_unique<Camera>("Camera"); // plugged in again: the last of the list
    ASSERT_TRUE(grabber.startCamera(320, -240, 1, QStringLiteral("Camera"), {}));
    EXPECT_FALSE(nextImage().isNull());
}

TEST_F(GStreamerCapture, unplug_betweenListAndStart_startFails)
{
    class OldList : public CameraGrabber
    {
    public:
        void listDevices(QList<CameraDevice> &devices) override { devices = list; }
        QList<CameraDevice> list;
    } old;
    auto camera = std::make_unique<Camera>("Camera");
    old.CameraGrabber::listDevices(old.list);
    ASSERT_EQ(old.list.size(), 1);
    camera.reset();
    ASSERT_TRUE(PipeWireSession::waitForNodeGone(QStringLiteral("test-Camera")));
    EXPECT_FALSE(old.startCamera(320, -240, 0, {}, {}));
    EXPECT_FALSE(old.isRunning());
}

TEST_F(GStreamerCapture, stall_whileCapturing_runningAndGoesOn)
{
    Camera camera("Camera");
    ASSERT_TRUE(start());
    EXPECT_FALSE(nextImage().isNull());
    camera.stall();
    EXPECT_FALSE(framesCome(5, 300ms)); // but for those on their way
    EXPECT_TRUE(grabber.isRunning());
    camera.goOn();
    expectQuarters(nextImage(), kQuarters, true);
}

TEST_F(GStreamerCapture, stall_fromTheBeginning_startsAllTheSame)
{
    Camera camera("Camera");
    camera.stall();
    ASSERT_TRUE(start());
    EXPECT_TRUE(grabber.isRunning());
    camera.goOn();
    expectQuarters(nextImage(), kQuarters, true);
}

TEST_F(GStreamerCapture, kill_serverWhileCapturing_notRunningAndComesBack)
{
    auto camera = std::make_unique<Camera>("Camera");
    ASSERT_TRUE(start());
    EXPECT_FALSE(nextImage().isNull());
    session.killServer();
    EXPECT_TRUE(waitUntil([this] { return !grabber.isRunning(); }));
    grabber.stopCamera();
    EXPECT_FALSE(start());

    camera.reset();
    ASSERT_TRUE(session.startServer());
    camera = std::make_unique<Camera>("Camera");
    ASSERT_TRUE(start());
    expectQuarters(nextImage(), kQuarters, true);
}

TEST_F(GStreamerCapture, hang_serverWhileCapturing_stopCameraReturns)
{
    const Camera camera("Camera");
    ASSERT_TRUE(start());
    EXPECT_FALSE(nextImage().isNull());
    session.suspendServer();
    grabber.stopCamera();
    EXPECT_FALSE(grabber.isRunning());
    session.resumeServer();
    ASSERT_TRUE(start());
    EXPECT_FALSE(nextImage().isNull());
}

TEST_F(GStreamerCapture, stopCamera_whileStarting_startGivesUp)
{
    class SuspendingGrabber : public CameraGrabber
    {
    public:
        explicit SuspendingGrabber(PipeWireSession &owner) : _session(owner) {}
        void listDevices(QList<CameraDevice> &devices) override
        {
            CameraGrabber::listDevices(devices);
            _session.suspendServer(); // the camera will not answer
            listed = true;
        }
        std::atomic<bool> listed = false;

    private:
        PipeWireSession &_session;
    };
    const Camera camera("Camera");
    SuspendingGrabber hanging(session);
    std::atomic<bool> started = true;
    std::thread starter([&] { started = hanging.startCamera(320, -240, 0, {}, {}); });
    EXPECT_TRUE(waitUntil([&] { return hanging.listed.load(); }));
    hanging.stopCamera();
    EXPECT_FALSE(hanging.isRunning());
    starter.join();
    EXPECT_FALSE(started);
    session.resumeServer();
}

TEST_F(GStreamerCapture, startStop_fromSeveralThreads_endsStopped)
{
    const Camera camera("Camera");
    std::array<std::thread, 3> threads;
    for (std::thread &thread : threads) {
        thread = std::thread([this] {
            for (int round = 0; round < 5; ++round) {
                static_cast<void>(start());
                QImage image;
                grabber.copyLatestImage(image, nullptr);
                static_cast<void>(grabber.isRunning());
                grabber.stopCamera();
            }
        });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
    EXPECT_FALSE(grabber.isRunning());
}

TEST_F(GStreamerCapture, startStop_twoHundredTimes_leaksNothing)
{
    struct Holdings
    {
        qsizetype threads = QDir(QStringLiteral("/proc/self/task")).entryList(QDir::Dirs).size();
        qsizetype descriptors =
            QDir(QStringLiteral("/proc/self/fd")).entryList(QDir::Files | QDir::System).size();
        qsizetype mappings = [] {
            QFile maps(QStringLiteral("/proc/self/maps"));
            return maps.open(QIODevice::ReadOnly) ? maps.readAll().count('\n') : 0;
        }();
        std::size_t heapBytes = mallinfo2().uordblks + mallinfo2().hblkhd;
    };
    QProcess camera; // in a process of its own, so that what it holds does not count
    ASSERT_TRUE(
        startHelper(camera, QStringLiteral(LUMIVORA_STANDIN),
                    {QStringLiteral("--no-microphone"), QStringLiteral("--size"),
                     QStringLiteral("320x240"), QStringLiteral("--rate"), QStringLiteral("60")}));
    ASSERT_TRUE(PipeWireSession::waitForNode(QStringLiteral("lumivora-standin-camera")));
    const LogCapture log;
    const auto cycle = [this] {
        ASSERT_TRUE(start());
        ASSERT_FALSE(nextImage().isNull());
        grabber.stopCamera();
    };
    for (int i = 0; i < 20; ++i) {
        cycle(); // what is allocated once: plug-ins, types, thread pools
    }
    const Holdings before;
    for (int i = 0; i < 200; ++i) {
        cycle();
    }
    // What the last cycle used is released by a thread that outlives the call by a moment, and an
    // idle pool thread comes and goes.
    EXPECT_TRUE(waitUntil([&before] {
        const Holdings now;
        return now.threads <= before.threads + 1 && now.descriptors <= before.descriptors + 2;
    }));
    const Holdings after;
    EXPECT_LE(after.mappings, before.mappings + 20);
    // A leak of even one small frame in ten cycles would be six times this.
    EXPECT_LE(after.heapBytes, before.heapBytes + (std::size_t{1} << 20));
    endHelper(camera);
}
