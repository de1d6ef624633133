// SPDX-License-Identifier: Apache-2.0
#include "effects/ActiveEffects.h"

#include "app/core/BaseSettings.h"

namespace lumivora {

ActiveEffects ActiveEffects::fromSettings(BaseSettings &settings)
{
    using Settings = BaseSettings::Settings;
    using SubSettings = BaseSettings::SubSettings;
    const auto isActive = [&](Settings key) {
        return settings.cameraSetting(key).isActive();
    };
    const auto isSet = [&](Settings group, SubSettings key) {
        return settings.getSubSetting(group, key).toBool();
    };

    ActiveEffects active;
    active.tone = isActive(Settings::SkinTone);
    active.blur =
        !isSet(Settings::General, SubSettings::LowPowerMode) && isActive(Settings::BackgroundBlur);
    active.rotation = isActive(Settings::CameraRotation) || isActive(Settings::FineCameraRotation);
    active.logo = isSet(Settings::LogoOverlay, SubSettings::Enabled);
    active.text = isSet(Settings::TextOverlay, SubSettings::Enabled);
    return active;
}

} // namespace lumivora
