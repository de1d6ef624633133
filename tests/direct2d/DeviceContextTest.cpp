// SPDX-License-Identifier: Apache-2.0
#include "tests/direct2d/Direct2DFixture.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>
#include <random>

namespace lumivora::test {

namespace {

class DeviceContextTest : public Direct2DTest
{
protected:
    /** Random premultiplied pixels. */
    Pixels random(std::size_t pixelCount, bool opaque = false)
    {
        Pixels pixels;
        for (std::size_t i = 0; i < pixelCount; ++i) {
            const unsigned alpha = opaque ? 255 : static_cast<unsigned>(_random() % 256);
            for (int channel = 0; channel < 3; ++channel) {
                pixels.push_back(static_cast<std::uint8_t>(_random() % (alpha + 1)));
            }
            pixels.push_back(static_cast<std::uint8_t>(alpha));
        }
        return pixels;
    }

    void expectState(HRESULT expected)
    {
        device.context->BeginDraw();
        EXPECT_EQ(device.context->EndDraw(), expected);
        // Reported once: the next drawing starts afresh.
        device.context->BeginDraw();
        EXPECT_EQ(device.context->EndDraw(), S_OK);
    }

    /** A sample of an image at whole positions; outside it is transparent. */
    static double sample(const Pixels &pixels, int width, int height, int x, int y, int channel)
    {
        if (x < 0 || y < 0 || x >= width || y >= height) {
            return 0.0;
        }
        return pixels[static_cast<std::size_t>((y * width + x) * 4 + channel)];
    }

private:
    std::mt19937 _random{11};
};

TEST_F(DeviceContextTest, new_hasNoTarget)
{
    EXPECT_EQ(device.context->GetPixelSize().width, 0U);
    EXPECT_EQ(device.context->GetSize().height, 0.0F);
    EXPECT_EQ(device.context->GetPixelFormat().format, DXGI_FORMAT_UNKNOWN);
    EXPECT_EQ(device.context->GetPixelFormat().alphaMode, D2D1_ALPHA_MODE_UNKNOWN);
    ComPtr<ID2D1Image> target;
    device.context->GetTarget(target.put());
    EXPECT_FALSE(target);
    FLOAT dpiX = 0;
    FLOAT dpiY = 0;
    device.context->GetDpi(&dpiX, &dpiY);
    EXPECT_EQ(dpiX, 96.0F);
    EXPECT_EQ(dpiY, 96.0F);
}

TEST_F(DeviceContextTest, setTarget_bitmap_tellsItsSizeAndLetsItGoAgain)
{
    const ComPtr<ID2D1Bitmap1> target = bitmap(7, 5, {});
    device.context->SetTarget(target.get());
    EXPECT_EQ(device.context->GetPixelSize().width, 7U);
    EXPECT_EQ(device.context->GetSize().height, 5.0F);
    EXPECT_EQ(device.context->GetPixelFormat().format, DXGI_FORMAT_B8G8R8A8_UNORM);
    ComPtr<ID2D1Image> back;
    device.context->GetTarget(back.put());
    EXPECT_EQ(back.get(), target.get());
    device.context->SetTarget(nullptr);
    EXPECT_EQ(device.context->GetPixelSize().width, 0U);
    expectState(S_OK);
}

TEST_F(DeviceContextTest, setTarget_thatCannotBeOne_failsTheDrawingAndKeepsTheOld)
{
    const ComPtr<ID2D1Bitmap1> good = bitmap(2, 2, {});
    device.context->SetTarget(good.get());
    device.context->SetTarget(bitmap(3, 3, {}, D2D1_BITMAP_OPTIONS_NONE).get());
    expectState(D2DERR_INVALID_TARGET);
    device.context->SetTarget(readable(3, 3).get());
    expectState(D2DERR_INVALID_TARGET);

    ComPtr<ID2D1Effect> effect;
    ASSERT_EQ(device.context->CreateEffect(CLSID_D2D1Blend, effect.put()), S_OK);
    ComPtr<ID2D1Image> output;
    effect->GetOutput(output.put());
    device.context->SetTarget(output.get());
    expectState(D2DERR_INVALID_TARGET);

    const TestDevice otherDevice = TestDevice::create();
    const D2D1_BITMAP_PROPERTIES1 properties = bitmapProperties(D2D1_BITMAP_OPTIONS_TARGET);
    ComPtr<ID2D1Bitmap1> foreign;
    ASSERT_EQ(otherDevice.context->CreateBitmap({3, 3}, nullptr, 0, &properties, foreign.put()),
              S_OK);
    device.context->SetTarget(foreign.get());
    expectState(D2DERR_WRONG_RESOURCE_DOMAIN);

    EXPECT_EQ(device.context->GetPixelSize().width, 2U);
}

TEST_F(DeviceContextTest, endDraw_withoutBeginDraw_wrongState)
{
    EXPECT_EQ(device.context->EndDraw(), D2DERR_WRONG_STATE);
    expectState(S_OK);
}

TEST_F(DeviceContextTest, beginDraw_twice_wrongState)
{
    device.context->BeginDraw();
    device.context->BeginDraw();
    EXPECT_EQ(device.context->EndDraw(), D2DERR_WRONG_STATE);
    expectState(S_OK);
}

TEST_F(DeviceContextTest, draw_outsideBeginAndEnd_wrongStateAndNothingDrawn)
{
    const ComPtr<ID2D1Bitmap1> target = bitmap(1, 1, {1, 2, 3, 255});
    const ComPtr<ID2D1Bitmap1> source = bitmap(1, 1, {4, 5, 6, 255});
    device.context->SetTarget(target.get());
    device.context->DrawImage(source.get());
    expectState(D2DERR_WRONG_STATE);
    EXPECT_EQ(read(target), (Pixels{1, 2, 3, 255}));
}

TEST_F(DeviceContextTest, draw_withoutTarget_wrongState)
{
    const ComPtr<ID2D1Bitmap1> source = bitmap(1, 1, {});
    device.context->BeginDraw();
    device.context->DrawImage(source.get());
    EXPECT_EQ(device.context->EndDraw(), D2DERR_WRONG_STATE);
    device.context->BeginDraw();
    device.context->Clear();
    EXPECT_EQ(device.context->EndDraw(), D2DERR_WRONG_STATE);
}

TEST_F(DeviceContextTest, draw_theTargetItself_boundAsTarget)
{
    const ComPtr<ID2D1Bitmap1> target = bitmap(2, 2, {});
    draw(target, target.get(), nullptr, nullptr, D2DERR_BITMAP_BOUND_AS_TARGET);
}

TEST_F(DeviceContextTest, draw_whatCannotBeDrawn_isReported)
{
    const ComPtr<ID2D1Bitmap1> target = bitmap(2, 2, {});
    const ComPtr<ID2D1Bitmap1> targetOnly =
        bitmap(2, 2, {}, D2D1_BITMAP_OPTIONS_TARGET | D2D1_BITMAP_OPTIONS_CANNOT_DRAW);
    draw(target, targetOnly.get(), nullptr, nullptr, D2DERR_BITMAP_CANNOT_DRAW);
    draw(target, readable(2, 2).get(), nullptr, nullptr, D2DERR_BITMAP_CANNOT_DRAW);
    draw(target, nullptr, nullptr, nullptr, E_INVALIDARG);

    const TestDevice otherDevice = TestDevice::create();
    const D2D1_BITMAP_PROPERTIES1 properties = bitmapProperties(D2D1_BITMAP_OPTIONS_NONE);
    ComPtr<ID2D1Bitmap1> foreign;
    ASSERT_EQ(otherDevice.context->CreateBitmap({2, 2}, nullptr, 0, &properties, foreign.put()),
              S_OK);
    draw(target, foreign.get(), nullptr, nullptr, D2DERR_WRONG_RESOURCE_DOMAIN);
}

TEST_F(DeviceContextTest, draw_withArgumentsOutsideTheSubset_isReported)
{
    const ComPtr<ID2D1Bitmap1> target = bitmap(2, 2, {});
    const ComPtr<ID2D1Bitmap1> source = bitmap(2, 2, {});
    const D2D1_POINT_2F nowhere{std::numeric_limits<float>::quiet_NaN(), 0};
    draw(target, source.get(), &nowhere, nullptr, E_INVALIDARG);
    for (const D2D1_RECT_F rectangle :
         {D2D1_RECT_F{0.5F, 0, 1, 1}, D2D1_RECT_F{0, 0, -1, 1},
          D2D1_RECT_F{0, 0, std::numeric_limits<float>::infinity(), 1},
          D2D1_RECT_F{std::numeric_limits<float>::quiet_NaN(), 0, 1, 1}}) {
        draw(target, source.get(), nullptr, &rectangle, E_INVALIDARG);
    }
    draw(target, source.get(), nullptr, nullptr, E_INVALIDARG,
         static_cast<D2D1_INTERPOLATION_MODE>(5));
    device.context->BeginDraw();
    device.context->DrawImage(source.get(), nullptr, nullptr, D2D1_INTERPOLATION_MODE_LINEAR,
                              static_cast<D2D1_COMPOSITE_MODE>(9));
    EXPECT_EQ(device.context->EndDraw(), E_INVALIDARG);
}

TEST_F(DeviceContextTest, draw_effectOutput_isNotOfferedYet)
{
    ComPtr<ID2D1Effect> effect;
    ASSERT_EQ(device.context->CreateEffect(CLSID_D2D1Blend, effect.put()), S_OK);
    ComPtr<ID2D1Image> output;
    effect->GetOutput(output.put());
    draw(bitmap(2, 2, {}), output.get(), nullptr, nullptr, E_NOTIMPL);
}

TEST_F(DeviceContextTest, endDraw_afterAnError_tellsTheTagsOfTheFirst)
{
    const ComPtr<ID2D1Bitmap1> target = bitmap(1, 1, {1, 2, 3, 255});
    const ComPtr<ID2D1Bitmap1> source = bitmap(1, 1, {4, 5, 6, 255});
    device.context->SetTarget(target.get());
    device.context->BeginDraw();
    device.context->SetTags(1, 2);
    device.context->DrawImage(target.get()); // the error
    device.context->SetTags(3, 4);
    device.context->DrawImage(nullptr);      // another, not reported
    device.context->DrawImage(source.get()); // ignored after an error
    D2D1_TAG tags[2] = {9, 9};
    EXPECT_EQ(device.context->EndDraw(&tags[0], &tags[1]), D2DERR_BITMAP_BOUND_AS_TARGET);
    EXPECT_EQ(tags[0], 1U);
    EXPECT_EQ(tags[1], 2U);
    EXPECT_EQ(read(target), (Pixels{1, 2, 3, 255}));

    device.context->GetTags(&tags[0], &tags[1]);
    EXPECT_EQ(tags[0], 3U);
    EXPECT_EQ(tags[1], 4U);
    device.context->BeginDraw();
    EXPECT_EQ(device.context->EndDraw(&tags[0], &tags[1]), S_OK);
    EXPECT_EQ(tags[0], 0U);
    EXPECT_EQ(tags[1], 0U);
}

TEST_F(DeviceContextTest, draw_opaqueImage_arrivesByteForByte)
{
    const Pixels pixels = random(37 * 23, true);
    const ComPtr<ID2D1Bitmap1> target = bitmap(37, 23, random(37 * 23, true));
    draw(target, bitmap(37, 23, pixels).get());
    EXPECT_EQ(read(target), pixels);
}

TEST_F(DeviceContextTest, draw_ontoTransparent_arrivesByteForByte)
{
    const Pixels pixels = random(37 * 23);
    const ComPtr<ID2D1Bitmap1> target = bitmap(37, 23, {});
    draw(target, bitmap(37, 23, pixels).get());
    EXPECT_EQ(read(target), pixels);
}

TEST_F(DeviceContextTest, draw_translucentImage_followsSourceOver)
{
    const Pixels source = random(64 * 9);
    const Pixels destination = random(64 * 9);
    const ComPtr<ID2D1Bitmap1> target = bitmap(64, 9, destination);
    draw(target, bitmap(64, 9, source).get());
    const Pixels result = read(target);
    for (std::size_t i = 0; i < result.size(); ++i) {
        const double alpha = source[i | 3] / 255.0;
        const double exact = source[i] + (1.0 - alpha) * destination[i];
        ASSERT_LE(std::abs(exact - result[i]), 1.0) << "channel " << i;
    }
}

TEST_F(DeviceContextTest, draw_atWholeOffsets_clipsAtEveryEdge)
{
    constexpr int kSize = 6;
    const Pixels source = random(kSize * kSize, true);
    const Pixels destination = random(kSize * kSize, true);
    const ComPtr<ID2D1Bitmap1> image = bitmap(kSize, kSize, source);
    for (const int dx : {-7, -6, -3, 0, 2, 5, 6, 4000}) {
        for (const int dy : {-6, -1, 0, 3, 9}) {
            const ComPtr<ID2D1Bitmap1> target = bitmap(kSize, kSize, destination);
            const D2D1_POINT_2F offset{static_cast<float>(dx), static_cast<float>(dy)};
            draw(target, image.get(), &offset);
            const Pixels result = read(target);
            for (int y = 0; y < kSize; ++y) {
                for (int x = 0; x < kSize; ++x) {
                    const bool covered = x >= dx && y >= dy && x - dx < kSize && y - dy < kSize;
                    for (int channel = 0; channel < 4; ++channel) {
                        const double expected =
                            covered ? sample(source, kSize, kSize, x - dx, y - dy, channel)
                                    : sample(destination, kSize, kSize, x, y, channel);
                        ASSERT_EQ(sample(result, kSize, kSize, x, y, channel), expected)
                            << dx << ' ' << dy << " at " << x << ' ' << y;
                    }
                }
            }
        }
    }
}

TEST_F(DeviceContextTest, draw_farAway_drawsNothing)
{
    const Pixels destination = random(4, true);
    const ComPtr<ID2D1Bitmap1> target = bitmap(2, 2, destination);
    const ComPtr<ID2D1Bitmap1> image = bitmap(2, 2, random(4, true));
    for (const float far : {1e30F, -1e30F, 5e6F}) {
        const D2D1_POINT_2F offset{far, 0};
        draw(target, image.get(), &offset);
    }
    EXPECT_EQ(read(target), destination);
}

TEST_F(DeviceContextTest, draw_imageRectangle_showsThatPartAtTheOffset)
{
    const Pixels source = random(6 * 5, true);
    const ComPtr<ID2D1Bitmap1> image = bitmap(6, 5, source);
    // Overhangs the image on all sides but the top.
    const D2D1_RECT_F rectangle{-2, 1, 9, 9};
    const D2D1_POINT_2F offset{1, 2};
    const ComPtr<ID2D1Bitmap1> target = bitmap(12, 8, {});
    draw(target, image.get(), &offset, &rectangle);
    const Pixels result = read(target);
    for (int y = 0; y < 8; ++y) {
        for (int x = 0; x < 12; ++x) {
            for (int channel = 0; channel < 4; ++channel) {
                const int sourceX = x - 1 - 2;
                const int sourceY = y - 2 + 1;
                const double expected =
                    sourceY < 1 ? 0.0 : sample(source, 6, 5, sourceX, sourceY, channel);
                ASSERT_EQ(sample(result, 12, 8, x, y, channel), expected) << x << ' ' << y;
            }
        }
    }
    const D2D1_RECT_F elsewhere{10, 10, 12, 12};
    draw(target, image.get(), nullptr, &elsewhere);
    EXPECT_EQ(read(target), result);
}

TEST_F(DeviceContextTest, draw_atFractionsLinear_weighsTheNeighbours)
{
    constexpr int kWidth = 9;
    constexpr int kHeight = 7;
    const Pixels source = random(kWidth * kHeight);
    const ComPtr<ID2D1Bitmap1> image = bitmap(kWidth, kHeight, source);
    for (const D2D1_POINT_2F offset :
         {D2D1_POINT_2F{0.25F, 0.0F}, D2D1_POINT_2F{0.0F, 0.5F}, D2D1_POINT_2F{-1.75F, 2.125F}}) {
        const ComPtr<ID2D1Bitmap1> target = bitmap(kWidth + 2, kHeight + 2, {});
        draw(target, image.get(), &offset);
        const Pixels result = read(target);
        for (int y = 0; y < kHeight + 2; ++y) {
            for (int x = 0; x < kWidth + 2; ++x) {
                // A pixel's centre lies that far beyond the centre of the source pixel before it.
                const double sourceX = x - static_cast<double>(offset.x);
                const double sourceY = y - static_cast<double>(offset.y);
                const int left = static_cast<int>(std::floor(sourceX));
                const int top = static_cast<int>(std::floor(sourceY));
                const double wx = sourceX - left;
                const double wy = sourceY - top;
                for (int channel = 0; channel < 4; ++channel) {
                    const auto at = [&](int dx, int dy) {
                        return sample(source, kWidth, kHeight, left + dx, top + dy, channel);
                    };
                    const double exact = (1 - wy) * ((1 - wx) * at(0, 0) + wx * at(1, 0)) +
                                         wy * ((1 - wx) * at(0, 1) + wx * at(1, 1));
                    ASSERT_LE(
                        std::abs(exact - sample(result, kWidth + 2, kHeight + 2, x, y, channel)),
                        1.0)
                        << x << ' ' << y;
                }
            }
        }
    }
}

TEST_F(DeviceContextTest, draw_atFractionsNearest_takesThePixelUnderTheCentre)
{
    const Pixels source = random(4, true);
    const ComPtr<ID2D1Bitmap1> image = bitmap(4, 1, source);
    const ComPtr<ID2D1Bitmap1> target = bitmap(4, 1, {});
    // The first centre, 0.5, lies at -0.1 of the image, the second at 0.9: pixel 0.
    const D2D1_POINT_2F offset{0.6F, 0};
    draw(target, image.get(), &offset, nullptr, S_OK, D2D1_INTERPOLATION_MODE_NEAREST_NEIGHBOR);
    Pixels expected(4, 0);
    expected.insert(expected.end(), source.begin(), source.end() - 4);
    EXPECT_EQ(read(target), expected);
}

TEST_F(DeviceContextTest, draw_otherPixelOrder_swapsRedAndBlue)
{
    D2D1_BITMAP_PROPERTIES1 properties = bitmapProperties(D2D1_BITMAP_OPTIONS_NONE);
    properties.pixelFormat.format = DXGI_FORMAT_R8G8B8A8_UNORM;
    const Pixels source = {10, 20, 30, 255, 1, 2, 3, 4};
    ComPtr<ID2D1Bitmap1> image;
    ASSERT_EQ(device.context->CreateBitmap({2, 1}, source.data(), 8, &properties, image.put()),
              S_OK);
    const ComPtr<ID2D1Bitmap1> target = bitmap(2, 1, {});
    draw(target, image.get());
    EXPECT_EQ(read(target), (Pixels{30, 20, 10, 255, 3, 2, 1, 4}));
}

TEST_F(DeviceContextTest, draw_withPrimitiveBlendMax_sourceOverTakesTheLarger)
{
    device.context->SetPrimitiveBlend(D2D1_PRIMITIVE_BLEND_MAX);
    EXPECT_EQ(device.context->GetPrimitiveBlend(), D2D1_PRIMITIVE_BLEND_MAX);
    const ComPtr<ID2D1Bitmap1> target = bitmap(1, 1, {100, 2, 3, 255});
    draw(target, bitmap(1, 1, {4, 50, 6, 128}).get());
    EXPECT_EQ(read(target), (Pixels{100, 50, 6, 255}));
}

TEST_F(DeviceContextTest, setPrimitiveBlend_unknownOne_isReportedAndIgnored)
{
    device.context->SetPrimitiveBlend(static_cast<D2D1_PRIMITIVE_BLEND>(3));
    EXPECT_EQ(device.context->GetPrimitiveBlend(), D2D1_PRIMITIVE_BLEND_SOURCE_OVER);
    expectState(E_INVALIDARG);
}

TEST_F(DeviceContextTest, clear_straightColour_isPremultiplied)
{
    const ComPtr<ID2D1Bitmap1> target = bitmap(2, 1, random(2));
    device.context->SetTarget(target.get());
    device.context->BeginDraw();
    const D2D1_COLOR_F color{1.0F, 0.5F, 0.2F, 0.5F};
    device.context->Clear(&color);
    EXPECT_EQ(device.context->EndDraw(), S_OK);
    // 255 * 0.5 = 127.5; 0.5 * 0.5 * 255 = 63.75; 0.2 * 0.5 * 255 = 25.5 and a little
    EXPECT_EQ(read(target), (Pixels{26, 64, 128, 128, 26, 64, 128, 128}));

    device.context->BeginDraw();
    const D2D1_COLOR_F beyond{7.0F, -1.0F, 1.0F, 3.0F};
    device.context->Clear(&beyond);
    EXPECT_EQ(device.context->EndDraw(), S_OK);
    EXPECT_EQ(read(target), (Pixels{255, 0, 255, 255, 255, 0, 255, 255}));

    device.context->BeginDraw();
    device.context->Clear();
    EXPECT_EQ(device.context->EndDraw(), S_OK);
    EXPECT_EQ(read(target), Pixels(8, 0));
}

} // namespace

} // namespace lumivora::test
