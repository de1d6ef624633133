// SPDX-License-Identifier: Apache-2.0
// The real steps, on the Direct2D of the platform.
#include "effects/PipelineParts.h"

#include "effects/BitmapTransfer.h"
#include "tests/effects/TestContext.h"

#include <gmock/gmock.h>

#include <cstring>

namespace lumivora::test {

namespace {

TEST(DeviceFunctions, system_stepsToTheContext_succeed)
{
    const DeviceFunctions functions = DeviceFunctions::system();
    ComPtr<ID3D11Device> d3dDevice;
    ComPtr<ID3D11DeviceContext> d3dContext;
    ComPtr<IDXGIDevice> dxgiDevice;
    ComPtr<ID2D1Factory1> factory;
    ComPtr<ID2D1Device> device;
    ComPtr<ID2D1DeviceContext> context;
    EXPECT_TRUE(SUCCEEDED(functions.createD3dDevice(d3dDevice.put(), d3dContext.put())));
    ASSERT_TRUE(d3dDevice);
    EXPECT_TRUE(d3dContext);
    EXPECT_TRUE(SUCCEEDED(functions.queryDxgiDevice(d3dDevice.get(), dxgiDevice.put())));
    ASSERT_TRUE(dxgiDevice);
    EXPECT_TRUE(SUCCEEDED(functions.createFactory(factory.put())));
    ASSERT_TRUE(factory);
    EXPECT_TRUE(SUCCEEDED(functions.createDevice(factory.get(), dxgiDevice.get(), device.put())));
    ASSERT_TRUE(device);
    EXPECT_TRUE(SUCCEEDED(functions.createDeviceContext(device.get(), context.put())));
    EXPECT_TRUE(context);
}

TEST(DeviceFunctions, system_contextDrawsABitmap_byteForByte)
{
    const ComPtr<ID2D1DeviceContext> context = createContext();
    ASSERT_TRUE(context);
    const QImage source = patternImage(21, 13);
    const ComPtr<ID2D1Bitmap1> bitmap =
        createBitmapFromBuffer(context, source.constBits(), 21, 13, false);
    const ComPtr<ID2D1Bitmap1> target = createBitmapFromBuffer(context, nullptr, 21, 13, false);
    context->SetTarget(target.get());
    context->BeginDraw();
    const D2D1_POINT_2F origin{0, 0};
    context->DrawImage(bitmap.get(), &origin, nullptr, D2D1_INTERPOLATION_MODE_LINEAR,
                       D2D1_COMPOSITE_MODE_SOURCE_OVER);
    ASSERT_TRUE(SUCCEEDED(context->EndDraw()));

    const ComPtr<ID2D1Bitmap1> copy = createBitmapFromBuffer(context, nullptr, 21, 13, true);
    ASSERT_TRUE(SUCCEEDED(copy->CopyFromBitmap(nullptr, target.get(), nullptr)));
    D2D1_MAPPED_RECT mapped{};
    ASSERT_TRUE(SUCCEEDED(copy->Map(D2D1_MAP_OPTIONS_READ, &mapped)));
    for (int row = 0; row < 13; ++row) {
        EXPECT_EQ(std::memcmp(mapped.bits + static_cast<UINT32>(row) * mapped.pitch,
                              source.constScanLine(row), 21 * 4),
                  0);
    }
    EXPECT_TRUE(SUCCEEDED(copy->Unmap()));
}

} // namespace

} // namespace lumivora::test
