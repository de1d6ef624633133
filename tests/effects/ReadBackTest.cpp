// SPDX-License-Identifier: Apache-2.0
// Reading bitmaps back. Not on Wine's Direct2D: it has no copy from a context.
#include "effects/BitmapTransfer.h"

#include "tests/effects/TestContext.h"
#include "tests/support/LogCapture.h"

#include <QImage>

#include <gmock/gmock.h>

namespace lumivora::test {

namespace {

class ReadBackTest : public ::testing::Test
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

TEST_F(ReadBackTest, readBack_uploadedImage_byteForByte)
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

TEST_F(ReadBackTest, readBack_intoImageOfTheSameSize_keepsItsBufferAndFormat)
{
    const QImage source = patternImage(16, 9);
    QImage image(16, 9, QImage::Format_RGB32);
    const uchar *const buffer = image.constBits();
    ASSERT_TRUE(readBackBitmap(context, upload(source), readable(16, 9), image));
    EXPECT_EQ(image.constBits(), buffer);
    EXPECT_EQ(image.format(), QImage::Format_RGB32);
}

TEST_F(ReadBackTest, readBack_intoImageOfAnotherSize_reallocatesIt)
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

TEST_F(ReadBackTest, readBack_intoImageOf24Bits_reallocatesIt)
{
    const QImage source = patternImage(15, 9);
    QImage image(15, 9, QImage::Format_RGB888);
    ASSERT_TRUE(readBackBitmap(context, upload(source), readable(15, 9), image));
    EXPECT_EQ(image.format(), QImage::Format_ARGB32);
    EXPECT_EQ(pixelsOf(image), pixelsOf(source));
}

TEST_F(ReadBackTest, readBack_intoImageWithPaddedRows_leavesThePadding)
{
    const QImage source = patternImage(5, 3);
    QByteArray buffer(3 * 32, 'x');
    QImage image(reinterpret_cast<uchar *>(buffer.data()), 5, 3, 32, QImage::Format_ARGB32);
    ASSERT_TRUE(readBackBitmap(context, upload(source), readable(5, 3), image));
    EXPECT_EQ(pixelsOf(image), pixelsOf(source));
    EXPECT_EQ(buffer.mid(20, 12), QByteArray(12, 'x'));
}

TEST_F(ReadBackTest, readBack_throughABitmapThatCannotBeMapped_warns)
{
    const QImage source = patternImage(4, 4);
    const ComPtr<ID2D1Bitmap1> notReadable = createBitmapFromBuffer(context, nullptr, 4, 4, false);
    QImage image;
    EXPECT_FALSE(readBackBitmap(context, upload(source), notReadable, image));
    EXPECT_EQ(log.lines(QtWarningMsg), QStringList{"Unable to map bitmap to retrieve buffer!"});
}

TEST_F(ReadBackTest, readBack_references_areConsumedWhateverTheOutcome)
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
