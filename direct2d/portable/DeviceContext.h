// SPDX-License-Identifier: Apache-2.0
// The device context of the portable Direct2D: draws into its target at once.
#pragma once

#include "direct2d/ComPtr.h"
#include "direct2d/portable/Bitmap.h"
#include "direct2d/portable/ComObject.h"

#include <d2d1_1.h>

namespace lumivora::direct2d {

/** Draws at once; only errors are deferred. The first error since the last EndDraw is kept with
 *  its tags, drawing is ignored from then on, and EndDraw reports it and starts afresh.
 *  @thread thread-bound: one thread at a time, as its factory is single-threaded */
class DeviceContext final
    : public ComObject<ID2D1DeviceContext, ID2D1RenderTarget, ID2D1Resource, IUnknown>
{
public:
    explicit DeviceContext(ID2D1Device *device) noexcept : _device(device) {}

    /** Borrowed; null when there is none. */
    [[nodiscard]] Bitmap *target() const noexcept { return _target.get(); }

    void STDMETHODCALLTYPE GetFactory(ID2D1Factory **factory) const noexcept override;
    void STDMETHODCALLTYPE SetTags(D2D1_TAG tag1, D2D1_TAG tag2) noexcept override;
    void STDMETHODCALLTYPE GetTags(D2D1_TAG *tag1, D2D1_TAG *tag2) const noexcept override;
    void STDMETHODCALLTYPE Clear(const D2D1_COLOR_F *clearColor) noexcept override;
    void STDMETHODCALLTYPE BeginDraw() noexcept override;
    HRESULT STDMETHODCALLTYPE EndDraw(D2D1_TAG *tag1, D2D1_TAG *tag2) noexcept override;
    D2D1_PIXEL_FORMAT STDMETHODCALLTYPE GetPixelFormat() const noexcept override;
    void STDMETHODCALLTYPE GetDpi(FLOAT *dpiX, FLOAT *dpiY) const noexcept override;
    D2D1_SIZE_F STDMETHODCALLTYPE GetSize() const noexcept override;
    D2D1_SIZE_U STDMETHODCALLTYPE GetPixelSize() const noexcept override;
    UINT32 STDMETHODCALLTYPE GetMaximumBitmapSize() const noexcept override;
    HRESULT STDMETHODCALLTYPE CreateBitmap(D2D1_SIZE_U size, const void *sourceData, UINT32 pitch,
                                           const D2D1_BITMAP_PROPERTIES1 *bitmapProperties,
                                           ID2D1Bitmap1 **bitmap) noexcept override;
    HRESULT STDMETHODCALLTYPE CreateEffect(REFCLSID effectId,
                                           ID2D1Effect **effect) noexcept override;
    void STDMETHODCALLTYPE GetDevice(ID2D1Device **device) const noexcept override;
    void STDMETHODCALLTYPE SetTarget(ID2D1Image *image) noexcept override;
    void STDMETHODCALLTYPE GetTarget(ID2D1Image **image) const noexcept override;
    void STDMETHODCALLTYPE SetPrimitiveBlend(D2D1_PRIMITIVE_BLEND primitiveBlend) noexcept override;
    D2D1_PRIMITIVE_BLEND STDMETHODCALLTYPE GetPrimitiveBlend() const noexcept override;
    void STDMETHODCALLTYPE DrawImage(ID2D1Image *image, const D2D1_POINT_2F *targetOffset,
                                     const D2D1_RECT_F *imageRectangle,
                                     D2D1_INTERPOLATION_MODE interpolationMode,
                                     D2D1_COMPOSITE_MODE compositeMode) noexcept override;

private:
    ~DeviceContext() override = default;

    /** Keeps the first error and the tags of now. */
    void fail(HRESULT error) noexcept;
    /** Whether a drawing call may go on; fails otherwise. */
    [[nodiscard]] bool canDraw() noexcept;
    [[nodiscard]] HRESULT draw(ID2D1Image *image, const D2D1_POINT_2F &offset,
                               const D2D1_RECT_F *imageRectangle,
                               D2D1_INTERPOLATION_MODE interpolationMode) noexcept;

    ComPtr<ID2D1Device> _device;
    ComPtr<Bitmap> _target;
    D2D1_PRIMITIVE_BLEND _primitiveBlend = D2D1_PRIMITIVE_BLEND_SOURCE_OVER;
    bool _drawing = false;
    D2D1_TAG _tags[2] = {0, 0};
    HRESULT _error = S_OK;
    D2D1_TAG _errorTags[2] = {0, 0};
};

} // namespace lumivora::direct2d
