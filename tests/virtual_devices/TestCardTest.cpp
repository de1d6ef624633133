// SPDX-License-Identifier: Apache-2.0
#include "tools/standin/TestCard.h"

#include <gmock/gmock.h>

#include <opencv2/core.hpp>

namespace lumivora::tools {

TEST(TestCardTest, draw_size_isTheOneAskedFor)
{
    TestCard card(640, 360);
    const cv::Mat &picture = card.draw(0);
    EXPECT_EQ(picture.size(), cv::Size(640, 360));
    EXPECT_EQ(picture.type(), CV_8UC4);
}

TEST(TestCardTest, draw_nextNumber_changesThePicture)
{
    TestCard card(1280, 720);
    const cv::Mat first = card.draw(10).clone();
    EXPECT_GT(cv::norm(card.draw(11), first, cv::NORM_INF), 0);
}

TEST(TestCardTest, draw_afterOtherFrames_isTheSamePictureForTheSameNumber)
{
    TestCard used(1280, 720);
    for (std::uint32_t number = 0; number < 40; ++number) {
        used.draw(number);
    }
    TestCard fresh(1280, 720);
    EXPECT_EQ(cv::norm(used.draw(123456), fresh.draw(123456), cv::NORM_INF), 0);
}

} // namespace lumivora::tools
