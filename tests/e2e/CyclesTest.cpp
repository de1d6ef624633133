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

#include <atomic>
#include <cstdio>

using lumivora::test::endHelper;
using lumivora::test::PipeWireSession;
using lumivora::test::startHelper;
using lumivora::test::waitUntil;
using lumivora::tools::CameraClient;

namespace {

constexpr int kCycles = 200;
// Pools, caches and per-thread arenas fill up first; what grows after that is a leak.
constexpr int kWarmUpCycles = 20;

// One mapping or one page a cycle would be far beyond these, which leave room for the allocator.
constexpr qsizetype kMappingSlack = 12;
constexpr qsizetype kMemorySlackKb = 600;

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

void expectNoGrowth(const Holdings &before, const Holdings &after)
{
    EXPECT_EQ(after.descriptors, before.descriptors);
    EXPECT_EQ(after.threads, before.threads);
    EXPECT_LE(after.mappings, before.mappings + kMappingSlack);
    EXPECT_LE(after.memoryKb, before.memoryKb + kMemorySlackKb);
    std::printf("descriptors %lld -> %lld, threads %lld -> %lld, mappings %lld -> %lld, "
                "memory %lld -> %lld kB\n",
                before.descriptors, after.descriptors, before.threads, after.threads,
                before.mappings, after.mappings, before.memoryKb, after.memoryKb);
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

    Holdings before;
    for (int cycle = 0; cycle < kWarmUpCycles + kCycles; ++cycle) {
        if (cycle == kWarmUpCycles) {
            before = Holdings::of(QStringLiteral("self"));
        }
        frames = 0;
        ASSERT_TRUE(vcam.startGrabber()) << cycle;
        ASSERT_TRUE(waitUntil([&frames] { return frames > 0; })) << cycle;
        vcam.stopGrabber();
        ASSERT_FALSE(vcam.isGrabberRunning());
    }
    // The last grabber is deleted later, on the worker.
    ASSERT_TRUE(waitUntil(
        [&before] { return Holdings::of(QStringLiteral("self")).threads <= before.threads; }));
    expectNoGrowth(before, Holdings::of(QStringLiteral("self")));
    endHelper(standin);
}

TEST_F(Cycles, clientsComeAndGo_twoHundredTimes_serviceHoldsNoMoreThanBefore)
{
    QProcess service;
    startProgram(service, QStringLiteral("lumivora-virtual-devices"), {},
                 QStringLiteral("lumivora-control-camera"));
    const QString id = QString::number(service.processId());

    Holdings before;
    for (int cycle = 0; cycle < kWarmUpCycles + kCycles; ++cycle) {
        if (cycle == kWarmUpCycles) {
            before = Holdings::of(id);
        }
        CameraClient client(QStringLiteral("Lumivora Control"));
        client.start();
        ASSERT_TRUE(waitUntil([&client] {
            g_main_context_iteration(nullptr, FALSE);
            return client.tally().placeholders() > 0;
        })) << cycle
            << ": " << client.lastError().toStdString();
        client.stop();
    }
    ASSERT_TRUE(waitUntil([&] { return Holdings::of(id).descriptors <= before.descriptors; }));
    expectNoGrowth(before, Holdings::of(id));
    endHelper(service);
}
