// SPDX-License-Identifier: Apache-2.0
#include "app/AutoStart.h"

#include <QDir>
#include <QLoggingCategory>
#include <QSaveFile>
#include <QStandardPaths>

namespace lumivora {

namespace {

Q_LOGGING_CATEGORY(lcAutoStart, "lumivora.app")

QString entryPath()
{
    return QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) +
           QStringLiteral("/autostart/LumivoraControl.desktop");
}

/** One argument of an Exec line, by the desktop entry rules of freedesktop.org: quoted, the four
 *  reserved characters escaped; a backslash once more, as in every string value; "%" doubled, as
 *  it starts a field code. */
QString quotedArgument(const QString &argument)
{
    QString quoted;
    for (const QChar c : argument) {
        if (c == u'\\') {
            quoted += QLatin1StringView(R"(\\\\)");
        } else if (c == u'"' || c == u'`' || c == u'$') {
            quoted += QLatin1StringView(R"(\\)") + c;
        } else if (c == u'%') {
            quoted += QLatin1StringView("%%");
        } else {
            quoted += c;
        }
    }
    return u'"' + quoted + u'"';
}

} // namespace

void addToLogin(const QString &executable)
{
    const QString path = entryPath();
    QDir().mkpath(QFileInfo(path).path());
    const QString entry = QStringLiteral("[Desktop Entry]\n"
                                         "Type=Application\n"
                                         "Name=Lumivora Control\n"
                                         "Comment=Enhanced virtual camera and microphone\n"
                                         "Exec=%1\n"
                                         "Terminal=false\n"
                                         "X-GNOME-Autostart-enabled=true\n")
                              .arg(quotedArgument(executable));
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(entry.toUtf8()) < 0 || !file.commit()) {
        qCWarning(lcAutoStart).noquote() << "Unable to write" << path << "-" << file.errorString();
    }
}

void removeFromLogin()
{
    QFile::remove(entryPath());
}

} // namespace lumivora
