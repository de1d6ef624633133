// SPDX-License-Identifier: Apache-2.0
#include "app/core/SettingsFile.h"

#include <QFile>
#include <QLockFile>
#include <QLoggingCategory>
#include <QSettings>

#include <chrono>

namespace lumivora {

namespace {

Q_LOGGING_CATEGORY(lcSettings, "lumivora.settings")

using namespace std::chrono_literals;

/** A writer that was killed before it had told the lock file who it is would make the next one wait
 *  for 30 s. One that lives is not robbed: it holds the system's lock on that file as well. */
void dropDeadLock(const QString &path)
{
    if (QFile::exists(path)) {
        QLockFile lock(path);
        lock.setStaleLockTime(500ms);
        lock.tryLock(2s);
    }
}

QString freeName(const QString &start)
{
    int number = 1;
    while (QFile::exists(start + QString::number(number))) {
        ++number;
    }
    return start + QString::number(number);
}

} // namespace

void repairSettingsStore(const QString &organisation, const QString &application)
{
    const QString path = QSettings(organisation, application).fileName();
    dropDeadLock(path + QStringLiteral(".lock"));
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        return; // a fresh profile; one that may not be read is the framework's to report
    }
    if (isIntactIni(file.readAll())) {
        return;
    }
    file.close();
    const QString aside = freeName(path + QStringLiteral(".damaged-"));
    if (QFile::rename(path, aside)) {
        qCWarning(lcSettings).noquote()
            << "The settings file is damaged; starting with defaults. It is kept as" << aside;
    } else {
        qCWarning(lcSettings).noquote()
            << "The settings file is damaged and cannot be renamed:" << path;
    }
}

} // namespace lumivora
