// SPDX-License-Identifier: Apache-2.0
// The root of all counted interfaces, and the platform's elementary type names.
#pragma once

#include <guiddef.h>
#include <winerror.h>

#include <cstdint>

using BYTE = std::uint8_t;
using BOOL = std::int32_t;
using INT32 = std::int32_t;
using UINT = std::uint32_t;
using UINT32 = std::uint32_t;
using UINT64 = std::uint64_t;
using ULONG = std::uint32_t;
using FLOAT = float;
using HMODULE = struct HINSTANCE__ *;

#define STDMETHODCALLTYPE

#ifndef TRUE
#define TRUE 1
#define FALSE 0
#endif

/** A counted object. Objects delete themselves with their last reference, hence no virtual
 *  destructor. @thread thread-safe */
struct IUnknown
{
    virtual HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void **object) = 0;
    virtual ULONG STDMETHODCALLTYPE AddRef() = 0;
    virtual ULONG STDMETHODCALLTYPE Release() = 0;

protected:
    ~IUnknown() = default;
};
LUMIVORA_INTERFACE_ID(IUnknown, 0x00000000, 0x0000, 0x0000, 0xc0, 0x00, 0x00, 0x00, 0x00, 0x00,
                      0x00, 0x46)
