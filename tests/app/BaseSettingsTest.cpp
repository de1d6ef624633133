// SPDX-License-Identifier: Apache-2.0
// The settings store: defaults, the stored form, and what it survives.
#include "app/core/BaseSettings.h"

#include "tests/support/LogCapture.h"

#include <QColor>
#include <QCoreApplication>
#include <QDateTime>
#include <QMetaEnum>
#include <QProcess>
#include <QTemporaryDir>

#include <gmock/gmock.h>

#include <array>
#include <limits>
#include <thread>

namespace {

using lumivora::test::LogCapture;
using Settings = BaseSettings::Settings;
using SubSettings = BaseSettings::SubSettings;
using ::testing::IsEmpty;

const QString kOrganisation = QStringLiteral("Orvane");
const QString kApplication = QStringLiteral("LumivoraControlSettingsTest");

constexpr std::array kAllGroups{Settings::SkinTone,       Settings::BackgroundBlur,
                                Settings::CameraRotation, Settings::FineCameraRotation,
                                Settings::BLELight,       Settings::General,
                                Settings::LogoOverlay,    Settings::TextOverlay,
                                Settings::DSPCompressor,  Settings::DSPBass,
                                Settings::DSPTreble,      Settings::DSPRNN,
                                Settings::DSPAGC};

class BaseSettingsTest : public ::testing::Test
{
protected:
    BaseSettingsTest()
    {
        // The registry has no folder of a test's own: there it is emptied instead.
        QSettings::setPath(QSettings::NativeFormat, QSettings::UserScope, folder.path());
        raw()->clear();
    }

    ~BaseSettingsTest() override { raw()->clear(); }

    [[nodiscard]] static std::unique_ptr<BaseSettings> open()
    {
        return std::make_unique<BaseSettings>(kOrganisation, kApplication);
    }

    /** The store as the framework sees it, without the product's class. */
    [[nodiscard]] static std::unique_ptr<QSettings> raw()
    {
        return std::make_unique<QSettings>(kOrganisation, kApplication);
    }

    static void storeRaw(const QString &key, const QVariant &value) { raw()->setValue(key, value); }

    [[nodiscard]] static int topLevel(BaseSettings &settings, Settings key)
    {
        BaseSettings::Record record;
        EXPECT_TRUE(settings.getSetting(key, record));
        return record.value;
    }

    QTemporaryDir folder;
    LogCapture log;
};

TEST_F(BaseSettingsTest, keys_enumerators_haveTheNamesAndNumbersOfTheFileFormat)
{
    const QList<QByteArray> groups{
        "SkinTone",  "BackgroundBlur", "CameraRotation", "FineCameraRotation", "BLELight",
        "General",   "LogoOverlay",    "TextOverlay",    "DSPCompressor",      "DSPBass",
        "DSPTreble", "DSPRNN",         "DSPAGC"};
    const QList<QByteArray> fields{
        "LastModified",   "Enabled",      "ImageData",       "HAlign",          "VAlign",
        "Size",           "MarginX",      "MarginY",         "Opacity",         "FlipHorizontal",
        "FlipVertical",   "TextLine1",    "Line1Size",       "TextLine2",       "Line2Size",
        "TextHAlign",     "TextBold",     "TextShadowColor", "LogoShadowColor", "TextFillColor",
        "TextFontFamily", "LowPowerMode", "StartAtLogin",    "BLEBrightness",   "BLETemperature",
        "DSP_Strength"};
    const auto namesInOrder = [](const QMetaEnum &enumeration) {
        QList<QByteArray> names;
        for (int value = 0; value < enumeration.keyCount(); ++value) {
            names.append(enumeration.valueToKey(value));
        }
        return names;
    };
    EXPECT_EQ(namesInOrder(QMetaEnum::fromType<Settings>()), groups);
    EXPECT_EQ(namesInOrder(QMetaEnum::fromType<SubSettings>()), fields);
}

TEST_F(BaseSettingsTest, getSetting_freshProfile_givesTheDefaults)
{
    const auto settings = open();
    EXPECT_EQ(topLevel(*settings, Settings::SkinTone), 50);
    EXPECT_EQ(topLevel(*settings, Settings::BackgroundBlur), 0);
    EXPECT_EQ(topLevel(*settings, Settings::CameraRotation), 0);
    EXPECT_EQ(topLevel(*settings, Settings::FineCameraRotation), 0);
    EXPECT_THAT(log.lines(QtWarningMsg), IsEmpty());
}

TEST_F(BaseSettingsTest, getSetting_groupOfSubSettingsOnly_fails)
{
    const auto settings = open();
    for (const Settings group : kAllGroups) {
        BaseSettings::Record record;
        EXPECT_EQ(settings->getSetting(group, record), group <= Settings::FineCameraRotation);
    }
}

TEST_F(BaseSettingsTest, getSubSetting_freshProfile_givesEveryDefaultAndNothingElse)
{
    const QVariantMap logo{{"Enabled", false},      {"HAlign", 1},
                           {"VAlign", 32},          {"Size", 0.4},
                           {"MarginX", 0.0},        {"MarginY", 0.0},
                           {"Opacity", 1.0},        {"FlipHorizontal", false},
                           {"FlipVertical", false}, {"LogoShadowColor", QColor(0, 0, 0, 255)}};
    QVariantMap text = logo;
    text.insert({{"MarginX", 0.5},
                 {"MarginY", 0.5},
                 {"TextLine1", "Add text here"},
                 {"TextLine2", "Add text here"},
                 {"TextHAlign", 4},
                 {"Line1Size", 0.4},
                 {"Line2Size", 0.2},
                 {"TextBold", true},
                 {"TextShadowColor", QColor(0, 0, 0, 255)},
                 {"TextFillColor", QColor(255, 255, 255, 255)},
                 {"TextFontFamily", "Arial"}});
    const QMap<Settings, QVariantMap> expected{
        {Settings::LogoOverlay, logo},
        {Settings::TextOverlay, text},
        {Settings::General,
         {{"FlipHorizontal", false}, {"LowPowerMode", false}, {"StartAtLogin", true}}},
        {Settings::BLELight, {{"BLEBrightness", 50}, {"BLETemperature", 50}}},
        {Settings::DSPCompressor, {{"Enabled", false}, {"DSP_Strength", 60}}},
        {Settings::DSPBass, {{"Enabled", false}, {"DSP_Strength", 50}}},
        {Settings::DSPTreble, {{"Enabled", false}, {"DSP_Strength", 50}}},
        {Settings::DSPRNN, {{"Enabled", false}, {"DSP_Strength", 100}}},
        {Settings::DSPAGC, {{"Enabled", true}, {"DSP_Strength", 50}}}};

    const auto settings = open();
    const QMetaEnum fields = QMetaEnum::fromType<SubSettings>();
    for (const Settings group : kAllGroups) {
        for (int field = 0; field < fields.keyCount(); ++field) {
            const QVariant value = settings->getSubSetting(group, SubSettings(field));
            const QVariant wanted = expected.value(group).value(fields.valueToKey(field));
            EXPECT_EQ(value, wanted) << static_cast<int>(group) << fields.valueToKey(field);
            EXPECT_EQ(value.typeId(), wanted.typeId()) << fields.valueToKey(field);
        }
    }
}

TEST_F(BaseSettingsTest, getSubSetting_storedMapWithOneEntry_leavesEveryOtherDefault)
{
    storeRaw(QStringLiteral("TextOverlay"),
             QVariantMap{{QStringLiteral("TextLine1"), QStringLiteral("Hello")}});
    const auto settings = open();
    const auto text = [&settings](SubSettings key) {
        return settings->getSubSetting(Settings::TextOverlay, key);
    };
    EXPECT_EQ(text(SubSettings::TextLine1), QStringLiteral("Hello"));
    EXPECT_EQ(text(SubSettings::TextLine2), QStringLiteral("Add text here"));
    EXPECT_EQ(text(SubSettings::MarginX), 0.5);
    EXPECT_EQ(text(SubSettings::TextFillColor), QColor(Qt::white));
}

TEST_F(BaseSettingsTest, setSetting_value_isStoredAsAnIntegerUnderItsNameAtOnce)
{
    const auto settings = open();
    EXPECT_TRUE(settings->setSetting(Settings::FineCameraRotation, -7, false));
    EXPECT_EQ(raw()->value(QStringLiteral("FineCameraRotation")).toInt(), -7);
    EXPECT_EQ(topLevel(*open(), Settings::FineCameraRotation), -7);
}

TEST_F(BaseSettingsTest, setSetting_flag_isKeptInMemoryOnly)
{
    const auto settings = open();
    BaseSettings::Record record;
    ASSERT_TRUE(settings->setSetting(Settings::SkinTone, 61, true));
    ASSERT_TRUE(settings->getSetting(Settings::SkinTone, record));
    EXPECT_TRUE(record.flag);
    ASSERT_TRUE(open()->getSetting(Settings::SkinTone, record));
    EXPECT_EQ(record.value, 61);
    EXPECT_FALSE(record.flag);
}

TEST_F(BaseSettingsTest, setSetting_groupOfSubSettingsOnly_writesNothingAndSucceeds)
{
    const auto settings = open();
    EXPECT_TRUE(settings->setSetting(Settings::DSPAGC, 3, true));
    EXPECT_FALSE(raw()->contains(QStringLiteral("DSPAGC")));
}

TEST_F(BaseSettingsTest, setSubSetting_values_areStoredAtOnceAsOneMapAndReadBackUnchanged)
{
    QByteArray picture(200'000, '\0');
    for (qsizetype i = 0; i < picture.size(); ++i) {
        picture[i] = static_cast<char>(i * 31);
    }
    const QString line = QStringLiteral("Grüße, 世界 \\ \"quoted\"; [x]=1\nsecond line");
    const QColor colour(1, 2, 3, 4);
    {
        const auto settings = open();
        settings->setSubSetting(Settings::TextOverlay, SubSettings::TextLine1, line);
        settings->setSubSetting(Settings::TextOverlay, SubSettings::TextFillColor, colour);
        settings->setSubSetting(Settings::LogoOverlay, SubSettings::ImageData, picture);
        const QVariantMap stored = raw()->value(QStringLiteral("TextOverlay")).toMap();
        EXPECT_EQ(stored.value(QStringLiteral("TextLine1")), line);
        EXPECT_EQ(stored.value(QStringLiteral("TextLine2")), QStringLiteral("Add text here"));
    }
    const auto settings = open();
    EXPECT_EQ(settings->getSubSetting(Settings::TextOverlay, SubSettings::TextLine1), line);
    EXPECT_EQ(settings->getSubSetting(Settings::TextOverlay, SubSettings::TextFillColor), colour);
    EXPECT_EQ(settings->getSubSetting(Settings::LogoOverlay, SubSettings::ImageData), picture);
}

TEST_F(BaseSettingsTest, setSubSetting_everyChange_growsTheStamp)
{
    const auto settings = open();
    const auto stamp = [&settings] {
        return settings->getSubSetting(Settings::DSPBass, SubSettings::LastModified).toLongLong();
    };
    const qint64 before = QDateTime::currentMSecsSinceEpoch();
    qint64 previous = before - 1;
    for (int strength = 0; strength < 20; ++strength) {
        settings->setSubSetting(Settings::DSPBass, SubSettings::DSP_Strength, strength);
        ASSERT_GT(stamp(), previous);
        previous = stamp();
    }
    EXPECT_FALSE(settings->getSubSetting(Settings::DSPAGC, SubSettings::LastModified).isValid());
}

TEST_F(BaseSettingsTest, setSubSetting_clockSetBack_growsTheStampAllTheSame)
{
    const auto settings = open();
    const qint64 future = QDateTime::currentMSecsSinceEpoch() + 3'600'000;
    settings->setSubSetting(Settings::DSPBass, SubSettings::LastModified, future);
    EXPECT_EQ(settings->getSubSetting(Settings::DSPBass, SubSettings::LastModified), future);
    settings->setSubSetting(Settings::DSPBass, SubSettings::Enabled, true);
    EXPECT_EQ(settings->getSubSetting(Settings::DSPBass, SubSettings::LastModified), future + 1);
}

TEST_F(BaseSettingsTest, setSubSetting_stampThatCannotGrow_isReplacedByTheTime)
{
    const auto settings = open();
    settings->setSubSetting(Settings::DSPBass, SubSettings::LastModified,
                            std::numeric_limits<qint64>::max());
    const qint64 before = QDateTime::currentMSecsSinceEpoch();
    settings->setSubSetting(Settings::DSPBass, SubSettings::Enabled, true);
    const qint64 stamp =
        settings->getSubSetting(Settings::DSPBass, SubSettings::LastModified).toLongLong();
    EXPECT_GE(stamp, before);
    EXPECT_LE(stamp, QDateTime::currentMSecsSinceEpoch());
}

TEST_F(BaseSettingsTest, wrongTypes_stored_areConvertedByTheVariantsRules)
{
    storeRaw(QStringLiteral("SkinTone"), QStringLiteral("abc"));
    storeRaw(QStringLiteral("BackgroundBlur"), QStringLiteral("70"));
    storeRaw(QStringLiteral("CameraRotation"), QVariantMap{{QStringLiteral("a"), 1}});
    storeRaw(QStringLiteral("General"), 12);
    storeRaw(QStringLiteral("DSPAGC"),
             QVariantMap{{QStringLiteral("Enabled"), QStringLiteral("false")},
                         {QStringLiteral("DSP_Strength"), QStringLiteral("loud")}});
    const auto settings = open();
    EXPECT_EQ(topLevel(*settings, Settings::SkinTone), 0);
    EXPECT_EQ(topLevel(*settings, Settings::BackgroundBlur), 70);
    EXPECT_EQ(topLevel(*settings, Settings::CameraRotation), 0);
    EXPECT_TRUE(settings->getSubSetting(Settings::General, SubSettings::StartAtLogin).toBool());
    EXPECT_FALSE(settings->getSubSetting(Settings::DSPAGC, SubSettings::Enabled).toBool());
    EXPECT_EQ(settings->getSubSetting(Settings::DSPAGC, SubSettings::DSP_Strength).toInt(), 0);
}

TEST_F(BaseSettingsTest, unknownKeys_stored_areKept)
{
    storeRaw(QStringLiteral("Future/Key"), 17);
    storeRaw(QStringLiteral("DSPBass"), QVariantMap{{QStringLiteral("FutureField"), 18}});
    {
        const auto settings = open();
        settings->setSetting(Settings::SkinTone, 1, false);
        settings->setSubSetting(Settings::DSPBass, SubSettings::Enabled, true);
    }
    EXPECT_EQ(raw()->value(QStringLiteral("Future/Key")).toInt(), 17);
    const QVariantMap bass = raw()->value(QStringLiteral("DSPBass")).toMap();
    EXPECT_EQ(bass.value(QStringLiteral("FutureField")), 18);
    EXPECT_EQ(bass.value(QStringLiteral("Enabled")), true);
}

TEST_F(BaseSettingsTest, value_keyThatIsAbsent_givesTheDefaultBothWays)
{
    const auto settings = open();
    EXPECT_EQ(settings->value(QStringLiteral("Sliders"), 5, false), 5);
    EXPECT_EQ(settings->value(QStringLiteral("Sliders"), 5, true), 5);
    EXPECT_EQ(settings->value(QStringLiteral("SkinTone"), 5, true), 5);
}

TEST_F(BaseSettingsTest, value_keyThatIsStored_givesWhatIsStored)
{
    const QStringList order{QStringLiteral("Setting_Zoom"), QStringLiteral("Setting_Focus")};
    storeRaw(QStringLiteral("Sliders"), order);
    storeRaw(QStringLiteral("SkinTone"), 20);
    const auto settings = open();
    EXPECT_EQ(settings->value(QStringLiteral("Sliders"), {}, false), order);
    EXPECT_EQ(settings->value(QStringLiteral("Sliders"), {}, true), order);
    EXPECT_EQ(settings->value(QStringLiteral("SkinTone"), 5, false).toInt(), 20);
    EXPECT_EQ(settings->value(QStringLiteral("SkinTone"), 5, true).toInt(), 20);
}

TEST_F(BaseSettingsTest, value_changedBehindTheCache_isSeenOnlyWhenTheCacheIsBypassed)
{
    const auto settings = open();
    ASSERT_EQ(topLevel(*settings, Settings::BackgroundBlur), 0);
    storeRaw(QStringLiteral("BackgroundBlur"), 30);
    EXPECT_EQ(settings->value(QStringLiteral("BackgroundBlur"), 5, false).toInt(), 0);
    EXPECT_EQ(settings->value(QStringLiteral("BackgroundBlur"), 5, true).toInt(), 30);
}

TEST_F(BaseSettingsTest, cameraSetting_ofEachEffect_hasItsRange)
{
    struct Range
    {
        Settings key;
        int maximum;
        int minimum;
        int neutral;
    };
    const auto settings = open();
    for (const Range &range :
         {Range{Settings::SkinTone, 100, 0, 50}, Range{Settings::BackgroundBlur, 100, 0, 0},
          Range{Settings::CameraRotation, 2, 0, 0},
          Range{Settings::FineCameraRotation, 20, -20, 0}}) {
        CameraSetting setting = settings->cameraSetting(range.key);
        EXPECT_EQ(setting.value, range.neutral);
        EXPECT_EQ(setting.step, 1);
        EXPECT_EQ(setting.maximum, range.maximum);
        EXPECT_EQ(setting.minimum, range.minimum);
        EXPECT_EQ(setting.defaultValue, range.neutral);
        EXPECT_EQ(setting.flags, 0);
        EXPECT_FALSE(setting.isActive());
        settings->setSetting(range.key, 1, false);
        setting = settings->cameraSetting(range.key);
        EXPECT_EQ(setting.value, 1);
        EXPECT_TRUE(setting.isActive());
    }
}

TEST_F(BaseSettingsTest, twoThreads_hammering_leaveTheLastValueOfEach)
{
    constexpr int kRounds = 150;
    {
        const auto settings = open();
        const auto hammer = [&settings](Settings own, Settings other, Settings group) {
            for (int round = 1; round <= kRounds; ++round) {
                BaseSettings::Record record;
                settings->setSetting(own, round, true);
                settings->setSubSetting(group, SubSettings::DSP_Strength, round);
                EXPECT_TRUE(settings->getSetting(own, record));
                EXPECT_EQ(record.value, round);
                EXPECT_TRUE(settings->getSetting(other, record));
                EXPECT_EQ(settings->getSubSetting(group, SubSettings::DSP_Strength), round);
                static_cast<void>(settings->value(QStringLiteral("DSPBass"), {}, true));
            }
        };
        std::thread first(hammer, Settings::SkinTone, Settings::BackgroundBlur, Settings::DSPBass);
        std::thread second(hammer, Settings::BackgroundBlur, Settings::SkinTone, Settings::DSPRNN);
        // Meanwhile the event loop writes out what is pending, as in the application.
        for (int turn = 0; turn < kRounds; ++turn) {
            QCoreApplication::processEvents();
            settings->setSetting(Settings::CameraRotation, turn, false);
        }
        first.join();
        second.join();
    }
    const auto settings = open();
    EXPECT_EQ(topLevel(*settings, Settings::SkinTone), kRounds);
    EXPECT_EQ(topLevel(*settings, Settings::BackgroundBlur), kRounds);
    EXPECT_EQ(topLevel(*settings, Settings::CameraRotation), kRounds - 1);
    EXPECT_EQ(settings->getSubSetting(Settings::DSPBass, SubSettings::DSP_Strength), kRounds);
    EXPECT_EQ(settings->getSubSetting(Settings::DSPRNN, SubSettings::DSP_Strength), kRounds);
}

/** Starts the writer, kills it in the midst of its writing; gives the last number it had told. */
int writeUntilKilled(const QString &folder, int first, int lines)
{
    QProcess writer;
    writer.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    writer.start(QCoreApplication::applicationDirPath() + QStringLiteral("/settings_writer"),
                 {folder, kOrganisation, kApplication, QString::number(first)});
    int told = -1;
    const auto take = [&writer, &told, &lines] {
        while (writer.canReadLine()) {
            told = writer.readLine().trimmed().toInt();
            --lines;
        }
    };
    while (lines > 0 && writer.waitForReadyRead()) {
        take();
    }
    writer.kill();
    writer.waitForFinished();
    take();
    return told;
}

TEST_F(BaseSettingsTest, writer_killedInTheMidstOfWriting_losesNothingItHadTold)
{
    constexpr int kKills = 25;
    int next = 1;
    for (int kill = 0; kill < kKills; ++kill) {
        const int told = writeUntilKilled(folder.path(), next, 1 + kill % 5);
        ASSERT_GE(told, next);
        const auto settings = open();
        const int value = topLevel(*settings, Settings::BackgroundBlur);
        EXPECT_GE(value, told);
        const QString line =
            settings->getSubSetting(Settings::TextOverlay, SubSettings::TextLine1).toString();
        EXPECT_GE(line.section(u' ', 0, 0).toInt(), told);
        EXPECT_EQ(line.size(), 20'000);
        next = value + 2;
    }
    EXPECT_THAT(log.lines(QtWarningMsg), IsEmpty());
}

} // namespace
