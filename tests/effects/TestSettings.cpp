// SPDX-License-Identifier: Apache-2.0
#include "tests/effects/TestSettings.h"

#include <QCoreApplication>

namespace lumivora::test {

TestSettings::TestSettings()
{
    // Where settings are files, they go into the folder; in a registry the name is the test's own.
    QSettings::setPath(QSettings::NativeFormat, QSettings::UserScope, _folder.path());
    static int count = 0;
    _store = std::make_unique<BaseSettings>(
        QStringLiteral("LumivoraTest"),
        QStringLiteral("effects-%1-%2").arg(QCoreApplication::applicationPid()).arg(++count));
    _store->clear();
}

TestSettings::~TestSettings()
{
    _store->clear();
    _store->sync();
}

} // namespace lumivora::test
