// SPDX-License-Identifier: Apache-2.0
// What the effects pipeline is put together from.
#pragma once

#include "direct2d/ComPtr.h"

#include <d2d1_1.h>
#include <d3d11.h>

#include <functional>
#include <memory>

class SubProcessor;

namespace lumivora {

/** The steps that lead to a device context, in order. Tests let any of them fail. */
struct DeviceFunctions
{
    HRESULT (*createD3dDevice)(ID3D11Device **device, ID3D11DeviceContext **context);
    HRESULT (*queryDxgiDevice)(ID3D11Device *device, IDXGIDevice **dxgiDevice);
    HRESULT (*createFactory)(ID2D1Factory1 **factory);
    HRESULT (*createDevice)(ID2D1Factory1 *factory, IDXGIDevice *dxgiDevice, ID2D1Device **device);
    HRESULT (*createDeviceContext)(ID2D1Device *device, ID2D1DeviceContext **context);
    HRESULT (*createBlendEffect)(ID2D1DeviceContext *context, ID2D1Effect **effect);

    /** The real ones, for the default adapter's hardware. */
    [[nodiscard]] static DeviceFunctions system();
};

/** Makes a stage on the pipeline's context. */
using StageFactory =
    std::function<std::shared_ptr<SubProcessor>(const ComPtr<ID2D1DeviceContext> &context)>;

/** The device and the stages of a pipeline; a stage whose factory is empty does not exist, and
 *  its effect is passed over. */
struct PipelineParts
{
    DeviceFunctions device;
    StageFactory tone;

    /** Those of the product. */
    [[nodiscard]] static PipelineParts standard();
};

} // namespace lumivora
