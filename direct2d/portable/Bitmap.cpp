// SPDX-License-Identifier: Apache-2.0
#include "direct2d/portable/Bitmap.h"

#include "direct2d/portable/DeviceContext.h"

namespace lumivora::direct2d {

namespace {

constexpr UINT32 kBytesPerPixel = 4;

bool isResolutionSupported(FLOAT dpi)
{
    return dpi == 0.0F || dpi == 96.0F;
}

bool areOptionsSupported(D2D1_BITMAP_OPTIONS options)
{
    constexpr UINT32 kKnown =
        D2D1_BITMAP_OPTIONS_TARGET | D2D1_BITMAP_OPTIONS_CANNOT_DRAW | D2D1_BITMAP_OPTIONS_CPU_READ;
    if ((options & ~kKnown) != 0) {
        return false;
    }
    // What the processor reads can neither be drawn nor be drawn on.
    return (options & D2D1_BITMAP_OPTIONS_CPU_READ) == 0 ||
           options == (D2D1_BITMAP_OPTIONS_CPU_READ | D2D1_BITMAP_OPTIONS_CANNOT_DRAW);
}

bool isFormatSupported(const D2D1_PIXEL_FORMAT &format)
{
    return (format.format == DXGI_FORMAT_B8G8R8A8_UNORM ||
            format.format == DXGI_FORMAT_R8G8B8A8_UNORM) &&
           format.alphaMode == D2D1_ALPHA_MODE_PREMULTIPLIED;
}

// The rectangle within an area of that size, or an empty one when it is not.
cv::Rect within(const D2D1_RECT_U *rect, const cv::Size &size)
{
    if (rect == nullptr) {
        return {{0, 0}, size};
    }
    const auto width = static_cast<UINT32>(size.width);
    const auto height = static_cast<UINT32>(size.height);
    if (rect->left >= rect->right || rect->top >= rect->bottom || rect->right > width ||
        rect->bottom > height) {
        return {};
    }
    return {static_cast<int>(rect->left), static_cast<int>(rect->top),
            static_cast<int>(rect->right - rect->left), static_cast<int>(rect->bottom - rect->top)};
}

} // namespace

HRESULT Bitmap::create(ID2D1Device *device, D2D1_SIZE_U size, const void *pixels, UINT32 pitch,
                       const D2D1_BITMAP_PROPERTIES1 &properties,
                       ComPtr<ID2D1Bitmap1> &bitmap) noexcept
{
    bitmap = nullptr;
    if (!isFormatSupported(properties.pixelFormat)) {
        return D2DERR_UNSUPPORTED_PIXEL_FORMAT;
    }
    if (size.width > kMaximumSize || size.height > kMaximumSize) {
        return D2DERR_EXCEEDS_MAX_BITMAP_SIZE;
    }
    if (size.width == 0 || size.height == 0 || !areOptionsSupported(properties.bitmapOptions) ||
        !isResolutionSupported(properties.dpiX) || !isResolutionSupported(properties.dpiY) ||
        properties.colorContext != nullptr ||
        (pixels != nullptr && pitch < size.width * kBytesPerPixel)) {
        return E_INVALIDARG;
    }
    return guarded([&] {
        ComPtr<ID2D1Bitmap1> result;
        auto *const created = new Bitmap(device, properties);
        result.attach(created);
        const auto rows = static_cast<int>(size.height);
        const auto columns = static_cast<int>(size.width);
        created->_pixels.create(rows, columns, CV_8UC4);
        if (pixels == nullptr) {
            created->_pixels.setTo(0);
        } else {
            // Only read from; the wrapper has no constant form.
            cv::Mat(rows, columns, CV_8UC4, const_cast<void *>(pixels), pitch)
                .copyTo(created->_pixels);
        }
        bitmap = std::move(result);
        return S_OK;
    });
}

Bitmap::Bitmap(ID2D1Device *device, const D2D1_BITMAP_PROPERTIES1 &properties) noexcept
    : _device(device), _format(properties.pixelFormat), _options(properties.bitmapOptions)
{}

Bitmap *Bitmap::from(ID2D1Image *image) noexcept
{
    return dynamic_cast<Bitmap *>(image);
}

void Bitmap::GetFactory(ID2D1Factory **factory) const noexcept
{
    _device->GetFactory(factory);
}

D2D1_SIZE_F Bitmap::GetSize() const noexcept
{
    return {static_cast<float>(_pixels.cols), static_cast<float>(_pixels.rows)};
}

D2D1_SIZE_U Bitmap::GetPixelSize() const noexcept
{
    return {static_cast<UINT32>(_pixels.cols), static_cast<UINT32>(_pixels.rows)};
}

D2D1_PIXEL_FORMAT Bitmap::GetPixelFormat() const noexcept
{
    return _format;
}

void Bitmap::GetDpi(FLOAT *dpiX, FLOAT *dpiY) const noexcept
{
    *dpiX = 96.0F;
    *dpiY = 96.0F;
}

HRESULT Bitmap::CopyFromBitmap(const D2D1_POINT_2U *destPoint, ID2D1Bitmap *bitmap,
                               const D2D1_RECT_U *srcRect) noexcept
{
    Bitmap *const source = from(bitmap);
    if (source == nullptr || source == this) {
        return E_INVALIDARG;
    }
    if (source->_device != _device) {
        return D2DERR_WRONG_RESOURCE_DOMAIN;
    }
    if (_mapped || source->_mapped) {
        return D2DERR_WRONG_STATE;
    }
    if (source->_format.format != _format.format) {
        return D2DERR_UNSUPPORTED_PIXEL_FORMAT;
    }
    const cv::Rect area = within(srcRect, source->_pixels.size());
    const D2D1_POINT_2U point = destPoint != nullptr ? *destPoint : D2D1_POINT_2U{0, 0};
    const D2D1_SIZE_U size = GetPixelSize();
    if (area.empty() || point.x > size.width || point.y > size.height ||
        static_cast<UINT32>(area.width) > size.width - point.x ||
        static_cast<UINT32>(area.height) > size.height - point.y) {
        return E_INVALIDARG;
    }
    return guarded([&] {
        const cv::Point origin(static_cast<int>(point.x), static_cast<int>(point.y));
        source->_pixels(area).copyTo(_pixels(cv::Rect(origin, area.size())));
        return S_OK;
    });
}

HRESULT Bitmap::CopyFromRenderTarget(const D2D1_POINT_2U *destPoint,
                                     ID2D1RenderTarget *renderTarget,
                                     const D2D1_RECT_U *srcRect) noexcept
{
    auto *const context = dynamic_cast<DeviceContext *>(renderTarget);
    if (context == nullptr) {
        return E_INVALIDARG;
    }
    if (context->target() == nullptr) {
        return D2DERR_WRONG_STATE;
    }
    return CopyFromBitmap(destPoint, context->target(), srcRect);
}

HRESULT Bitmap::CopyFromMemory(const D2D1_RECT_U *dstRect, const void *srcData,
                               UINT32 pitch) noexcept
{
    const cv::Rect area = within(dstRect, _pixels.size());
    // What the processor may read is filled by the device alone.
    if (srcData == nullptr || area.empty() || has(D2D1_BITMAP_OPTIONS_CPU_READ) ||
        pitch < static_cast<UINT32>(area.width) * kBytesPerPixel) {
        return E_INVALIDARG;
    }
    return guarded([&] {
        cv::Mat(area.size(), CV_8UC4, const_cast<void *>(srcData), pitch).copyTo(_pixels(area));
        return S_OK;
    });
}

D2D1_BITMAP_OPTIONS Bitmap::GetOptions() const noexcept
{
    return _options;
}

HRESULT Bitmap::Map(D2D1_MAP_OPTIONS options, D2D1_MAPPED_RECT *mappedRect) noexcept
{
    if (mappedRect == nullptr || options != D2D1_MAP_OPTIONS_READ ||
        !has(D2D1_BITMAP_OPTIONS_CPU_READ)) {
        return E_INVALIDARG;
    }
    if (_mapped) {
        return D2DERR_WRONG_STATE;
    }
    _mapped = true;
    *mappedRect = {static_cast<UINT32>(_pixels.step[0]), _pixels.data};
    return S_OK;
}

HRESULT Bitmap::Unmap() noexcept
{
    if (!_mapped) {
        return D2DERR_WRONG_STATE;
    }
    _mapped = false;
    return S_OK;
}

} // namespace lumivora::direct2d
