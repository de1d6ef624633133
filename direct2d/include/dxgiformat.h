// SPDX-License-Identifier: Apache-2.0
// Pixel formats, under the platform's names and with its values: those in use.
#pragma once

#include <cstdint>

enum DXGI_FORMAT : std::uint32_t {
    DXGI_FORMAT_UNKNOWN = 0,
    DXGI_FORMAT_R8G8B8A8_UNORM = 28,
    DXGI_FORMAT_B8G8R8A8_UNORM = 87,
};
