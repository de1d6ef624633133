// SPDX-License-Identifier: Apache-2.0
#include "tests/direct2d/Direct2DFixture.h"

namespace lumivora::test {

namespace {

class EffectTest : public Direct2DTest
{
protected:
    EffectTest() { EXPECT_EQ(device.context->CreateEffect(CLSID_D2D1Blend, effect.put()), S_OK); }

    void TearDown() override
    {
        effect = nullptr;
        Direct2DTest::TearDown();
    }

    ComPtr<ID2D1Effect> effect;
};

TEST_F(EffectTest, create_unknownClass_isNotRegistered)
{
    ComPtr<ID2D1Effect> other;
    EXPECT_EQ(device.context->CreateEffect(CLSID{}, other.put()), D2DERR_EFFECT_IS_NOT_REGISTERED);
    EXPECT_FALSE(other);
    EXPECT_EQ(device.context->CreateEffect(CLSID_D2D1Blend, nullptr), E_INVALIDARG);
}

TEST_F(EffectTest, blendMode_new_isMultiply)
{
    ASSERT_EQ(effect->GetPropertyCount(), 1U);
    EXPECT_EQ(effect->GetType(D2D1_BLEND_PROP_MODE), D2D1_PROPERTY_TYPE_ENUM);
    EXPECT_EQ(effect->GetValueSize(D2D1_BLEND_PROP_MODE), 4U);
    D2D1_BLEND_MODE mode{};
    EXPECT_EQ(effect->GetValue(D2D1_BLEND_PROP_MODE, &mode), S_OK);
    EXPECT_EQ(mode, D2D1_BLEND_MODE_MULTIPLY);
}

TEST_F(EffectTest, blendMode_set_isKept)
{
    EXPECT_EQ(effect->SetValue(D2D1_BLEND_PROP_MODE, D2D1_BLEND_MODE_SCREEN), S_OK);
    D2D1_BLEND_MODE mode{};
    EXPECT_EQ(effect->GetValue(D2D1_BLEND_PROP_MODE, &mode), S_OK);
    EXPECT_EQ(mode, D2D1_BLEND_MODE_SCREEN);
}

TEST_F(EffectTest, setValue_wrongUse_isRefusedAndChangesNothing)
{
    const UINT32 value = D2D1_BLEND_MODE_SCREEN;
    const auto *const bytes = reinterpret_cast<const BYTE *>(&value);
    ID2D1Properties &properties = *effect;
    EXPECT_EQ(properties.SetValue(1, D2D1_PROPERTY_TYPE_UNKNOWN, bytes, 4),
              D2DERR_INVALID_PROPERTY);
    EXPECT_EQ(properties.SetValue(D2D1_BLEND_PROP_MODE, D2D1_PROPERTY_TYPE_FLOAT, bytes, 4),
              E_INVALIDARG);
    EXPECT_EQ(properties.SetValue(D2D1_BLEND_PROP_MODE, D2D1_PROPERTY_TYPE_ENUM, bytes, 3),
              E_INVALIDARG);
    EXPECT_EQ(properties.SetValue(D2D1_BLEND_PROP_MODE, D2D1_PROPERTY_TYPE_ENUM, nullptr, 4),
              E_INVALIDARG);
    EXPECT_EQ(properties.SetValue(D2D1_PROPERTY_MAX_INPUTS, D2D1_PROPERTY_TYPE_UINT32, bytes, 4),
              E_ACCESSDENIED);
    EXPECT_EQ(effect->SetValue(D2D1_BLEND_PROP_MODE, D2D1_BLEND_MODE_DIVISION + 1), E_INVALIDARG);
    D2D1_BLEND_MODE mode{};
    EXPECT_EQ(effect->GetValue(D2D1_BLEND_PROP_MODE, &mode), S_OK);
    EXPECT_EQ(mode, D2D1_BLEND_MODE_MULTIPLY);
}

TEST_F(EffectTest, getValue_wrongUse_isRefused)
{
    UINT32 value = 7;
    auto *const bytes = reinterpret_cast<BYTE *>(&value);
    const ID2D1Properties &properties = *effect;
    EXPECT_EQ(properties.GetValue(1, D2D1_PROPERTY_TYPE_UNKNOWN, bytes, 4),
              D2DERR_INVALID_PROPERTY);
    EXPECT_EQ(properties.GetValue(D2D1_BLEND_PROP_MODE, D2D1_PROPERTY_TYPE_UINT32, bytes, 4),
              E_INVALIDARG);
    EXPECT_EQ(properties.GetValue(D2D1_BLEND_PROP_MODE, D2D1_PROPERTY_TYPE_ENUM, bytes, 8),
              E_INVALIDARG);
    EXPECT_EQ(properties.GetValue(D2D1_BLEND_PROP_MODE, D2D1_PROPERTY_TYPE_ENUM, nullptr, 4),
              E_INVALIDARG);
    EXPECT_EQ(properties.GetType(1), D2D1_PROPERTY_TYPE_UNKNOWN);
    EXPECT_EQ(properties.GetValueSize(1), 0U);
    EXPECT_EQ(value, 7U);
}

TEST_F(EffectTest, systemProperties_tellClassAndInputs)
{
    CLSID id{};
    EXPECT_EQ(effect->GetValue(D2D1_PROPERTY_CLSID, &id), S_OK);
    EXPECT_EQ(id, CLSID_D2D1Blend);
    UINT32 inputs = 0;
    EXPECT_EQ(effect->GetValue(D2D1_PROPERTY_MIN_INPUTS, &inputs), S_OK);
    EXPECT_EQ(inputs, 2U);
    inputs = 0;
    EXPECT_EQ(effect->GetValue(D2D1_PROPERTY_MAX_INPUTS, &inputs), S_OK);
    EXPECT_EQ(inputs, 2U);
}

TEST_F(EffectTest, inputs_setAndCleared_areCounted)
{
    const ComPtr<ID2D1Bitmap1> image = bitmap(2, 2, {});
    effect->SetInput(1, image.get());
    ComPtr<ID2D1Image> input;
    effect->GetInput(1, input.put());
    EXPECT_EQ(input.get(), image.get());
    effect->GetInput(0, input.put());
    EXPECT_FALSE(input);
    effect->SetInput(2, image.get()); // out of range: ignored
    effect->GetInput(2, input.put());
    EXPECT_FALSE(input);
    effect->SetInput(1, nullptr);
    effect->GetInput(1, input.put());
    EXPECT_FALSE(input);
}

TEST_F(EffectTest, inputCount_outsideTheRange_isRefused)
{
    EXPECT_EQ(effect->GetInputCount(), 2U);
    EXPECT_EQ(effect->SetInputCount(1), E_INVALIDARG);
    EXPECT_EQ(effect->SetInputCount(3), E_INVALIDARG);
    EXPECT_EQ(effect->SetInputCount(2), S_OK);
    EXPECT_EQ(effect->GetInputCount(), 2U);
}

TEST_F(EffectTest, output_outlivesTheEffectsOwner)
{
    ComPtr<ID2D1Image> output;
    effect->GetOutput(output.put());
    effect = nullptr;
    ComPtr<ID2D1Factory> factory;
    output->GetFactory(factory.put());
    EXPECT_EQ(factory.query<ID2D1Factory1>(), device.factory);
}

} // namespace

} // namespace lumivora::test
