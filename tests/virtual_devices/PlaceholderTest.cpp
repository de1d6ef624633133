// SPDX-License-Identifier: Apache-2.0
#include "virtual_devices/Placeholder.h"
#include "virtual_devices/FrameSource.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <cstdint>
#include <set>
#include <vector>

namespace lumivora {

namespace {

using namespace std::chrono_literals;

std::vector<std::byte> copy(std::span<const std::byte> picture)
{
    return {picture.begin(), picture.end()};
}

} // namespace

TEST(PlaceholderTest, draw_picture_hasTheCamerasSizeAndIsNotOneColour)
{
    Placeholder placeholder([] { return 0ms; });
    const auto picture = copy(placeholder.draw());
    ASSERT_EQ(picture.size(), kCameraBytes);
    std::set<std::byte> blues;
    for (std::size_t i = 0; i < picture.size(); i += 4) {
        blues.insert(picture[i]);
    }
    EXPECT_GT(blues.size(), 100U) << "the artwork is missing";
}

TEST(PlaceholderTest, draw_laterMoment_differsSoThatAPersonSeesItLive)
{
    std::chrono::milliseconds now{0};
    Placeholder placeholder([&now] { return now; });
    const auto first = copy(placeholder.draw());
    now += 300ms;
    EXPECT_NE(copy(placeholder.draw()), first);
}

TEST(PlaceholderTest, draw_sameMomentLater_leavesNoTraceOfWhatWasBetween)
{
    std::chrono::milliseconds now{0};
    Placeholder placeholder([&now] { return now; });
    const auto first = copy(placeholder.draw());
    now = 700ms;
    (void)placeholder.draw();
    now = 0ms;
    EXPECT_EQ(copy(placeholder.draw()), first);
}

} // namespace lumivora
