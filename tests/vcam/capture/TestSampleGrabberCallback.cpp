// SPDX-License-Identifier: Apache-2.0
#include "vcam/capture/windows/SampleGrabberCallback.h"

#include "direct2d/ComPtr.h"

#include <gtest/gtest.h>

#include <cstring>
#include <optional>

#include <dshow.h>

// What the tests make lives on the stack.
#pragma GCC diagnostic ignored "-Wnon-virtual-dtor"

using namespace lumivora;

namespace {

constexpr LONG kWidth = 4;
constexpr LONG kHeight = 2;
constexpr LONG kBytes = kWidth * kHeight * 4;

/** A grabber filter that says what it is connected with and nothing else. */
class ConnectedGrabber final : public ISampleGrabber
{
public:
    ConnectedGrabber()
    {
        header.bmiHeader.biSize = sizeof(BITMAPINFOHEADER);
        header.bmiHeader.biWidth = kWidth;
        header.bmiHeader.biHeight = kHeight;
    }

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID, void **) override { return E_NOINTERFACE; }
    ULONG STDMETHODCALLTYPE AddRef() override { return 1; }
    ULONG STDMETHODCALLTYPE Release() override { return 1; }
    HRESULT STDMETHODCALLTYPE SetOneShot(WINBOOL) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE SetMediaType(const AM_MEDIA_TYPE *) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetConnectedMediaType(AM_MEDIA_TYPE *type) override
    {
        *type = {};
        type->majortype = MEDIATYPE_Video;
        type->subtype = subtype;
        type->formattype = FORMAT_VideoInfo;
        type->cbFormat = formatBytes;
        type->pbFormat = static_cast<BYTE *>(CoTaskMemAlloc(sizeof(header)));
        std::memcpy(type->pbFormat, &header, sizeof(header));
        return answer;
    }
    HRESULT STDMETHODCALLTYPE SetBufferSamples(WINBOOL) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetCurrentBuffer(LONG *, LONG *) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetCurrentSample(IMediaSample **) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE SetCallback(ISampleGrabberCB *, LONG) override { return E_NOTIMPL; }

    VIDEOINFOHEADER header{};
    ULONG formatBytes = sizeof(VIDEOINFOHEADER);
    GUID subtype = MEDIASUBTYPE_ARGB32;
    HRESULT answer = S_OK;
};

/** Keeps the last sample's outline. */
class LastSample final : public BasicSampleGrabberCB
{
public:
    void onSample(const SampleOutline &taken, const SampleWriter & /*write*/) noexcept override
    {
        outline = taken;
    }
    std::optional<SampleOutline> outline;
};

class Callback : public testing::Test
{
protected:
    Callback()
    {
        CoInitializeEx(nullptr, COINIT_MULTITHREADED);
        ALLOCATOR_PROPERTIES wanted{1, kBytes, 1, 0};
        ALLOCATOR_PROPERTIES actual{};
        CoCreateInstance(CLSID_MemoryAllocator, nullptr, CLSCTX_INPROC_SERVER,
                         __uuidof(IMemAllocator), allocator.putVoid());
        allocator->SetProperties(&wanted, &actual);
        allocator->Commit();
        allocator->GetBuffer(sample.put(), nullptr, nullptr, 0);
        callback.attach(new SampleGrabberCallback(grabber, samples));
    }
    ~Callback() override
    {
        callback = nullptr;
        sample = nullptr;
        allocator = nullptr;
        CoUninitialize();
    }

    /** Whether a sample is handed on; the platform is told success in any case. */
    [[nodiscard]] bool isHandedOn()
    {
        samples.outline.reset();
        EXPECT_EQ(callback->SampleCB(0.0, sample.get()), S_OK);
        return samples.outline.has_value();
    }

    ConnectedGrabber grabber;
    LastSample samples;
    ComPtr<IMemAllocator> allocator;
    ComPtr<IMediaSample> sample;
    ComPtr<ISampleGrabberCB> callback;
};

} // namespace

TEST_F(Callback, sample_videoInformation_outlineOfIt)
{
    sample->SetActualDataLength(kBytes);
    ASSERT_TRUE(isHandedOn());
    EXPECT_EQ(samples.outline->size, QSize(kWidth, kHeight));
    EXPECT_EQ(samples.outline->bitsPerPixel, 32);
    EXPECT_EQ(samples.outline->bytes, kBytes);

    grabber.header.bmiHeader.biHeight = -kHeight; // top row first
    grabber.subtype = MEDIASUBTYPE_RGB24;
    ASSERT_TRUE(isHandedOn());
    EXPECT_EQ(samples.outline->size, QSize(kWidth, kHeight));
    EXPECT_EQ(samples.outline->bitsPerPixel, 24);
}

TEST_F(Callback, sample_formatBlockBelow88Bytes_dropped)
{
    static_assert(sizeof(VIDEOINFOHEADER) == 88);
    grabber.formatBytes = 87;
    EXPECT_FALSE(isHandedOn());
    grabber.formatBytes = 88;
    EXPECT_TRUE(isHandedOn());
}

TEST_F(Callback, sample_connectionUnknown_dropped)
{
    grabber.subtype = MEDIASUBTYPE_YUY2;
    EXPECT_FALSE(isHandedOn());
    grabber.subtype = MEDIASUBTYPE_RGB32;
    grabber.answer = VFW_E_NOT_CONNECTED;
    EXPECT_FALSE(isHandedOn());
    EXPECT_EQ(callback->SampleCB(0.0, nullptr), S_OK);
}

TEST_F(Callback, references_queryInterface_countedOnTheObject)
{
    EXPECT_TRUE(callback.query<IUnknown>());
    EXPECT_TRUE(callback.query<ISampleGrabberCB>());
    EXPECT_FALSE(callback.query<IMediaSample>());
    EXPECT_EQ(callback->AddRef(), 2U);
    EXPECT_EQ(callback->Release(), 1U);
    EXPECT_EQ(callback->QueryInterface(__uuidof(IUnknown), nullptr), E_POINTER);
}

TEST(BitsOfSubtype, bits_knownAndUnknownSubtypes_32Or24OrUnset)
{
    EXPECT_EQ(bitsOfSubtype(MEDIASUBTYPE_ARGB32), 32);
    EXPECT_EQ(bitsOfSubtype(MEDIASUBTYPE_RGB32), 32);
    EXPECT_EQ(bitsOfSubtype(MEDIASUBTYPE_RGB24), 24);
    EXPECT_EQ(bitsOfSubtype(MEDIASUBTYPE_YUY2), 0);
}
