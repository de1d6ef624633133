// SPDX-License-Identifier: Apache-2.0
// The built-in effects and their properties, under the platform's names: those in use.
#pragma once

#include <guiddef.h>

inline constexpr CLSID CLSID_D2D1Blend{
    0x81c5b77b, 0x13f8, 0x4cdd, {0xad, 0x20, 0xc8, 0x90, 0x54, 0x7a, 0xc6, 0x5d}};

enum D2D1_BLEND_PROP : std::uint32_t {
    D2D1_BLEND_PROP_MODE = 0,
};

enum D2D1_BLEND_MODE : std::uint32_t {
    D2D1_BLEND_MODE_MULTIPLY = 0,
    D2D1_BLEND_MODE_SCREEN = 1,
    D2D1_BLEND_MODE_DIVISION = 25, // the last one
};
