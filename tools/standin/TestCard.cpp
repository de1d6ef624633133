// SPDX-License-Identifier: Apache-2.0
// A generated moving picture.
#include "tools/standin/TestCard.h"

#include <opencv2/imgproc.hpp>

#include <array>
#include <cmath>
#include <numbers>
#include <string>

namespace lumivora::tools {

namespace {

constexpr int kBallPeriodFrames = 150;
constexpr int kDigits = 6;

cv::Scalar rgb(int red, int green, int blue)
{
    return {static_cast<double>(blue), static_cast<double>(green), static_cast<double>(red), 255};
}

/** From one colour at the top to another at the bottom. */
void fillGradient(const cv::Mat &picture, const cv::Scalar &top, const cv::Scalar &bottom)
{
    for (int y = 0; y < picture.rows; ++y) {
        const double part = static_cast<double>(y) / picture.rows;
        picture.row(y).setTo(top * (1 - part) + bottom * part);
    }
}

/** An ellipse whose brightness falls off from its upper left, as if it were round. */
void drawRound(cv::Mat &picture, cv::Point centre, cv::Size axes, const cv::Scalar &dark,
               const cv::Scalar &light)
{
    constexpr int kSteps = 40;
    for (int step = 0; step < kSteps; ++step) {
        const double part = static_cast<double>(step) / kSteps;
        const double size = 1 - part;
        const cv::Point shifted(centre.x - static_cast<int>(axes.width * part * 0.3),
                                centre.y - static_cast<int>(axes.height * part * 0.3));
        const cv::Size shrunk(std::max(1, static_cast<int>(axes.width * size)),
                              std::max(1, static_cast<int>(axes.height * size)));
        cv::ellipse(picture, shifted, shrunk, 0, 0, 360, dark * (1 - part) + light * part,
                    cv::FILLED, cv::LINE_AA);
    }
}

void drawPerson(cv::Mat &picture)
{
    const int unit = picture.rows / 12;
    const cv::Point head(picture.cols / 2, unit * 5);
    const cv::Scalar eye = rgb(52, 40, 36);
    drawRound(picture, {head.x, unit * 13}, {unit * 4, unit * 4}, rgb(28, 66, 92),
              rgb(62, 122, 158)); // shoulders
    drawRound(picture, {head.x, unit * 8}, {unit, unit * 3 / 2}, rgb(176, 120, 92),
              rgb(214, 160, 128)); // neck
    drawRound(picture, {head.x, head.y - unit / 2}, {unit * 21 / 10, unit * 27 / 10},
              rgb(58, 40, 32), rgb(104, 74, 54)); // hair
    drawRound(picture, head, {unit * 9 / 5, unit * 12 / 5}, rgb(196, 138, 108),
              rgb(248, 208, 178)); // face
    for (const int side : {-1, 1}) {
        const cv::Point eyeAt(head.x + side * unit * 7 / 10, head.y - unit / 4);
        cv::ellipse(picture, eyeAt, {unit / 4, unit / 6}, 0, 0, 360, rgb(250, 250, 248), cv::FILLED,
                    cv::LINE_AA);
        cv::circle(picture, eyeAt, unit / 8, eye, cv::FILLED, cv::LINE_AA);
        cv::ellipse(picture, {eyeAt.x, eyeAt.y - unit / 3}, {unit / 2, unit / 6}, 0, 200, 340, eye,
                    std::max(1, unit / 14), cv::LINE_AA);
    }
    cv::ellipse(picture, {head.x, head.y + unit}, {unit * 2 / 3, unit / 3}, 0, 15, 165,
                rgb(158, 74, 68), std::max(2, unit / 12), cv::LINE_AA);
}

void drawColourBars(cv::Mat &picture)
{
    const std::array<cv::Scalar, 6> colours = {rgb(232, 232, 232), rgb(224, 200, 64),
                                               rgb(72, 196, 204),  rgb(84, 188, 92),
                                               rgb(196, 84, 176),  rgb(204, 72, 66)};
    const int left = picture.cols / 20;
    const int width = picture.cols / 40;
    const int top = picture.rows / 4;
    for (std::size_t i = 0; i < colours.size(); ++i) {
        cv::rectangle(picture, {left + static_cast<int>(i) * width, top, width, picture.rows / 3},
                      colours[i], cv::FILLED);
    }
    for (int level = 0; level < 12; ++level) {
        const int grey = level * 255 / 11;
        cv::rectangle(
            picture,
            {left + level * width / 2, top + picture.rows / 3, width / 2, picture.rows / 16},
            rgb(grey, grey, grey), cv::FILLED);
    }
}

/** Segments of a digit: top, upper left, upper right, middle, lower left, lower right, bottom. */
constexpr std::array<std::uint8_t, 10> kSegments = {
    0b1110111, 0b0010010, 0b1011101, 0b1011011, 0b0111010,
    0b1101011, 0b1101111, 0b1010010, 0b1111111, 0b1111011,
};

void drawDigit(cv::Mat &picture, const cv::Rect &area, int digit, const cv::Scalar &colour)
{
    const int thick = std::max(2, area.width / 6);
    const int half = area.height / 2;
    const std::array<cv::Rect, 7> segments = {
        cv::Rect(area.x, area.y, area.width, thick),
        cv::Rect(area.x, area.y, thick, half),
        cv::Rect(area.x + area.width - thick, area.y, thick, half),
        cv::Rect(area.x, area.y + half - thick / 2, area.width, thick),
        cv::Rect(area.x, area.y + half, thick, half),
        cv::Rect(area.x + area.width - thick, area.y + half, thick, half),
        cv::Rect(area.x, area.y + area.height - thick, area.width, thick),
    };
    for (std::size_t i = 0; i < segments.size(); ++i) {
        if ((kSegments[static_cast<std::size_t>(digit)] >> (6 - i) & 1) != 0) {
            cv::rectangle(picture, segments[i], colour, cv::FILLED);
        }
    }
}

} // namespace

TestCard::TestCard(int width, int height) : _background(height, width, CV_8UC4)
{
    fillGradient(_background, rgb(226, 232, 234), rgb(164, 178, 186));
    const cv::Rect window(width * 13 / 20, height / 7, width * 6 / 20, height * 2 / 5);
    fillGradient(_background(window), rgb(126, 178, 220), rgb(232, 224, 204));
    cv::rectangle(_background, window, rgb(250, 250, 248), std::max(2, height / 60));
    drawColourBars(_background);
    drawPerson(_background);
    _frame = _background.clone();
}

cv::Mat &TestCard::draw(std::uint32_t number)
{
    restore();
    drawBall(number);
    drawNumber(number);
    return _frame;
}

void TestCard::restore()
{
    for (const cv::Rect &area : _touched) {
        _background(area).copyTo(_frame(area));
    }
    _touched.clear();
}

cv::Rect TestCard::touched(cv::Rect area)
{
    area &= cv::Rect(0, 0, _frame.cols, _frame.rows);
    _touched.push_back(area);
    return area;
}

void TestCard::drawBall(std::uint32_t number)
{
    const double phase = 2 * std::numbers::pi * (number % kBallPeriodFrames) / kBallPeriodFrames;
    const int radius = _frame.rows / 18;
    const cv::Point centre(
        static_cast<int>(_frame.cols * (0.5 + 0.44 * std::sin(phase))),
        static_cast<int>(_frame.rows * (0.72 - 0.12 * std::abs(std::sin(2 * phase)))));
    touched({centre.x - radius - 1, centre.y - radius - 1, 2 * radius + 3, 2 * radius + 3});
    cv::circle(_frame, centre, radius, rgb(238, 112, 58), cv::FILLED);
    cv::circle(_frame, {centre.x - radius / 3, centre.y - radius / 3}, radius / 4,
               rgb(255, 214, 180), cv::FILLED);
}

void TestCard::drawNumber(std::uint32_t number)
{
    const int height = _frame.rows / 12;
    const int width = height * 6 / 10;
    const int gap = height / 5;
    const cv::Rect area =
        touched({_frame.cols - kDigits * (width + gap) - 2 * gap, _frame.rows * 3 / 4,
                 kDigits * (width + gap) + gap, height + 2 * gap});
    cv::rectangle(_frame, area, rgb(28, 34, 40), cv::FILLED);
    std::uint32_t rest = number;
    for (int i = kDigits - 1; i >= 0; --i) {
        drawDigit(_frame, {area.x + gap + i * (width + gap), area.y + gap, width, height},
                  static_cast<int>(rest % 10), rgb(126, 224, 196));
        rest /= 10;
    }
}

} // namespace lumivora::tools
