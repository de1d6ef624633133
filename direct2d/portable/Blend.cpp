// SPDX-License-Identifier: Apache-2.0
#include "direct2d/portable/Blend.h"

#include <opencv2/core/hal/intrin.hpp>

#include <algorithm>

namespace lumivora::direct2d {

namespace {

constexpr std::size_t kChannels = 4;

// x / 255 rounded to nearest, exact for 0 <= x <= 255 * 255.
unsigned divideBy255(unsigned x)
{
    const unsigned biased = x + 128;
    return (biased + (biased >> 8)) >> 8;
}

#if CV_SIMD
cv::v_uint16 divideBy255(const cv::v_uint16 &x)
{
    // All of it fits: 255 * 255 + 128 + 254 < 65536.
    const cv::v_uint16 biased = cv::v_add(x, cv::vx_setall_u16(128));
    return cv::v_shr<8>(cv::v_add(biased, cv::v_shr<8>(biased)));
}

cv::v_uint8 scale(const cv::v_uint8 &value, const cv::v_uint8 &factor)
{
    cv::v_uint16 low;
    cv::v_uint16 high;
    cv::v_mul_expand(value, factor, low, high);
    return cv::v_pack(divideBy255(low), divideBy255(high));
}
#endif

} // namespace

void blendSourceOver(const std::uint8_t *source, std::uint8_t *destination, std::size_t pixelCount)
{
    std::size_t pixel = 0;
#if CV_SIMD
    const auto step = static_cast<std::size_t>(cv::VTraits<cv::v_uint8>::vlanes());
    const cv::v_uint8 opaque = cv::vx_setall_u8(255);
    for (; pixel + step <= pixelCount; pixel += step) {
        const std::uint8_t *const from = source + pixel * kChannels;
        std::uint8_t *const to = destination + pixel * kChannels;
        cv::v_uint8 s0, s1, s2, s3, d0, d1, d2, d3;
        cv::v_load_deinterleave(from, s0, s1, s2, s3);
        cv::v_load_deinterleave(to, d0, d1, d2, d3);
        const cv::v_uint8 rest = cv::v_sub(opaque, s3);
        // Additions of 8-bit lanes saturate.
        cv::v_store_interleave(to, cv::v_add(s0, scale(d0, rest)), cv::v_add(s1, scale(d1, rest)),
                               cv::v_add(s2, scale(d2, rest)), cv::v_add(s3, scale(d3, rest)));
    }
#endif
    for (; pixel < pixelCount; ++pixel) {
        const std::uint8_t *const from = source + pixel * kChannels;
        std::uint8_t *const to = destination + pixel * kChannels;
        const unsigned rest = 255U - from[3];
        for (std::size_t channel = 0; channel < kChannels; ++channel) {
            to[channel] = static_cast<std::uint8_t>(
                std::min(255U, from[channel] + divideBy255(to[channel] * rest)));
        }
    }
}

void blendMax(const std::uint8_t *source, std::uint8_t *destination, std::size_t pixelCount)
{
    const std::size_t byteCount = pixelCount * kChannels;
    std::size_t byte = 0;
#if CV_SIMD
    const auto step = static_cast<std::size_t>(cv::VTraits<cv::v_uint8>::vlanes());
    for (; byte + step <= byteCount; byte += step) {
        cv::v_store(destination + byte,
                    cv::v_max(cv::vx_load(source + byte), cv::vx_load(destination + byte)));
    }
#endif
    for (; byte < byteCount; ++byte) {
        destination[byte] = std::max(destination[byte], source[byte]);
    }
}

} // namespace lumivora::direct2d
