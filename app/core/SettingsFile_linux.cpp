// SPDX-License-Identifier: Apache-2.0
#include "app/core/SettingsFile.h"

#include <QDateTime>
#include <QFile>
#include <QLoggingCategory>
#include <QSettings>

namespace lumivora {

namespace {

Q_LOGGING_CATEGORY(lcSettings, "lumivora.settings")

} // namespace

void setDamagedSettingsAside(const QString &organisation, const QString &application)
{
    const QString path = QSettings(organisation, application).fileName();
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        return; // a fresh profile; one that may not be read is the framework's to report
    }
    if (isIntactIni(file.readAll())) {
        return;
    }
    file.close();
    const QString aside =
        path + QStringLiteral(".damaged-") +
        QDateTime::currentDateTime().toString(QStringLiteral("yyyyMMdd-HHmmss-zzz"));
    if (QFile::rename(path, aside)) {
        qCWarning(lcSettings).noquote()
            << "The settings file is damaged; starting with defaults. It is kept as" << aside;
    } else {
        qCWarning(lcSettings).noquote()
            << "The settings file is damaged and cannot be renamed:" << path;
    }
}

} // namespace lumivora
