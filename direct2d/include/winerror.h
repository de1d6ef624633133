// SPDX-License-Identifier: Apache-2.0
// Result codes, under the platform's names and with its values.
#pragma once

#include <cstdint>
#include <type_traits>

// 32 bits everywhere, and the very type that Windows has where it has it.
using HRESULT = std::conditional_t<sizeof(long) == 4, long, std::int32_t>;

constexpr bool SUCCEEDED(HRESULT result)
{
    return result >= 0;
}
constexpr bool FAILED(HRESULT result)
{
    return result < 0;
}

inline constexpr HRESULT S_OK = 0;
inline constexpr auto E_NOTIMPL = static_cast<HRESULT>(0x80004001);
inline constexpr auto E_NOINTERFACE = static_cast<HRESULT>(0x80004002);
inline constexpr auto E_POINTER = static_cast<HRESULT>(0x80004003);
inline constexpr auto E_FAIL = static_cast<HRESULT>(0x80004005);
inline constexpr auto E_ACCESSDENIED = static_cast<HRESULT>(0x80070005);
inline constexpr auto E_OUTOFMEMORY = static_cast<HRESULT>(0x8007000E);
inline constexpr auto E_INVALIDARG = static_cast<HRESULT>(0x80070057);

inline constexpr auto D2DERR_UNSUPPORTED_PIXEL_FORMAT = static_cast<HRESULT>(0x88982F80);
inline constexpr auto D2DERR_WRONG_STATE = static_cast<HRESULT>(0x88990001);
inline constexpr auto D2DERR_WRONG_RESOURCE_DOMAIN = static_cast<HRESULT>(0x88990015);
inline constexpr auto D2DERR_EXCEEDS_MAX_BITMAP_SIZE = static_cast<HRESULT>(0x8899001D);
inline constexpr auto D2DERR_BITMAP_CANNOT_DRAW = static_cast<HRESULT>(0x88990021);
inline constexpr auto D2DERR_INVALID_TARGET = static_cast<HRESULT>(0x88990024);
inline constexpr auto D2DERR_BITMAP_BOUND_AS_TARGET = static_cast<HRESULT>(0x88990025);
inline constexpr auto D2DERR_EFFECT_IS_NOT_REGISTERED = static_cast<HRESULT>(0x88990028);
inline constexpr auto D2DERR_INVALID_PROPERTY = static_cast<HRESULT>(0x88990029);
