// SPDX-License-Identifier: Apache-2.0
// Start at login: the Run value.
#include "app/AutoStart.h"

#include <QSettings>

#include <gmock/gmock.h>

namespace {

QVariant runValue()
{
    const QSettings run(QStringLiteral("HKEY_CURRENT_USER\\Software\\Microsoft\\Windows\\"
                                       "CurrentVersion\\Run"),
                        QSettings::NativeFormat);
    return run.value(QStringLiteral("LumivoraControl"));
}

TEST(AutoStartTest, addToLogin_writesTheRunValue)
{
    const QString path = QStringLiteral("C:\\Program Files\\Lumivora\\lumivora-control.exe");
    lumivora::addToLogin(path);
    EXPECT_EQ(runValue(), path);
    lumivora::removeFromLogin();
}

TEST(AutoStartTest, removeFromLogin_removesTheRunValue)
{
    lumivora::addToLogin(QStringLiteral("C:\\a.exe"));
    lumivora::removeFromLogin();
    EXPECT_FALSE(runValue().isValid());
    lumivora::removeFromLogin();
    EXPECT_FALSE(runValue().isValid());
}

} // namespace
