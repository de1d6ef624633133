// SPDX-License-Identifier: Apache-2.0
#include "effects/ActiveEffects.h"

#include "tests/effects/TestSettings.h"

#include <gmock/gmock.h>

namespace lumivora::test {

namespace {

using Settings = BaseSettings::Settings;
using SubSettings = BaseSettings::SubSettings;

class ActiveEffectsTest : public ::testing::Test
{
protected:
    void expect(bool tone, bool blur, bool rotation, bool logo, bool text)
    {
        const ActiveEffects active = ActiveEffects::fromSettings(settings.store());
        EXPECT_EQ(active.tone, tone);
        EXPECT_EQ(active.blur, blur);
        EXPECT_EQ(active.rotation, rotation);
        EXPECT_EQ(active.logo, logo);
        EXPECT_EQ(active.text, text);
    }

    TestSettings settings;
};

TEST_F(ActiveEffectsTest, fromSettings_defaults_nothing)
{
    expect(false, false, false, false, false);
}

TEST_F(ActiveEffectsTest, fromSettings_toneOffItsDefault_toneEitherWay)
{
    settings.set(Settings::SkinTone, 51);
    expect(true, false, false, false, false);
    settings.set(Settings::SkinTone, 0);
    expect(true, false, false, false, false);
    settings.set(Settings::SkinTone, 50);
    expect(false, false, false, false, false);
}

TEST_F(ActiveEffectsTest, fromSettings_blurInLowPowerMode_othersStillApply)
{
    settings.set(Settings::BackgroundBlur, 40);
    expect(false, true, false, false, false);
    settings.set(Settings::SkinTone, 10);
    settings.set(Settings::CameraRotation, 2);
    settings.set(Settings::LogoOverlay, SubSettings::Enabled, true);
    settings.set(Settings::TextOverlay, SubSettings::Enabled, true);
    settings.set(Settings::General, SubSettings::LowPowerMode, true);
    expect(true, false, true, true, true);
    settings.set(Settings::General, SubSettings::LowPowerMode, false);
    expect(true, true, true, true, true);
}

TEST_F(ActiveEffectsTest, fromSettings_eitherRotation_rotation)
{
    settings.set(Settings::FineCameraRotation, 0);
    settings.set(Settings::CameraRotation, 1);
    expect(false, false, true, false, false);
    settings.set(Settings::CameraRotation, 0);
    settings.set(Settings::FineCameraRotation, -3);
    expect(false, false, true, false, false);
}

TEST_F(ActiveEffectsTest, fromSettings_eachOverlay_itself)
{
    settings.set(Settings::LogoOverlay, SubSettings::Enabled, true);
    expect(false, false, false, true, false);
    settings.set(Settings::LogoOverlay, SubSettings::Enabled, false);
    settings.set(Settings::TextOverlay, SubSettings::Enabled, true);
    expect(false, false, false, false, true);
}

} // namespace

} // namespace lumivora::test
