// SPDX-License-Identifier: Apache-2.0
// A generated moving picture.
#pragma once

#include <opencv2/core.hpp>

#include <cstdint>
#include <vector>

namespace lumivora::tools {

/** A person in front of a bright wall, colour bars, a ball that crosses the picture and the frame's
 *  number in digits.
 *
 *  The picture that stands still is drawn once; a frame only redraws what moves, because the
 *  stand-in shares the processor with what is measured.
 *
 *  @thread reentrant */
class TestCard
{
public:
    /** @param width, height  pixels, each at least 64 */
    TestCard(int width, int height);

    /** Draws a frame.
     *  @return B G R X, valid until the next call; the caller may draw into it */
    cv::Mat &draw(std::uint32_t number);

private:
    void restore();
    void drawBall(std::uint32_t number);
    void drawNumber(std::uint32_t number);
    cv::Rect touched(cv::Rect area);

    cv::Mat _background;
    cv::Mat _frame;
    std::vector<cv::Rect> _touched; // by the frame before
};

} // namespace lumivora::tools
