// SPDX-License-Identifier: Apache-2.0
// Direct2D 1.1: devices, contexts, bitmaps and effects, under the platform's names: those in use.
#pragma once

#include <d2d1.h>
#include <d2d1effects.h>
#include <dxgi.h>

enum D2D1_PROPERTY_TYPE : std::uint32_t {
    D2D1_PROPERTY_TYPE_UNKNOWN = 0,
    D2D1_PROPERTY_TYPE_UINT32 = 3,
    D2D1_PROPERTY_TYPE_FLOAT = 5,
    D2D1_PROPERTY_TYPE_ENUM = 11,
    D2D1_PROPERTY_TYPE_CLSID = 13,
    D2D1_PROPERTY_TYPE_MATRIX_3X2 = 14,
};

/** Properties that every effect has; read only. */
enum D2D1_PROPERTY : std::uint32_t {
    D2D1_PROPERTY_CLSID = 0x80000000,
    D2D1_PROPERTY_MIN_INPUTS = 0x80000008,
    D2D1_PROPERTY_MAX_INPUTS = 0x80000009,
};

enum D2D1_DEVICE_CONTEXT_OPTIONS : std::uint32_t {
    D2D1_DEVICE_CONTEXT_OPTIONS_NONE = 0,
};

enum D2D1_BITMAP_OPTIONS : std::uint32_t {
    D2D1_BITMAP_OPTIONS_NONE = 0,
    D2D1_BITMAP_OPTIONS_TARGET = 1,
    D2D1_BITMAP_OPTIONS_CANNOT_DRAW = 2,
    D2D1_BITMAP_OPTIONS_CPU_READ = 4,
};
constexpr D2D1_BITMAP_OPTIONS operator|(D2D1_BITMAP_OPTIONS left, D2D1_BITMAP_OPTIONS right)
{
    return static_cast<D2D1_BITMAP_OPTIONS>(static_cast<UINT32>(left) | static_cast<UINT32>(right));
}

enum D2D1_MAP_OPTIONS : std::uint32_t {
    D2D1_MAP_OPTIONS_NONE = 0,
    D2D1_MAP_OPTIONS_READ = 1,
    D2D1_MAP_OPTIONS_WRITE = 2,
    D2D1_MAP_OPTIONS_DISCARD = 4,
};

enum D2D1_INTERPOLATION_MODE : std::uint32_t {
    D2D1_INTERPOLATION_MODE_NEAREST_NEIGHBOR = 0,
    D2D1_INTERPOLATION_MODE_LINEAR = 1,
};

enum D2D1_COMPOSITE_MODE : std::uint32_t {
    D2D1_COMPOSITE_MODE_SOURCE_OVER = 0,
};

enum D2D1_PRIMITIVE_BLEND : std::uint32_t {
    D2D1_PRIMITIVE_BLEND_SOURCE_OVER = 0,
    D2D1_PRIMITIVE_BLEND_MAX = 4,
};

struct ID2D1ColorContext;

struct D2D1_BITMAP_PROPERTIES1
{
    D2D1_PIXEL_FORMAT pixelFormat;
    FLOAT dpiX; // 0: 96
    FLOAT dpiY;
    D2D1_BITMAP_OPTIONS bitmapOptions;
    ID2D1ColorContext *colorContext; // null: none is offered
};

struct D2D1_MAPPED_RECT
{
    UINT32 pitch;
    BYTE *bits;
};

struct ID2D1Properties : IUnknown
{
    virtual UINT32 STDMETHODCALLTYPE GetPropertyCount() const = 0;
    virtual D2D1_PROPERTY_TYPE STDMETHODCALLTYPE GetType(UINT32 index) const = 0;
    virtual HRESULT STDMETHODCALLTYPE SetValue(UINT32 index, D2D1_PROPERTY_TYPE type,
                                               const BYTE *data, UINT32 dataSize) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetValue(UINT32 index, D2D1_PROPERTY_TYPE type, BYTE *data,
                                               UINT32 dataSize) const = 0;
    virtual UINT32 STDMETHODCALLTYPE GetValueSize(UINT32 index) const = 0;

    template <typename T, typename U>
    HRESULT SetValue(U index, const T &value)
    {
        return SetValue(static_cast<UINT32>(index), D2D1_PROPERTY_TYPE_UNKNOWN,
                        reinterpret_cast<const BYTE *>(&value), sizeof value);
    }
    template <typename T, typename U>
    HRESULT GetValue(U index, T *value) const
    {
        return GetValue(static_cast<UINT32>(index), D2D1_PROPERTY_TYPE_UNKNOWN,
                        reinterpret_cast<BYTE *>(value), sizeof *value);
    }

protected:
    ~ID2D1Properties() = default;
};
LUMIVORA_INTERFACE_ID(ID2D1Properties, 0x483473d7, 0xcd46, 0x4f9d, 0x9d, 0x3a, 0x31, 0x12, 0xaa,
                      0x80, 0x15, 0x9d)

struct ID2D1Effect : ID2D1Properties
{
    virtual void STDMETHODCALLTYPE SetInput(UINT32 index, ID2D1Image *input,
                                            BOOL invalidate = TRUE) = 0;
    virtual HRESULT STDMETHODCALLTYPE SetInputCount(UINT32 inputCount) = 0;
    virtual void STDMETHODCALLTYPE GetInput(UINT32 index, ID2D1Image **input) const = 0;
    virtual UINT32 STDMETHODCALLTYPE GetInputCount() const = 0;
    virtual void STDMETHODCALLTYPE GetOutput(ID2D1Image **outputImage) const = 0;

protected:
    ~ID2D1Effect() = default;
};
LUMIVORA_INTERFACE_ID(ID2D1Effect, 0x28211a43, 0x7d89, 0x476f, 0x81, 0x81, 0x2d, 0x61, 0x59, 0xb2,
                      0x20, 0xad)

struct ID2D1Bitmap1 : ID2D1Bitmap
{
    virtual D2D1_BITMAP_OPTIONS STDMETHODCALLTYPE GetOptions() const = 0;
    virtual HRESULT STDMETHODCALLTYPE Map(D2D1_MAP_OPTIONS options,
                                          D2D1_MAPPED_RECT *mappedRect) = 0;
    virtual HRESULT STDMETHODCALLTYPE Unmap() = 0;

protected:
    ~ID2D1Bitmap1() = default;
};
LUMIVORA_INTERFACE_ID(ID2D1Bitmap1, 0xa898a84c, 0x3873, 0x4588, 0xb0, 0x8b, 0xeb, 0xbf, 0x97, 0x8d,
                      0xf0, 0x41)

struct ID2D1Device;

struct ID2D1DeviceContext : ID2D1RenderTarget
{
    virtual HRESULT STDMETHODCALLTYPE CreateBitmap(D2D1_SIZE_U size, const void *sourceData,
                                                   UINT32 pitch,
                                                   const D2D1_BITMAP_PROPERTIES1 *bitmapProperties,
                                                   ID2D1Bitmap1 **bitmap) = 0;
    virtual HRESULT STDMETHODCALLTYPE CreateEffect(REFCLSID effectId, ID2D1Effect **effect) = 0;
    virtual void STDMETHODCALLTYPE GetDevice(ID2D1Device **device) const = 0;
    virtual void STDMETHODCALLTYPE SetTarget(ID2D1Image *image) = 0;
    virtual void STDMETHODCALLTYPE GetTarget(ID2D1Image **image) const = 0;
    virtual void STDMETHODCALLTYPE SetPrimitiveBlend(D2D1_PRIMITIVE_BLEND primitiveBlend) = 0;
    virtual D2D1_PRIMITIVE_BLEND STDMETHODCALLTYPE GetPrimitiveBlend() const = 0;
    virtual void STDMETHODCALLTYPE
    DrawImage(ID2D1Image *image, const D2D1_POINT_2F *targetOffset = nullptr,
              const D2D1_RECT_F *imageRectangle = nullptr,
              D2D1_INTERPOLATION_MODE interpolationMode = D2D1_INTERPOLATION_MODE_LINEAR,
              D2D1_COMPOSITE_MODE compositeMode = D2D1_COMPOSITE_MODE_SOURCE_OVER) = 0;

protected:
    ~ID2D1DeviceContext() = default;
};
LUMIVORA_INTERFACE_ID(ID2D1DeviceContext, 0xe8f7fe7a, 0x191c, 0x466d, 0xad, 0x95, 0x97, 0x56, 0x78,
                      0xbd, 0xa9, 0x98)

struct ID2D1Device : ID2D1Resource
{
    virtual HRESULT STDMETHODCALLTYPE CreateDeviceContext(D2D1_DEVICE_CONTEXT_OPTIONS options,
                                                          ID2D1DeviceContext **deviceContext) = 0;

protected:
    ~ID2D1Device() = default;
};
LUMIVORA_INTERFACE_ID(ID2D1Device, 0x47dd575d, 0xac05, 0x4cdd, 0x80, 0x49, 0x9b, 0x02, 0xcd, 0x16,
                      0xf4, 0x4c)

struct ID2D1Factory1 : ID2D1Factory
{
    virtual HRESULT STDMETHODCALLTYPE CreateDevice(IDXGIDevice *dxgiDevice,
                                                   ID2D1Device **d2dDevice) = 0;

protected:
    ~ID2D1Factory1() = default;
};
LUMIVORA_INTERFACE_ID(ID2D1Factory1, 0xbb12d362, 0xdaee, 0x4b9a, 0xaa, 0x1d, 0x14, 0xba, 0x40, 0x1c,
                      0xfa, 0x1f)
