// SPDX-License-Identifier: Apache-2.0
// Start at login: the desktop entry.
#include "app/AutoStart.h"

#include "tests/support/LogCapture.h"

#include <QDir>
#include <QFile>
#include <QStandardPaths>

#include <gmock/gmock.h>

namespace {

using ::testing::Contains;

class AutoStartTest : public ::testing::Test
{
protected:
    AutoStartTest() { lumivora::removeFromLogin(); }
    ~AutoStartTest() override { lumivora::removeFromLogin(); }

    [[nodiscard]] static QString path()
    {
        return QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) +
               QStringLiteral("/autostart/LumivoraControl.desktop");
    }

    [[nodiscard]] static QByteArrayList lines()
    {
        QFile file(path());
        return file.open(QIODevice::ReadOnly) ? file.readAll().split('\n') : QByteArrayList();
    }
};

TEST_F(AutoStartTest, addToLogin_writesAnEntryThatStartsTheProgram)
{
    lumivora::addToLogin(QStringLiteral("/usr/bin/lumivora-control"));
    EXPECT_EQ(lines().first(), "[Desktop Entry]");
    EXPECT_THAT(lines(), Contains(QByteArray("Type=Application")));
    EXPECT_THAT(lines(), Contains(QByteArray("Name=Lumivora Control")));
    EXPECT_THAT(lines(), Contains(QByteArray("Exec=\"/usr/bin/lumivora-control\"")));
    EXPECT_THAT(lines(), Contains(QByteArray("Terminal=false")));
}

TEST_F(AutoStartTest, addToLogin_awkwardPath_isQuotedAsTheEntrySpecificationSays)
{
    lumivora::addToLogin(QStringLiteral("/opt/my \"b\" $h `t` 5% back\\slash/ü"));
    EXPECT_THAT(lines(),
                Contains(QByteArray(R"(Exec="/opt/my \\"b\\" \\$h \\`t\\` 5%% back\\\\slash/ü")")));
}

TEST_F(AutoStartTest, addToLogin_again_replacesTheEntryAndLeavesNothingBeside)
{
    lumivora::addToLogin(QStringLiteral("/old"));
    lumivora::addToLogin(QStringLiteral("/new"));
    EXPECT_THAT(lines(), Contains(QByteArray("Exec=\"/new\"")));
    EXPECT_EQ(QFileInfo(path()).dir().entryList({QStringLiteral("LumivoraControl*")}),
              QStringList{QStringLiteral("LumivoraControl.desktop")});
}

TEST_F(AutoStartTest, addToLogin_folderThatCannotBeWritten_isReported)
{
    const QString folder = QFileInfo(path()).path();
    QDir(folder).removeRecursively();
    QFile obstacle(folder);
    ASSERT_TRUE(obstacle.open(QIODevice::WriteOnly));
    const lumivora::test::LogCapture log;
    lumivora::addToLogin(QStringLiteral("/new"));
    EXPECT_EQ(log.lines(QtWarningMsg).size(), 1);
    EXPECT_TRUE(obstacle.remove());
}

TEST_F(AutoStartTest, removeFromLogin_removesTheEntry)
{
    lumivora::addToLogin(QStringLiteral("/new"));
    ASSERT_TRUE(QFile::exists(path()));
    lumivora::removeFromLogin();
    EXPECT_FALSE(QFile::exists(path()));
    lumivora::removeFromLogin();
}

} // namespace
