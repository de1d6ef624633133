// SPDX-License-Identifier: Apache-2.0
// Devices and the factory of the portable Direct2D.
#include "direct2d/ComPtr.h"
#include "direct2d/portable/ComObject.h"
#include "direct2d/portable/DeviceContext.h"

#include <d2d1_1.h>
#include <d3d11.h>

namespace lumivora::direct2d {

namespace {

class D3dDevice final : public ComObject<ID3D11Device, IUnknown>
{
public:
    D3dDevice() noexcept : _dxgiFace(this) {}

private:
    /** The same object under the name that Direct2D knows it by. */
    class DxgiFace final : public IDXGIDevice
    {
    public:
        explicit DxgiFace(D3dDevice *owner) noexcept : _owner(owner) {}

        HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void **object) noexcept override
        {
            return _owner->QueryInterface(riid, object);
        }
        ULONG STDMETHODCALLTYPE AddRef() noexcept override { return _owner->AddRef(); }
        ULONG STDMETHODCALLTYPE Release() noexcept override { return _owner->Release(); }

    private:
        D3dDevice *_owner;
    };

    ~D3dDevice() override = default;

    void *find(REFIID riid) noexcept override
    {
        return riid == __uuidof(IDXGIDevice) ? static_cast<IDXGIDevice *>(&_dxgiFace)
                                             : ComObject::find(riid);
    }

    DxgiFace _dxgiFace;
};

class D3dContext final : public ComObject<ID3D11DeviceContext, IUnknown>
{
public:
    explicit D3dContext(ID3D11Device *device) noexcept : _device(device) {}

    void STDMETHODCALLTYPE GetDevice(ID3D11Device **device) noexcept override
    {
        *device = ComPtr(_device).detach();
    }

private:
    ~D3dContext() override = default;

    ComPtr<ID3D11Device> _device;
};

class Device final : public ComObject<ID2D1Device, ID2D1Resource, IUnknown>
{
public:
    Device(ID2D1Factory *factory, IDXGIDevice *dxgiDevice) noexcept
        : _factory(factory), _dxgiDevice(dxgiDevice)
    {}

    void STDMETHODCALLTYPE GetFactory(ID2D1Factory **factory) const noexcept override
    {
        *factory = ComPtr(_factory).detach();
    }

    HRESULT STDMETHODCALLTYPE CreateDeviceContext(
        D2D1_DEVICE_CONTEXT_OPTIONS options, ID2D1DeviceContext **deviceContext) noexcept override
    {
        if (deviceContext == nullptr) {
            return E_INVALIDARG;
        }
        *deviceContext = nullptr;
        if (options != D2D1_DEVICE_CONTEXT_OPTIONS_NONE) {
            return E_INVALIDARG;
        }
        return guarded([&] {
            *deviceContext = new DeviceContext(this);
            return S_OK;
        });
    }

private:
    ~Device() override = default;

    ComPtr<ID2D1Factory> _factory;
    ComPtr<IDXGIDevice> _dxgiDevice;
};

class Factory final : public ComObject<ID2D1Factory1, ID2D1Factory, IUnknown>
{
public:
    HRESULT STDMETHODCALLTYPE CreateDevice(IDXGIDevice *dxgiDevice,
                                           ID2D1Device **d2dDevice) noexcept override
    {
        if (d2dDevice == nullptr) {
            return E_INVALIDARG;
        }
        *d2dDevice = nullptr;
        if (dxgiDevice == nullptr) {
            return E_INVALIDARG;
        }
        return guarded([&] {
            *d2dDevice = new Device(this, dxgiDevice);
            return S_OK;
        });
    }

private:
    ~Factory() override = default;
};

} // namespace

} // namespace lumivora::direct2d

HRESULT D3D11CreateDevice(IDXGIAdapter *adapter, D3D_DRIVER_TYPE driverType, HMODULE software,
                          UINT /*flags*/, const D3D_FEATURE_LEVEL *featureLevels,
                          UINT featureLevelCount, UINT sdkVersion, ID3D11Device **device,
                          D3D_FEATURE_LEVEL *featureLevel,
                          ID3D11DeviceContext **immediateContext) noexcept
{
    using namespace lumivora::direct2d;
    if (device != nullptr) {
        *device = nullptr;
    }
    if (immediateContext != nullptr) {
        *immediateContext = nullptr;
    }
    if (adapter != nullptr || driverType != D3D_DRIVER_TYPE_HARDWARE || software != nullptr ||
        featureLevels != nullptr || featureLevelCount != 0 || sdkVersion != D3D11_SDK_VERSION) {
        return E_INVALIDARG;
    }
    return guarded([&] {
        lumivora::ComPtr<ID3D11Device> created;
        created.attach(new D3dDevice);
        if (immediateContext != nullptr) {
            *immediateContext = new D3dContext(created.get());
        }
        if (featureLevel != nullptr) {
            *featureLevel = D3D_FEATURE_LEVEL_11_0;
        }
        if (device != nullptr) {
            *device = created.detach();
        }
        return S_OK;
    });
}

HRESULT D2D1CreateFactory(D2D1_FACTORY_TYPE type, REFIID riid,
                          const D2D1_FACTORY_OPTIONS * /*options*/, void **factory) noexcept
{
    using namespace lumivora::direct2d;
    if (factory == nullptr) {
        return E_INVALIDARG;
    }
    *factory = nullptr;
    if (type != D2D1_FACTORY_TYPE_SINGLE_THREADED && type != D2D1_FACTORY_TYPE_MULTI_THREADED) {
        return E_INVALIDARG;
    }
    return guarded([&] {
        lumivora::ComPtr<ID2D1Factory1> created;
        created.attach(new Factory);
        return created->QueryInterface(riid, factory);
    });
}
