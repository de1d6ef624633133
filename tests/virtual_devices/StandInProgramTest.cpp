// SPDX-License-Identifier: Apache-2.0
// The stand-in as a process of its own, with real clients in a private PipeWire session.
#include "tests/support/PipeWireSession.h"
#include "tests/virtual_devices/CameraReader.h"
#include "tools/probe/FrameStamp.h"

#include <QCoreApplication>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>

#include <gmock/gmock.h>

#include <sys/prctl.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <optional>

namespace lumivora::tools {

namespace {

using namespace std::chrono_literals;
using test::CameraReader;
using test::kPatience;
using test::PipeWireSession;

const QString kCamera = QStringLiteral("lumivora-standin-camera");
const QString kMicrophone = QStringLiteral("lumivora-standin-microphone");

class StandInProgramTest : public ::testing::Test
{
protected:
    void SetUp() override { ASSERT_TRUE(session.isRunning()); }
    void TearDown() override { test::endHelper(standIn); }

    void start(const QStringList &arguments)
    {
        standIn.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        standIn.setChildProcessModifier([] { prctl(PR_SET_PDEATHSIG, SIGTERM); });
        standIn.start(QCoreApplication::applicationDirPath() + QStringLiteral("/lumivora-standin"),
                      arguments);
        ASSERT_TRUE(standIn.waitForStarted());
        ASSERT_EQ(answer()[u"event"].toString(), QStringLiteral("ready"));
        ASSERT_TRUE(PipeWireSession::waitForNode(kCamera));
    }

    QJsonObject answer()
    {
        while (!standIn.canReadLine()) {
            if (!standIn.waitForReadyRead(static_cast<int>(kPatience.count()))) {
                return {};
            }
        }
        return QJsonDocument::fromJson(standIn.readLine()).object();
    }

    QJsonObject command(const char *line)
    {
        standIn.write(line);
        standIn.write("\n");
        return answer();
    }

    PipeWireSession session;
    QProcess standIn;
};

std::optional<FrameStamp> stampOf(const QByteArray &bgrx)
{
    const auto *pixels = reinterpret_cast<const std::uint8_t *>(bgrx.constData());
    const auto top = readFrameStamp(pixels, 1280, 720, 1280 * 4, StampBand::Top);
    const auto bottom = readFrameStamp(pixels, 1280, 720, 1280 * 4, StampBand::Bottom);
    EXPECT_EQ(top, bottom);
    return top;
}

/** Stamped frames, decoded to B G R X whatever the camera sends. */
QString decoded(const QString &caps)
{
    return caps + QStringLiteral(" ! decodebin ! videoconvert ! video/x-raw,format=BGRx");
}

} // namespace

TEST_F(StandInProgramTest, start_defaults_listsACameraAndAMicrophone)
{
    start({});
    EXPECT_TRUE(PipeWireSession::waitForNode(kMicrophone));
    const auto cameras = test::listCameras();
    ASSERT_EQ(cameras.size(), 1);
    EXPECT_EQ(cameras[0].name, QStringLiteral("Lumivora Camera"));
    EXPECT_EQ(cameras[0].caps, QStringList{QStringLiteral("video/x-raw YUY2 1280x720 30/1")});
}

TEST_F(StandInProgramTest, start_noMicrophone_listsTheCameraAlone)
{
    start({QStringLiteral("--no-microphone")});
    EXPECT_FALSE(PipeWireSession::nodeNames().contains(kMicrophone));
}

TEST_F(StandInProgramTest, client_anyFormat_readsStampsThatCountUp)
{
    start({QStringLiteral("--no-microphone"), QStringLiteral("--format"), QStringLiteral("MJPG"),
           QStringLiteral("--extra-formats"), QStringLiteral("YUY2,I420,NV12,BGRx,BGRA,RGB")});
    QStringList caps = {QStringLiteral("image/jpeg")};
    for (const char *format : {"YUY2", "I420", "NV12", "BGRx", "BGRA", "RGB"}) {
        caps += QStringLiteral("video/x-raw,format=%1").arg(QLatin1StringView(format));
    }
    for (const QString &wanted : caps) {
        CameraReader client(kCamera, decoded(wanted));
        std::optional<FrameStamp> before;
        for (int i = 0; i < 3; ++i) {
            const auto frame = client.next(kPatience);
            ASSERT_TRUE(frame) << wanted.toStdString();
            const auto stamp = stampOf(frame->bytes);
            ASSERT_TRUE(stamp) << wanted.toStdString();
            if (before) {
                EXPECT_GT(stamp->number, before->number);
                EXPECT_GT(stamp->timeUs, before->timeUs);
            }
            before = stamp;
        }
    }
}

TEST_F(StandInProgramTest, stall_client_getsNothingForThatLongAndThenGoesOn)
{
    start({QStringLiteral("--no-microphone")});
    CameraReader client(kCamera, decoded(QStringLiteral("video/x-raw")));
    const auto first = client.next(kPatience);
    ASSERT_TRUE(first);
    const QJsonObject answered = command("stall 1.5");
    EXPECT_EQ(answered[u"event"].toString(), QStringLiteral("stall"));
    EXPECT_TRUE(answered[u"ok"].toBool());
    std::uint64_t longestUs = 0;
    auto before = stampOf(first->bytes);
    for (int i = 0; i < 30; ++i) { // more than are on their way when the stall begins
        const auto frame = client.next(kPatience);
        ASSERT_TRUE(frame);
        const auto stamp = stampOf(frame->bytes);
        ASSERT_TRUE(before && stamp);
        longestUs = std::max(longestUs, stamp->timeUs - before->timeUs);
        before = stamp;
    }
    EXPECT_GE(longestUs, 1'400'000U);
}

TEST_F(StandInProgramTest, vanishAndReturn_devices_goAndComeBack)
{
    start({});
    ASSERT_TRUE(PipeWireSession::waitForNode(kMicrophone));
    EXPECT_FALSE(command("vanish")[u"plugged"].toBool());
    EXPECT_TRUE(PipeWireSession::waitForNodeGone(kCamera));
    EXPECT_TRUE(PipeWireSession::waitForNodeGone(kMicrophone));
    EXPECT_TRUE(command("return")[u"plugged"].toBool());
    EXPECT_TRUE(PipeWireSession::waitForNode(kCamera));
    EXPECT_TRUE(PipeWireSession::waitForNode(kMicrophone));
    CameraReader client(kCamera, decoded(QStringLiteral("video/x-raw")));
    EXPECT_TRUE(client.next(kPatience));
}

TEST_F(StandInProgramTest, pipeWireRestarts_devices_comeBack)
{
    start({});
    ASSERT_TRUE(PipeWireSession::waitForNode(kMicrophone));
    session.killServer();
    ASSERT_TRUE(session.startServer());
    EXPECT_TRUE(PipeWireSession::waitForNode(kCamera));
    EXPECT_TRUE(PipeWireSession::waitForNode(kMicrophone));
}

TEST_F(StandInProgramTest, rate_changed_paceFollows)
{
    start({QStringLiteral("--no-microphone")});
    EXPECT_EQ(command("rate 10")[u"rate"].toDouble(), 10.0);
    CameraReader client(kCamera, decoded(QStringLiteral("video/x-raw")));
    ASSERT_TRUE(client.next(kPatience));
    const auto first = client.next(kPatience);
    std::optional<CameraReader::Frame> last;
    for (int i = 0; i < 5; ++i) {
        last = client.next(kPatience);
    }
    ASSERT_TRUE(first && last);
    const auto from = stampOf(first->bytes);
    const auto to = stampOf(last->bytes);
    // Deadlines are absolute: even on a busy machine n frames span about n tenths of a second.
    const double seconds = static_cast<double>(to->timeUs - from->timeUs) / 1e6;
    EXPECT_NEAR(seconds, (to->number - from->number) / 10.0, 0.09);
}

TEST_F(StandInProgramTest, stats_withAClient_tellWhatWasOffered)
{
    start({QStringLiteral("--no-microphone")});
    EXPECT_EQ(command("stats")[u"offered"].toInt(), 0);
    CameraReader client(kCamera, decoded(QStringLiteral("video/x-raw")));
    for (int i = 0; i < 5; ++i) {
        ASSERT_TRUE(client.next(kPatience));
    }
    const QJsonObject stats = command("stats");
    EXPECT_GE(stats[u"offered"].toInt(), 5);
    EXPECT_EQ(stats[u"clients"].toInt(), 1);
    EXPECT_GE(stats[u"number"].toInt(), stats[u"offered"].toInt());
}

TEST_F(StandInProgramTest, command_unknown_isRefusedAndHarmless)
{
    start({QStringLiteral("--no-microphone")});
    EXPECT_FALSE(command("explode now")[u"ok"].toBool(true));
    EXPECT_FALSE(command("stall soon")[u"ok"].toBool(true));
    EXPECT_TRUE(command("stats")[u"ok"].toBool());
}

TEST_F(StandInProgramTest, quit_program_endsWithALastLine)
{
    start({QStringLiteral("--no-microphone")});
    EXPECT_EQ(command("quit")[u"event"].toString(), QStringLiteral("quit"));
    EXPECT_EQ(answer()[u"event"].toString(), QStringLiteral("end"));
    ASSERT_TRUE(standIn.waitForFinished());
    EXPECT_EQ(standIn.exitCode(), 0);
}

TEST_F(StandInProgramTest, seconds_over_programEndsByItself)
{
    start({QStringLiteral("--no-microphone"), QStringLiteral("--seconds"), QStringLiteral("1")});
    ASSERT_TRUE(standIn.waitForFinished());
    EXPECT_EQ(standIn.exitCode(), 0);
}

TEST_F(StandInProgramTest, arguments_absurd_areRefused)
{
    for (const QStringList &arguments : {
             QStringList{QStringLiteral("--size"), QStringLiteral("1281x720")},
             QStringList{QStringLiteral("--size"), QStringLiteral("0x0")},
             QStringList{QStringLiteral("--size"), QStringLiteral("wide")},
             QStringList{QStringLiteral("--rate"), QStringLiteral("0")},
             QStringList{QStringLiteral("--format"), QStringLiteral("H264")},
             QStringList{QStringLiteral("--seconds"), QStringLiteral("-1")},
         }) {
        QProcess refused;
        refused.start(QCoreApplication::applicationDirPath() + QStringLiteral("/lumivora-standin"),
                      arguments);
        ASSERT_TRUE(refused.waitForFinished()) << arguments.join(u' ').toStdString();
        EXPECT_EQ(refused.exitCode(), 2) << arguments.join(u' ').toStdString();
    }
}

} // namespace lumivora::tools
