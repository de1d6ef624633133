// SPDX-License-Identifier: Apache-2.0
#include "tests/direct2d/Direct2DFixture.h"

#include <atomic>
#include <thread>

namespace lumivora::test {

namespace {

using DeviceTest = Direct2DTest;

TEST_F(DeviceTest, createD3dDevice_withAnythingButTheDefaults_isRefused)
{
    ComPtr<ID3D11Device> d3dDevice;
    ComPtr<ID3D11DeviceContext> context;
    constexpr D3D_FEATURE_LEVEL kLevel = D3D_FEATURE_LEVEL_11_0;
    const auto create = [&](D3D_DRIVER_TYPE type, HMODULE software, const D3D_FEATURE_LEVEL *levels,
                            UINT levelCount, UINT version) {
        return D3D11CreateDevice(nullptr, type, software, 0, levels, levelCount, version,
                                 d3dDevice.put(), nullptr, context.put());
    };
    int anything = 0;
    auto *const module = reinterpret_cast<HMODULE>(&anything);
    EXPECT_EQ(create(D3D_DRIVER_TYPE_UNKNOWN, nullptr, nullptr, 0, D3D11_SDK_VERSION),
              E_INVALIDARG);
    EXPECT_EQ(create(D3D_DRIVER_TYPE_HARDWARE, module, nullptr, 0, D3D11_SDK_VERSION),
              E_INVALIDARG);
    EXPECT_EQ(create(D3D_DRIVER_TYPE_HARDWARE, nullptr, &kLevel, 1, D3D11_SDK_VERSION),
              E_INVALIDARG);
    EXPECT_EQ(create(D3D_DRIVER_TYPE_HARDWARE, nullptr, nullptr, 0, D3D11_SDK_VERSION - 1),
              E_INVALIDARG);
    EXPECT_FALSE(d3dDevice);
    EXPECT_FALSE(context);
}

TEST_F(DeviceTest, createD3dDevice_withoutPlacesForResults_succeeds)
{
    EXPECT_EQ(D3D11CreateDevice(nullptr, D3D_DRIVER_TYPE_HARDWARE, nullptr, 0, nullptr, 0,
                                D3D11_SDK_VERSION, nullptr, nullptr, nullptr),
              S_OK);
}

TEST_F(DeviceTest, createD3dDevice_immediateContext_knowsItsDevice)
{
    D3D_FEATURE_LEVEL level{};
    ComPtr<ID3D11Device> d3dDevice;
    ComPtr<ID3D11DeviceContext> context;
    ASSERT_EQ(D3D11CreateDevice(nullptr, D3D_DRIVER_TYPE_HARDWARE, nullptr, 0, nullptr, 0,
                                D3D11_SDK_VERSION, d3dDevice.put(), &level, context.put()),
              S_OK);
    EXPECT_EQ(level, D3D_FEATURE_LEVEL_11_0);
    ComPtr<ID3D11Device> back;
    context->GetDevice(back.put());
    EXPECT_EQ(back, d3dDevice);
}

TEST_F(DeviceTest, query_dxgiFace_hasTheSameIdentity)
{
    const ComPtr<IDXGIDevice> dxgi = device.d3dDevice.query<IDXGIDevice>();
    ASSERT_TRUE(dxgi);
    EXPECT_EQ(dxgi.query<IUnknown>(), device.d3dDevice.query<IUnknown>());
    EXPECT_EQ(dxgi.query<ID3D11Device>(), device.d3dDevice);
}

TEST_F(DeviceTest, query_unknownInterface_noInterface)
{
    EXPECT_FALSE(device.d3dDevice.query<ID2D1Device>());
    void *object = &object;
    EXPECT_EQ(device.factory->QueryInterface(__uuidof(ID2D1Device), &object), E_NOINTERFACE);
    EXPECT_EQ(object, nullptr);
    EXPECT_EQ(device.factory->QueryInterface(__uuidof(IUnknown), nullptr), E_POINTER);
}

TEST_F(DeviceTest, createFactory_unknownTypeOrInterface_isRefused)
{
    void *factory = &factory;
    EXPECT_EQ(D2D1CreateFactory(static_cast<D2D1_FACTORY_TYPE>(2), __uuidof(ID2D1Factory1), nullptr,
                                &factory),
              E_INVALIDARG);
    EXPECT_EQ(factory, nullptr);
    EXPECT_EQ(D2D1CreateFactory(D2D1_FACTORY_TYPE_SINGLE_THREADED, __uuidof(ID2D1Device), nullptr,
                                &factory),
              E_NOINTERFACE);
    EXPECT_EQ(D2D1CreateFactory(D2D1_FACTORY_TYPE_SINGLE_THREADED, __uuidof(ID2D1Factory1), nullptr,
                                nullptr),
              E_INVALIDARG);
}

TEST_F(DeviceTest, createDevice_withoutDxgiDevice_isRefused)
{
    ComPtr<ID2D1Device> created;
    EXPECT_EQ(device.factory->CreateDevice(nullptr, created.put()), E_INVALIDARG);
    EXPECT_FALSE(created);
    EXPECT_EQ(device.factory->CreateDevice(device.d3dDevice.query<IDXGIDevice>().get(), nullptr),
              E_INVALIDARG);
    EXPECT_EQ(device.device->CreateDeviceContext(D2D1_DEVICE_CONTEXT_OPTIONS_NONE, nullptr),
              E_INVALIDARG);
    ComPtr<ID2D1DeviceContext> context;
    EXPECT_EQ(device.device->CreateDeviceContext(static_cast<D2D1_DEVICE_CONTEXT_OPTIONS>(7),
                                                 context.put()),
              E_INVALIDARG);
}

TEST_F(DeviceTest, getFactoryAndDevice_fromTheContext_areTheCreators)
{
    ComPtr<ID2D1Factory> factory;
    device.context->GetFactory(factory.put());
    EXPECT_EQ(factory.query<ID2D1Factory1>(), device.factory);
    ComPtr<ID2D1Device> created;
    device.context->GetDevice(created.put());
    EXPECT_EQ(created, device.device);
}

TEST_F(DeviceTest, release_oneObjectKept_keepsAllItNeeds)
{
    const ComPtr<ID2D1Bitmap1> bitmap = this->bitmap(2, 2, {});
    device = {};
    ComPtr<ID2D1Factory> factory;
    bitmap->GetFactory(factory.put());
    EXPECT_TRUE(factory);
}

TEST_F(DeviceTest, references_fromSeveralThreads_areCountedExactly)
{
    std::atomic<bool> go = false;
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&] {
            while (!go) {
            }
            for (int j = 0; j < 20000; ++j) {
                const ComPtr<ID2D1Factory1> copy = device.factory;
            }
        });
    }
    go = true;
    for (std::thread &thread : threads) {
        thread.join();
    }
    // AddRef and Release tell the count: what the test and the device hold.
    const ULONG before = device.factory->AddRef();
    EXPECT_EQ(device.factory->Release(), before - 1);
    EXPECT_EQ(before, 3U);
}

} // namespace

} // namespace lumivora::test
