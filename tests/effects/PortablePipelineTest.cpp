// SPDX-License-Identifier: Apache-2.0
// The pipeline on the portable Direct2D, whose objects can be counted and whose drawing is ours.
#include "direct2d/portable/ObjectCounts.h"
#include "effects/BitmapTransfer.h"
#include "effects/PipelineParts.h"
#include "effects/PostProcessor.h"
#include "tests/effects/CopyingStage.h"
#include "tests/effects/TestContext.h"
#include "tests/effects/TestSettings.h"
#include "tests/support/LogCapture.h"

#include <gmock/gmock.h>

namespace lumivora::test {

namespace {

class PortablePipelineTest : public ::testing::Test
{
protected:
    void expectNothingLeft() { EXPECT_EQ(direct2d::objectCounts().live.load() - _before, 0); }

    /** The product's parts, with a stage in the place of the tone that is always due. */
    PipelineParts partsWithTone()
    {
        PipelineParts parts = PipelineParts::standard();
        parts.tone = [this](const ComPtr<ID2D1DeviceContext> &context) {
            return std::make_shared<CopyingStage>(context, [this] { return _nowMs += 1000; }, 35);
        };
        return parts;
    }

    TestSettings settings;

private:
    qint64 _nowMs = 0;
    std::ptrdiff_t _before = direct2d::objectCounts().live.load();
};

TEST_F(PortablePipelineTest, pipeline_afterFramesOfSeveralSizes_leavesNoObject)
{
    {
        PostProcessor processor(&settings.store(), nullptr, partsWithTone());
        settings.set(BaseSettings::Settings::SkinTone, 0);
        QImage first = patternImage(16, 9);
        processor.processFrame(first);
        const std::ptrdiff_t afterOne = direct2d::objectCounts().live.load();
        for (int i = 0; i < 10; ++i) {
            QImage frame = patternImage(16 + i, 9);
            processor.processFrame(frame);
        }
        // The read-back bitmap and the stage's result are replaced, not added to.
        EXPECT_EQ(direct2d::objectCounts().live.load(), afterOne);
    }
    expectNothingLeft();
}

TEST_F(PortablePipelineTest, pipeline_newFrameSize_recreatesTheReadBackBitmap)
{
    PostProcessor processor(&settings.store(), nullptr, partsWithTone());
    settings.set(BaseSettings::Settings::SkinTone, 0);
    const auto madeFor = [&](int width, int height) {
        const std::ptrdiff_t before = direct2d::objectCounts().made;
        QImage frame = patternImage(width, height);
        processor.processFrame(frame);
        return direct2d::objectCounts().made - before;
    };
    // A frame makes the uploaded bitmap and the stage's; and one to read back with, when needed.
    EXPECT_EQ(madeFor(16, 9), 3);
    EXPECT_EQ(madeFor(16, 9), 2);
    EXPECT_EQ(madeFor(9, 16), 3);
    EXPECT_EQ(madeFor(9, 16), 2);
    EXPECT_EQ(madeFor(9, 15), 3);
}

TEST_F(PortablePipelineTest, pipeline_nothingActive_makesNoObject)
{
    PostProcessor processor(&settings.store(), nullptr, partsWithTone());
    const std::ptrdiff_t before = direct2d::objectCounts().made;
    QImage frame = patternImage(16, 9);
    processor.processFrame(frame);
    EXPECT_EQ(direct2d::objectCounts().made, before);
}

TEST_F(PortablePipelineTest, pipeline_creationFailsHalfway_releasesWhatThereWas)
{
    const LogCapture log;
    PipelineParts parts = PipelineParts::standard();
    parts.device.createBlendEffect = [](ID2D1DeviceContext *, ID2D1Effect **) -> HRESULT {
        return E_FAIL;
    };
    const std::ptrdiff_t before = direct2d::objectCounts().live.load();
    const PostProcessor processor(&settings.store(), nullptr, parts);
    EXPECT_EQ(direct2d::objectCounts().live.load(), before);
}

TEST_F(PortablePipelineTest, uploadDrawAndReadBack_opaqueFrame_byteForByte)
{
    {
        const ComPtr<ID2D1DeviceContext> context = createContext();
        const QImage source = patternImage(61, 17);
        const ComPtr<ID2D1Bitmap1> uploaded =
            createBitmapFromBuffer(context, source.constBits(), 61, 17, false);
        const ComPtr<ID2D1Bitmap1> target = createBitmapFromBuffer(context, nullptr, 61, 17, false);
        context->SetTarget(target.get());
        context->BeginDraw();
        const D2D1_POINT_2F origin{0, 0};
        context->DrawImage(uploaded.get(), &origin, nullptr, D2D1_INTERPOLATION_MODE_LINEAR,
                           D2D1_COMPOSITE_MODE_SOURCE_OVER);
        ASSERT_EQ(context->EndDraw(), S_OK);
        QImage image;
        ASSERT_TRUE(readBackBitmap(context, target,
                                   createBitmapFromBuffer(context, nullptr, 61, 17, true), image));
        EXPECT_EQ(pixelsOf(image), pixelsOf(source));
    }
    expectNothingLeft();
}

} // namespace

} // namespace lumivora::test
