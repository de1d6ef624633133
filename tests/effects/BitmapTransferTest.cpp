// SPDX-License-Identifier: Apache-2.0
#include "effects/BitmapTransfer.h"

#include "tests/effects/TestContext.h"
#include "tests/support/LogCapture.h"

#include <QImage>

#include <gmock/gmock.h>

#include <cstring>

namespace lumivora::test {

namespace {

class BitmapTransferTest : public ::testing::Test
{
protected:
    ComPtr<ID2D1Bitmap1> upload(const QImage &image)
    {
        return createBitmapFromBuffer(context, image.constBits(),
                                      static_cast<quint32>(image.width()),
                                      static_cast<quint32>(image.height()), false);
    }
    ComPtr<ID2D1Bitmap1> readable(quint32 width, quint32 height)
    {
        return createBitmapFromBuffer(context, nullptr, width, height, true);
    }
    ComPtr<ID2D1DeviceContext> context = createContext();
    LogCapture log;
};

TEST_F(BitmapTransferTest, createBitmap_drawable_hasTheDocumentedProperties)
{
    const ComPtr<ID2D1Bitmap1> bitmap = upload(patternImage(6, 4));
    ASSERT_TRUE(bitmap);
    EXPECT_EQ(bitmap->GetOptions(), D2D1_BITMAP_OPTIONS_TARGET);
    EXPECT_EQ(bitmap->GetPixelFormat().format, DXGI_FORMAT_B8G8R8A8_UNORM);
    EXPECT_EQ(bitmap->GetPixelFormat().alphaMode, D2D1_ALPHA_MODE_PREMULTIPLIED);
    EXPECT_EQ(bitmap->GetPixelSize().width, 6U);
    EXPECT_EQ(bitmap->GetPixelSize().height, 4U);
    FLOAT dpiX = 0;
    FLOAT dpiY = 0;
    bitmap->GetDpi(&dpiX, &dpiY);
    EXPECT_EQ(dpiX, 96.0F);
    EXPECT_EQ(dpiY, 96.0F);
}

TEST_F(BitmapTransferTest, createBitmap_cpuReadable_canBeMappedOnly)
{
    const ComPtr<ID2D1Bitmap1> bitmap = readable(6, 4);
    ASSERT_TRUE(bitmap);
    EXPECT_EQ(bitmap->GetOptions(), D2D1_BITMAP_OPTIONS_CANNOT_DRAW | D2D1_BITMAP_OPTIONS_CPU_READ);
}

TEST_F(BitmapTransferTest, createBitmap_thatCannotBe_warnsAndIsEmpty)
{
    EXPECT_FALSE(createBitmapFromBuffer(context, nullptr, 20000, 4, false));
    EXPECT_EQ(log.lines(QtWarningMsg), QStringList{"Failed to create ID2D1Bitmap1 from buffer."});
}

TEST_F(BitmapTransferTest, createBitmap_withPixels_holdsThemByteForByte)
{
    const QImage source = patternImage(37, 19);
    const ComPtr<ID2D1Bitmap1> copy = readable(37, 19);
    ASSERT_TRUE(SUCCEEDED(copy->CopyFromBitmap(nullptr, upload(source).get(), nullptr)));
    D2D1_MAPPED_RECT mapped{};
    ASSERT_TRUE(SUCCEEDED(copy->Map(D2D1_MAP_OPTIONS_READ, &mapped)));
    for (int row = 0; row < 19; ++row) {
        EXPECT_EQ(std::memcmp(mapped.bits + static_cast<UINT32>(row) * mapped.pitch,
                              source.constScanLine(row), 37 * 4),
                  0);
    }
    EXPECT_TRUE(SUCCEEDED(copy->Unmap()));
}

TEST_F(BitmapTransferTest, readBack_withSomethingMissing_isFalseAndQuiet)
{
    const QImage before = patternImage(4, 4);
    QImage image = before;
    EXPECT_FALSE(readBackBitmap({}, upload(before), readable(4, 4), image));
    EXPECT_FALSE(readBackBitmap(context, {}, readable(4, 4), image));
    EXPECT_FALSE(readBackBitmap(context, upload(before), {}, image));
    EXPECT_EQ(image, before);
    EXPECT_EQ(log.lines(QtWarningMsg), QStringList());
}

TEST_F(BitmapTransferTest, readBack_ofAnotherFormat_isRefusedWithTheWarning)
{
    D2D1_BITMAP_PROPERTIES1 properties{};
    properties.pixelFormat = {DXGI_FORMAT_R8G8B8A8_UNORM, D2D1_ALPHA_MODE_PREMULTIPLIED};
    properties.bitmapOptions = D2D1_BITMAP_OPTIONS_TARGET;
    ComPtr<ID2D1Bitmap1> target;
    ASSERT_TRUE(SUCCEEDED(context->CreateBitmap({4, 4}, nullptr, 0, &properties, target.put())));
    const QImage before = patternImage(4, 4);
    QImage image = before;
    EXPECT_FALSE(readBackBitmap(context, target, readable(4, 4), image));
    EXPECT_EQ(log.lines(QtWarningMsg), QStringList{"Unsupported pixel format. Expected B8G8R8A8."});
    EXPECT_EQ(image, before);
}

} // namespace

} // namespace lumivora::test
