// SPDX-License-Identifier: Apache-2.0
#include "effects/SubProcessor.h"

#include "effects/BitmapTransfer.h"
#include "tests/effects/CopyingStage.h"
#include "tests/effects/TestContext.h"

#include <QMetaObject>
#include <QThread>

#include <gmock/gmock.h>

namespace lumivora::test {

namespace {

constexpr float kWidth = 8;
constexpr float kHeight = 6;

class SubProcessorTest : public ::testing::Test
{
protected:
    SubProcessor::Bitmap frame()
    {
        const QImage image = patternImage(8, 6);
        return createBitmapFromBuffer(context, image.constBits(), 8, 6, false);
    }
    SubProcessor::Bitmap run(CopyingStage &stage, const SubProcessor::Bitmap &input)
    {
        return stage.processImage(input, kWidth, kHeight, CameraSetting{});
    }

    ComPtr<ID2D1DeviceContext> context = createContext();
    qint64 nowMs = 1'700'000'000'000;
    Clock clock = [this] {
        return nowMs;
    };
};

TEST_F(SubProcessorTest, metaObject_class_hasItsNameAndNothingElse)
{
    EXPECT_STREQ(SubProcessor::staticMetaObject.className(), "SubProcessor");
    EXPECT_EQ(SubProcessor::staticMetaObject.methodCount(),
              QObject::staticMetaObject.methodCount());
}

TEST_F(SubProcessorTest, base_processImage_returnsItsInput)
{
    SubProcessor stage;
    const SubProcessor::Bitmap input = frame();
    EXPECT_EQ(stage.processImage(input, kWidth, kHeight, CameraSetting{}), input);
    EXPECT_FALSE(stage.processImage({}, kWidth, kHeight, CameraSetting{}));
    EXPECT_FALSE(stage.lastResult());
    EXPECT_FALSE(stage.processImages(input, input));
}

TEST_F(SubProcessorTest, processImage_emptyInput_isThePreviousResult)
{
    CopyingStage stage(context, clock, 35);
    EXPECT_FALSE(run(stage, {}));
    const SubProcessor::Bitmap first = run(stage, frame());
    ASSERT_TRUE(first);
    nowMs += 1000;
    EXPECT_EQ(run(stage, {}), first);
    EXPECT_EQ(stage.runs, 1);
}

TEST_F(SubProcessorTest, processImage_twiceWithin28Ms_rendersOnce)
{
    CopyingStage stage(context, clock, 35);
    const SubProcessor::Bitmap first = run(stage, frame());
    nowMs += 27; // 1000 / 35 in whole milliseconds is 28
    EXPECT_EQ(run(stage, frame()), first);
    EXPECT_EQ(stage.runs, 1);
    nowMs += 1;
    EXPECT_NE(run(stage, frame()), first);
    EXPECT_EQ(stage.runs, 2);
}

TEST_F(SubProcessorTest, processImage_withTheBaseLimit_rendersOncePerMillisecond)
{
    CopyingStage stage(context, clock, 1000);
    run(stage, frame());
    run(stage, frame());
    EXPECT_EQ(stage.runs, 1);
    nowMs += 1;
    run(stage, frame());
    EXPECT_EQ(stage.runs, 2);
}

TEST_F(SubProcessorTest, processImage_afterTheClockWasSetBack_rendersAgain)
{
    CopyingStage stage(context, clock, 35);
    run(stage, frame());
    nowMs -= 3'600'000;
    run(stage, frame());
    EXPECT_EQ(stage.runs, 2);
    nowMs += 27;
    run(stage, frame());
    EXPECT_EQ(stage.runs, 2);
}

TEST_F(SubProcessorTest, processImageAsync_freshStage_isEmptyAndLaterTheResult)
{
    CopyingStage stage(context, clock, 35);
    const SubProcessor::Bitmap input = frame();
    CameraSetting setting;
    setting.value = 42;
    EXPECT_FALSE(stage.processImageAsync(input, kWidth, kHeight, setting));

    // The stage's thread takes one event after the other: when it answers, the job has run.
    QMetaObject::invokeMethod(&stage, [] {}, Qt::BlockingQueuedConnection);
    EXPECT_EQ(stage.runs, 1);
    ASSERT_TRUE(stage.lastResult());
    EXPECT_EQ(stage.lastSetting.value, 42);
    // Not due again: no new run, and the result of the completed one at once.
    EXPECT_EQ(stage.processImageAsync(input, kWidth, kHeight, setting), stage.lastResult());
    EXPECT_NE(stage.lastResult(), input);
}

TEST_F(SubProcessorTest, destroy_withJobsPending_letsGoOfEverything)
{
    const SubProcessor::Bitmap input = frame();
    {
        CopyingStage stage(context, clock, 1000);
        for (int i = 0; i < 50; ++i) {
            stage.processImageAsync(input, kWidth, kHeight, CameraSetting{});
        }
    }
    input->AddRef();
    EXPECT_EQ(input->Release(), 1U);
}

TEST_F(SubProcessorTest, stage_thread_isItsWorkers)
{
    CopyingStage stage(context, clock, 35);
    EXPECT_NE(stage.thread(), QThread::currentThread());
    EXPECT_EQ(stage.maxRunsPerSecond(), 35);
}

} // namespace

} // namespace lumivora::test
