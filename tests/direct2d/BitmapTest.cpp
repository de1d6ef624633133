// SPDX-License-Identifier: Apache-2.0
#include "tests/direct2d/Direct2DFixture.h"

#include <algorithm>
#include <cstddef>
#include <numeric>

namespace lumivora::test {

namespace {

class BitmapTest : public Direct2DTest
{
protected:
    static Pixels counting(std::size_t size)
    {
        Pixels pixels(size);
        std::iota(pixels.begin(), pixels.end(), std::uint8_t{1});
        return pixels;
    }

    HRESULT create(D2D1_SIZE_U size, const D2D1_BITMAP_PROPERTIES1 &properties,
                   const void *pixels = nullptr, UINT32 pitch = 0)
    {
        ComPtr<ID2D1Bitmap1> result;
        const HRESULT code =
            device.context->CreateBitmap(size, pixels, pitch, &properties, result.put());
        EXPECT_EQ(static_cast<bool>(result), SUCCEEDED(code));
        return code;
    }

    const D2D1_BITMAP_PROPERTIES1 plain = bitmapProperties(D2D1_BITMAP_OPTIONS_NONE);
};

TEST_F(BitmapTest, create_withPixels_tellsWhatItWasGiven)
{
    const ComPtr<ID2D1Bitmap1> created = bitmap(5, 3, counting(60));
    EXPECT_EQ(created->GetPixelSize().width, 5U);
    EXPECT_EQ(created->GetPixelSize().height, 3U);
    EXPECT_EQ(created->GetSize().width, 5.0F);
    EXPECT_EQ(created->GetSize().height, 3.0F);
    EXPECT_EQ(created->GetPixelFormat().format, DXGI_FORMAT_B8G8R8A8_UNORM);
    EXPECT_EQ(created->GetPixelFormat().alphaMode, D2D1_ALPHA_MODE_PREMULTIPLIED);
    EXPECT_EQ(created->GetOptions(), D2D1_BITMAP_OPTIONS_TARGET);
    FLOAT dpiX = 0;
    FLOAT dpiY = 0;
    created->GetDpi(&dpiX, &dpiY);
    EXPECT_EQ(dpiX, 96.0F);
    EXPECT_EQ(dpiY, 96.0F);
    EXPECT_EQ(read(created), counting(60));
}

TEST_F(BitmapTest, create_withoutPixels_isTransparentBlack)
{
    EXPECT_EQ(read(bitmap(3, 2, {})), Pixels(24, 0));
}

TEST_F(BitmapTest, create_withWiderPitch_skipsThePadding)
{
    constexpr UINT32 kPitch = 3 * 4 + 5;
    Pixels padded(2 * kPitch, 0xee);
    const Pixels expected = counting(24);
    std::copy_n(expected.begin(), 12, padded.begin());
    std::copy_n(expected.begin() + 12, 12, padded.begin() + kPitch);
    ComPtr<ID2D1Bitmap1> created;
    ASSERT_EQ(device.context->CreateBitmap({3, 2}, padded.data(), kPitch, &plain, created.put()),
              S_OK);
    EXPECT_EQ(read(created), expected);
}

TEST_F(BitmapTest, create_atTheMaximumSize_succeeds)
{
    EXPECT_EQ(device.context->GetMaximumBitmapSize(), 16384U);
    EXPECT_EQ(create({16384, 1}, plain), S_OK);
    EXPECT_EQ(create({1, 16384}, plain), S_OK);
}

TEST_F(BitmapTest, create_beyondTheMaximumSize_isRefused)
{
    EXPECT_EQ(create({16385, 1}, plain), D2DERR_EXCEEDS_MAX_BITMAP_SIZE);
    EXPECT_EQ(create({1, 16385}, plain), D2DERR_EXCEEDS_MAX_BITMAP_SIZE);
    EXPECT_EQ(create({0xffffffff, 0xffffffff}, plain), D2DERR_EXCEEDS_MAX_BITMAP_SIZE);
}

TEST_F(BitmapTest, create_withoutArea_isRefused)
{
    EXPECT_EQ(create({0, 4}, plain), E_INVALIDARG);
    EXPECT_EQ(create({4, 0}, plain), E_INVALIDARG);
}

TEST_F(BitmapTest, create_withShortPitch_isRefused)
{
    const Pixels pixels(64);
    EXPECT_EQ(create({4, 4}, plain, pixels.data(), 15), E_INVALIDARG);
    EXPECT_EQ(create({4, 4}, plain, pixels.data(), 0), E_INVALIDARG);
    EXPECT_EQ(create({4, 4}, plain, pixels.data(), 16), S_OK);
}

TEST_F(BitmapTest, create_inOtherFormats_isRefused)
{
    for (const D2D1_PIXEL_FORMAT format :
         {D2D1_PIXEL_FORMAT{DXGI_FORMAT_UNKNOWN, D2D1_ALPHA_MODE_PREMULTIPLIED},
          D2D1_PIXEL_FORMAT{DXGI_FORMAT_B8G8R8A8_UNORM, D2D1_ALPHA_MODE_UNKNOWN},
          D2D1_PIXEL_FORMAT{DXGI_FORMAT_B8G8R8A8_UNORM, D2D1_ALPHA_MODE_STRAIGHT},
          D2D1_PIXEL_FORMAT{DXGI_FORMAT_B8G8R8A8_UNORM, D2D1_ALPHA_MODE_IGNORE}}) {
        D2D1_BITMAP_PROPERTIES1 properties = plain;
        properties.pixelFormat = format;
        EXPECT_EQ(create({4, 4}, properties), D2DERR_UNSUPPORTED_PIXEL_FORMAT);
    }
}

TEST_F(BitmapTest, create_withOptionsThatExcludeEachOther_isRefused)
{
    for (const D2D1_BITMAP_OPTIONS options :
         {D2D1_BITMAP_OPTIONS_CPU_READ, D2D1_BITMAP_OPTIONS_CPU_READ | D2D1_BITMAP_OPTIONS_TARGET,
          D2D1_BITMAP_OPTIONS_CPU_READ | D2D1_BITMAP_OPTIONS_TARGET |
              D2D1_BITMAP_OPTIONS_CANNOT_DRAW,
          static_cast<D2D1_BITMAP_OPTIONS>(16)}) {
        EXPECT_EQ(create({4, 4}, bitmapProperties(options)), E_INVALIDARG) << options;
    }
}

TEST_F(BitmapTest, create_atOtherResolutions_isRefused)
{
    D2D1_BITMAP_PROPERTIES1 properties = plain;
    properties.dpiX = 0.0F;
    properties.dpiY = 0.0F;
    EXPECT_EQ(create({4, 4}, properties), S_OK);
    properties.dpiY = 192.0F;
    EXPECT_EQ(create({4, 4}, properties), E_INVALIDARG);
}

TEST_F(BitmapTest, create_withoutPropertiesOrPlace_isRefused)
{
    ComPtr<ID2D1Bitmap1> created;
    EXPECT_EQ(device.context->CreateBitmap({4, 4}, nullptr, 0, nullptr, created.put()),
              E_INVALIDARG);
    EXPECT_EQ(device.context->CreateBitmap({4, 4}, nullptr, 0, &plain, nullptr), E_INVALIDARG);
}

TEST_F(BitmapTest, copyFromMemory_wholeAndPart_writesJustThat)
{
    const ComPtr<ID2D1Bitmap1> target = bitmap(4, 3, {});
    const Pixels whole = counting(48);
    ASSERT_EQ(target->CopyFromMemory(nullptr, whole.data(), 16), S_OK);
    EXPECT_EQ(read(target), whole);

    // Two pixels by two, from rows of 11 bytes.
    const Pixels part = {9, 9, 9, 9, 8, 8, 8, 8, 0, 0, 0, 7, 7, 7, 7, 6, 6, 6, 6};
    const D2D1_RECT_U area{1, 1, 3, 3};
    ASSERT_EQ(target->CopyFromMemory(&area, part.data(), 11), S_OK);
    Pixels expected = whole;
    std::copy_n(part.begin(), 8, expected.begin() + 16 + 4);
    std::copy_n(part.begin() + 11, 8, expected.begin() + 32 + 4);
    EXPECT_EQ(read(target), expected);
}

TEST_F(BitmapTest, copyFromMemory_wrongUse_isRefused)
{
    const ComPtr<ID2D1Bitmap1> target = bitmap(4, 3, {});
    const Pixels pixels(48);
    EXPECT_EQ(target->CopyFromMemory(nullptr, nullptr, 16), E_INVALIDARG);
    EXPECT_EQ(target->CopyFromMemory(nullptr, pixels.data(), 15), E_INVALIDARG);
    for (const D2D1_RECT_U area :
         {D2D1_RECT_U{2, 0, 2, 1}, D2D1_RECT_U{3, 0, 2, 1}, D2D1_RECT_U{0, 0, 5, 1},
          D2D1_RECT_U{0, 0, 1, 4}, D2D1_RECT_U{0xffffffff, 0, 1, 1}}) {
        EXPECT_EQ(target->CopyFromMemory(&area, pixels.data(), 16), E_INVALIDARG);
    }
    EXPECT_EQ(readable(4, 3)->CopyFromMemory(nullptr, pixels.data(), 16), E_INVALIDARG);
}

TEST_F(BitmapTest, copyFromBitmap_partToPoint_writesJustThat)
{
    const Pixels pixels = counting(48);
    const ComPtr<ID2D1Bitmap1> source = bitmap(4, 3, pixels);
    const ComPtr<ID2D1Bitmap1> target = bitmap(3, 2, {});
    const D2D1_POINT_2U point{1, 1};
    const D2D1_RECT_U area{2, 1, 4, 2};
    ASSERT_EQ(target->CopyFromBitmap(&point, source.get(), &area), S_OK);
    Pixels expected(24, 0);
    std::copy_n(pixels.begin() + 16 + 8, 8, expected.begin() + 12 + 4);
    EXPECT_EQ(read(target), expected);
}

TEST_F(BitmapTest, copyFromBitmap_wrongUse_isRefused)
{
    const ComPtr<ID2D1Bitmap1> source = bitmap(4, 3, {});
    const ComPtr<ID2D1Bitmap1> smaller = bitmap(3, 3, {});
    EXPECT_EQ(smaller->CopyFromBitmap(nullptr, nullptr, nullptr), E_INVALIDARG);
    EXPECT_EQ(smaller->CopyFromBitmap(nullptr, smaller.get(), nullptr), E_INVALIDARG);
    EXPECT_EQ(smaller->CopyFromBitmap(nullptr, source.get(), nullptr), E_INVALIDARG); // too large
    const D2D1_RECT_U outside{0, 0, 4, 4};
    EXPECT_EQ(smaller->CopyFromBitmap(nullptr, source.get(), &outside), E_INVALIDARG);
    const D2D1_RECT_U one{0, 0, 1, 1};
    for (const D2D1_POINT_2U point :
         {D2D1_POINT_2U{3, 0}, D2D1_POINT_2U{0, 3}, D2D1_POINT_2U{0xffffffff, 0}}) {
        EXPECT_EQ(smaller->CopyFromBitmap(&point, source.get(), &one), E_INVALIDARG);
    }

    D2D1_BITMAP_PROPERTIES1 properties = plain;
    properties.pixelFormat.format = DXGI_FORMAT_R8G8B8A8_UNORM;
    ComPtr<ID2D1Bitmap1> otherFormat;
    ASSERT_EQ(device.context->CreateBitmap({4, 3}, nullptr, 0, &properties, otherFormat.put()),
              S_OK);
    EXPECT_EQ(otherFormat->CopyFromBitmap(nullptr, source.get(), nullptr),
              D2DERR_UNSUPPORTED_PIXEL_FORMAT);

    const TestDevice otherDevice = TestDevice::create();
    ComPtr<ID2D1Bitmap1> foreign;
    ASSERT_EQ(otherDevice.context->CreateBitmap({4, 3}, nullptr, 0, &plain, foreign.put()), S_OK);
    EXPECT_EQ(source->CopyFromBitmap(nullptr, foreign.get(), nullptr),
              D2DERR_WRONG_RESOURCE_DOMAIN);
}

TEST_F(BitmapTest, copyFromRenderTarget_copiesTheTarget)
{
    const Pixels pixels = counting(48);
    const ComPtr<ID2D1Bitmap1> target = bitmap(4, 3, pixels);
    const ComPtr<ID2D1Bitmap1> copy = bitmap(4, 3, {}, D2D1_BITMAP_OPTIONS_NONE);
    EXPECT_EQ(copy->CopyFromRenderTarget(nullptr, nullptr, nullptr), E_INVALIDARG);
    EXPECT_EQ(copy->CopyFromRenderTarget(nullptr, device.context.get(), nullptr),
              D2DERR_WRONG_STATE);
    device.context->SetTarget(target.get());
    EXPECT_EQ(copy->CopyFromRenderTarget(nullptr, device.context.get(), nullptr), S_OK);
    EXPECT_EQ(read(copy), pixels);
}

TEST_F(BitmapTest, map_withoutCpuRead_isRefused)
{
    D2D1_MAPPED_RECT mapped{};
    EXPECT_EQ(bitmap(2, 2, {})->Map(D2D1_MAP_OPTIONS_READ, &mapped), E_INVALIDARG);
    EXPECT_EQ(mapped.bits, nullptr);
}

TEST_F(BitmapTest, map_forAnythingButReading_isRefused)
{
    const ComPtr<ID2D1Bitmap1> source = readable(2, 2);
    D2D1_MAPPED_RECT mapped{};
    for (const D2D1_MAP_OPTIONS options :
         {D2D1_MAP_OPTIONS_NONE, D2D1_MAP_OPTIONS_WRITE, static_cast<D2D1_MAP_OPTIONS>(3),
          static_cast<D2D1_MAP_OPTIONS>(6)}) {
        EXPECT_EQ(source->Map(options, &mapped), E_INVALIDARG);
    }
    EXPECT_EQ(source->Map(D2D1_MAP_OPTIONS_READ, nullptr), E_INVALIDARG);
}

TEST_F(BitmapTest, map_whileMapped_isRefusedAndCopiesToo)
{
    const ComPtr<ID2D1Bitmap1> source = bitmap(2, 2, {});
    const ComPtr<ID2D1Bitmap1> copy = readable(2, 2);
    D2D1_MAPPED_RECT mapped{};
    EXPECT_EQ(copy->Unmap(), D2DERR_WRONG_STATE);
    ASSERT_EQ(copy->Map(D2D1_MAP_OPTIONS_READ, &mapped), S_OK);
    EXPECT_GE(mapped.pitch, 8U);
    D2D1_MAPPED_RECT again{};
    EXPECT_EQ(copy->Map(D2D1_MAP_OPTIONS_READ, &again), D2DERR_WRONG_STATE);
    EXPECT_EQ(copy->CopyFromBitmap(nullptr, source.get(), nullptr), D2DERR_WRONG_STATE);
    EXPECT_EQ(source->CopyFromBitmap(nullptr, copy.get(), nullptr), D2DERR_WRONG_STATE);
    EXPECT_EQ(copy->Unmap(), S_OK);
    EXPECT_EQ(copy->CopyFromBitmap(nullptr, source.get(), nullptr), S_OK);
}

} // namespace

} // namespace lumivora::test
