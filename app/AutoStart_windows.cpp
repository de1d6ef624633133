// SPDX-License-Identifier: Apache-2.0
#include "app/AutoStart.h"

#include <QSettings>

namespace lumivora {

namespace {

const QLatin1StringView
    kRunKey("HKEY_CURRENT_USER\\Software\\Microsoft\\Windows\\CurrentVersion\\Run");
const QLatin1StringView kRunValue("LumivoraControl");

} // namespace

void addToLogin(const QString &executable)
{
    QSettings(kRunKey, QSettings::NativeFormat).setValue(kRunValue, executable);
}

void removeFromLogin()
{
    QSettings(kRunKey, QSettings::NativeFormat).remove(kRunValue);
}

} // namespace lumivora
