// SPDX-License-Identifier: Apache-2.0
// lumivora-probe: opens a stamped camera as any client does and reports what it got.
#include "tools/probe/CameraClient.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>

#include <glib-unix.h>
#include <gst/gst.h>

#include <csignal>
#include <cstdio>

using lumivora::tools::CameraClient;
using lumivora::tools::FrameTally;

namespace {

constexpr guint kTickMs = 50;
constexpr std::uint64_t kSecondUs = 1'000'000;

struct Options
{
    QString target;
    double seconds = 0;
    double wait = 0;
    QString snapshot;
    QString report;
    bool liveLines = false;
};

/** One run: begins with the program, ends with the picture's length, the patience or a signal. */
struct Run
{
    Options options;
    CameraClient client;
    GMainLoop *loop = g_main_loop_new(nullptr, FALSE);
    std::uint64_t startedUs = CameraClient::nowUs();
    std::uint64_t lineUs = startedUs;
    FrameTally atLine; // the figures when the last live line was printed

    explicit Run(const Options &given) : options(given), client(given.target) {}
    ~Run() { g_main_loop_unref(loop); }
    Run(const Run &) = delete;
    Run &operator=(const Run &) = delete;
};

Options parse(const QCoreApplication &application)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral(
        "Opens a camera of the stand-in or the virtual camera behind it, and reports "
        "what it got.\nExit status: 0 with a live picture, 1 without."));
    parser.addHelpOption();
    const QCommandLineOption target(QStringLiteral("target"),
                                    QStringLiteral("Part of the camera's displayed name."),
                                    QStringLiteral("name"), QStringLiteral("Lumivora Control"));
    const QCommandLineOption seconds(
        QStringLiteral("seconds"),
        QStringLiteral("End after so many seconds of live picture (0: when told to)."),
        QStringLiteral("n"), QStringLiteral("0"));
    const QCommandLineOption wait(
        QStringLiteral("wait"),
        QStringLiteral("Give up when no live picture has come after so many seconds (0: never)."),
        QStringLiteral("n"), QStringLiteral("0"));
    const QCommandLineOption snapshot(QStringLiteral("snapshot"),
                                      QStringLiteral("Save the last live frame as PNG."),
                                      QStringLiteral("file"));
    const QCommandLineOption report(QStringLiteral("report"),
                                    QStringLiteral("Write the figures as JSON."),
                                    QStringLiteral("file"));
    const QCommandLineOption live(QStringLiteral("live-lines"),
                                  QStringLiteral("Print a line of JSON every second."));
    parser.addOptions({target, seconds, wait, snapshot, report, live});
    parser.process(application);
    return {.target = parser.value(target),
            .seconds = parser.value(seconds).toDouble(),
            .wait = parser.value(wait).toDouble(),
            .snapshot = parser.value(snapshot),
            .report = parser.value(report),
            .liveLines = parser.isSet(live)};
}

qint64 number(std::uint64_t value)
{
    return static_cast<qint64>(value);
}

double secondsBetween(std::uint64_t fromUs, std::uint64_t toUs)
{
    return static_cast<double>(toUs - fromUs) / static_cast<double>(kSecondUs);
}

/** What the last second brought, for someone who watches. */
void printLine(Run &run, std::uint64_t now)
{
    const FrameTally tally = run.client.tally();
    const std::uint64_t fresh = tally.delivered() - run.atLine.delivered();
    QJsonObject line{
        {QStringLiteral("t"), secondsBetween(run.startedUs, now)},
        {QStringLiteral("opened"), run.client.opened()},
        {QStringLiteral("delivered"), number(tally.delivered())},
        {QStringLiteral("placeholders"), number(tally.placeholders())},
        {QStringLiteral("torn"), number(tally.torn())},
        {QStringLiteral("fps"), static_cast<double>(fresh) / secondsBetween(run.lineUs, now)},
        {QStringLiteral("latency_ms"), tally.latencyMs(0.5, run.atLine.delivered())},
    };
    if (const auto &last = tally.last()) {
        line.insert(QStringLiteral("number"), number(last->number));
    }
    std::puts(QJsonDocument(line).toJson(QJsonDocument::Compact).constData());
    std::fflush(stdout);
    run.lineUs = now;
    run.atLine = tally;
}

gboolean tick(gpointer data)
{
    auto &run = *static_cast<Run *>(data);
    const std::uint64_t now = CameraClient::nowUs();
    if (run.options.liveLines && now - run.lineUs >= kSecondUs) {
        printLine(run, now);
    }
    const std::uint64_t liveSince = run.client.tally().firstArrivalUs();
    const bool enough = run.options.seconds > 0 && liveSince != 0 &&
                        secondsBetween(liveSince, now) >= run.options.seconds;
    const bool tooLong = run.options.wait > 0 && liveSince == 0 &&
                         secondsBetween(run.startedUs, now) >= run.options.wait;
    if (enough || tooLong) {
        g_main_loop_quit(run.loop);
    }
    return G_SOURCE_CONTINUE;
}

QJsonObject reportOf(const Run &run)
{
    const FrameTally tally = run.client.tally();
    QJsonObject report{
        {QStringLiteral("target"), run.options.target},
        {QStringLiteral("format"), run.client.format()},
        {QStringLiteral("opened"), run.client.opened()},
        {QStringLiteral("last_error"), run.client.lastError()},
        {QStringLiteral("delivered"), number(tally.delivered())},
        {QStringLiteral("repeated"), number(tally.repeated())},
        {QStringLiteral("skipped"), number(tally.skipped())},
        {QStringLiteral("torn"), number(tally.torn())},
        {QStringLiteral("placeholders"), number(tally.placeholders())},
        {QStringLiteral("live_seconds"), tally.liveSeconds()},
        {QStringLiteral("fps"), tally.fps()},
        {QStringLiteral("latency_ms_p50"), tally.latencyMs(0.5)},
        {QStringLiteral("latency_ms_p99"), tally.latencyMs(0.99)},
    };
    const auto &first = tally.first();
    const auto &last = tally.last();
    if (first && last) {
        report.insert(QStringLiteral("first_number"), number(first->number));
        report.insert(QStringLiteral("last_number"), number(last->number));
        report.insert(QStringLiteral("first_live_after_s"),
                      secondsBetween(run.startedUs, tally.firstArrivalUs()));
    }
    return report;
}

/** @return false, with the reason on the standard error stream, when a file cannot be written */
bool writeResults(const Run &run)
{
    const QImage picture = run.client.picture();
    if (!run.options.snapshot.isEmpty() && !picture.isNull() &&
        !picture.save(run.options.snapshot, "PNG")) {
        std::fprintf(stderr, "Cannot write %s\n", qPrintable(run.options.snapshot));
        return false;
    }
    const QByteArray report = QJsonDocument(reportOf(run)).toJson();
    if (run.options.report.isEmpty()) {
        if (!run.options.liveLines) {
            std::fputs(report.constData(), stdout);
        }
        return true;
    }
    QFile file(run.options.report);
    if (!file.open(QIODevice::WriteOnly) || file.write(report) != report.size()) {
        std::fprintf(stderr, "Cannot write %s: %s\n", qPrintable(run.options.report),
                     qPrintable(file.errorString()));
        return false;
    }
    return true;
}

} // namespace

int main(int argc, char **argv)
{
    gst_init(&argc, &argv);
    QCoreApplication application(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("lumivora-probe"));

    Run run(parse(application));
    for (const int signal : {SIGINT, SIGTERM}) {
        g_unix_signal_add(
            signal,
            [](gpointer loop) -> gboolean {
                g_main_loop_quit(static_cast<GMainLoop *>(loop));
                return G_SOURCE_CONTINUE;
            },
            run.loop);
    }
    g_timeout_add(kTickMs, tick, &run);
    run.client.start();
    g_main_loop_run(run.loop);
    run.client.stop();

    const bool written = writeResults(run);
    return written && run.client.tally().delivered() > 0 ? 0 : 1;
}
