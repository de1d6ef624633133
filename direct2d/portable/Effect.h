// SPDX-License-Identifier: Apache-2.0
// Effects of the portable Direct2D: properties, inputs and the output image.
#pragma once

#include "direct2d/ComPtr.h"
#include "direct2d/portable/ComObject.h"

#include <d2d1_1.h>

#include <cstddef>
#include <span>
#include <vector>

namespace lumivora::direct2d {

/** One property of a kind of effect: a value of 32-bit words. */
struct PropertyDescription
{
    D2D1_PROPERTY_TYPE type;
    std::span<const UINT32> defaultWords;
    UINT32 enumerators; // of an enumeration, counted from 0; 0 otherwise
};

/** What tells one kind of effect from another. */
struct EffectDescription
{
    CLSID id;
    UINT32 minimumInputs;
    UINT32 maximumInputs;
    std::span<const PropertyDescription> properties;
};

/** @thread thread-bound: the thread of the contexts that use it */
class Effect final : public ComObject<ID2D1Effect, ID2D1Properties, IUnknown>
{
public:
    /** @return D2DERR_EFFECT_IS_NOT_REGISTERED for an identifier that is not offered */
    [[nodiscard]] static HRESULT create(ID2D1Device *device, REFCLSID id,
                                        ComPtr<ID2D1Effect> &effect) noexcept;

    UINT32 STDMETHODCALLTYPE GetPropertyCount() const noexcept override;
    D2D1_PROPERTY_TYPE STDMETHODCALLTYPE GetType(UINT32 index) const noexcept override;
    HRESULT STDMETHODCALLTYPE SetValue(UINT32 index, D2D1_PROPERTY_TYPE type, const BYTE *data,
                                       UINT32 dataSize) noexcept override;
    HRESULT STDMETHODCALLTYPE GetValue(UINT32 index, D2D1_PROPERTY_TYPE type, BYTE *data,
                                       UINT32 dataSize) const noexcept override;
    UINT32 STDMETHODCALLTYPE GetValueSize(UINT32 index) const noexcept override;
    void STDMETHODCALLTYPE SetInput(UINT32 index, ID2D1Image *input,
                                    BOOL invalidate) noexcept override;
    HRESULT STDMETHODCALLTYPE SetInputCount(UINT32 inputCount) noexcept override;
    void STDMETHODCALLTYPE GetInput(UINT32 index, ID2D1Image **input) const noexcept override;
    UINT32 STDMETHODCALLTYPE GetInputCount() const noexcept override;
    void STDMETHODCALLTYPE GetOutput(ID2D1Image **outputImage) const noexcept override;

private:
    class Output;

    Effect(ID2D1Device *device, const EffectDescription &description);
    ~Effect() override = default;

    /** The bytes of a property and its type; empty for an unknown index. */
    struct Value
    {
        D2D1_PROPERTY_TYPE type = D2D1_PROPERTY_TYPE_UNKNOWN;
        std::span<const BYTE> bytes;
    };
    [[nodiscard]] Value value(UINT32 index) const noexcept;

    ComPtr<ID2D1Device> _device;
    const EffectDescription &_description;
    std::vector<std::vector<UINT32>> _values;
    std::vector<ComPtr<ID2D1Image>> _inputs;
};

} // namespace lumivora::direct2d
