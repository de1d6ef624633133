// SPDX-License-Identifier: Apache-2.0
#include "direct2d/portable/Effect.h"

#include <algorithm>
#include <array>
#include <cstring>

namespace lumivora::direct2d {

namespace {

constexpr std::array<UINT32, 1> kBlendModeDefault{D2D1_BLEND_MODE_MULTIPLY};
constexpr std::array<PropertyDescription, 1> kBlendProperties{
    {{D2D1_PROPERTY_TYPE_ENUM, kBlendModeDefault, D2D1_BLEND_MODE_DIVISION + 1}}};

constexpr std::array<EffectDescription, 1> kBuiltInEffects{
    {{CLSID_D2D1Blend, 2, 2, kBlendProperties}}};

std::span<const BYTE> bytesOf(const auto &value)
{
    return {reinterpret_cast<const BYTE *>(&value), sizeof value};
}

} // namespace

/** What an effect yields: an image that can be drawn, or be another effect's input. */
class Effect::Output final : public ComObject<ID2D1Image, ID2D1Resource, IUnknown>
{
public:
    explicit Output(const Effect *effect) noexcept : _effect(const_cast<Effect *>(effect)) {}

    void STDMETHODCALLTYPE GetFactory(ID2D1Factory **factory) const noexcept override
    {
        _effect->_device->GetFactory(factory);
    }

private:
    ~Output() override = default;

    ComPtr<Effect> _effect;
};

HRESULT Effect::create(ID2D1Device *device, REFCLSID id, ComPtr<ID2D1Effect> &effect) noexcept
{
    effect = nullptr;
    const auto *const description = std::ranges::find(kBuiltInEffects, id, &EffectDescription::id);
    if (description == kBuiltInEffects.end()) {
        return D2DERR_EFFECT_IS_NOT_REGISTERED;
    }
    return guarded([&] {
        effect.attach(new Effect(device, *description));
        return S_OK;
    });
}

Effect::Effect(ID2D1Device *device, const EffectDescription &description)
    : _device(device), _description(description), _inputs(description.minimumInputs)
{
    for (const PropertyDescription &property : description.properties) {
        _values.emplace_back(property.defaultWords.begin(), property.defaultWords.end());
    }
}

Effect::Value Effect::value(UINT32 index) const noexcept
{
    switch (index) {
    case D2D1_PROPERTY_CLSID:
        return {D2D1_PROPERTY_TYPE_CLSID, bytesOf(_description.id)};
    case D2D1_PROPERTY_MIN_INPUTS:
        return {D2D1_PROPERTY_TYPE_UINT32, bytesOf(_description.minimumInputs)};
    case D2D1_PROPERTY_MAX_INPUTS:
        return {D2D1_PROPERTY_TYPE_UINT32, bytesOf(_description.maximumInputs)};
    default:
        break;
    }
    if (index >= _values.size()) {
        return {};
    }
    const std::vector<UINT32> &words = _values[index];
    return {_description.properties[index].type,
            {reinterpret_cast<const BYTE *>(words.data()), words.size() * sizeof(UINT32)}};
}

UINT32 Effect::GetPropertyCount() const noexcept
{
    return static_cast<UINT32>(_values.size());
}

D2D1_PROPERTY_TYPE Effect::GetType(UINT32 index) const noexcept
{
    return value(index).type;
}

UINT32 Effect::GetValueSize(UINT32 index) const noexcept
{
    return static_cast<UINT32>(value(index).bytes.size());
}

HRESULT Effect::SetValue(UINT32 index, D2D1_PROPERTY_TYPE type, const BYTE *data,
                         UINT32 dataSize) noexcept
{
    const Value old = value(index);
    if (old.bytes.empty()) {
        return D2DERR_INVALID_PROPERTY;
    }
    if (index >= _values.size()) {
        return E_ACCESSDENIED; // one of those that every effect has
    }
    if (data == nullptr || dataSize != old.bytes.size() ||
        (type != D2D1_PROPERTY_TYPE_UNKNOWN && type != old.type)) {
        return E_INVALIDARG;
    }
    if (old.type == D2D1_PROPERTY_TYPE_ENUM) {
        UINT32 enumerator = 0;
        std::memcpy(&enumerator, data, sizeof enumerator);
        if (enumerator >= _description.properties[index].enumerators) {
            return E_INVALIDARG;
        }
    }
    std::memcpy(_values[index].data(), data, dataSize);
    return S_OK;
}

HRESULT Effect::GetValue(UINT32 index, D2D1_PROPERTY_TYPE type, BYTE *data,
                         UINT32 dataSize) const noexcept
{
    const Value found = value(index);
    if (found.bytes.empty()) {
        return D2DERR_INVALID_PROPERTY;
    }
    if (data == nullptr || dataSize != found.bytes.size() ||
        (type != D2D1_PROPERTY_TYPE_UNKNOWN && type != found.type)) {
        return E_INVALIDARG;
    }
    std::memcpy(data, found.bytes.data(), dataSize);
    return S_OK;
}

void Effect::SetInput(UINT32 index, ID2D1Image *input, BOOL /*invalidate*/) noexcept
{
    if (index < _inputs.size()) {
        _inputs[index] = ComPtr<ID2D1Image>(input);
    }
}

HRESULT Effect::SetInputCount(UINT32 inputCount) noexcept
{
    if (inputCount < _description.minimumInputs || inputCount > _description.maximumInputs) {
        return E_INVALIDARG;
    }
    return guarded([&] {
        _inputs.resize(inputCount);
        return S_OK;
    });
}

void Effect::GetInput(UINT32 index, ID2D1Image **input) const noexcept
{
    *input = index < _inputs.size() ? ComPtr(_inputs[index]).detach() : nullptr;
}

UINT32 Effect::GetInputCount() const noexcept
{
    return static_cast<UINT32>(_inputs.size());
}

void Effect::GetOutput(ID2D1Image **outputImage) const noexcept
{
    *outputImage = nullptr;
    // Nothing can be reported from here: without memory there is no image.
    static_cast<void>(guarded([&] {
        *outputImage = new Output(this);
        return S_OK;
    }));
}

} // namespace lumivora::direct2d
