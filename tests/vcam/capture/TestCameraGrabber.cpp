// SPDX-License-Identifier: Apache-2.0
// What a grabber does on every platform, with samples made by the test.
#include "vcam/capture/CameraGrabber_p.h"

#include "tests/support/LogCapture.h"

#include <QThread>

#include <gmock/gmock.h>

using namespace lumivora;
using lumivora::test::LogCapture;
using testing::ElementsAre;

namespace {

/** A grabber whose devices cannot be opened. */
class ListedGrabber : public CameraGrabber
{
public:
    void listDevices(QList<CameraDevice> &devices) override
    {
        devices = {{QStringLiteral("Other"), nullptr},
                   {QStringLiteral("Lumivora Camera"), nullptr}};
    }
};

class IdleGraph : public CaptureGraph
{
public:
    explicit IdleGraph(bool running = true) : _running(running) {}
    bool isRunning() const override { return _running; }
    int bitsPerPixel() const override { return 32; }

private:
    bool _running;
};

class Samples : public testing::Test
{
protected:
    Samples()
    {
        opaque.setGraph(std::make_unique<IdleGraph>());
        QObject::connect(&grabber, &CameraGrabber::onNewFrameAvailable, [this] { ++signalled; });
    }

    /** A sample filled with one value, at a time at which it is due. */
    void deliver(const QSize &size, uchar value, int bits = 32)
    {
        nowMs += 100;
        deliverNow({size, bits, qsizetype{size.width()} * size.height() * bits / 8}, value);
    }

    void deliverNow(const SampleOutline &outline, uchar value)
    {
        opaque.onSample(outline, [this, value](QImage &image, bool topDown) {
            image.fill(qRgb(value, value, value));
            wantedTopDown = topDown;
            ++written;
            return true;
        });
    }

    CameraGrabber grabber;
    qint64 nowMs = 0;
    CameraGrabber::Opaque opaque{grabber, [this] {
                                     return nowMs;
                                 }};
    int signalled = 0;
    int written = 0;
    bool wantedTopDown = false;
};

constexpr QSize kSize(64, 48);
const SampleOutline kOutline{kSize, 32, qsizetype{64} * 48 * 4};

} // namespace

TEST_F(Samples, sample_accepted_latestImageAndOneSignal)
{
    deliver(kSize, 7);
    EXPECT_EQ(opaque.latestImage.size(), kSize);
    EXPECT_EQ(opaque.latestImage.format(), QImage::Format_RGB32);
    EXPECT_EQ(opaque.latestImage.pixel(63, 47), qRgb(7, 7, 7));
    EXPECT_EQ(signalled, 1);
}

TEST_F(Samples, sample_of24Bits_imageOf24Bits)
{
    deliver(kSize, 7, 24);
    EXPECT_EQ(opaque.latestImage.format(), QImage::Format_BGR888);
    EXPECT_EQ(opaque.latestImage.depth(), 24);
}

TEST_F(Samples, samples_tenMsApart_everySecondDroppedUnconverted)
{
    for (int i = 0; i < 7; ++i) {
        deliverNow(kOutline, static_cast<uchar>(i));
        nowMs += 10;
    }
    EXPECT_EQ(written, 4);
    EXPECT_EQ(signalled, 4);
    EXPECT_EQ(opaque.latestImage.pixel(0, 0), qRgb(6, 6, 6));
}

TEST_F(Samples, sample_emptyOrAbsurd_droppedSilently)
{
    const LogCapture log;
    for (const SampleOutline &outline :
         {SampleOutline{kSize, 32, 0}, SampleOutline{kSize, 32, -1},
          SampleOutline{{0, 48}, 32, 4096}, SampleOutline{{64, 0}, 32, 4096},
          SampleOutline{{-64, 48}, 32, 4096}, SampleOutline{{100000, 100000}, 32, 4096}}) {
        deliverNow(outline, 1);
    }
    EXPECT_EQ(written, 0);
    EXPECT_EQ(signalled, 0);
    EXPECT_TRUE(opaque.latestImage.isNull());
    EXPECT_THAT(log.lines(), ElementsAre());
}

TEST_F(Samples, sample_withoutGraph_dropped)
{
    opaque.closeGraph();
    deliver(kSize, 1);
    EXPECT_EQ(written, 0);
    EXPECT_EQ(signalled, 0);
}

TEST_F(Samples, sample_thatDoesNotFit_latestImageStaysAndNextIsTakenAtOnce)
{
    deliver(kSize, 1);
    nowMs += 100;
    opaque.onSample(kOutline, [](QImage &image, bool) {
        image.fill(0);
        return false;
    });
    EXPECT_EQ(signalled, 1);
    EXPECT_EQ(opaque.latestImage.pixel(0, 0), qRgb(1, 1, 1));
    deliverNow(kOutline, 2);
    EXPECT_EQ(signalled, 2);
    EXPECT_EQ(opaque.latestImage.pixel(0, 0), qRgb(2, 2, 2));
}

TEST_F(Samples, sample_flipRows_askedForTopRowFirst)
{
    opaque.flipRows = true;
    deliver(kSize, 1);
    EXPECT_TRUE(wantedTopDown);
    opaque.flipRows = false;
    deliver(kSize, 1);
    EXPECT_FALSE(wantedTopDown);
}

TEST_F(Samples, sample_whileReaderHoldsTheLast_readersPixelsStay)
{
    deliver(kSize, 1);
    const QImage reader = opaque.latestImage;
    EXPECT_EQ(reader.constBits(), opaque.latestImage.constBits()); // shared, not copied
    for (uchar value = 2; value < 10; ++value) {
        deliver(kSize, value);
    }
    EXPECT_EQ(reader.pixel(0, 0), qRgb(1, 1, 1));
    EXPECT_EQ(opaque.latestImage.pixel(0, 0), qRgb(9, 9, 9));
}

TEST_F(Samples, samples_ofOneSizeWithoutReader_twoBuffersInTurn)
{
    QList<const uchar *> addresses;
    for (uchar value = 0; value < 6; ++value) {
        deliver(kSize, value);
        addresses.append(opaque.latestImage.constBits());
    }
    EXPECT_EQ(addresses[0], addresses[2]);
    EXPECT_EQ(addresses[0], addresses[4]);
    EXPECT_EQ(addresses[1], addresses[3]);
    EXPECT_EQ(addresses[1], addresses[5]);
}

TEST_F(Samples, sample_ofANewSize_imageOfThatSize)
{
    deliver(kSize, 1);
    deliver({48, 64}, 2); // as many bytes
    EXPECT_EQ(opaque.latestImage.size(), QSize(48, 64));
    deliver({65, 3}, 3, 24);
    EXPECT_EQ(opaque.latestImage.size(), QSize(65, 3));
    EXPECT_EQ(opaque.latestImage.pixel(64, 2), qRgb(3, 3, 3));
}

TEST_F(Samples, graph_newCapture_imageOfTheLastOneIsGone)
{
    deliver(kSize, 1);
    opaque.closeGraph();
    EXPECT_FALSE(opaque.latestImage.isNull()); // a stopped grabber keeps its latest frame
    opaque.setGraph(std::make_unique<IdleGraph>());
    EXPECT_TRUE(opaque.latestImage.isNull());
}

TEST_F(Samples, samples_fromAStreamingThread_readerNeverSeesAHalfWrittenImage)
{
    opaque.flipRows = true;
    CameraGrabber::Opaque streaming(grabber, [now = qint64{0}]() mutable { return now += 20; });
    streaming.setGraph(std::make_unique<IdleGraph>());
    const std::unique_ptr<QThread> thread(QThread::create([&streaming] {
        for (int i = 0; i < 2000; ++i) {
            streaming.onSample(kOutline, [i](QImage &image, bool) {
                image.fill(static_cast<QRgb>(i));
                return true;
            });
        }
    }));
    thread->start();
    while (!thread->isFinished()) {
        QImage image;
        {
            const std::lock_guard guard(streaming.lock);
            image = streaming.latestImage;
        }
        if (!image.isNull()) {
            ASSERT_EQ(image.pixel(0, 0), image.pixel(63, 47));
        }
    }
    thread->wait();
}

TEST(CameraGrabber, copyLatestImage_beforeTheFirstFrame_nullAndFalse)
{
    CameraGrabber grabber;
    QImage image(1, 1, QImage::Format_RGB32);
    QList<bool> answers;
    grabber.copyLatestImage(image, [&answers](bool there) { answers.append(there); });
    EXPECT_TRUE(image.isNull());
    EXPECT_EQ(answers, QList<bool>({false}));
    grabber.copyLatestImage(image, nullptr);
}

TEST(CameraGrabber, startCamera_indexBeyondTheList_falseWithoutStarting)
{
    ListedGrabber grabber;
    const LogCapture log;
    EXPECT_FALSE(grabber.startCamera(1280, -720, 2, QStringLiteral("Lumivora Camera"), {}));
    EXPECT_FALSE(grabber.isRunning());
    EXPECT_THAT(log.lines(), ElementsAre(QStringLiteral("CameraGrabber::startCamera"),
                                         QStringLiteral("CameraGrabber::stopCamera")));
}

TEST(CameraGrabber, startCamera_nameOfNoDevice_falseWithoutStarting)
{
    ListedGrabber grabber;
    const LogCapture log;
    EXPECT_FALSE(grabber.startCamera(1280, -720, 0, QStringLiteral("Lumivora Camera"), {}));
    EXPECT_FALSE(grabber.startCamera(1280, -720, 0, QStringLiteral("Other"),
                                     QStringLiteral("Lumivora Control")));
    EXPECT_EQ(log.lines().filter(QStringLiteral("tart")).size(), 2); // the calls themselves
}

TEST(CameraGrabber, startCamera_deviceFails_falseAndFixedTexts)
{
    ListedGrabber grabber;
    const LogCapture log;
    EXPECT_FALSE(grabber.startCamera(1280, -720, 1, QStringLiteral("Lumivora"), {}));
    EXPECT_FALSE(grabber.isRunning());
    EXPECT_THAT(
        log.lines(QtDebugMsg),
        ElementsAre(
            QStringLiteral("CameraGrabber::startCamera"),
            QStringLiteral("CameraGrabber::stopCamera"),
            QStringLiteral("Starting Lumivora Camera camera at 1280x720 PREVIEWING"),
            QStringLiteral("Failed to start Lumivora Camera camera at 1280x720 PREVIEWING")));
}

TEST(CameraGrabber, stopCamera_nothingRuns_onlyItsLogLine)
{
    CameraGrabber grabber;
    const LogCapture log;
    grabber.stopCamera();
    grabber.stopCamera();
    EXPECT_EQ(log.count(QStringLiteral("CameraGrabber::stopCamera")), 2);
    EXPECT_FALSE(grabber.isRunning());
}

TEST(CameraGrabber, destroy_always_logsIt)
{
    const LogCapture log;
    {
        const CameraGrabber grabber;
    }
    EXPECT_THAT(log.lines(), ElementsAre(QStringLiteral("CameraGrabber DCTOR!")));
}
