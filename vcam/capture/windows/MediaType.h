// SPDX-License-Identifier: Apache-2.0
// Owner of DirectShow's media types.
#pragma once

#include <windows.h>

#include <dshow.h>
#include <dvdmedia.h>

#include <utility>

namespace lumivora {

/** A media type and the memory of its format block. @thread reentrant */
class MediaType
{
public:
    MediaType() = default;
    ~MediaType() { clear(); }

    MediaType(MediaType &&other) noexcept : _type(std::exchange(other._type, {})) {}
    MediaType &operator=(MediaType &&other) noexcept
    {
        std::swap(_type, other._type);
        return *this;
    }

    /** Takes over a type that a function has allocated, structure included. */
    static MediaType adopt(AM_MEDIA_TYPE *allocated)
    {
        MediaType type;
        type._type = *allocated;
        CoTaskMemFree(allocated);
        return type;
    }

    /** Clears, then gives the place for a function's result. */
    [[nodiscard]] AM_MEDIA_TYPE *put()
    {
        clear();
        return &_type;
    }
    [[nodiscard]] AM_MEDIA_TYPE *get() { return &_type; }
    [[nodiscard]] const AM_MEDIA_TYPE *operator->() const { return &_type; }

    /** The picture's description; null when it is no video or its block is too short to hold one.
     */
    [[nodiscard]] const BITMAPINFOHEADER *bitmap() const
    {
        if (_type.pbFormat == nullptr) {
            return nullptr;
        }
        if (_type.formattype == FORMAT_VideoInfo && _type.cbFormat >= sizeof(VIDEOINFOHEADER)) {
            return &reinterpret_cast<const VIDEOINFOHEADER *>(_type.pbFormat)->bmiHeader;
        }
        if (_type.formattype == FORMAT_VideoInfo2 && _type.cbFormat >= sizeof(VIDEOINFOHEADER2)) {
            return &reinterpret_cast<const VIDEOINFOHEADER2 *>(_type.pbFormat)->bmiHeader;
        }
        return nullptr;
    }

private:
    void clear()
    {
        CoTaskMemFree(_type.pbFormat);
        if (_type.pUnk != nullptr) {
            _type.pUnk->Release();
        }
        _type = {};
    }

    AM_MEDIA_TYPE _type{};
};

} // namespace lumivora
