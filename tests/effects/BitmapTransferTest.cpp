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
    static ULONG references(IUnknown *object)
    {
        object->AddRef();
        return object->Release();
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
    EXPECT_FALSE(readable(20000, 4));
    EXPECT_EQ(log.lines(QtWarningMsg), QStringList{"Failed to create ID2D1Bitmap1 from buffer."});
}

TEST_F(BitmapTransferTest, readBack_uploadedImage_byteForByte)
{
    for (const QSize size : {QSize(1, 1), QSize(3, 5), QSize(37, 19), QSize(1366, 7)}) {
        const QImage source = patternImage(size.width(), size.height());
        QImage image(size, QImage::Format_ARGB32);
        image.fill(Qt::black);
        ASSERT_TRUE(readBackBitmap(
            context, upload(source),
            readable(static_cast<quint32>(size.width()), static_cast<quint32>(size.height())),
            image));
        EXPECT_EQ(pixelsOf(image), pixelsOf(source)) << size.width();
    }
    EXPECT_EQ(log.lines(QtWarningMsg), QStringList());
}

TEST_F(BitmapTransferTest, readBack_intoImageOfTheSameSize_keepsItsBufferAndFormat)
{
    const QImage source = patternImage(16, 9);
    QImage image(16, 9, QImage::Format_RGB32);
    const uchar *const buffer = image.constBits();
    ASSERT_TRUE(readBackBitmap(context, upload(source), readable(16, 9), image));
    EXPECT_EQ(image.constBits(), buffer);
    EXPECT_EQ(image.format(), QImage::Format_RGB32);
}

TEST_F(BitmapTransferTest, readBack_intoImageOfAnotherSize_reallocatesIt)
{
    const QImage source = patternImage(16, 9);
    for (QImage image :
         {QImage(), QImage(9, 16, QImage::Format_RGB32), QImage(16, 8, QImage::Format_RGB32)}) {
        ASSERT_TRUE(readBackBitmap(context, upload(source), readable(16, 9), image));
        EXPECT_EQ(image.format(), QImage::Format_ARGB32);
        EXPECT_EQ(image.size(), QSize(16, 9));
        EXPECT_EQ(pixelsOf(image), pixelsOf(source));
    }
}

TEST_F(BitmapTransferTest, readBack_intoImageOf24Bits_reallocatesIt)
{
    const QImage source = patternImage(15, 9);
    QImage image(15, 9, QImage::Format_RGB888);
    ASSERT_TRUE(readBackBitmap(context, upload(source), readable(15, 9), image));
    EXPECT_EQ(image.format(), QImage::Format_ARGB32);
    EXPECT_EQ(pixelsOf(image), pixelsOf(source));
}

TEST_F(BitmapTransferTest, readBack_intoImageWithPaddedRows_leavesThePadding)
{
    const QImage source = patternImage(5, 3);
    QByteArray buffer(3 * 32, 'x');
    QImage image(reinterpret_cast<uchar *>(buffer.data()), 5, 3, 32, QImage::Format_ARGB32);
    ASSERT_TRUE(readBackBitmap(context, upload(source), readable(5, 3), image));
    EXPECT_EQ(pixelsOf(image), pixelsOf(source));
    EXPECT_EQ(buffer.mid(20, 12), QByteArray(12, 'x'));
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

TEST_F(BitmapTransferTest, readBack_throughABitmapThatCannotBeMapped_warns)
{
    const QImage source = patternImage(4, 4);
    const ComPtr<ID2D1Bitmap1> notReadable = createBitmapFromBuffer(context, nullptr, 4, 4, false);
    QImage image;
    EXPECT_FALSE(readBackBitmap(context, upload(source), notReadable, image));
    EXPECT_EQ(log.lines(QtWarningMsg), QStringList{"Unable to map bitmap to retrieve buffer!"});
}

TEST_F(BitmapTransferTest, readBack_references_areConsumedWhateverTheOutcome)
{
    const QImage source = patternImage(4, 4);
    const ComPtr<ID2D1Bitmap1> target = upload(source);
    const ComPtr<ID2D1Bitmap1> cpuBitmap = readable(4, 4);
    QImage image;
    const ULONG contextBefore = references(context.get());
    const ULONG cpuBefore = references(cpuBitmap.get());
    ASSERT_TRUE(readBackBitmap(context, target, cpuBitmap, image));
    EXPECT_EQ(references(context.get()), contextBefore);
    EXPECT_EQ(references(cpuBitmap.get()), cpuBefore);
    EXPECT_FALSE(readBackBitmap(context, {}, cpuBitmap, image));
    EXPECT_EQ(references(context.get()), contextBefore);
    EXPECT_EQ(references(cpuBitmap.get()), cpuBefore);
    context->SetTarget(nullptr); // which is the other holder of the target
    EXPECT_EQ(references(target.get()), 1U);
}

} // namespace

} // namespace lumivora::test
