// SPDX-License-Identifier: Apache-2.0
// Plain records that Direct2D's interfaces share, under the platform's names.
#pragma once

#include <dxgiformat.h>

#include <cstdint>

enum D2D1_ALPHA_MODE : std::uint32_t {
    D2D1_ALPHA_MODE_UNKNOWN = 0,
    D2D1_ALPHA_MODE_PREMULTIPLIED = 1,
    D2D1_ALPHA_MODE_STRAIGHT = 2,
    D2D1_ALPHA_MODE_IGNORE = 3,
};

struct D2D1_PIXEL_FORMAT
{
    DXGI_FORMAT format;
    D2D1_ALPHA_MODE alphaMode;
};

struct D2D_POINT_2U
{
    std::uint32_t x;
    std::uint32_t y;
};
struct D2D_POINT_2F
{
    float x;
    float y;
};
struct D2D_SIZE_U
{
    std::uint32_t width;
    std::uint32_t height;
};
struct D2D_SIZE_F
{
    float width;
    float height;
};
struct D2D_RECT_U
{
    std::uint32_t left;
    std::uint32_t top;
    std::uint32_t right;
    std::uint32_t bottom;
};
struct D2D_RECT_F
{
    float left;
    float top;
    float right;
    float bottom;
};
