// SPDX-License-Identifier: Apache-2.0
// Bitmaps of the portable Direct2D: pixels in memory.
#pragma once

#include "direct2d/ComPtr.h"
#include "direct2d/portable/ComObject.h"

#include <opencv2/core.hpp>

#include <d2d1_1.h>

namespace lumivora::direct2d {

class Bitmap final
    : public ComObject<ID2D1Bitmap1, ID2D1Bitmap, ID2D1Image, ID2D1Resource, IUnknown>
{
public:
    /** The largest width and height, pixels: what every device of feature level 11 offers. */
    static constexpr UINT32 kMaximumSize = 16384;

    /** Creates a bitmap for contexts of one device.
     *  @param pixels  rows of pitch bytes, or null for a bitmap filled with zeros
     *  @return E_INVALIDARG for a size of zero, a pitch below width * 4, flags that exclude each
     *          other, a colour context or a resolution other than 96 DPI;
     *          D2DERR_EXCEEDS_MAX_BITMAP_SIZE; D2DERR_UNSUPPORTED_PIXEL_FORMAT; E_OUTOFMEMORY */
    [[nodiscard]] static HRESULT create(ID2D1Device *device, D2D1_SIZE_U size, const void *pixels,
                                        UINT32 pitch, const D2D1_BITMAP_PROPERTIES1 &properties,
                                        ComPtr<ID2D1Bitmap1> &bitmap) noexcept;

    /** The bitmap behind an interface; null when the image is another kind of image. */
    [[nodiscard]] static Bitmap *from(ID2D1Image *image) noexcept;

    /** height x width x 4 bytes, in the order of the pixel format. */
    [[nodiscard]] cv::Mat &pixels() noexcept { return _pixels; }
    [[nodiscard]] ID2D1Device *device() const noexcept { return _device.get(); }
    [[nodiscard]] bool has(D2D1_BITMAP_OPTIONS option) const noexcept
    {
        return (_options & option) != 0;
    }

    void STDMETHODCALLTYPE GetFactory(ID2D1Factory **factory) const noexcept override;
    D2D1_SIZE_F STDMETHODCALLTYPE GetSize() const noexcept override;
    D2D1_SIZE_U STDMETHODCALLTYPE GetPixelSize() const noexcept override;
    D2D1_PIXEL_FORMAT STDMETHODCALLTYPE GetPixelFormat() const noexcept override;
    void STDMETHODCALLTYPE GetDpi(FLOAT *dpiX, FLOAT *dpiY) const noexcept override;
    HRESULT STDMETHODCALLTYPE CopyFromBitmap(const D2D1_POINT_2U *destPoint, ID2D1Bitmap *bitmap,
                                             const D2D1_RECT_U *srcRect) noexcept override;
    HRESULT STDMETHODCALLTYPE CopyFromRenderTarget(const D2D1_POINT_2U *destPoint,
                                                   ID2D1RenderTarget *renderTarget,
                                                   const D2D1_RECT_U *srcRect) noexcept override;
    HRESULT STDMETHODCALLTYPE CopyFromMemory(const D2D1_RECT_U *dstRect, const void *srcData,
                                             UINT32 pitch) noexcept override;
    D2D1_BITMAP_OPTIONS STDMETHODCALLTYPE GetOptions() const noexcept override;
    HRESULT STDMETHODCALLTYPE Map(D2D1_MAP_OPTIONS options,
                                  D2D1_MAPPED_RECT *mappedRect) noexcept override;
    HRESULT STDMETHODCALLTYPE Unmap() noexcept override;

private:
    Bitmap(ID2D1Device *device, const D2D1_BITMAP_PROPERTIES1 &properties) noexcept;
    ~Bitmap() override = default;

    ComPtr<ID2D1Device> _device;
    D2D1_PIXEL_FORMAT _format;
    D2D1_BITMAP_OPTIONS _options;
    cv::Mat _pixels;
    bool _mapped = false;
};

} // namespace lumivora::direct2d
