// SPDX-License-Identifier: Apache-2.0
#include "direct2d/portable/Blend.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

namespace lumivora::test {

namespace {

using Pixels = std::vector<std::uint8_t>;

// The documented formula for premultiplied colours in 0..1, O = S + (1 - SA) * D.
double sourceOver(double source, double alpha, double destination)
{
    return source / 255.0 + (1.0 - alpha / 255.0) * (destination / 255.0);
}

TEST(Blend, sourceOver_everyAlphaAndDestination_nearestToTheFormula)
{
    // One pixel for each pair of alpha and destination value, in colours from 0 up to the alpha.
    Pixels source;
    Pixels destination;
    for (unsigned alpha = 0; alpha < 256; ++alpha) {
        for (unsigned value = 0; value < 256; ++value) {
            const auto a = static_cast<std::uint8_t>(alpha);
            const auto v = static_cast<std::uint8_t>(value);
            const auto half = static_cast<std::uint8_t>(alpha / 2);
            source.insert(source.end(), {0, half, a, a});
            destination.insert(destination.end(), {v, v, v, v});
        }
    }
    Pixels result = destination;
    direct2d::blendSourceOver(source.data(), result.data(), source.size() / 4);
    for (std::size_t i = 0; i < result.size(); ++i) {
        const double exact = sourceOver(source[i], source[i | 3], destination[i]) * 255.0;
        ASSERT_LE(std::abs(exact - result[i]), 0.5 + 1e-9) << "channel " << i;
    }
}

TEST(Blend, sourceOver_coloursAboveTheirAlpha_saturate)
{
    const Pixels source = {200, 200, 200, 0};
    Pixels destination = {100, 55, 56, 255};
    direct2d::blendSourceOver(source.data(), destination.data(), 1);
    EXPECT_EQ(destination, (Pixels{255, 255, 255, 255}));
}

TEST(Blend, rows_ofEveryLengthAndAlignment_sameAsPixelByPixel)
{
    std::mt19937 random(7);
    for (const direct2d::BlendRow blend : {&direct2d::blendSourceOver, &direct2d::blendMax}) {
        for (std::size_t count = 0; count <= 70; ++count) {
            for (const std::size_t shift : {0U, 1U, 3U}) {
                Pixels source(shift + count * 4);
                Pixels destination(shift + count * 4 + 4);
                std::ranges::generate(source, [&] { return static_cast<std::uint8_t>(random()); });
                std::ranges::generate(destination,
                                      [&] { return static_cast<std::uint8_t>(random()); });
                Pixels expected = destination;
                for (std::size_t pixel = 0; pixel < count; ++pixel) {
                    blend(source.data() + shift + pixel * 4, expected.data() + shift + pixel * 4,
                          1);
                }
                blend(source.data() + shift, destination.data() + shift, count);
                ASSERT_EQ(destination, expected) << count << " pixels";
            }
        }
    }
}

TEST(Blend, max_eachChannel_isTheLarger)
{
    const Pixels source = {1, 200, 3, 0, 255, 0, 9, 9};
    Pixels destination = {2, 100, 3, 255, 0, 1, 8, 10};
    direct2d::blendMax(source.data(), destination.data(), 2);
    EXPECT_EQ(destination, (Pixels{2, 200, 3, 255, 255, 1, 9, 10}));
}

} // namespace

} // namespace lumivora::test
