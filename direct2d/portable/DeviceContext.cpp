// SPDX-License-Identifier: Apache-2.0
#include "direct2d/portable/DeviceContext.h"

#include "direct2d/portable/Blend.h"
#include "direct2d/portable/Effect.h"

#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cmath>

namespace lumivora::direct2d {

namespace {

// Beyond it a float has no fractions left, and no bitmap reaches that far.
constexpr float kFarthestOffset = 1 << 22;

BlendRow blendRow(D2D1_PRIMITIVE_BLEND blend)
{
    return blend == D2D1_PRIMITIVE_BLEND_MAX ? &blendMax : &blendSourceOver;
}

// The part of an image to draw, in whole pixels.
HRESULT imageArea(const D2D1_RECT_F *rectangle, const cv::Size &size, cv::Rect &area)
{
    area = {{0, 0}, size};
    if (rectangle == nullptr) {
        return S_OK;
    }
    for (const float edge :
         {rectangle->left, rectangle->top, rectangle->right, rectangle->bottom}) {
        if (!(std::abs(edge) < kFarthestOffset) || std::floor(edge) != edge) {
            return E_INVALIDARG;
        }
    }
    const cv::Point topLeft(static_cast<int>(rectangle->left), static_cast<int>(rectangle->top));
    const cv::Point bottomRight(static_cast<int>(rectangle->right),
                                static_cast<int>(rectangle->bottom));
    if (bottomRight.x < topLeft.x || bottomRight.y < topLeft.y) {
        return E_INVALIDARG;
    }
    area &= cv::Rect(topLeft, bottomRight);
    return S_OK;
}

// Moves premultiplied pixels by a fraction of a pixel to the right and down, linearly
// interpolated; what lies outside is transparent, so the result is one larger each way.
cv::Mat shifted(const cv::Mat &pixels, float x, float y)
{
    cv::Mat padded;
    cv::copyMakeBorder(pixels, padded, 1, 1, 1, 1, cv::BORDER_CONSTANT, cv::Scalar::all(0));
    cv::Mat exact;
    padded.convertTo(exact, CV_32F);
    const cv::Mat kernelX = (cv::Mat_<float>(1, 2) << x, 1.0F - x);
    const cv::Mat kernelY = (cv::Mat_<float>(2, 1) << y, 1.0F - y);
    cv::Mat filtered;
    cv::sepFilter2D(exact, filtered, CV_32F, kernelX, kernelY, cv::Point(1, 1), 0.0,
                    cv::BORDER_ISOLATED | cv::BORDER_REPLICATE);
    cv::Mat result;
    filtered(cv::Rect(1, 1, pixels.cols + 1, pixels.rows + 1)).convertTo(result, CV_8U);
    return result;
}

} // namespace

void DeviceContext::GetFactory(ID2D1Factory **factory) const noexcept
{
    _device->GetFactory(factory);
}

void DeviceContext::SetTags(D2D1_TAG tag1, D2D1_TAG tag2) noexcept
{
    _tags[0] = tag1;
    _tags[1] = tag2;
}

void DeviceContext::GetTags(D2D1_TAG *tag1, D2D1_TAG *tag2) const noexcept
{
    if (tag1 != nullptr) {
        *tag1 = _tags[0];
    }
    if (tag2 != nullptr) {
        *tag2 = _tags[1];
    }
}

void DeviceContext::fail(HRESULT error) noexcept
{
    if (SUCCEEDED(_error)) {
        _error = error;
        std::copy_n(_tags, 2, _errorTags);
    }
}

bool DeviceContext::canDraw() noexcept
{
    if (!_drawing || !_target) {
        fail(D2DERR_WRONG_STATE);
    }
    return SUCCEEDED(_error);
}

void DeviceContext::BeginDraw() noexcept
{
    if (_drawing) {
        fail(D2DERR_WRONG_STATE);
    }
    _drawing = true;
}

HRESULT DeviceContext::EndDraw(D2D1_TAG *tag1, D2D1_TAG *tag2) noexcept
{
    if (!_drawing) {
        fail(D2DERR_WRONG_STATE);
    }
    const HRESULT result = _error;
    if (tag1 != nullptr) {
        *tag1 = _errorTags[0];
    }
    if (tag2 != nullptr) {
        *tag2 = _errorTags[1];
    }
    _drawing = false;
    _error = S_OK;
    std::fill_n(_errorTags, 2, D2D1_TAG{0});
    return result;
}

void DeviceContext::Clear(const D2D1_COLOR_F *clearColor) noexcept
{
    if (!canDraw()) {
        return;
    }
    const D2D1_COLOR_F color = clearColor != nullptr ? *clearColor : D2D1_COLOR_F{0, 0, 0, 0};
    const auto alpha = std::clamp(static_cast<double>(color.a), 0.0, 1.0);
    const auto channel = [alpha](float value) {
        return std::round(std::clamp(static_cast<double>(value), 0.0, 1.0) * alpha * 255.0);
    };
    cv::Scalar pixel(channel(color.b), channel(color.g), channel(color.r),
                     std::round(alpha * 255.0));
    if (_target->GetPixelFormat().format == DXGI_FORMAT_R8G8B8A8_UNORM) {
        std::swap(pixel[0], pixel[2]);
    }
    const HRESULT result = guarded([&] {
        _target->pixels().setTo(pixel);
        return S_OK;
    });
    if (FAILED(result)) {
        fail(result);
    }
}

D2D1_PIXEL_FORMAT DeviceContext::GetPixelFormat() const noexcept
{
    return _target ? _target->GetPixelFormat()
                   : D2D1_PIXEL_FORMAT{DXGI_FORMAT_UNKNOWN, D2D1_ALPHA_MODE_UNKNOWN};
}

void DeviceContext::GetDpi(FLOAT *dpiX, FLOAT *dpiY) const noexcept
{
    *dpiX = 96.0F;
    *dpiY = 96.0F;
}

D2D1_SIZE_F DeviceContext::GetSize() const noexcept
{
    return _target ? _target->GetSize() : D2D1_SIZE_F{0, 0};
}

D2D1_SIZE_U DeviceContext::GetPixelSize() const noexcept
{
    return _target ? _target->GetPixelSize() : D2D1_SIZE_U{0, 0};
}

UINT32 DeviceContext::GetMaximumBitmapSize() const noexcept
{
    return Bitmap::kMaximumSize;
}

HRESULT DeviceContext::CreateBitmap(D2D1_SIZE_U size, const void *sourceData, UINT32 pitch,
                                    const D2D1_BITMAP_PROPERTIES1 *bitmapProperties,
                                    ID2D1Bitmap1 **bitmap) noexcept
{
    if (bitmap == nullptr) {
        return E_INVALIDARG;
    }
    *bitmap = nullptr;
    if (bitmapProperties == nullptr) {
        return E_INVALIDARG;
    }
    ComPtr<ID2D1Bitmap1> created;
    const HRESULT result =
        Bitmap::create(_device.get(), size, sourceData, pitch, *bitmapProperties, created);
    *bitmap = created.detach();
    return result;
}

HRESULT DeviceContext::CreateEffect(REFCLSID effectId, ID2D1Effect **effect) noexcept
{
    if (effect == nullptr) {
        return E_INVALIDARG;
    }
    ComPtr<ID2D1Effect> created;
    const HRESULT result = Effect::create(_device.get(), effectId, created);
    *effect = created.detach();
    return result;
}

void DeviceContext::GetDevice(ID2D1Device **device) const noexcept
{
    *device = ComPtr(_device).detach();
}

void DeviceContext::SetTarget(ID2D1Image *image) noexcept
{
    Bitmap *const bitmap = Bitmap::from(image);
    if (image != nullptr && (bitmap == nullptr || !bitmap->has(D2D1_BITMAP_OPTIONS_TARGET))) {
        fail(D2DERR_INVALID_TARGET);
        return;
    }
    if (bitmap != nullptr && bitmap->device() != _device.get()) {
        fail(D2DERR_WRONG_RESOURCE_DOMAIN);
        return;
    }
    _target = ComPtr<Bitmap>(bitmap);
}

void DeviceContext::GetTarget(ID2D1Image **image) const noexcept
{
    *image = ComPtr(_target).detach();
}

void DeviceContext::SetPrimitiveBlend(D2D1_PRIMITIVE_BLEND primitiveBlend) noexcept
{
    if (primitiveBlend != D2D1_PRIMITIVE_BLEND_SOURCE_OVER &&
        primitiveBlend != D2D1_PRIMITIVE_BLEND_MAX) {
        fail(E_INVALIDARG);
        return;
    }
    _primitiveBlend = primitiveBlend;
}

D2D1_PRIMITIVE_BLEND DeviceContext::GetPrimitiveBlend() const noexcept
{
    return _primitiveBlend;
}

void DeviceContext::DrawImage(ID2D1Image *image, const D2D1_POINT_2F *targetOffset,
                              const D2D1_RECT_F *imageRectangle,
                              D2D1_INTERPOLATION_MODE interpolationMode,
                              D2D1_COMPOSITE_MODE compositeMode) noexcept
{
    if (!canDraw()) {
        return;
    }
    const D2D1_POINT_2F offset = targetOffset != nullptr ? *targetOffset : D2D1_POINT_2F{0, 0};
    if (image == nullptr || compositeMode != D2D1_COMPOSITE_MODE_SOURCE_OVER ||
        (interpolationMode != D2D1_INTERPOLATION_MODE_LINEAR &&
         interpolationMode != D2D1_INTERPOLATION_MODE_NEAREST_NEIGHBOR) ||
        !std::isfinite(offset.x) || !std::isfinite(offset.y)) {
        fail(E_INVALIDARG);
        return;
    }
    const HRESULT result = draw(image, offset, imageRectangle, interpolationMode);
    if (FAILED(result)) {
        fail(result);
    }
}

HRESULT DeviceContext::draw(ID2D1Image *image, const D2D1_POINT_2F &offset,
                            const D2D1_RECT_F *imageRectangle,
                            D2D1_INTERPOLATION_MODE interpolationMode) noexcept
{
    Bitmap *const bitmap = Bitmap::from(image);
    if (bitmap == nullptr) {
        return E_NOTIMPL;
    }
    if (bitmap->device() != _device.get()) {
        return D2DERR_WRONG_RESOURCE_DOMAIN;
    }
    if (bitmap->has(D2D1_BITMAP_OPTIONS_CANNOT_DRAW)) {
        return D2DERR_BITMAP_CANNOT_DRAW;
    }
    if (bitmap == _target.get()) {
        return D2DERR_BITMAP_BOUND_AS_TARGET;
    }
    return guarded([&] {
        cv::Rect area;
        if (const HRESULT result = imageArea(imageRectangle, bitmap->pixels().size(), area);
            FAILED(result)) {
            return result;
        }
        if (area.empty() || !(std::abs(offset.x) < kFarthestOffset) ||
            !(std::abs(offset.y) < kFarthestOffset)) {
            return S_OK;
        }
        // The rectangle's own corner comes to lie on the offset, even where the image, which it
        // may overhang, does not fill it.
        D2D1_POINT_2F corner = offset;
        if (imageRectangle != nullptr) {
            corner.x += static_cast<float>(area.x) - imageRectangle->left;
            corner.y += static_cast<float>(area.y) - imageRectangle->top;
        }
        cv::Mat source = bitmap->pixels()(area);
        if (bitmap->GetPixelFormat().format != _target->GetPixelFormat().format) {
            cv::Mat swapped;
            cv::cvtColor(source, swapped, cv::COLOR_BGRA2RGBA);
            source = swapped;
        }
        if (interpolationMode == D2D1_INTERPOLATION_MODE_NEAREST_NEIGHBOR) {
            // A pixel shows the source pixel that its centre falls into.
            corner = {std::ceil(corner.x - 0.5F), std::ceil(corner.y - 0.5F)};
        }
        const cv::Point origin(static_cast<int>(std::floor(corner.x)),
                               static_cast<int>(std::floor(corner.y)));
        const D2D1_POINT_2F fraction{corner.x - std::floor(corner.x),
                                     corner.y - std::floor(corner.y)};
        if (fraction.x != 0.0F || fraction.y != 0.0F) {
            source = shifted(source, fraction.x, fraction.y);
        }
        cv::Mat &target = _target->pixels();
        const cv::Rect visible = cv::Rect(origin, source.size()) & cv::Rect({0, 0}, target.size());
        const BlendRow blend = blendRow(_primitiveBlend);
        for (int y = visible.y; y < visible.y + visible.height; ++y) {
            blend(source.ptr(y - origin.y, visible.x - origin.x), target.ptr(y, visible.x),
                  static_cast<std::size_t>(visible.width));
        }
        return S_OK;
    });
}

} // namespace lumivora::direct2d
