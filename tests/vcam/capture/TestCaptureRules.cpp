// SPDX-License-Identifier: Apache-2.0
#include "vcam/capture/CaptureRules.h"

#include <gtest/gtest.h>

#include <limits>

using namespace lumivora;

namespace {

QList<CameraDevice> devicesNamed(const QStringList &names)
{
    QList<CameraDevice> devices;
    for (const QString &name : names) {
        devices.append({name, nullptr});
    }
    return devices;
}

const QList<CameraDevice> kDevices =
    devicesNamed({QStringLiteral("Built-in"), QStringLiteral("Lumivora Camera"),
                  QStringLiteral("Lumivora Control"), QStringLiteral("Lumivora Camera (2)")});

QString chosen(int index, const QString &name, const QString &altName)
{
    const CameraDevice *device = chooseDevice(kDevices, index, name, altName);
    return device != nullptr ? device->name : QStringLiteral("none");
}

const QSize kWanted(1280, 720);

} // namespace

TEST(ChooseDevice, choose_indexAndContainedName_deviceAtIndex)
{
    EXPECT_EQ(chosen(1, QStringLiteral("Lumivora Camera"), {}), QStringLiteral("Lumivora Camera"));
    EXPECT_EQ(chosen(3, QStringLiteral("Camera"), {}), QStringLiteral("Lumivora Camera (2)"));
    EXPECT_EQ(chosen(0, {}, {}), QStringLiteral("Built-in"));
}

TEST(ChooseDevice, choose_nameOfAnotherDevice_none)
{
    EXPECT_EQ(chosen(0, QStringLiteral("Lumivora Camera"), {}), QStringLiteral("none"));
    EXPECT_EQ(chosen(1, QStringLiteral("lumivora camera"), {}), QStringLiteral("none"));
}

TEST(ChooseDevice, choose_altName_firstDeviceThatContainsItWhateverTheIndex)
{
    EXPECT_EQ(chosen(3, QStringLiteral("Built-in"), QStringLiteral("Lumivora Camera")),
              QStringLiteral("Lumivora Camera"));
    EXPECT_EQ(chosen(0, {}, QStringLiteral("(2)")), QStringLiteral("Lumivora Camera (2)"));
    EXPECT_EQ(chosen(0, QStringLiteral("Built-in"), QStringLiteral("absent")),
              QStringLiteral("none"));
}

TEST(ChooseDevice, choose_indexOutsideTheList_noneEvenWithAltName)
{
    EXPECT_EQ(chosen(4, {}, {}), QStringLiteral("none"));
    EXPECT_EQ(chosen(-1, {}, {}), QStringLiteral("none"));
    EXPECT_EQ(chosen(4, {}, QStringLiteral("Lumivora Camera")), QStringLiteral("none"));
    EXPECT_EQ(chooseDevice({}, 0, {}, {}), nullptr);
}

TEST(FormatScore, score_anyFormat_productOfDifferences)
{
    struct Case
    {
        QSize offered;
        qint64 score;
    };
    for (const Case &test : {
             Case{{1280, 720}, 0},
             Case{{1280, 960}, 0}, // right in one direction is as good as right in both
             Case{{960, 720}, 0},
             Case{{1920, 1080}, qint64{640} * 360},
             Case{{640, 480}, qint64{640} * 240},
             Case{{1279, 721}, 1},
             Case{{1281, 719}, 1},
         }) {
        EXPECT_EQ(formatScore(test.offered, kWanted), test.score)
            << test.offered.width() << 'x' << test.offered.height();
    }
}

TEST(FormatScore, score_absurdFormat_noOverflow)
{
    constexpr int kMax = std::numeric_limits<int>::max();
    constexpr int kMin = std::numeric_limits<int>::min();
    EXPECT_EQ(formatScore({kMax, kMax}, {0, 0}), qint64{kMax} * kMax);
    EXPECT_EQ(formatScore({kMin, 1}, {0, 0}), qint64{1} << 31);
}

TEST(NearestFormat, choose_heightExactOnlyInLaterFormat_firstZeroScoreWins)
{
    EXPECT_EQ(nearestFormat({{1280, 960}, {1280, 720}}, kWanted), 0);
    EXPECT_EQ(nearestFormat({{640, 480}, {1280, 960}, {1280, 720}}, kWanted), 1);
}

TEST(NearestFormat, choose_severalFormats_strictlySmallestFirst)
{
    struct Case
    {
        QList<QSize> offered;
        qsizetype nearest;
    };
    const QList<Case> cases = {
        {{}, -1},
        {{{1, 1}}, 0},
        {{{640, 480}, {1920, 1080}, {1270, 700}}, 2},
        {{{1920, 1080}, {640, 480}}, 1},
        {{{1290, 730}, {1270, 710}, {1290, 710}}, 0}, // equal scores
        {{{160, 720}, {1280, 720}}, 0},
    };
    for (const Case &test : cases) {
        EXPECT_EQ(nearestFormat(test.offered, kWanted), test.nearest);
    }
}

TEST(PlausibleSize, judge_absurdSizes_refused)
{
    EXPECT_TRUE(isPlausibleSize({1, 1}));
    EXPECT_TRUE(isPlausibleSize({7680, 4320}));
    for (const QSize &size :
         {QSize(0, 720), QSize(1280, 0), QSize(-1280, 720), QSize(1280, -720), QSize(16385, 1),
          QSize(1, 16385), QSize(16384, 16384), QSize(std::numeric_limits<int>::max(), 1)}) {
        EXPECT_FALSE(isPlausibleSize(size)) << size.width() << 'x' << size.height();
    }
}

TEST(FrameRateCap, take_samplesTenMsApart_everySecondDropped)
{
    FrameRateCap cap;
    QList<qint64> taken;
    for (qint64 now = 0; now <= 60; now += 10) {
        if (cap.isDue(now)) {
            cap.taken(now);
            taken.append(now);
        }
    }
    EXPECT_EQ(taken, QList<qint64>({0, 20, 40, 60}));
}

TEST(FrameRateCap, take_aroundASixtiethOfASecond_sixteenMsDroppedSeventeenTaken)
{
    FrameRateCap cap;
    cap.taken(1000);
    EXPECT_FALSE(cap.isDue(1000));
    EXPECT_FALSE(cap.isDue(1016));
    EXPECT_TRUE(cap.isDue(1017));
}

TEST(FrameRateCap, take_droppedSample_distanceCountsFromTheTakenOne)
{
    FrameRateCap cap;
    cap.taken(0);
    EXPECT_FALSE(cap.isDue(16));
    EXPECT_TRUE(cap.isDue(17));
}

TEST(FrameRateCap, take_clockSetBack_cameraDoesNotFreeze)
{
    FrameRateCap cap;
    cap.taken(3'600'000);
    EXPECT_TRUE(cap.isDue(0));
}
