// SPDX-License-Identifier: Apache-2.0
#include "effects/PostProcessor.h"

#include "effects/PipelineParts.h"
#include "tests/effects/CopyingStage.h"
#include "tests/effects/TestContext.h"
#include "tests/effects/TestSettings.h"
#include "tests/support/LogCapture.h"

#include <QMetaMethod>

#include <gmock/gmock.h>

namespace lumivora::test {

namespace {

using Settings = BaseSettings::Settings;
using SubSettings = BaseSettings::SubSettings;

/** The product's parts, with a stage in the place of the tone that the test keeps hold of. */
struct Pipeline
{
    Pipeline()
    {
        parts.tone = [this](const ComPtr<ID2D1DeviceContext> &context) {
            createdOn = context;
            // Always due: each call is a second later than the one before.
            stage = std::make_shared<CopyingStage>(context, [this] { return nowMs += 1000; }, 35);
            return stage;
        };
    }

    PipelineParts parts = PipelineParts::standard();
    ComPtr<ID2D1DeviceContext> createdOn;
    std::shared_ptr<CopyingStage> stage;
    qint64 nowMs = 0;
};

class PostProcessorTest : public ::testing::Test
{
protected:
    TestSettings settings;
    Pipeline pipeline;
    LogCapture log;
};

TEST_F(PostProcessorTest, metaObject_signals_areTheFourInOrder)
{
    const QMetaObject &meta = PostProcessor::staticMetaObject;
    EXPECT_STREQ(meta.className(), "PostProcessor");
    ASSERT_EQ(meta.methodCount() - meta.methodOffset(), 4);
    const QByteArrayList names = {"onSkinTone", "onBackgroundBlur", "onCameraRotation",
                                  "onFineCameraRotation"};
    for (int i = 0; i < 4; ++i) {
        const QMetaMethod method = meta.method(meta.methodOffset() + i);
        EXPECT_EQ(method.methodType(), QMetaMethod::Signal);
        EXPECT_EQ(method.methodSignature(), names[i] + "(int,bool)");
        EXPECT_EQ(method.parameterNames(), (QByteArrayList{"value", "autoMode"}));
    }
}

TEST_F(PostProcessorTest, processFrame_nullFrame_staysNull)
{
    PostProcessor processor(&settings.store(), nullptr, pipeline.parts);
    settings.set(Settings::SkinTone, 10);
    QImage frame;
    processor.processFrame(frame);
    EXPECT_TRUE(frame.isNull());
}

TEST_F(PostProcessorTest, processFrame_everythingAtItsDefault_isUntouched)
{
    PostProcessor processor(&settings.store(), nullptr, pipeline.parts);
    for (const QImage::Format format :
         {QImage::Format_RGB32, QImage::Format_ARGB32, QImage::Format_RGB888}) {
        QImage frame = patternImage(33, 21, format);
        const QImage before = frame;
        const uchar *const bits = before.constBits();
        processor.processFrame(frame);
        EXPECT_EQ(std::as_const(frame).constBits(), bits); // not even a copy
        EXPECT_EQ(frame.format(), format);
    }
    EXPECT_EQ(pipeline.stage->runs, 0);
    EXPECT_EQ(log.lines(QtWarningMsg), QStringList());
}

TEST_F(PostProcessorTest, processFrame_onlyEffectsWithoutAStage_isUntouched)
{
    // The product's own parts, with every effect asked for.
    PostProcessor processor(&settings.store());
    settings.set(Settings::SkinTone, 10);
    settings.set(Settings::BackgroundBlur, 10);
    settings.set(Settings::CameraRotation, 1);
    settings.set(Settings::LogoOverlay, SubSettings::Enabled, true);
    settings.set(Settings::TextOverlay, SubSettings::Enabled, true);
    QImage frame = patternImage(33, 21);
    const QImage before = frame;
    processor.processFrame(frame);
    EXPECT_EQ(std::as_const(frame).constBits(), before.constBits());
    EXPECT_EQ(log.lines(QtWarningMsg), QStringList());
}

TEST_F(PostProcessorTest, processFrame_stageActive_goesThroughItByteForByte)
{
    PostProcessor processor(&settings.store(), nullptr, pipeline.parts);
    settings.set(Settings::SkinTone, 51);
    for (const QImage::Format format : {QImage::Format_RGB32, QImage::Format_ARGB32}) {
        QImage frame = patternImage(33, 21, format);
        const QByteArray before = pixelsOf(frame);
        const uchar *const bits = std::as_const(frame).constBits();
        processor.processFrame(frame);
        EXPECT_EQ(pixelsOf(frame), before);
        EXPECT_EQ(frame.format(), format);
        EXPECT_EQ(std::as_const(frame).constBits(), bits); // read back into the same image
    }
    EXPECT_EQ(pipeline.stage->runs, 2);
    EXPECT_EQ(pipeline.stage->lastSetting.value, 51);
    EXPECT_EQ(pipeline.stage->lastSetting.maximum, 100);
    EXPECT_EQ(log.lines(QtWarningMsg), QStringList());
}

TEST_F(PostProcessorTest, processFrame_inLowPowerMode_toneStillApplies)
{
    PostProcessor processor(&settings.store(), nullptr, pipeline.parts);
    settings.set(Settings::General, SubSettings::LowPowerMode, true);
    settings.set(Settings::BackgroundBlur, 50);
    QImage frame = patternImage(8, 8);
    processor.processFrame(frame);
    EXPECT_EQ(pipeline.stage->runs, 0);
    settings.set(Settings::SkinTone, 51);
    processor.processFrame(frame);
    EXPECT_EQ(pipeline.stage->runs, 1);
}

TEST_F(PostProcessorTest, processFrame_of24BitsWithAStage_becomes32Bits)
{
    PostProcessor processor(&settings.store(), nullptr, pipeline.parts);
    settings.set(Settings::SkinTone, 0);
    QImage frame = patternImage(33, 21, QImage::Format_RGB888);
    const QByteArray expected = pixelsOf(patternImage(33, 21, QImage::Format_ARGB32));
    processor.processFrame(frame);
    EXPECT_EQ(frame.format(), QImage::Format_ARGB32);
    EXPECT_EQ(pixelsOf(frame), expected);
}

TEST_F(PostProcessorTest, processFrame_withPaddedRows_isUploadedWithoutThePadding)
{
    PostProcessor processor(&settings.store(), nullptr, pipeline.parts);
    settings.set(Settings::SkinTone, 0);
    const QImage tight = patternImage(5, 3);
    QByteArray buffer(3 * 32, '\0');
    for (int row = 0; row < 3; ++row) {
        std::memcpy(buffer.data() + row * 32, tight.constScanLine(row), 20);
    }
    QImage frame(reinterpret_cast<uchar *>(buffer.data()), 5, 3, 32, QImage::Format_RGB32);
    processor.processFrame(frame);
    EXPECT_EQ(pixelsOf(frame), pixelsOf(tight));
}

TEST_F(PostProcessorTest, processFrame_changingSizes_followsEachOfThem)
{
    PostProcessor processor(&settings.store(), nullptr, pipeline.parts);
    settings.set(Settings::SkinTone, 0);
    for (const QSize size :
         {QSize(16, 9), QSize(16, 9), QSize(9, 16), QSize(640, 3), QSize(1, 1)}) {
        QImage frame = patternImage(size.width(), size.height());
        const QByteArray before = pixelsOf(frame);
        processor.processFrame(frame);
        EXPECT_EQ(frame.size(), size);
        EXPECT_EQ(pixelsOf(frame), before);
    }
    EXPECT_EQ(log.lines(QtWarningMsg), QStringList());
}

TEST_F(PostProcessorTest, processFrame_thatCannotBeUploaded_warnsAndIsUntouched)
{
    PostProcessor processor(&settings.store(), nullptr, pipeline.parts);
    settings.set(Settings::SkinTone, 0);
    QImage frame(20000, 2, QImage::Format_RGB32);
    frame.fill(Qt::red);
    const QImage before = frame;
    processor.processFrame(frame);
    EXPECT_EQ(std::as_const(frame).constBits(), before.constBits());
    EXPECT_EQ(log.lines(QtWarningMsg), (QStringList{"Failed to create ID2D1Bitmap1 from buffer.",
                                                    "unable to generate a new sample buffer"}));
    EXPECT_EQ(pipeline.stage->runs, 0);
}

TEST_F(PostProcessorTest, create_device_blendsPrimitivesByMaximum)
{
    const PostProcessor processor(&settings.store(), nullptr, pipeline.parts);
    ASSERT_TRUE(pipeline.createdOn);
    EXPECT_EQ(static_cast<int>(pipeline.createdOn->GetPrimitiveBlend()), 4);
}

TEST_F(PostProcessorTest, create_anyStepFails_warnsOnceAndPassesFramesUnchanged)
{
    struct Step
    {
        const char *warning;
        void (*breakIt)(DeviceFunctions &functions);
    };
    const Step steps[] = {
        {"Failed to create D3D Device",
         [](DeviceFunctions &functions) {
             functions.createD3dDevice = [](ID3D11Device **, ID3D11DeviceContext **) -> HRESULT {
                 return E_FAIL;
             };
         }},
        {"Failed to create DXG device",
         [](DeviceFunctions &functions) {
             functions.queryDxgiDevice = [](ID3D11Device *, IDXGIDevice **) -> HRESULT {
                 return E_NOINTERFACE;
             };
         }},
        {"Failed to create D2D Factory",
         [](DeviceFunctions &functions) {
             functions.createFactory = [](ID2D1Factory1 **) -> HRESULT {
                 return E_FAIL;
             };
         }},
        {"Failed to create D2D Device",
         [](DeviceFunctions &functions) {
             functions.createDevice = [](ID2D1Factory1 *, IDXGIDevice *,
                                         ID2D1Device **) -> HRESULT {
                 return E_OUTOFMEMORY;
             };
         }},
        {"Failed to create D2D CreateDeviceContext",
         [](DeviceFunctions &functions) {
             functions.createDeviceContext = [](ID2D1Device *, ID2D1DeviceContext **) -> HRESULT {
                 return E_FAIL;
             };
         }},
        {"Failed to create D2D Blend Effect",
         [](DeviceFunctions &functions) {
             functions.createBlendEffect = [](ID2D1DeviceContext *, ID2D1Effect **) -> HRESULT {
                 return E_FAIL;
             };
         }},
    };
    settings.set(Settings::SkinTone, 0);
    for (const Step &step : steps) {
        log.clear();
        Pipeline broken;
        step.breakIt(broken.parts.device);
        PostProcessor processor(&settings.store(), nullptr, broken.parts);
        EXPECT_EQ(log.lines(), QStringList{step.warning});
        EXPECT_FALSE(broken.stage) << step.warning;

        QImage frame = patternImage(8, 8);
        const QImage before = frame;
        processor.processFrame(frame);
        EXPECT_EQ(std::as_const(frame).constBits(), before.constBits());
        EXPECT_EQ(log.lines(QtWarningMsg).size(), 1);
    }
}

TEST_F(PostProcessorTest, destroy_always_saysSo)
{
    {
        const PostProcessor processor(&settings.store());
    }
    EXPECT_EQ(log.lines(), (QStringList{"PostProcessor::Opaque DCTOR!", "PostProcessor DCTOR!"}));
}

} // namespace

} // namespace lumivora::test
