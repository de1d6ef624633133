// SPDX-License-Identifier: Apache-2.0
#include "tests/vcam/capture/DirectShowCamera.h"

#include "direct2d/ComPtr.h"

#include <cstring>
#include <string>
#include <thread>

#include <dvdmedia.h>
#include <ks.h>
#include <ksmedia.h>
#include <ksproxy.h>

// COM objects are destroyed by their last Release() as what they are.
#pragma GCC diagnostic ignored "-Wnon-virtual-dtor"
#pragma GCC diagnostic ignored "-Wdelete-non-virtual-dtor"

namespace lumivora::test {

namespace {

AM_MEDIA_TYPE *newMediaType(const CameraFormat &format)
{
    auto *type = static_cast<AM_MEDIA_TYPE *>(CoTaskMemAlloc(sizeof(AM_MEDIA_TYPE)));
    *type = {};
    type->majortype = MEDIATYPE_Video;
    type->subtype = format.subtype;
    type->bFixedSizeSamples = TRUE;
    type->lSampleSize = static_cast<ULONG>(format.bytes());
    type->formattype = FORMAT_VideoInfo;
    type->cbFormat = sizeof(VIDEOINFOHEADER);
    type->pbFormat = static_cast<BYTE *>(CoTaskMemAlloc(sizeof(VIDEOINFOHEADER)));
    VIDEOINFOHEADER header{};
    header.AvgTimePerFrame = 333333;
    header.bmiHeader.biSize = sizeof(BITMAPINFOHEADER);
    header.bmiHeader.biWidth = format.width;
    header.bmiHeader.biHeight = format.height;
    header.bmiHeader.biPlanes = 1;
    header.bmiHeader.biBitCount = format.bits;
    header.bmiHeader.biSizeImage = type->lSampleSize;
    if (format.subtype == MEDIASUBTYPE_YUY2) {
        header.bmiHeader.biCompression = format.subtype.Data1;
    }
    std::memcpy(type->pbFormat, &header, sizeof(header));
    return type;
}

void deleteMediaType(AM_MEDIA_TYPE *type)
{
    CoTaskMemFree(type->pbFormat);
    CoTaskMemFree(type);
}

bool describes(const AM_MEDIA_TYPE &type, const CameraFormat &format)
{
    if (type.subtype != format.subtype || type.formattype != FORMAT_VideoInfo ||
        type.cbFormat < sizeof(VIDEOINFOHEADER)) {
        return false;
    }
    const auto &bitmap = reinterpret_cast<const VIDEOINFOHEADER *>(type.pbFormat)->bmiHeader;
    return bitmap.biWidth == format.width && bitmap.biHeight == format.height;
}

/** Lists a single thing. */
template <typename Interface, typename Item>
class SingleEnumerator final : public Interface
{
public:
    explicit SingleEnumerator(std::function<Item()> make, bool given = false)
        : _make(std::move(make)), _given(given)
    {}

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID id, void **object) override
    {
        if (id != __uuidof(IUnknown) && id != __uuidof(Interface)) {
            *object = nullptr;
            return E_NOINTERFACE;
        }
        *object = this;
        AddRef();
        return S_OK;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return ++_references; }
    ULONG STDMETHODCALLTYPE Release() override
    {
        const ULONG left = --_references;
        if (left == 0) {
            delete this;
        }
        return left;
    }
    HRESULT STDMETHODCALLTYPE Next(ULONG count, Item *items, ULONG *fetched) override
    {
        const bool one = count > 0 && !_given;
        if (one) {
            *items = _make();
            _given = true;
        }
        if (fetched != nullptr) {
            *fetched = one ? 1 : 0;
        }
        return one && count == 1 ? S_OK : S_FALSE;
    }
    HRESULT STDMETHODCALLTYPE Skip(ULONG /*count*/) override
    {
        _given = true;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE Reset() override
    {
        _given = false;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE Clone(Interface **copy) override
    {
        *copy = new SingleEnumerator(_make, _given);
        return S_OK;
    }

private:
    std::atomic<ULONG> _references{1};
    std::function<Item()> _make;
    bool _given;
};

class CameraFilter;

/** The camera's only pin, of the capture category. Its references are the filter's. */
class CameraPin final : public IPin, public IAMStreamConfig, public IKsPropertySet
{
public:
    CameraPin(CameraFilter &filter, CameraScript &script) : _filter(filter), _script(script) {}

    void start();
    void stop();
    [[nodiscard]] bool isConnected() const { return static_cast<bool>(_peer); }

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID id, void **object) override;
    ULONG STDMETHODCALLTYPE AddRef() override;
    ULONG STDMETHODCALLTYPE Release() override;

    HRESULT STDMETHODCALLTYPE Connect(IPin *peer, const AM_MEDIA_TYPE *type) override;
    HRESULT STDMETHODCALLTYPE ReceiveConnection(IPin *, const AM_MEDIA_TYPE *) override
    {
        return E_UNEXPECTED;
    }
    HRESULT STDMETHODCALLTYPE Disconnect() override
    {
        if (!_peer) {
            return S_FALSE;
        }
        _allocator = nullptr;
        _input = nullptr;
        _peer = nullptr;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE ConnectedTo(IPin **peer) override
    {
        *peer = ComPtr<IPin>(_peer).detach();
        return *peer != nullptr ? S_OK : VFW_E_NOT_CONNECTED;
    }
    HRESULT STDMETHODCALLTYPE ConnectionMediaType(AM_MEDIA_TYPE *type) override
    {
        if (!_peer) {
            *type = {};
            return VFW_E_NOT_CONNECTED;
        }
        AM_MEDIA_TYPE *made = newMediaType(format());
        *type = *made;
        CoTaskMemFree(made);
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE QueryPinInfo(PIN_INFO *info) override;
    HRESULT STDMETHODCALLTYPE QueryDirection(PIN_DIRECTION *direction) override
    {
        *direction = PINDIR_OUTPUT;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE QueryId(LPWSTR *id) override
    {
        *id = static_cast<LPWSTR>(CoTaskMemAlloc(sizeof(L"Capture")));
        std::memcpy(*id, L"Capture", sizeof(L"Capture"));
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE QueryAccept(const AM_MEDIA_TYPE *type) override
    {
        return describes(*type, format()) ? S_OK : S_FALSE;
    }
    HRESULT STDMETHODCALLTYPE EnumMediaTypes(IEnumMediaTypes **types) override
    {
        *types = new SingleEnumerator<IEnumMediaTypes, AM_MEDIA_TYPE *>(
            [chosen = format()] { return newMediaType(chosen); });
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE QueryInternalConnections(IPin **, ULONG *) override
    {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE EndOfStream() override { return E_UNEXPECTED; }
    HRESULT STDMETHODCALLTYPE BeginFlush() override { return E_UNEXPECTED; }
    HRESULT STDMETHODCALLTYPE EndFlush() override { return E_UNEXPECTED; }
    HRESULT STDMETHODCALLTYPE NewSegment(REFERENCE_TIME, REFERENCE_TIME, double) override
    {
        return S_OK;
    }

    HRESULT STDMETHODCALLTYPE SetFormat(AM_MEDIA_TYPE *type) override
    {
        for (std::size_t i = 0; i < _script.formats.size(); ++i) {
            if (describes(*type, _script.formats[i])) {
                _chosen = i;
                return S_OK;
            }
        }
        return VFW_E_INVALIDMEDIATYPE;
    }
    HRESULT STDMETHODCALLTYPE GetFormat(AM_MEDIA_TYPE **type) override
    {
        *type = newMediaType(format());
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetNumberOfCapabilities(int *count, int *size) override
    {
        *count = static_cast<int>(_script.formats.size());
        *size = sizeof(VIDEO_STREAM_CONFIG_CAPS);
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetStreamCaps(int index, AM_MEDIA_TYPE **type, BYTE *caps) override
    {
        if (index < 0 || index >= static_cast<int>(_script.formats.size())) {
            return S_FALSE;
        }
        *type = newMediaType(_script.formats[static_cast<std::size_t>(index)]);
        std::memset(caps, 0, sizeof(VIDEO_STREAM_CONFIG_CAPS));
        return S_OK;
    }

    HRESULT STDMETHODCALLTYPE Set(REFGUID, DWORD, void *, DWORD, void *, DWORD) override
    {
        return E_PROP_ID_UNSUPPORTED;
    }
    HRESULT STDMETHODCALLTYPE Get(REFGUID set, DWORD property, void * /*instance*/, DWORD /*bytes*/,
                                  void *data, DWORD size, DWORD *written) override
    {
        if (set != AMPROPSETID_Pin || property != AMPROPERTY_PIN_CATEGORY || size < sizeof(GUID)) {
            return E_PROP_ID_UNSUPPORTED;
        }
        std::memcpy(data, &PIN_CATEGORY_CAPTURE, sizeof(GUID));
        if (written != nullptr) {
            *written = sizeof(GUID);
        }
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE QuerySupported(REFGUID set, DWORD property, DWORD *support) override
    {
        if (set != AMPROPSETID_Pin || property != AMPROPERTY_PIN_CATEGORY) {
            return E_PROP_ID_UNSUPPORTED;
        }
        *support = KSPROPERTY_SUPPORT_GET;
        return S_OK;
    }

private:
    [[nodiscard]] const CameraFormat &format() const { return _script.formats[_chosen]; }
    void stream();

    CameraFilter &_filter;
    CameraScript &_script;
    std::size_t _chosen = 0;
    ComPtr<IPin> _peer;
    ComPtr<IMemInputPin> _input;
    ComPtr<IMemAllocator> _allocator;
    std::thread _thread;
    std::atomic<bool> _streaming = false;
};

class CameraFilter final : public IBaseFilter, public IAMVideoControl, public IAMVfwCaptureDialogs
{
public:
    explicit CameraFilter(std::shared_ptr<CameraScript> script)
        : _script(std::move(script)), _pin(*this, *_script)
    {}

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID id, void **object) override
    {
        if (id == __uuidof(IUnknown) || id == __uuidof(IPersist) || id == __uuidof(IMediaFilter) ||
            id == __uuidof(IBaseFilter)) {
            *object = static_cast<IBaseFilter *>(this);
        } else if (id == __uuidof(IAMVideoControl)) {
            *object = static_cast<IAMVideoControl *>(this);
        } else if (id == __uuidof(IAMVfwCaptureDialogs) && _script->oldDriverModel) {
            *object = static_cast<IAMVfwCaptureDialogs *>(this);
        } else {
            *object = nullptr;
            return E_NOINTERFACE;
        }
        AddRef();
        return S_OK;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return ++_references; }
    ULONG STDMETHODCALLTYPE Release() override
    {
        const ULONG left = --_references;
        if (left == 0) {
            delete this;
        }
        return left;
    }

    HRESULT STDMETHODCALLTYPE GetClassID(CLSID *id) override
    {
        *id = GUID_NULL;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE Stop() override
    {
        _pin.stop();
        const std::lock_guard guard(_script->lock);
        if (_script->streaming == this) {
            _script->streaming = nullptr;
            _script->eventSink = nullptr;
        }
        _state = State_Stopped;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE Pause() override
    {
        _pin.stop(); // a live source sends nothing while it pauses
        _state = State_Paused;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE Run(REFERENCE_TIME /*start*/) override
    {
        if (_state != State_Running && _pin.isConnected()) {
            {
                const std::lock_guard guard(_script->lock);
                _script->streaming = this;
                _script->eventSink = _eventSink;
            }
            _pin.start();
        }
        _state = State_Running;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetState(DWORD /*timeout*/, FILTER_STATE *state) override
    {
        *state = _state;
        return *state == State_Paused ? VFW_S_CANT_CUE : S_OK;
    }
    HRESULT STDMETHODCALLTYPE SetSyncSource(IReferenceClock *clock) override
    {
        _clock = ComPtr<IReferenceClock>(clock);
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetSyncSource(IReferenceClock **clock) override
    {
        *clock = ComPtr<IReferenceClock>(_clock).detach();
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE EnumPins(IEnumPins **pins) override
    {
        *pins = new SingleEnumerator<IEnumPins, IPin *>(
            [kept = ComPtr<IPin>(&_pin)] { return ComPtr<IPin>(kept).detach(); });
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE FindPin(LPCWSTR id, IPin **pin) override
    {
        const bool known = std::wstring(id) == L"Capture";
        *pin = known ? ComPtr<IPin>(&_pin).detach() : nullptr;
        return known ? S_OK : VFW_E_NOT_FOUND;
    }
    HRESULT STDMETHODCALLTYPE QueryFilterInfo(FILTER_INFO *info) override
    {
        *info = {};
        _name.copy(info->achName, std::size(info->achName) - 1);
        info->pGraph = _graph;
        if (_graph != nullptr) {
            _graph->AddRef();
        }
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE JoinFilterGraph(IFilterGraph *graph, LPCWSTR name) override
    {
        _graph = graph; // no reference: the graph owns the filter
        _name = name != nullptr ? name : L"";
        _eventSink = nullptr;
        if (ComPtr<IMediaEventSink> sink;
            graph != nullptr &&
            SUCCEEDED(graph->QueryInterface(IID_IMediaEventSink, sink.putVoid()))) {
            _eventSink = sink.get(); // likewise
        }
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE QueryVendorInfo(LPWSTR *) override { return E_NOTIMPL; }

    HRESULT STDMETHODCALLTYPE GetCaps(IPin *, long *flags) override
    {
        *flags = _script->flipsAble;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE SetMode(IPin *, long mode) override
    {
        _script->flipMode = mode;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetMode(IPin *, long *mode) override
    {
        *mode = _script->flipMode;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetCurrentActualFrameRate(IPin *, LONGLONG *) override
    {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE GetMaxAvailableFrameRate(IPin *, long, SIZE, LONGLONG *) override
    {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE GetFrameRateList(IPin *, long, SIZE, long *, LONGLONG **) override
    {
        return E_NOTIMPL;
    }

    HRESULT STDMETHODCALLTYPE HasDialog(int) override { return S_FALSE; }
    HRESULT STDMETHODCALLTYPE ShowDialog(int, HWND) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE SendDriverMessage(int, int, LONG, LONG) override { return E_NOTIMPL; }

private:
    ~CameraFilter() = default;

    std::atomic<ULONG> _references{1};
    std::shared_ptr<CameraScript> _script;
    CameraPin _pin;
    std::atomic<FILTER_STATE> _state{State_Stopped};
    ComPtr<IReferenceClock> _clock;
    IFilterGraph *_graph = nullptr;
    IMediaEventSink *_eventSink = nullptr;
    std::wstring _name;
};

HRESULT CameraPin::QueryInterface(REFIID id, void **object)
{
    if (id == __uuidof(IUnknown) || id == __uuidof(IPin)) {
        *object = static_cast<IPin *>(this);
    } else if (id == __uuidof(IAMStreamConfig)) {
        *object = static_cast<IAMStreamConfig *>(this);
    } else if (id == IID_IKsPropertySet) {
        *object = static_cast<IKsPropertySet *>(this);
    } else {
        *object = nullptr;
        return E_NOINTERFACE;
    }
    AddRef();
    return S_OK;
}

ULONG CameraPin::AddRef()
{
    return _filter.AddRef();
}

ULONG CameraPin::Release()
{
    return _filter.Release();
}

HRESULT CameraPin::QueryPinInfo(PIN_INFO *info)
{
    *info = {};
    info->dir = PINDIR_OUTPUT;
    std::wstring(L"Capture").copy(info->achName, std::size(info->achName) - 1);
    info->pFilter = &_filter;
    _filter.AddRef();
    return S_OK;
}

HRESULT CameraPin::Connect(IPin *peer, const AM_MEDIA_TYPE *type)
{
    if (_peer) {
        return VFW_E_ALREADY_CONNECTED;
    }
    AM_MEDIA_TYPE *offered = newMediaType(format());
    const bool wanted =
        type == nullptr || type->subtype == GUID_NULL || type->subtype == offered->subtype;
    const HRESULT answer =
        wanted ? peer->ReceiveConnection(this, offered) : VFW_E_TYPE_NOT_ACCEPTED;
    deleteMediaType(offered);
    if (FAILED(answer)) {
        return answer;
    }
    _peer = ComPtr<IPin>(peer);
    _input = _peer.query<IMemInputPin>();
    ALLOCATOR_PROPERTIES requested{};
    ALLOCATOR_PROPERTIES actual{};
    requested.cBuffers = 4;
    requested.cbBuffer = format().bytes();
    requested.cbAlign = 1;
    if (!_input ||
        FAILED(CoCreateInstance(CLSID_MemoryAllocator, nullptr, CLSCTX_INPROC_SERVER,
                                __uuidof(IMemAllocator), _allocator.putVoid())) ||
        FAILED(_allocator->SetProperties(&requested, &actual)) ||
        FAILED(_input->NotifyAllocator(_allocator.get(), FALSE))) {
        peer->Disconnect();
        Disconnect();
        return VFW_E_NO_TRANSPORT;
    }
    return S_OK;
}

void CameraPin::start()
{
    _allocator->Commit();
    _streaming = true;
    _thread = std::thread([this] { stream(); });
}

void CameraPin::stop()
{
    _streaming = false;
    if (_thread.joinable()) {
        _allocator->Decommit(); // lets a waiting GetBuffer go
        _thread.join();
    }
}

void CameraPin::stream()
{
    constexpr DWORD kPeriodMs = 20;
    while (_streaming) {
        ComPtr<IMediaSample> sample;
        BYTE *data = nullptr;
        if (!_script.stalled &&
            SUCCEEDED(_allocator->GetBuffer(sample.put(), nullptr, nullptr, 0)) &&
            SUCCEEDED(sample->GetPointer(&data))) {
            sample->SetActualDataLength(_script.draw(format(), data));
            _input->Receive(sample.get());
        }
        Sleep(kPeriodMs);
    }
}

/** Makes filters of one camera. */
class CameraClass final : public IClassFactory
{
public:
    explicit CameraClass(std::shared_ptr<CameraScript> script) : _script(std::move(script)) {}

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID id, void **object) override
    {
        if (id != __uuidof(IUnknown) && id != __uuidof(IClassFactory)) {
            *object = nullptr;
            return E_NOINTERFACE;
        }
        *object = this;
        AddRef();
        return S_OK;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return ++_references; }
    ULONG STDMETHODCALLTYPE Release() override
    {
        const ULONG left = --_references;
        if (left == 0) {
            delete this;
        }
        return left;
    }
    HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown *outer, REFIID id, void **object) override
    {
        if (outer != nullptr) {
            return CLASS_E_NOAGGREGATION;
        }
        ComPtr<IBaseFilter> filter;
        filter.attach(new CameraFilter(_script));
        return filter->QueryInterface(id, object);
    }
    HRESULT STDMETHODCALLTYPE LockServer(BOOL) override { return S_OK; }

private:
    std::atomic<ULONG> _references{1};
    std::shared_ptr<CameraScript> _script;
};

void setText(HKEY key, const wchar_t *name, const QString &text)
{
    const std::wstring value = text.toStdWString();
    RegSetValueExW(key, name, 0, REG_SZ, reinterpret_cast<const BYTE *>(value.c_str()),
                   static_cast<DWORD>((value.size() + 1) * sizeof(wchar_t)));
}

} // namespace

void CameraScript::unplug()
{
    stalled = true;
    const std::lock_guard guard(lock);
    if (eventSink != nullptr) {
        eventSink->Notify(EC_DEVICE_LOST, reinterpret_cast<LONG_PTR>(streaming), 0);
    }
}

RegisteredCamera::RegisteredCamera(int order, std::shared_ptr<CameraScript> script)
    : _id{0x5D1F0C00U + static_cast<unsigned long>(order),
          0x77A1,
          0x4C0E,
          {0x9B, 0x3A, 0x1E, 0x60, 0x55, 0x21, 0x90, 0x42}}
{
    wchar_t id[40];
    StringFromGUID2(_id, id, static_cast<int>(std::size(id)));
    const QString text = QString::fromWCharArray(id);
    wchar_t category[40];
    StringFromGUID2(CLSID_VideoInputDeviceCategory, category,
                    static_cast<int>(std::size(category)));
    _key = QStringLiteral("CLSID\\%1\\Instance\\%2").arg(QString::fromWCharArray(category), text);

    HKEY key = nullptr;
    RegCreateKeyExW(HKEY_CLASSES_ROOT, _key.toStdWString().c_str(), 0, nullptr, REG_OPTION_VOLATILE,
                    KEY_WRITE, nullptr, &key, nullptr);
    setText(key, L"FriendlyName", script->name);
    setText(key, L"CLSID", text);
    RegCloseKey(key);

    ComPtr<IClassFactory> factory;
    factory.attach(new CameraClass(std::move(script)));
    CoRegisterClassObject(_id, factory.get(), CLSCTX_INPROC_SERVER, REGCLS_MULTIPLEUSE, &_class);
}

RegisteredCamera::~RegisteredCamera()
{
    CoRevokeClassObject(_class);
    RegDeleteKeyW(HKEY_CLASSES_ROOT, _key.toStdWString().c_str());
}

} // namespace lumivora::test
