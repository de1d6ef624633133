// SPDX-License-Identifier: Apache-2.0
// Identifiers of classes and interfaces, under the platform's names.
#pragma once

#include <cstdint>

struct _GUID
{
    std::uint32_t Data1;
    std::uint16_t Data2;
    std::uint16_t Data3;
    std::uint8_t Data4[8];

    friend constexpr bool operator==(const _GUID &, const _GUID &) = default;
};
using GUID = _GUID;
using IID = GUID;
using CLSID = GUID;
using REFGUID = const GUID &;
using REFIID = const IID &;
using REFCLSID = const CLSID &;

/** The identifier of an interface; specialised beside the interface by LUMIVORA_INTERFACE_ID. */
template <typename Interface>
struct InterfaceId;

#define LUMIVORA_INTERFACE_ID(type, l, w1, w2, b1, b2, b3, b4, b5, b6, b7, b8)                     \
    template <>                                                                                    \
    struct InterfaceId<type>                                                                       \
    {                                                                                              \
        static constexpr IID value{l, w1, w2, {b1, b2, b3, b4, b5, b6, b7, b8}};                   \
    };

// The Windows compiler predefines the name for the system's own interfaces.
#undef __uuidof
#define __uuidof(type) (InterfaceId<type>::value)
