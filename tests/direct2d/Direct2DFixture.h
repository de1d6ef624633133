// SPDX-License-Identifier: Apache-2.0
// A device with a context, and the checks that nothing of it is left behind.
#pragma once

#include "direct2d/ComPtr.h"
#include "direct2d/portable/ObjectCounts.h"

#include <d2d1_1.h>
#include <d3d11.h>

#include <gmock/gmock.h>

#include <cstdint>
#include <vector>

namespace lumivora::test {

struct TestDevice
{
    ComPtr<ID3D11Device> d3dDevice;
    ComPtr<ID3D11DeviceContext> d3dContext;
    ComPtr<ID2D1Factory1> factory;
    ComPtr<ID2D1Device> device;
    ComPtr<ID2D1DeviceContext> context;

    static TestDevice create()
    {
        TestDevice result;
        EXPECT_EQ(D3D11CreateDevice(nullptr, D3D_DRIVER_TYPE_HARDWARE, nullptr,
                                    D3D11_CREATE_DEVICE_BGRA_SUPPORT, nullptr, 0, D3D11_SDK_VERSION,
                                    result.d3dDevice.put(), nullptr, result.d3dContext.put()),
                  S_OK);
        EXPECT_EQ(D2D1CreateFactory(D2D1_FACTORY_TYPE_SINGLE_THREADED, __uuidof(ID2D1Factory1),
                                    nullptr, result.factory.putVoid()),
                  S_OK);
        EXPECT_EQ(result.factory->CreateDevice(result.d3dDevice.query<IDXGIDevice>().get(),
                                               result.device.put()),
                  S_OK);
        EXPECT_EQ(result.device->CreateDeviceContext(D2D1_DEVICE_CONTEXT_OPTIONS_NONE,
                                                     result.context.put()),
                  S_OK);
        return result;
    }
};

inline D2D1_BITMAP_PROPERTIES1 bitmapProperties(D2D1_BITMAP_OPTIONS options)
{
    return {{DXGI_FORMAT_B8G8R8A8_UNORM, D2D1_ALPHA_MODE_PREMULTIPLIED},
            96.0F,
            96.0F,
            options,
            nullptr};
}

class Direct2DTest : public ::testing::Test
{
protected:
    using Pixels = std::vector<std::uint8_t>;

    void TearDown() override
    {
        device = {};
        EXPECT_EQ(direct2d::objectCounts().live - _liveBefore, 0);
    }

    ComPtr<ID2D1Bitmap1> bitmap(UINT32 width, UINT32 height, const Pixels &pixels,
                                D2D1_BITMAP_OPTIONS options = D2D1_BITMAP_OPTIONS_TARGET)
    {
        ComPtr<ID2D1Bitmap1> result;
        const D2D1_BITMAP_PROPERTIES1 properties = bitmapProperties(options);
        EXPECT_EQ(device.context->CreateBitmap({width, height},
                                               pixels.empty() ? nullptr : pixels.data(), width * 4,
                                               &properties, result.put()),
                  S_OK);
        return result;
    }

    ComPtr<ID2D1Bitmap1> readable(UINT32 width, UINT32 height)
    {
        return bitmap(width, height, {},
                      D2D1_BITMAP_OPTIONS_CPU_READ | D2D1_BITMAP_OPTIONS_CANNOT_DRAW);
    }

    /** The pixels without padding. */
    Pixels read(const ComPtr<ID2D1Bitmap1> &source)
    {
        const D2D1_SIZE_U size = source->GetPixelSize();
        const ComPtr<ID2D1Bitmap1> copy = readable(size.width, size.height);
        EXPECT_EQ(copy->CopyFromBitmap(nullptr, source.get(), nullptr), S_OK);
        D2D1_MAPPED_RECT mapped{};
        EXPECT_EQ(copy->Map(D2D1_MAP_OPTIONS_READ, &mapped), S_OK);
        Pixels result;
        for (UINT32 row = 0; row < size.height; ++row) {
            const BYTE *const begin = mapped.bits + row * mapped.pitch;
            result.insert(result.end(), begin, begin + size.width * 4);
        }
        EXPECT_EQ(copy->Unmap(), S_OK);
        return result;
    }

    /** Draws an image onto a target and expects what EndDraw says. */
    void draw(const ComPtr<ID2D1Bitmap1> &target, ID2D1Image *image,
              const D2D1_POINT_2F *offset = nullptr, const D2D1_RECT_F *rectangle = nullptr,
              HRESULT expected = S_OK,
              D2D1_INTERPOLATION_MODE interpolation = D2D1_INTERPOLATION_MODE_LINEAR)
    {
        device.context->SetTarget(target.get());
        device.context->BeginDraw();
        device.context->DrawImage(image, offset, rectangle, interpolation,
                                  D2D1_COMPOSITE_MODE_SOURCE_OVER);
        EXPECT_EQ(device.context->EndDraw(), expected);
    }

private:
    std::ptrdiff_t _liveBefore = direct2d::objectCounts().live;

protected:
    TestDevice device = TestDevice::create();
};

} // namespace lumivora::test
