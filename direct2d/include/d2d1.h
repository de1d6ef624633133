// SPDX-License-Identifier: Apache-2.0
// Direct2D's first interfaces, under the platform's names: those in use.
#pragma once

#include <dcommon.h>
#include <unknwn.h>

#include <cstdint>

using D2D1_POINT_2U = D2D_POINT_2U;
using D2D1_POINT_2F = D2D_POINT_2F;
using D2D1_SIZE_U = D2D_SIZE_U;
using D2D1_SIZE_F = D2D_SIZE_F;
using D2D1_RECT_U = D2D_RECT_U;
using D2D1_RECT_F = D2D_RECT_F;
using D2D1_TAG = UINT64;

enum D2D1_FACTORY_TYPE : std::uint32_t {
    D2D1_FACTORY_TYPE_SINGLE_THREADED = 0,
    D2D1_FACTORY_TYPE_MULTI_THREADED = 1,
};

enum D2D1_DEBUG_LEVEL : std::uint32_t {
    D2D1_DEBUG_LEVEL_NONE = 0,
};

struct D2D1_FACTORY_OPTIONS
{
    D2D1_DEBUG_LEVEL debugLevel;
};

/** Straight alpha, each component 0..1. */
struct D2D1_COLOR_F
{
    FLOAT r;
    FLOAT g;
    FLOAT b;
    FLOAT a;
};

struct ID2D1Factory : IUnknown
{
protected:
    ~ID2D1Factory() = default;
};
LUMIVORA_INTERFACE_ID(ID2D1Factory, 0x06152247, 0x6f50, 0x465a, 0x92, 0x45, 0x11, 0x8b, 0xfd, 0x3b,
                      0x60, 0x07)

struct ID2D1Resource : IUnknown
{
    virtual void STDMETHODCALLTYPE GetFactory(ID2D1Factory **factory) const = 0;

protected:
    ~ID2D1Resource() = default;
};
LUMIVORA_INTERFACE_ID(ID2D1Resource, 0x2cd90691, 0x12e2, 0x11dc, 0x9f, 0xed, 0x00, 0x11, 0x43, 0xa0,
                      0x55, 0xf9)

/** Something that can be drawn: a bitmap or the output of an effect. */
struct ID2D1Image : ID2D1Resource
{
protected:
    ~ID2D1Image() = default;
};
LUMIVORA_INTERFACE_ID(ID2D1Image, 0x65019f75, 0x8da2, 0x497c, 0xb3, 0x2c, 0xdf, 0xa3, 0x4e, 0x48,
                      0xed, 0xe6)

struct ID2D1RenderTarget;

struct ID2D1Bitmap : ID2D1Image
{
    virtual D2D1_SIZE_F STDMETHODCALLTYPE GetSize() const = 0;
    virtual D2D1_SIZE_U STDMETHODCALLTYPE GetPixelSize() const = 0;
    virtual D2D1_PIXEL_FORMAT STDMETHODCALLTYPE GetPixelFormat() const = 0;
    virtual void STDMETHODCALLTYPE GetDpi(FLOAT *dpiX, FLOAT *dpiY) const = 0;
    virtual HRESULT STDMETHODCALLTYPE CopyFromBitmap(const D2D1_POINT_2U *destPoint,
                                                     ID2D1Bitmap *bitmap,
                                                     const D2D1_RECT_U *srcRect) = 0;
    virtual HRESULT STDMETHODCALLTYPE CopyFromRenderTarget(const D2D1_POINT_2U *destPoint,
                                                           ID2D1RenderTarget *renderTarget,
                                                           const D2D1_RECT_U *srcRect) = 0;
    virtual HRESULT STDMETHODCALLTYPE CopyFromMemory(const D2D1_RECT_U *dstRect,
                                                     const void *srcData, UINT32 pitch) = 0;

protected:
    ~ID2D1Bitmap() = default;
};
LUMIVORA_INTERFACE_ID(ID2D1Bitmap, 0xa2296057, 0xea42, 0x4099, 0x98, 0x3b, 0x53, 0x9f, 0xb6, 0x50,
                      0x54, 0x26)

struct ID2D1RenderTarget : ID2D1Resource
{
    virtual void STDMETHODCALLTYPE SetTags(D2D1_TAG tag1, D2D1_TAG tag2) = 0;
    virtual void STDMETHODCALLTYPE GetTags(D2D1_TAG *tag1 = nullptr,
                                           D2D1_TAG *tag2 = nullptr) const = 0;
    virtual void STDMETHODCALLTYPE Clear(const D2D1_COLOR_F *clearColor = nullptr) = 0;
    virtual void STDMETHODCALLTYPE BeginDraw() = 0;
    virtual HRESULT STDMETHODCALLTYPE EndDraw(D2D1_TAG *tag1 = nullptr,
                                              D2D1_TAG *tag2 = nullptr) = 0;
    virtual D2D1_PIXEL_FORMAT STDMETHODCALLTYPE GetPixelFormat() const = 0;
    virtual void STDMETHODCALLTYPE GetDpi(FLOAT *dpiX, FLOAT *dpiY) const = 0;
    virtual D2D1_SIZE_F STDMETHODCALLTYPE GetSize() const = 0;
    virtual D2D1_SIZE_U STDMETHODCALLTYPE GetPixelSize() const = 0;
    virtual UINT32 STDMETHODCALLTYPE GetMaximumBitmapSize() const = 0;

protected:
    ~ID2D1RenderTarget() = default;
};
LUMIVORA_INTERFACE_ID(ID2D1RenderTarget, 0x2cd90694, 0x12e2, 0x11dc, 0x9f, 0xed, 0x00, 0x11, 0x43,
                      0xa0, 0x55, 0xf9)

/** Creates a factory. @param options  may be null */
HRESULT D2D1CreateFactory(D2D1_FACTORY_TYPE type, REFIID riid, const D2D1_FACTORY_OPTIONS *options,
                          void **factory) noexcept;
