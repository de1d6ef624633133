// SPDX-License-Identifier: Apache-2.0
#include "app/core/BaseSettings.h"

#include "app/core/SettingsFile.h"

#include <QColor>
#include <QDateTime>
#include <QMetaEnum>
#include <QMutexLocker>

#include <limits>

namespace {

using Settings = BaseSettings::Settings;
using SubSettings = BaseSettings::SubSettings;

QString keyOf(Settings key)
{
    return QLatin1StringView(QMetaEnum::fromType<Settings>().valueToKey(static_cast<int>(key)));
}

QString keyOf(SubSettings key)
{
    return QLatin1StringView(QMetaEnum::fromType<SubSettings>().valueToKey(static_cast<int>(key)));
}

bool hasTopLevelValue(Settings key)
{
    switch (key) {
    case Settings::SkinTone:
    case Settings::BackgroundBlur:
    case Settings::CameraRotation:
    case Settings::FineCameraRotation:
        return true;
    default:
        return false;
    }
}

/** Range and neutral value of an effect; the neutral value also stands for an absent one. */
CameraSetting rangeOf(Settings key)
{
    switch (key) {
    case Settings::SkinTone:
        return {.value = 50, .maximum = 100, .minimum = 0, .defaultValue = 50};
    case Settings::BackgroundBlur:
        return {.maximum = 100};
    case Settings::CameraRotation:
        return {.maximum = 2};
    case Settings::FineCameraRotation:
        return {.maximum = 20, .minimum = -20};
    default:
        return {};
    }
}

QVariantMap overlayDefaults(double margin)
{
    return {
        {keyOf(SubSettings::Enabled), false},
        {keyOf(SubSettings::HAlign), static_cast<int>(Qt::AlignLeft)},
        {keyOf(SubSettings::VAlign), static_cast<int>(Qt::AlignTop)},
        {keyOf(SubSettings::Size), 0.4},
        {keyOf(SubSettings::MarginX), margin},
        {keyOf(SubSettings::MarginY), margin},
        {keyOf(SubSettings::Opacity), 1.0},
        {keyOf(SubSettings::FlipHorizontal), false},
        {keyOf(SubSettings::FlipVertical), false},
        {keyOf(SubSettings::LogoShadowColor), QColor(0, 0, 0, 255)},
    };
}

QVariantMap textOverlayDefaults()
{
    QVariantMap map = overlayDefaults(0.5);
    const QString sample = QStringLiteral("Add text here");
    map.insert({
        {keyOf(SubSettings::TextLine1), sample},
        {keyOf(SubSettings::TextLine2), sample},
        {keyOf(SubSettings::TextHAlign), static_cast<int>(Qt::AlignHCenter)},
        {keyOf(SubSettings::Line1Size), 0.4},
        {keyOf(SubSettings::Line2Size), 0.2},
        {keyOf(SubSettings::TextBold), true},
        {keyOf(SubSettings::TextShadowColor), QColor(0, 0, 0, 255)},
        {keyOf(SubSettings::TextFillColor), QColor(255, 255, 255, 255)},
        {keyOf(SubSettings::TextFontFamily), QStringLiteral("Arial")},
    });
    return map;
}

QVariantMap filterDefaults(bool enabled, int strength)
{
    return {
        {keyOf(SubSettings::Enabled), enabled},
        {keyOf(SubSettings::DSP_Strength), strength},
    };
}

QVariantMap defaultsOf(Settings group)
{
    switch (group) {
    case Settings::LogoOverlay:
        return overlayDefaults(0.0);
    case Settings::TextOverlay:
        return textOverlayDefaults();
    case Settings::General:
        return {
            {keyOf(SubSettings::FlipHorizontal), false},
            {keyOf(SubSettings::LowPowerMode), false},
            {keyOf(SubSettings::StartAtLogin), true},
        };
    case Settings::BLELight:
        return {
            {keyOf(SubSettings::BLEBrightness), 50},
            {keyOf(SubSettings::BLETemperature), 50},
        };
    case Settings::DSPCompressor:
        return filterDefaults(false, 60);
    case Settings::DSPBass:
    case Settings::DSPTreble:
        return filterDefaults(false, 50);
    case Settings::DSPRNN:
        return filterDefaults(false, 100);
    case Settings::DSPAGC:
        return filterDefaults(true, 50);
    default:
        return {};
    }
}

qint64 stampAfter(qint64 previous)
{
    const qint64 now = QDateTime::currentMSecsSinceEpoch();
    // Two changes within a millisecond, or a clock that was set back.
    const bool hasNext = previous < std::numeric_limits<qint64>::max();
    return now > previous || !hasNext ? now : previous + 1;
}

/** Makes sure that the base class opens an intact store; gives the organisation on. */
QString withIntactStore(const QString &organisation, const QString &application)
{
    lumivora::repairSettingsStore(organisation, application);
    return organisation;
}

} // namespace

BaseSettings::BaseSettings(const QString &organisation, const QString &application, QObject *parent)
    : QSettings(withIntactStore(organisation, application), application, parent)
{
    // Only this user's choices count, not what other programs of the maker share.
    setFallbacksEnabled(false);
}

BaseSettings::~BaseSettings() = default;

bool BaseSettings::getSetting(Settings key, Record &record)
{
    if (!hasTopLevelValue(key)) {
        return false;
    }
    const QMutexLocker guard(&_topLevelLock);
    const auto cached = _topLevel.constFind(key);
    if (cached != _topLevel.constEnd()) {
        record = *cached;
        return true;
    }
    record = {rangeOf(key).defaultValue, false};
    const QMutexLocker store(&_storeLock);
    if (contains(keyOf(key))) {
        record.value = QSettings::value(keyOf(key)).toInt();
    }
    _topLevel.insert(key, record);
    return true;
}

bool BaseSettings::setSetting(Settings key, int value, bool flag)
{
    const QMutexLocker guard(&_topLevelLock);
    Record record;
    if (getSetting(key, record)) {
        _topLevel.insert(key, {value, flag});
        const QMutexLocker store(&_storeLock);
        setValue(keyOf(key), value);
        sync();
    }
    return true;
}

QVariantMap &BaseSettings::subSettingsOf(Settings group)
{
    const auto cached = _subSettings.find(group);
    if (cached != _subSettings.end()) {
        return *cached;
    }
    QVariantMap map = defaultsOf(group);
    const QMutexLocker store(&_storeLock);
    map.insert(QSettings::value(keyOf(group)).toMap());
    return *_subSettings.insert(group, map);
}

QVariant BaseSettings::getSubSetting(Settings group, SubSettings key)
{
    const QMutexLocker guard(&_subSettingsLock);
    return subSettingsOf(group).value(keyOf(key));
}

void BaseSettings::setSubSetting(Settings group, SubSettings key, const QVariant &value)
{
    const QMutexLocker guard(&_subSettingsLock);
    QVariantMap &map = subSettingsOf(group);
    if (key != SubSettings::LastModified) {
        map.insert(keyOf(SubSettings::LastModified),
                   stampAfter(map.value(keyOf(SubSettings::LastModified)).toLongLong()));
    }
    map.insert(keyOf(key), value);
    const QMutexLocker store(&_storeLock);
    setValue(keyOf(group), map);
    sync();
}

CameraSetting BaseSettings::cameraSetting(Settings key)
{
    CameraSetting setting = rangeOf(key);
    Record record;
    if (getSetting(key, record)) {
        setting.value = record.value;
    }
    return setting;
}

QVariant BaseSettings::value(const QString &key, const QVariant &defaultValue, bool bypassCache)
{
    if (!bypassCache) {
        bool known = false;
        const auto group = static_cast<Settings>(
            QMetaEnum::fromType<Settings>().keyToValue(key.toLatin1(), &known));
        if (known && hasTopLevelValue(group)) {
            return cameraSetting(group).value;
        }
        if (known) {
            const QMutexLocker guard(&_subSettingsLock);
            return subSettingsOf(group);
        }
    }
    const QMutexLocker store(&_storeLock);
    if (bypassCache) {
        sync(); // also takes in what others have written
    }
    return contains(key) ? QSettings::value(key) : defaultValue;
}

bool BaseSettings::event(QEvent *event)
{
    // The base class writes what is pending from the event loop, while other threads may be in it.
    const QMutexLocker store(&_storeLock);
    return QSettings::event(event);
}
