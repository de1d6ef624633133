// SPDX-License-Identifier: Apache-2.0
// Creation of the device that Direct2D draws with, under the platform's names.
#pragma once

#include <dxgi.h>
#include <unknwn.h>

enum D3D_DRIVER_TYPE : std::uint32_t {
    D3D_DRIVER_TYPE_UNKNOWN = 0,
    D3D_DRIVER_TYPE_HARDWARE = 1,
};

enum D3D_FEATURE_LEVEL : std::uint32_t {
    D3D_FEATURE_LEVEL_11_0 = 0xb000,
};

enum D3D11_CREATE_DEVICE_FLAG : std::uint32_t {
    D3D11_CREATE_DEVICE_BGRA_SUPPORT = 0x20,
};

#define D3D11_SDK_VERSION 7

/** The device; it also answers for IDXGIDevice. */
struct ID3D11Device : IUnknown
{
protected:
    ~ID3D11Device() = default;
};
LUMIVORA_INTERFACE_ID(ID3D11Device, 0xdb6f6ddb, 0xac77, 0x4e88, 0x82, 0x53, 0x81, 0x9d, 0xf9, 0xbb,
                      0xf1, 0x40)

struct ID3D11DeviceContext : IUnknown
{
    virtual void STDMETHODCALLTYPE GetDevice(ID3D11Device **device) = 0;

protected:
    ~ID3D11DeviceContext() = default;
};
LUMIVORA_INTERFACE_ID(ID3D11DeviceContext, 0xc0bfa96c, 0xe089, 0x44fb, 0x8e, 0xaf, 0x26, 0xf8, 0x79,
                      0x61, 0x90, 0xda)

/** Creates the device; the processor is the only one there is, and passes for hardware.
 *  @param adapter        null: the default adapter
 *  @param software       null
 *  @param featureLevels  null: the default list
 *  @param sdkVersion     D3D11_SDK_VERSION
 *  @param device, featureLevel, immediateContext  may each be null
 *  @return E_INVALIDARG for anything else */
HRESULT D3D11CreateDevice(IDXGIAdapter *adapter, D3D_DRIVER_TYPE driverType, HMODULE software,
                          UINT flags, const D3D_FEATURE_LEVEL *featureLevels,
                          UINT featureLevelCount, UINT sdkVersion, ID3D11Device **device,
                          D3D_FEATURE_LEVEL *featureLevel,
                          ID3D11DeviceContext **immediateContext) noexcept;
