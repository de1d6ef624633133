// SPDX-License-Identifier: Apache-2.0
// The one persistent store of user choices.
#pragma once

#include "app/core/CameraSetting.h"

#include <QHash>
#include <QRecursiveMutex>
#include <QSettings>
#include <QVariant>

/** The settings store: a read cache in front of the platform's per-user settings.
 *
 *  Every key is the name of an enumerator, so the names of both enumerations are part of the file
 *  format and must never change.
 *
 *  @thread thread-safe
 */
class BaseSettings : public QSettings
{
    Q_OBJECT

public:
    enum class Settings {
        SkinTone = 0,
        BackgroundBlur = 1,
        CameraRotation = 2,
        FineCameraRotation = 3,
        BLELight = 4,
        General = 5,
        LogoOverlay = 6,
        TextOverlay = 7,
        DSPCompressor = 8,
        DSPBass = 9,
        DSPTreble = 10,
        DSPRNN = 11,
        DSPAGC = 12,
    };
    Q_ENUM(Settings)

    enum class SubSettings {
        LastModified = 0,
        Enabled = 1,
        ImageData = 2,
        HAlign = 3,
        VAlign = 4,
        Size = 5,
        MarginX = 6,
        MarginY = 7,
        Opacity = 8,
        FlipHorizontal = 9,
        FlipVertical = 10,
        TextLine1 = 11,
        Line1Size = 12,
        TextLine2 = 13,
        Line2Size = 14,
        TextHAlign = 15,
        TextBold = 16,
        TextShadowColor = 17,
        LogoShadowColor = 18,
        TextFillColor = 19,
        TextFontFamily = 20,
        LowPowerMode = 21,
        StartAtLogin = 22,
        BLEBrightness = 23,
        BLETemperature = 24,
        DSP_Strength = 25,
    };
    Q_ENUM(SubSettings)

    /** A top-level value with its flag, which is kept in memory only. */
    struct Record
    {
        qint32 value = 0;
        bool flag = false;
    };

    BaseSettings(const QString &organisation, const QString &application,
                 QObject *parent = nullptr);
    ~BaseSettings() override;

    /** Reads a top-level value. @return false for a group that has none */
    [[nodiscard]] bool getSetting(Settings key, Record &record);

    /** Stores a top-level value and writes it out. Groups without one are left alone.
     *  @return true in every case */
    bool setSetting(Settings key, int value, bool flag);

    /** Reads a field of a group; invalid when absent. */
    [[nodiscard]] QVariant getSubSetting(Settings group, SubSettings key);

    /** Replaces a field of a group, stamps the group's LastModified and writes the group out.
     *
     *  The stamp is the time in milliseconds since the epoch, and in every case greater than the
     *  previous one: what depends on the group is rebuilt only when it grows. LastModified itself
     * is stored as given. */
    void setSubSetting(Settings group, SubSettings key, const QVariant &value);

    /** Value and range of an effect; an inactive all-zero record for groups without one. */
    [[nodiscard]] CameraSetting cameraSetting(Settings key);

    using QSettings::value;
    /** Cached read of a raw key. @param bypassCache read the file, when it has the key */
    [[nodiscard]] QVariant value(const QString &key, const QVariant &defaultValue,
                                 bool bypassCache);

    bool event(QEvent *event) override;

private:
    /** The group's cached map, read on first use; called with _subSettingsLock held. */
    QVariantMap &subSettingsOf(Settings group);

    QHash<Settings, Record> _topLevel;
    QRecursiveMutex _topLevelLock;
    QHash<Settings, QVariantMap> _subSettings;
    QRecursiveMutex _subSettingsLock;
    QRecursiveMutex _storeLock; // innermost: the base class is used from under either cache's lock
};
