// SPDX-License-Identifier: Apache-2.0
// What DirectShow's sample grabber calls.
#pragma once

#include "vcam/capture/CaptureGraph.h"

#include <atomic>

#include <windows.h>

#include <qedit.h>

namespace lumivora {

/** Bits per pixel of the image that a connected media subtype becomes; 0 for another one. */
[[nodiscard]] int bitsOfSubtype(const GUID &subtype);

// The last Release() destroys it as what it is.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wnon-virtual-dtor"

/** Hands the grabber filter's samples on. @thread thread-safe */
class SampleGrabberCallback final : public ISampleGrabberCB
{
public:
    /** @param grabber  calls this object, and lives as long as it does so */
    SampleGrabberCallback(ISampleGrabber &grabber, BasicSampleGrabberCB &samples);

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID id, void **object) override;
    ULONG STDMETHODCALLTYPE AddRef() override;
    ULONG STDMETHODCALLTYPE Release() override;

    HRESULT STDMETHODCALLTYPE SampleCB(double time, IMediaSample *sample) override;
    HRESULT STDMETHODCALLTYPE BufferCB(double time, BYTE *buffer, LONG length) override;

private:
    ~SampleGrabberCallback() = default;

    std::atomic<ULONG> _references{1};
    ISampleGrabber &_grabber;
    BasicSampleGrabberCB &_samples;
};

#pragma GCC diagnostic pop

} // namespace lumivora
