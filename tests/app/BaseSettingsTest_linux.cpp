// SPDX-License-Identifier: Apache-2.0
// What the settings store does about a damaged file.
#include "app/core/BaseSettings.h"

#include "tests/support/LogCapture.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QLockFile>
#include <QTemporaryDir>

#include <gmock/gmock.h>

#include <random>

namespace {

using lumivora::test::LogCapture;
using Settings = BaseSettings::Settings;
using SubSettings = BaseSettings::SubSettings;
using ::testing::IsEmpty;
using ::testing::SizeIs;

class SettingsFileTest : public ::testing::Test
{
protected:
    SettingsFileTest()
    {
        QSettings::setPath(QSettings::NativeFormat, QSettings::UserScope, folder.path());
    }

    [[nodiscard]] static std::unique_ptr<BaseSettings> open()
    {
        return std::make_unique<BaseSettings>(QStringLiteral("Orvane"),
                                              QStringLiteral("LumivoraControl"));
    }

    [[nodiscard]] QString path() const
    {
        return folder.filePath(QStringLiteral("Orvane/LumivoraControl.conf"));
    }

    [[nodiscard]] QByteArray read(const QString &file) const
    {
        QFile stream(file);
        return stream.open(QIODevice::ReadOnly) ? stream.readAll() : QByteArray();
    }

    void write(const QByteArray &bytes) const
    {
        QDir().mkpath(folder.filePath(QStringLiteral("Orvane")));
        QFile file(path());
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        ASSERT_EQ(file.write(bytes), bytes.size());
    }

    /** The bytes of every file set aside. */
    [[nodiscard]] QByteArrayList setAside() const
    {
        QByteArrayList result;
        const QDir directory(folder.filePath(QStringLiteral("Orvane")));
        for (const QString &name :
             directory.entryList({QStringLiteral("LumivoraControl.conf.damaged-*")})) {
            result.append(read(directory.filePath(name)));
        }
        return result;
    }

    void expectDefaultsAndKept(const QByteArray &bytes)
    {
        write(bytes);
        {
            const auto settings = open();
            BaseSettings::Record record;
            ASSERT_TRUE(settings->getSetting(Settings::SkinTone, record));
            EXPECT_EQ(record.value, 50);
            EXPECT_EQ(settings->getSubSetting(Settings::TextOverlay, SubSettings::TextLine1),
                      QStringLiteral("Add text here"));
            EXPECT_THAT(log.lines(QtWarningMsg), SizeIs(1));
            EXPECT_EQ(setAside(), QByteArrayList{bytes});
            settings->setSetting(Settings::SkinTone, 33, false);
        }
        const auto settings = open();
        BaseSettings::Record record;
        ASSERT_TRUE(settings->getSetting(Settings::SkinTone, record));
        EXPECT_EQ(record.value, 33);
        EXPECT_THAT(log.lines(QtWarningMsg), SizeIs(1));
    }

    QTemporaryDir folder;
    LogCapture log;
};

TEST_F(SettingsFileTest, topLevelValue_written_isALineOfItsName)
{
    open()->setSetting(Settings::SkinTone, 70, false);
    EXPECT_THAT(read(path()).split('\n'), ::testing::Contains(QByteArray("SkinTone=70")));
}

TEST_F(SettingsFileTest, file_writtenByHand_isRead)
{
    write("[General]\r\nSkinTone = 70\r\n; a remark\r\n\r\n[Own]\r\nKey=1\r\n");
    BaseSettings::Record record;
    ASSERT_TRUE(open()->getSetting(Settings::SkinTone, record));
    EXPECT_EQ(record.value, 70);
    EXPECT_THAT(log.lines(QtWarningMsg), IsEmpty());
}

TEST_F(SettingsFileTest, file_empty_isAFreshProfile)
{
    write("");
    BaseSettings::Record record;
    ASSERT_TRUE(open()->getSetting(Settings::SkinTone, record));
    EXPECT_EQ(record.value, 50);
    EXPECT_THAT(log.lines(QtWarningMsg), IsEmpty());
    EXPECT_THAT(setAside(), IsEmpty());
}

TEST_F(SettingsFileTest, file_ofZeros_isSetAside)
{
    expectDefaultsAndKept(QByteArray(4096, '\0'));
}

TEST_F(SettingsFileTest, file_ofGarbage_isSetAside)
{
    std::mt19937 random(7);
    QByteArray bytes(5000, '\0');
    for (char &byte : bytes) {
        byte = static_cast<char>(random());
    }
    expectDefaultsAndKept(bytes);
}

TEST_F(SettingsFileTest, file_ofProse_isSetAside)
{
    expectDefaultsAndKept("<!DOCTYPE html>\n<p>Not found</p>\n");
}

TEST_F(SettingsFileTest, lock_ofAWriterKilledBeforeItSignedIt_delaysNoWrite)
{
    open()->setSetting(Settings::SkinTone, 1, false);
    QFile lock(path() + QStringLiteral(".lock"));
    ASSERT_TRUE(lock.open(QIODevice::WriteOnly));
    lock.close();
    const auto settings = open();
    EXPECT_FALSE(lock.exists());
    settings->setSetting(Settings::SkinTone, 2, false);
    EXPECT_THAT(read(path()).split('\n'), ::testing::Contains(QByteArray("SkinTone=2")));
}

TEST_F(SettingsFileTest, lock_ofALivingWriter_isLeftAlone)
{
    open()->setSetting(Settings::SkinTone, 1, false);
    QLockFile lock(path() + QStringLiteral(".lock"));
    ASSERT_TRUE(lock.tryLock());
    // Old enough to be taken for a dead one's.
    QFile file(lock.fileName());
    ASSERT_TRUE(file.open(QIODevice::ReadWrite));
    ASSERT_TRUE(file.setFileTime(QDateTime::currentDateTime().addSecs(-60),
                                 QFileDevice::FileModificationTime));
    file.close();
    static_cast<void>(open());
    EXPECT_TRUE(QFile::exists(lock.fileName()));
}

TEST_F(SettingsFileTest, file_damagedAgain_isKeptBesideTheFirst)
{
    write("one");
    static_cast<void>(open());
    write("two");
    static_cast<void>(open());
    EXPECT_THAT(setAside(), ::testing::UnorderedElementsAre("one", "two"));
}

TEST_F(SettingsFileTest, file_truncatedWithinAValue_isSetAside)
{
    {
        const auto settings = open();
        settings->setSetting(Settings::SkinTone, 70, false);
        settings->setSubSetting(Settings::TextOverlay, SubSettings::TextLine1,
                                QStringLiteral("Hello"));
    }
    QByteArray bytes = read(path());
    bytes.truncate(bytes.indexOf("TextOverlay=") + 100);
    ASSERT_EQ(bytes.size(), read(path()).indexOf("TextOverlay=") + 100);
    expectDefaultsAndKept(bytes);
}

TEST_F(SettingsFileTest, file_cutAtAnyPlace_yieldsWhatIsWholeOrTheDefaults)
{
    {
        const auto settings = open();
        settings->setSetting(Settings::BackgroundBlur, 64, false);
        settings->setSetting(Settings::SkinTone, 70, false);
        settings->setSubSetting(Settings::DSPAGC, SubSettings::DSP_Strength, 9);
    }
    const QByteArray whole = read(path());
    for (qsizetype size = 0; size < whole.size(); ++size) {
        log.clear();
        write(whole.first(size));
        const auto settings = open();
        EXPECT_THAT(settings->cameraSetting(Settings::SkinTone).value, ::testing::AnyOf(50, 70));
        EXPECT_THAT(settings->cameraSetting(Settings::BackgroundBlur).value,
                    ::testing::AnyOf(0, 64));
        EXPECT_THAT(settings->getSubSetting(Settings::DSPAGC, SubSettings::DSP_Strength).toInt(),
                    ::testing::AnyOf(50, 9));
        EXPECT_LE(log.lines(QtWarningMsg).size(), 1);
        EXPECT_EQ(log.lines(QtWarningMsg).filter(QStringLiteral("cannot")), QStringList());
    }
}

} // namespace
