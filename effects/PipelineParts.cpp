// SPDX-License-Identifier: Apache-2.0
#include "effects/PipelineParts.h"

namespace lumivora {

DeviceFunctions DeviceFunctions::system()
{
    DeviceFunctions functions{};
    functions.createD3dDevice = [](ID3D11Device **device, ID3D11DeviceContext **context) {
        return D3D11CreateDevice(nullptr, D3D_DRIVER_TYPE_HARDWARE, nullptr,
                                 D3D11_CREATE_DEVICE_BGRA_SUPPORT, nullptr, 0, D3D11_SDK_VERSION,
                                 device, nullptr, context);
    };
    functions.queryDxgiDevice = [](ID3D11Device *device, IDXGIDevice **dxgiDevice) {
        return device->QueryInterface(__uuidof(IDXGIDevice), reinterpret_cast<void **>(dxgiDevice));
    };
    functions.createFactory = [](ID2D1Factory1 **factory) {
        const D2D1_FACTORY_OPTIONS options{D2D1_DEBUG_LEVEL_NONE};
        return D2D1CreateFactory(D2D1_FACTORY_TYPE_SINGLE_THREADED, __uuidof(ID2D1Factory1),
                                 &options, reinterpret_cast<void **>(factory));
    };
    functions.createDevice = [](ID2D1Factory1 *factory, IDXGIDevice *dxgiDevice,
                                ID2D1Device **device) {
        return factory->CreateDevice(dxgiDevice, device);
    };
    functions.createDeviceContext = [](ID2D1Device *device, ID2D1DeviceContext **context) {
        return device->CreateDeviceContext(D2D1_DEVICE_CONTEXT_OPTIONS_NONE, context);
    };
    functions.createBlendEffect = [](ID2D1DeviceContext *context, ID2D1Effect **effect) {
        return context->CreateEffect(CLSID_D2D1Blend, effect);
    };
    return functions;
}

PipelineParts PipelineParts::standard()
{
    return {DeviceFunctions::system(), {}};
}

} // namespace lumivora
