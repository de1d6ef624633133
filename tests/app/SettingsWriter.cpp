// SPDX-License-Identifier: Apache-2.0
// Writes settings without end and tells each number once it is stored; made to be killed.
// Arguments: folder of the settings, organisation, application, first number.
#include "app/core/BaseSettings.h"

#include <QCoreApplication>

#include <cstdio>

int main(int argc, char **argv)
{
    const QCoreApplication application(argc, argv);
    const QStringList arguments = QCoreApplication::arguments();
    QSettings::setPath(QSettings::NativeFormat, QSettings::UserScope, arguments.at(1));
    BaseSettings settings(arguments.at(2), arguments.at(3));
    for (int number = arguments.at(4).toInt();; ++number) {
        // Long enough for a write to be caught half done.
        const QString line = QString::number(number) + u' ';
        settings.setSetting(BaseSettings::Settings::BackgroundBlur, number, false);
        settings.setSubSetting(BaseSettings::Settings::TextOverlay,
                               BaseSettings::SubSettings::TextLine1,
                               line.leftJustified(20'000, u'x'));
        std::printf("%d\n", number);
        std::fflush(stdout);
    }
}
