// SPDX-License-Identifier: Apache-2.0
#include "vcam/capture/ImagePool.h"

#include <gtest/gtest.h>

#include <cstring>
#include <optional>
#include <set>
#include <thread>

using namespace lumivora;

namespace {

constexpr QSize kSize(64, 48);

/** The pixels' address, without detaching the image. */
const uchar *address(const QImage &image)
{
    return image.constBits();
}

} // namespace

TEST(ImagePool, take_imageLetGo_memoryUsedAgain)
{
    ImagePool pool;
    QImage image = pool.take(kSize, QImage::Format_RGB32);
    ASSERT_EQ(image.size(), kSize);
    ASSERT_EQ(image.format(), QImage::Format_RGB32);
    const uchar *const first = address(image);
    image = QImage();
    EXPECT_EQ(address(pool.take(kSize, QImage::Format_RGB32)), first);
}

TEST(ImagePool, take_imageHeld_otherMemoryAndPixelsStay)
{
    ImagePool pool;
    QImage written = pool.take(kSize, QImage::Format_RGB32);
    written.fill(Qt::red);
    const QImage reader = written; // shares the pixels
    EXPECT_EQ(address(reader), address(written));
    written = QImage();

    QImage next = pool.take(kSize, QImage::Format_RGB32);
    next.fill(Qt::blue);
    EXPECT_NE(address(next), address(reader));
    EXPECT_EQ(reader.pixelColor(0, 0), QColor(Qt::red));
    EXPECT_EQ(reader.pixelColor(63, 47), QColor(Qt::red));
}

TEST(ImagePool, take_newImage_writableInPlace)
{
    ImagePool pool;
    QImage image = pool.take(kSize, QImage::Format_RGB32);
    const uchar *const before = address(image);
    EXPECT_EQ(image.bits(), before); // detaching would copy
}

TEST(ImagePool, take_streamWithAReaderOneFrameLate_threeBuffersSuffice)
{
    ImagePool pool;
    std::set<const uchar *> addresses;
    QImage latest;
    QImage reader;
    for (int frame = 0; frame < 100; ++frame) {
        QImage work = pool.take(kSize, QImage::Format_RGB32);
        addresses.insert(address(work));
        reader = latest;
        latest = std::move(work);
    }
    EXPECT_LE(addresses.size(), 3U);
}

TEST(ImagePool, take_otherSize_imageOfThatSize)
{
    ImagePool pool;
    static_cast<void>(pool.take(kSize, QImage::Format_RGB32));
    const QImage larger = pool.take(QSize(65, 49), QImage::Format_RGB32);
    EXPECT_EQ(larger.size(), QSize(65, 49));
    EXPECT_EQ(larger.bytesPerLine(), 65 * 4);
}

TEST(ImagePool, take_oddWidthOf24Bits_rowsPaddedToFourBytes)
{
    ImagePool pool;
    EXPECT_EQ(pool.take(QSize(5, 3), QImage::Format_BGR888).bytesPerLine(), 16);
    EXPECT_EQ(pool.take(QSize(4, 3), QImage::Format_BGR888).bytesPerLine(), 12);
}

TEST(ImagePool, destroy_imageStillHeld_imageStaysValid)
{
    QImage image;
    {
        ImagePool pool;
        image = pool.take(kSize, QImage::Format_RGB32);
        image.fill(Qt::green);
    }
    EXPECT_EQ(image.pixelColor(10, 10), QColor(Qt::green));
}

TEST(ImagePool, letGo_onAnotherThread_memoryUsedAgain)
{
    ImagePool pool;
    for (QRgb round = 0; round < 200; ++round) {
        QImage image = pool.take(kSize, QImage::Format_RGB32);
        image.fill(round);
        std::thread reader([held = std::move(image), round]() mutable {
            EXPECT_EQ(held.pixel(5, 5), round | 0xFF000000U);
            held = QImage();
        });
        QImage meanwhile = pool.take(kSize, QImage::Format_RGB32);
        meanwhile.fill(0xFFFFFFFFU);
        reader.join();
    }
}
