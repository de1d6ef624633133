// SPDX-License-Identifier: Apache-2.0
// The service as a process of its own, with real clients in a private PipeWire session.
#include "tests/support/PipeWireSession.h"
#include "tests/virtual_devices/CameraReader.h"
#include "vcam/framechannel/FrameChannel.h"
#include "vcam/framechannel/InstanceCounter.h"
#include "virtual_devices/ServiceLock.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QProcess>

#include <gmock/gmock.h>

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <cstdint>
#include <memory>
#include <thread>
#include <vector>

namespace lumivora {

namespace {

using namespace std::chrono_literals;
using test::CameraReader;
using test::kPatience;
using test::PipeWireSession;
using test::waitUntil;

const QString kCamera = QStringLiteral("lumivora-control-camera");
const QString kBgrx = QStringLiteral("video/x-raw,format=BGRx");
constexpr std::size_t kFrameBytes = std::size_t{1280} * 720 * 4;
constexpr std::uint64_t kFrameDuration100ns = 330000;

/** Bytes that no other seed has, different in every row. */
QByteArray patternedFrame(unsigned seed)
{
    QByteArray frame(kFrameBytes, Qt::Uninitialized);
    unsigned value = seed * 2654435761U + 1;
    for (char &byte : frame) {
        value = value * 1664525U + 1013904223U;
        byte = static_cast<char>(value >> 24);
    }
    return frame;
}

/** Writes one frame over and over, at 30 a second, as the application does. */
class Producer
{
public:
    explicit Producer(const QByteArray &frame)
        : _channel(FrameChannel::create(1280, 720, kFrameDuration100ns)), _frame(frame)
    {
        EXPECT_TRUE(_channel);
        _thread = std::thread([this] {
            while (!_stop && _channel) {
                _channel->writeFrame(_frame.constData(), kFrameBytes, 0);
                std::this_thread::sleep_for(33ms);
            }
        });
    }
    ~Producer()
    {
        _stop = true;
        _thread.join();
    }

    Producer(const Producer &) = delete;
    Producer &operator=(const Producer &) = delete;

private:
    std::unique_ptr<FrameChannel> _channel;
    QByteArray _frame;
    std::atomic<bool> _stop{false};
    std::thread _thread;
};

class VirtualCameraTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(session.isRunning());
        startService();
        ASSERT_TRUE(counter.open());
    }

    void TearDown() override { test::endHelper(service); }

    void startService()
    {
        ASSERT_TRUE(test::startHelper(service,
                                      QCoreApplication::applicationDirPath() +
                                          QStringLiteral("/lumivora-virtual-devices"),
                                      {}));
        ASSERT_TRUE(PipeWireSession::waitForNode(kCamera));
    }

    /** A client in a process of its own. */
    static void startClient(QProcess &client)
    {
        ASSERT_TRUE(test::startHelper(client, QStringLiteral("gst-launch-1.0"),
                                      {QStringLiteral("-q"), QStringLiteral("pipewiresrc"),
                                       QStringLiteral("target-object=") + kCamera,
                                       QStringLiteral("!"), QStringLiteral("video/x-raw"),
                                       QStringLiteral("!"), QStringLiteral("fakesink")}));
    }

    [[nodiscard]] std::uint32_t clients() const
    {
        std::uint32_t count = UINT32_MAX;
        EXPECT_TRUE(counter.read(count));
        return count;
    }

    [[nodiscard]] bool waitForClients(std::uint32_t count) const
    {
        return waitUntil([&] { return clients() == count; });
    }

    PipeWireSession session;
    QProcess service;
    InstanceCounter counter;
};

bool isPlaceholder(const QByteArray &bgrx)
{
    // The artwork's corner is dark and blue; what tests write is random or one colour.
    const auto byte = [&bgrx](int index) {
        return static_cast<unsigned char>(bgrx[index]);
    };
    return bgrx.size() == static_cast<qsizetype>(kFrameBytes) && byte(0) > byte(2) &&
           byte(0) < 96 && std::abs(byte(0) - byte(4)) <= 3 && std::abs(byte(0) - byte(8)) <= 3;
}

} // namespace

TEST_F(VirtualCameraTest, device_listed_hasFixedFormatsInTheOrderThatBrowsersNeed)
{
    QList<test::ListedCamera> cameras;
    ASSERT_TRUE(waitUntil([&cameras] {
        cameras = test::listCameras();
        return cameras.size() == 1;
    }));
    EXPECT_EQ(cameras[0].name, QStringLiteral("Lumivora Control"));
    EXPECT_EQ(cameras[0].nodeName, kCamera);
    EXPECT_EQ(cameras[0].role, QStringLiteral("Camera"));
    const QStringList expected = {
        QStringLiteral("video/x-raw YUY2 1280x720 30/1"),
        QStringLiteral("video/x-raw I420 1280x720 30/1"),
        QStringLiteral("video/x-raw NV12 1280x720 30/1"),
        QStringLiteral("video/x-raw BGRA 1280x720 30/1"),
        QStringLiteral("video/x-raw BGRx 1280x720 30/1"),
    };
    EXPECT_EQ(cameras[0].caps, expected) << cameras[0].caps.join(u'\n').toStdString();
}

TEST_F(VirtualCameraTest, client_noProducer_getsThePlaceholder)
{
    CameraReader client(kCamera, kBgrx);
    const auto frame = client.next(kPatience);
    ASSERT_TRUE(frame);
    EXPECT_TRUE(isPlaceholder(frame->bytes));
    EXPECT_TRUE(client.next(kPatience)) << "one picture only";
}

TEST_F(VirtualCameraTest, client_anyFormatThatIsOffered_getsFramesOfItsSize)
{
    const std::vector<std::pair<QString, qsizetype>> kFormats = {
        {QStringLiteral("YUY2"), 1280 * 720 * 2},     {QStringLiteral("I420"), 1280 * 720 * 3 / 2},
        {QStringLiteral("NV12"), 1280 * 720 * 3 / 2}, {QStringLiteral("BGRA"), 1280 * 720 * 4},
        {QStringLiteral("BGRx"), 1280 * 720 * 4},
    };
    for (const auto &[format, bytes] : kFormats) {
        CameraReader client(kCamera, QStringLiteral("video/x-raw,format=") + format);
        const auto frame = client.next(kPatience);
        ASSERT_TRUE(frame) << format.toStdString();
        EXPECT_EQ(frame->bytes.size(), bytes) << format.toStdString();
    }
}

TEST_F(VirtualCameraTest, client_producerWrites_getsTheFramesByteForByte)
{
    const QByteArray written = patternedFrame(1);
    const Producer producer(written);
    CameraReader client(kCamera, kBgrx);
    EXPECT_TRUE(
        client.waitFor([&](const QByteArray &frame) { return frame == written; }, kPatience));
}

TEST_F(VirtualCameraTest, client_frames_carryTheTimeAtWhichTheyWereSent)
{
    CameraReader client(kCamera, kBgrx);
    ASSERT_TRUE(client.next(kPatience));
    const auto before = std::chrono::steady_clock::now().time_since_epoch();
    ASSERT_TRUE(client.next(kPatience)); // may have waited already
    const auto frame = client.next(kPatience);
    const auto after = std::chrono::steady_clock::now().time_since_epoch();
    ASSERT_TRUE(frame);
    const std::chrono::nanoseconds sent(frame->timeNs);
    EXPECT_GE(sent, before);
    EXPECT_LE(sent, after);
}

TEST_F(VirtualCameraTest, twoClients_bothGetTheSameFrames)
{
    const QByteArray written = patternedFrame(2);
    const Producer producer(written);
    CameraReader first(kCamera, kBgrx);
    CameraReader second(kCamera, kBgrx);
    const auto isWritten = [&](const QByteArray &frame) {
        return frame == written;
    };
    EXPECT_TRUE(first.waitFor(isWritten, kPatience));
    EXPECT_TRUE(second.waitFor(isWritten, kPatience));
    EXPECT_TRUE(waitForClients(2));
    EXPECT_TRUE(first.waitFor(isWritten, kPatience));
}

TEST_F(VirtualCameraTest, count_clientsComeAndGo_follows)
{
    EXPECT_EQ(clients(), 0U);
    auto first = std::make_unique<CameraReader>(kCamera, kBgrx);
    EXPECT_TRUE(waitForClients(1));
    auto second = std::make_unique<CameraReader>(kCamera, kBgrx);
    EXPECT_TRUE(waitForClients(2));
    first.reset();
    EXPECT_TRUE(waitForClients(1));
    second.reset();
    EXPECT_TRUE(waitForClients(0));
}

TEST_F(VirtualCameraTest, count_clientIsKilled_isCorrectedAndTheOtherGoesOn)
{
    QProcess victim;
    startClient(victim);
    CameraReader survivor(kCamera, QStringLiteral("video/x-raw"));
    ASSERT_TRUE(waitForClients(2));
    victim.kill();
    ASSERT_TRUE(victim.waitForFinished());
    EXPECT_TRUE(waitUntil([this] { return clients() == 1; }, 2000ms));
    EXPECT_TRUE(survivor.next(kPatience));
}

TEST_F(VirtualCameraTest, survivor_manyOtherClientsAreKilled_keepsGettingFrames)
{
    // Each takes the buffers that it was looking at with it.
    CameraReader survivor(kCamera, QStringLiteral("video/x-raw"));
    ASSERT_TRUE(survivor.next(kPatience));
    const Producer producer(patternedFrame(3));
    for (int i = 0; i < 10; ++i) {
        QProcess victim;
        startClient(victim);
        ASSERT_TRUE(waitForClients(2));
        victim.kill();
        ASSERT_TRUE(victim.waitForFinished());
        ASSERT_TRUE(waitForClients(1));
    }
    for (int i = 0; i < 30; ++i) {
        ASSERT_TRUE(survivor.next(kPatience)) << i;
    }
}

TEST_F(VirtualCameraTest, client_producerEnds_getsThePlaceholderAgain)
{
    CameraReader client(kCamera, kBgrx);
    {
        const QByteArray written = patternedFrame(4);
        const Producer producer(written);
        ASSERT_TRUE(
            client.waitFor([&](const QByteArray &frame) { return frame == written; }, kPatience));
    }
    EXPECT_TRUE(client.waitFor(&isPlaceholder, kPatience));
}

TEST_F(VirtualCameraTest, client_producerIsReplaced_isFedWithoutOpeningAgain)
{
    CameraReader client(kCamera, kBgrx);
    for (unsigned seed = 5; seed < 8; ++seed) {
        const QByteArray written = patternedFrame(seed);
        const Producer producer(written);
        ASSERT_TRUE(
            client.waitFor([&](const QByteArray &frame) { return frame == written; }, kPatience))
            << seed;
    }
}

TEST_F(VirtualCameraTest, client_producerIsKilled_getsThePlaceholderAndThenItsSuccessor)
{
    CameraReader client(kCamera, kBgrx);
    const QByteArray written = patternedFrame(8);
    const pid_t producer = fork();
    ASSERT_GE(producer, 0);
    if (producer == 0) {
        const auto channel = FrameChannel::create(1280, 720, kFrameDuration100ns);
        while (channel) {
            channel->writeFrame(written.constData(), kFrameBytes, 0);
            usleep(33000);
        }
        _exit(1);
    }
    const bool gotFrame =
        client.waitFor([&](const QByteArray &frame) { return frame == written; }, kPatience);
    kill(producer, SIGKILL);
    waitpid(producer, nullptr, 0);
    ASSERT_TRUE(gotFrame);
    EXPECT_TRUE(client.waitFor(&isPlaceholder, kPatience));

    const QByteArray later = patternedFrame(9);
    const Producer successor(later);
    EXPECT_TRUE(client.waitFor([&](const QByteArray &frame) { return frame == later; }, kPatience));
}

TEST_F(VirtualCameraTest, client_producerOfAnotherSize_getsThePlaceholder)
{
    const auto channel = FrameChannel::create(640, 480, kFrameDuration100ns);
    ASSERT_TRUE(channel);
    const std::vector<char> white(std::size_t{640} * 480 * 4, '\xFF');
    channel->writeFrame(white.data(), white.size(), 0);
    CameraReader client(kCamera, kBgrx);
    for (int i = 0; i < 5; ++i) {
        const auto frame = client.next(kPatience);
        ASSERT_TRUE(frame);
        EXPECT_TRUE(isPlaceholder(frame->bytes));
    }
}

TEST_F(VirtualCameraTest, client_garbageForAChannel_getsThePlaceholder)
{
    QFile file(
        QDir(session.runtimePath()).filePath(QStringLiteral("lumivora-control/LumivoraCamVideo")));
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write(QByteArray(5000, '\xEE'));
    file.close();
    CameraReader client(kCamera, kBgrx);
    const auto frame = client.next(kPatience);
    ASSERT_TRUE(frame);
    EXPECT_TRUE(isPlaceholder(frame->bytes));
    EXPECT_EQ(service.state(), QProcess::Running);
}

TEST_F(VirtualCameraTest, service_pipeWireRestarts_returnsAndServesNewClients)
{
    {
        CameraReader client(kCamera, kBgrx);
        ASSERT_TRUE(client.next(kPatience));
        ASSERT_TRUE(waitForClients(1));
        session.killServer();
        EXPECT_TRUE(waitForClients(0));
    }
    ASSERT_TRUE(session.startServer());
    ASSERT_TRUE(PipeWireSession::waitForNode(kCamera));
    CameraReader client(kCamera, kBgrx);
    EXPECT_TRUE(client.next(kPatience));
    EXPECT_TRUE(waitForClients(1));
}

TEST_F(VirtualCameraTest, service_startedBeforePipeWire_appearsOnceItIsThere)
{
    test::endHelper(service);
    session.killServer();
    ASSERT_TRUE(test::startHelper(
        service,
        QCoreApplication::applicationDirPath() + QStringLiteral("/lumivora-virtual-devices"), {}));
    ASSERT_TRUE(waitUntil(&isVirtualDevicesServiceRunning));
    ASSERT_TRUE(session.startServer());
    EXPECT_TRUE(PipeWireSession::waitForNode(kCamera));
}

TEST_F(VirtualCameraTest, service_killedWithClients_resetsTheCountWhenItStartsAgain)
{
    {
        CameraReader client(kCamera, kBgrx);
        ASSERT_TRUE(waitForClients(1));
        service.kill();
        ASSERT_TRUE(service.waitForFinished());
    }
    EXPECT_EQ(clients(), 1U) << "nobody was there to correct it";
    EXPECT_FALSE(isVirtualDevicesServiceRunning());
    ASSERT_TRUE(PipeWireSession::waitForNodeGone(kCamera));
    startService();
    EXPECT_TRUE(waitForClients(0));
    CameraReader client(kCamera, kBgrx);
    EXPECT_TRUE(client.next(kPatience));
}

TEST_F(VirtualCameraTest, service_secondInstance_endsAtOnceAndLeavesTheFirstAlone)
{
    EXPECT_TRUE(isVirtualDevicesServiceRunning());
    CameraReader client(kCamera, kBgrx);
    ASSERT_TRUE(waitForClients(1));
    QProcess second;
    ASSERT_TRUE(test::startHelper(second, service.program(), {}));
    ASSERT_TRUE(second.waitForFinished());
    EXPECT_EQ(second.exitStatus(), QProcess::NormalExit);
    EXPECT_EQ(second.exitCode(), 0);
    EXPECT_EQ(clients(), 1U);
    EXPECT_EQ(PipeWireSession::nodeNames().count(kCamera), 1);
}

TEST_F(VirtualCameraTest, service_terminated_endsCleanlyWithTheCountAtZero)
{
    for (const int signal : {SIGTERM, SIGINT}) {
        if (service.state() == QProcess::NotRunning) {
            startService();
        }
        CameraReader client(kCamera, kBgrx);
        ASSERT_TRUE(waitForClients(1));
        ::kill(static_cast<pid_t>(service.processId()), signal);
        ASSERT_TRUE(service.waitForFinished());
        EXPECT_EQ(service.exitStatus(), QProcess::NormalExit);
        EXPECT_EQ(service.exitCode(), 0);
        EXPECT_EQ(clients(), 0U);
        EXPECT_FALSE(isVirtualDevicesServiceRunning());
        ASSERT_TRUE(PipeWireSession::waitForNodeGone(kCamera));
    }
}

TEST_F(VirtualCameraTest, service_hundredClientsComeAndGo_growsNeitherInFilesNorInMemory)
{
    const QString process = QStringLiteral("/proc/%1").arg(service.processId());
    const auto openFiles = [&process] {
        return QDir(process + QStringLiteral("/fd"))
            .entryList(QDir::AllEntries | QDir::System | QDir::NoDotAndDotDot)
            .size();
    };
    const auto threads = [&process] {
        return QDir(process + QStringLiteral("/task"))
            .entryList(QDir::Dirs | QDir::NoDotAndDotDot)
            .size();
    };
    const auto mappings = [&process] {
        QFile file(process + QStringLiteral("/maps"));
        return file.open(QIODevice::ReadOnly) ? file.readAll().count('\n') : -1;
    };
    const auto privateKib = [&process] {
        QFile file(process + QStringLiteral("/smaps_rollup"));
        qlonglong sum = 0;
        if (file.open(QIODevice::ReadOnly)) {
            for (const QByteArray &line : file.readAll().split('\n')) {
                if (line.startsWith("Private_Dirty:")) {
                    sum += line.simplified().split(' ').at(1).toLongLong();
                }
            }
        }
        return sum;
    };
    const auto cycles = [](int count) {
        for (int i = 0; i < count; ++i) {
            CameraReader client(kCamera, kBgrx);
            ASSERT_TRUE(client.next(kPatience)) << i;
        }
    };
    cycles(20);
    ASSERT_TRUE(waitForClients(0));
    const auto files = openFiles();
    const auto threadCount = threads();
    const auto maps = mappings();
    const auto memory = privateKib();
    cycles(100);
    ASSERT_TRUE(waitForClients(0));
    EXPECT_LE(openFiles(), files + 2);
    EXPECT_LE(threads(), threadCount);
    EXPECT_LE(mappings(), maps + 8);
    EXPECT_LE(privateKib(), memory + 2048);
}

} // namespace lumivora
