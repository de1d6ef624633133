// SPDX-License-Identifier: Apache-2.0
#include "tests/support/PipeWireSession.h"

#include <QDir>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QMap>

#include <algorithm>

#include <signal.h>
#include <sys/prctl.h>

namespace lumivora::test {

namespace {

QJsonArray objects()
{
    QProcess process;
    process.setStandardErrorFile(QProcess::nullDevice()); // before the server serves
    process.start(QStringLiteral("pw-dump"), {QStringLiteral("--no-colors")});
    if (!process.waitForFinished(static_cast<int>(kPatience.count()))) {
        endHelper(process);
        return {};
    }
    return QJsonDocument::fromJson(process.readAllStandardOutput()).array();
}

/** WirePlumber says what it offers once all of it is in place. */
bool policyServes()
{
    const QJsonArray all = objects();
    return std::any_of(all.begin(), all.end(), [](const QJsonValue &object) {
        return object[u"info"][u"props"][u"session.services"].toString().contains(
            u"policy.linking.standard");
    });
}

void signalProcess(const QProcess &process, int number)
{
    // Process id 0 would be this whole process group.
    if (process.processId() > 0) {
        ::kill(static_cast<pid_t>(process.processId()), number);
    }
}

} // namespace

PipeWireSession::PipeWireSession()
{
    const QString root = _runtime.path();
    const QByteArray bus = "unix:path=" + QFile::encodeName(root) + "/bus";
    setVariable("DBUS_SESSION_BUS_ADDRESS", bus);
    // What the person's own session may have set would lead away from this one.
    for (const char *name : {"PIPEWIRE_REMOTE", "PIPEWIRE_RUNTIME_DIR", "PIPEWIRE_NODE",
                             "PULSE_SERVER", "PULSE_RUNTIME_PATH"}) {
        setVariable(name, QByteArray());
    }
    // The programs keep their state in the person's folders otherwise.
    for (const char *name : {"XDG_CONFIG_HOME", "XDG_STATE_HOME", "XDG_CACHE_HOME"}) {
        const QString folder = QDir(root).filePath(QString::fromLatin1(name).toLower());
        QDir().mkpath(folder);
        setVariable(name, QFile::encodeName(folder));
    }

    _running =
        startHelper(_bus, QStringLiteral("dbus-daemon"),
                    {QStringLiteral("--session"), QStringLiteral("--nofork"),
                     QStringLiteral("--nopidfile"),
                     QStringLiteral("--address=") + QString::fromLocal8Bit(bus)}) &&
        waitUntil([&root] { return QFile::exists(QDir(root).filePath(QStringLiteral("bus"))); }) &&
        startServer();
}

PipeWireSession::~PipeWireSession()
{
    resumeServer();
    endHelper(_policy);
    endHelper(_server);
    endHelper(_bus);
    for (auto variable = _previous.cbegin(); variable != _previous.cend(); ++variable) {
        if (variable.value().isNull()) {
            qunsetenv(variable.key().constData());
        } else {
            qputenv(variable.key().constData(), variable.value());
        }
    }
}

void PipeWireSession::killServer()
{
    _server.kill();
    _server.waitForFinished();
    endHelper(_policy);
    // The next server's clients must not take the dead one's sockets for it.
    const QDir runtime(_runtime.path());
    for (const QString &socket : runtime.entryList({QStringLiteral("pipewire-0*")}, QDir::System)) {
        QFile::remove(runtime.filePath(socket));
    }
    _running = false;
}

bool PipeWireSession::startServer()
{
    _running =
        startHelper(_server, QStringLiteral("pipewire"), {}) && waitUntil([this] {
            return QFile::exists(QDir(_runtime.path()).filePath(QStringLiteral("pipewire-0")));
        }) &&
        startHelper(_policy, QStringLiteral("wireplumber"),
                    {QStringLiteral("--profile"), QStringLiteral("policy")}) &&
        waitUntil(&policyServes);
    return _running;
}

void PipeWireSession::suspendServer()
{
    signalProcess(_server, SIGSTOP);
}

void PipeWireSession::resumeServer()
{
    signalProcess(_server, SIGCONT);
}

QStringList PipeWireSession::nodeNames()
{
    QMap<int, QString> bySerial;
    const QJsonArray all = objects();
    for (const QJsonValue object : all) {
        if (object[u"type"].toString() == u"PipeWire:Interface:Node") {
            const QJsonValue properties = object[u"info"][u"props"];
            bySerial.insert(properties[u"object.serial"].toInt(),
                            properties[u"node.name"].toString());
        }
    }
    return bySerial.values();
}

bool PipeWireSession::waitForNode(const QString &name)
{
    return waitUntil([&name] { return nodeNames().contains(name); });
}

bool PipeWireSession::waitForNodeGone(const QString &name)
{
    return waitUntil([&name] { return !nodeNames().contains(name); });
}

void PipeWireSession::setVariable(const char *name, const QByteArray &value)
{
    _previous.insert(name, qgetenv(name));
    if (value.isNull()) {
        qunsetenv(name);
    } else {
        qputenv(name, value);
    }
}

bool startHelper(QProcess &process, const QString &program, const QStringList &arguments)
{
    process.setProcessChannelMode(QProcess::ForwardedChannels);
    process.setChildProcessModifier([] { ::prctl(PR_SET_PDEATHSIG, SIGKILL); });
    process.start(program, arguments);
    return process.waitForStarted();
}

void endHelper(QProcess &process)
{
    constexpr int kGraceMs = 3000;
    if (process.state() == QProcess::NotRunning) {
        return;
    }
    process.terminate();
    if (!process.waitForFinished(kGraceMs)) {
        process.kill();
        process.waitForFinished();
    }
}

} // namespace lumivora::test
