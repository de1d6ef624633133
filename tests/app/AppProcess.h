// SPDX-License-Identifier: Apache-2.0
// Runs app_instance in folders of the test's own.
#pragma once

#include <QCoreApplication>
#include <QDir>
#include <QProcess>

namespace lumivora::test {

/** An application process without devices; see AppInstance.cpp. Killed when the object goes. */
class AppProcess
{
public:
    /** @param folder  holds its lock file, settings and run-time files */
    AppProcess(const QString &program, const QString &folder, int startDelayMs)
    {
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        for (const char *name : {"TMPDIR", "TMP", "TEMP", "XDG_RUNTIME_DIR", "XDG_CONFIG_HOME"}) {
            environment.insert(QString::fromLatin1(name), QDir::toNativeSeparators(folder));
        }
        environment.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));
        _process.setProcessEnvironment(environment);
        _process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        _process.start(program, {folder, QString::number(startDelayMs)});
    }

    ~AppProcess()
    {
        _process.kill();
        _process.waitForFinished(-1);
    }

    AppProcess(const AppProcess &) = delete;
    AppProcess &operator=(const AppProcess &) = delete;

    /** The next line it prints; empty when it ended instead. */
    QByteArray readLine()
    {
        while (!_process.canReadLine() && _process.waitForReadyRead(-1)) {
        }
        return _process.readLine().trimmed();
    }

    [[nodiscard]] int waitForExit()
    {
        _process.waitForFinished(-1);
        return _process.exitStatus() == QProcess::NormalExit ? _process.exitCode() : -1;
    }

    void kill()
    {
        _process.kill();
        _process.waitForFinished(-1);
    }

    [[nodiscard]] qint64 id() const { return _process.processId(); }

private:
    QProcess _process;
};

} // namespace lumivora::test
