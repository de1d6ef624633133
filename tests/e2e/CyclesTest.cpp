// SPDX-License-Identifier: Apache-2.0
// Many starts and stops leave nothing behind: no memory, descriptor, thread or mapping.
#include "app/core/BaseSettings.h"
#include "tests/support/PipeWireSession.h"
#include "tools/probe/CameraClient.h"
#include "vcam/VCam.h"

#include <QDir>
#include <QFile>

#include <glib.h>
#include <gst/gst.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <functional>
#include <limits>

using lumivora::test::endHelper;
using lumivora::test::PipeWireSession;
using lumivora::test::startHelper;
using lumivora::test::waitUntil;
using lumivora::tools::CameraClient;

namespace {

// Pools, caches and per-thread arenas fill up first; what grows after that is a leak.
constexpr int kWarmUpCycles = 20;
constexpr int kRounds = 4;
constexpr int kCyclesPerRound = 50;

// The allocator keeps what was freed as it pleases: memory and mappings jump now and then. A leak
// shows in every round, so the round with the least growth tells; a page each cycle is too much.
constexpr qsizetype kMappingSlack = 12;
constexpr qsizetype kMemorySlackKb = qsizetype{kCyclesPerRound} * 4;

/** What a process holds, as the system counts it. */
struct Holdings
{
    qsizetype descriptors = 0;
    qsizetype threads = 0;
    qsizetype mappings = 0;
    qsizetype memoryKb = 0; // private and in use

    static Holdings of(const QString &process)
    {
        const QString folder = QStringLiteral("/proc/") + process;
        Holdings result;
        result.descriptors =
            QDir(folder + QStringLiteral("/fd")).entryList(QDir::AllEntries | QDir::System).size();
        result.threads = QDir(folder + QStringLiteral("/task"))
                             .entryList(QDir::Dirs | QDir::NoDotAndDotDot)
                             .size();
        result.mappings = read(folder + QStringLiteral("/maps")).count('\n');
        const QByteArray status = read(folder + QStringLiteral("/status"));
        const QByteArray memory = status.sliced(status.indexOf("RssAnon:") + 8);
        result.memoryKb = memory.first(memory.indexOf("kB")).trimmed().toLongLong();
        return result;
    }

private:
    static QByteArray read(const QString &path)
    {
        QFile file(path);
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    }
};

/** Runs the cycles, and fails when the process holds more and more. */
void expectNoGrowth(const QString &process, const std::function<void()> &cycle)
{
    const auto repeat = [&cycle](int times) {
        for (int i = 0; i < times && !::testing::Test::HasFailure(); ++i) {
            cycle();
        }
    };
    repeat(kWarmUpCycles);
    const Holdings first = Holdings::of(process);
    Holdings before = first;
    qsizetype memoryGrowthKb = std::numeric_limits<qsizetype>::max();
    qsizetype mappingGrowth = memoryGrowthKb;
    for (int round = 0; round < kRounds; ++round) {
        repeat(kCyclesPerRound);
        const Holdings after = Holdings::of(process);
        memoryGrowthKb = std::min(memoryGrowthKb, after.memoryKb - before.memoryKb);
        mappingGrowth = std::min(mappingGrowth, after.mappings - before.mappings);
        before = after;
    }
    // What the last cycle does in the background ends by itself.
    EXPECT_TRUE(waitUntil([&] {
        const Holdings now = Holdings::of(process);
        return now.descriptors <= first.descriptors && now.threads <= first.threads;
    })) << "descriptors "
        << first.descriptors << " -> " << Holdings::of(process).descriptors << ", threads "
        << first.threads << " -> " << Holdings::of(process).threads;
    EXPECT_LE(mappingGrowth, kMappingSlack);
    EXPECT_LE(memoryGrowthKb, kMemorySlackKb);
}

class Cycles : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(_session.isRunning());
        gst_init(nullptr, nullptr);
    }

    /** Starts one of our programs, which stand beside this one. */
    static void startProgram(QProcess &process, const QString &name, const QStringList &arguments,
                             const QString &node)
    {
        const QString path = QCoreApplication::applicationDirPath() + u'/' + name;
        ASSERT_TRUE(startHelper(process, path, arguments));
        ASSERT_TRUE(PipeWireSession::waitForNode(node));
    }

    PipeWireSession _session;
};

} // namespace

TEST_F(Cycles, captureStartAndStop_twoHundredTimes_holdsNoMoreThanBefore)
{
    QProcess standin;
    startProgram(standin, QStringLiteral("lumivora-standin"), {QStringLiteral("--no-microphone")},
                 QStringLiteral("lumivora-standin-camera"));
    BaseSettings settings(QStringLiteral("Orvane"), QStringLiteral("LumivoraControl"));
    VCam vcam(&settings);
    std::atomic<int> frames = 0;
    QObject::connect(
        &vcam, &VCam::onNewFrameAvailable, &vcam, [&frames] { ++frames; }, Qt::DirectConnection);

    expectNoGrowth(QStringLiteral("self"), [&] {
        frames = 0;
        ASSERT_TRUE(vcam.startGrabber());
        ASSERT_TRUE(waitUntil([&frames] { return frames > 0; }));
        vcam.stopGrabber();
        ASSERT_FALSE(vcam.isGrabberRunning());
    });
    endHelper(standin);
}

TEST_F(Cycles, clientsComeAndGo_twoHundredTimes_serviceHoldsNoMoreThanBefore)
{
    QProcess service;
    startProgram(service, QStringLiteral("lumivora-virtual-devices"), {},
                 QStringLiteral("lumivora-control-camera"));
    expectNoGrowth(QString::number(service.processId()), [] {
        CameraClient client(QStringLiteral("Lumivora Control"));
        client.start();
        ASSERT_TRUE(waitUntil([&client] {
            g_main_context_iteration(nullptr, FALSE);
            return client.tally().placeholders() > 0;
        })) << client.lastError().toStdString();
        client.stop();
    });
    endHelper(service);
}
