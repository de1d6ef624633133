// SPDX-License-Identifier: Apache-2.0
#include "vcam/capture/windows/SampleGrabberCallback.h"

#include "vcam/capture/SampleRows.h"
#include "vcam/capture/windows/MediaType.h"

#include <cstdlib>

namespace lumivora {

int bitsOfSubtype(const GUID &subtype)
{
    if (subtype == MEDIASUBTYPE_ARGB32 || subtype == MEDIASUBTYPE_RGB32) {
        return 32;
    }
    return subtype == MEDIASUBTYPE_RGB24 ? 24 : 0;
}

SampleGrabberCallback::SampleGrabberCallback(ISampleGrabber &grabber, BasicSampleGrabberCB &samples)
    : _grabber(grabber), _samples(samples)
{}

HRESULT SampleGrabberCallback::QueryInterface(REFIID id, void **object)
{
    if (object == nullptr) {
        return E_POINTER;
    }
    if (id == __uuidof(IUnknown) || id == __uuidof(ISampleGrabberCB)) {
        *object = static_cast<ISampleGrabberCB *>(this);
        AddRef();
        return S_OK;
    }
    *object = nullptr;
    return E_NOINTERFACE;
}

ULONG SampleGrabberCallback::AddRef()
{
    return ++_references;
}

ULONG SampleGrabberCallback::Release()
{
    const ULONG left = --_references;
    if (left == 0) {
        delete this;
    }
    return left;
}

HRESULT SampleGrabberCallback::SampleCB(double /*time*/, IMediaSample *sample)
{
    // Whatever happens to a sample, the stream goes on: the answer is always success.
    BYTE *data = nullptr;
    MediaType type;
    if (sample == nullptr || FAILED(sample->GetPointer(&data)) ||
        FAILED(_grabber.GetConnectedMediaType(type.put()))) {
        return S_OK;
    }
    const BITMAPINFOHEADER *bitmap = type.bitmap();
    const int bits = bitsOfSubtype(type->subtype);
    if (bitmap == nullptr || bits == 0) {
        return S_OK;
    }
    const SampleOutline outline{
        .size = QSize(bitmap->biWidth, std::abs(bitmap->biHeight)),
        .bitsPerPixel = bits,
        .bytes = sample->GetActualDataLength(),
    };
    const PixelRows rows{
        .pixels = data,
        .bytes = outline.bytes,
        .stride = (qsizetype{bitmap->biWidth} * bits + 31) / 32 * 4,
    };
    const bool bottomUp = bitmap->biHeight > 0;
    _samples.onSample(outline, [&rows, bottomUp](QImage &image, bool topDown) {
        return copyRows(rows, image, topDown == bottomUp);
    });
    return S_OK;
}

HRESULT SampleGrabberCallback::BufferCB(double /*time*/, BYTE * /*buffer*/, LONG /*length*/)
{
    return E_NOTIMPL; // the grabber is told to call SampleCB
}

} // namespace lumivora
