// SPDX-License-Identifier: Apache-2.0
// Capture through DirectShow: device -> sample grabber -> null renderer.
#include "vcam/capture/CaptureGraph.h"

#include "direct2d/ComPtr.h"
#include "vcam/capture/CaptureRules.h"
#include "vcam/capture/windows/MediaType.h"
#include "vcam/capture/windows/SampleGrabberCallback.h"

#include <array>
#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <utility>
#include <vector>

#include <windows.h>

#include <dshow.h>
#include <qedit.h>

namespace lumivora {

namespace {

// Not in every compiler's headers.
constexpr CLSID kNullRenderer = {
    0xC1F400A4, 0x3F08, 0x11D3, {0x9F, 0x0B, 0x00, 0x60, 0x08, 0x03, 0x9E, 0x37}};

/** Keeps the process's multi-threaded apartment while it is shared, so that every thread may call
 *  COM without initialising it, and objects outlive the thread that made them. */
std::shared_ptr<void> apartment()
{
    CO_MTA_USAGE_COOKIE cookie = nullptr;
    if (FAILED(CoIncrementMTAUsage(&cookie))) {
        return nullptr;
    }
    return {cookie, &CoDecrementMTAUsage};
}

template <typename Interface>
HRESULT create(const CLSID &type, ComPtr<Interface> &object)
{
    return CoCreateInstance(type, nullptr, CLSCTX_INPROC_SERVER, __uuidof(Interface),
                            object.putVoid());
}

QString friendlyName(IMoniker &moniker)
{
    ComPtr<IPropertyBag> properties;
    if (FAILED(moniker.BindToStorage(nullptr, nullptr, __uuidof(IPropertyBag),
                                     properties.putVoid()))) {
        return {};
    }
    VARIANT value;
    VariantInit(&value);
    QString name;
    if (SUCCEEDED(properties->Read(L"FriendlyName", &value, nullptr)) && value.vt == VT_BSTR) {
        name = QString::fromWCharArray(value.bstrVal,
                                       static_cast<qsizetype>(SysStringLen(value.bstrVal)));
    }
    VariantClear(&value);
    return name;
}

/** The graph of one capture. */
class DirectShowGraph final : public CaptureGraph
{
public:
    DirectShowGraph(std::shared_ptr<void> apartment, ComPtr<IBaseFilter> device)
        : _apartment(std::move(apartment)), _device(std::move(device))
    {}
    ~DirectShowGraph() override;

    DirectShowGraph(const DirectShowGraph &) = delete;
    DirectShowGraph &operator=(const DirectShowGraph &) = delete;

    [[nodiscard]] HRESULT build(const QString &name, BasicSampleGrabberCB &samples);
    [[nodiscard]] HRESULT selectFormat(const QSize &wanted);
    [[nodiscard]] HRESULT run();

    [[nodiscard]] bool isRunning() const override;
    [[nodiscard]] int bitsPerPixel() const override { return _bitsPerPixel; }

private:
    template <typename Interface>
    HRESULT find(ComPtr<Interface> &found)
    {
        return _builder->FindInterface(&PIN_CATEGORY_CAPTURE, &MEDIATYPE_Video, _device.get(),
                                       __uuidof(Interface), found.putVoid());
    }

    void registerGraph();
    void keepUnflipped();
    HRESULT render(const GUID &subtype);

    // In the order in which they are made; released the other way round.
    std::shared_ptr<void> _apartment;
    ComPtr<IBaseFilter> _device;
    ComPtr<IGraphBuilder> _graph;
    DWORD _registration = 0;
    ComPtr<ICaptureGraphBuilder2> _builder;
    ComPtr<IBaseFilter> _grabberFilter;
    ComPtr<ISampleGrabber> _grabber;
    ComPtr<IBaseFilter> _nullRenderer;
    ComPtr<IMediaControl> _control;
    ComPtr<IMediaEvent> _events;

    GUID _deviceSubtype = GUID_NULL; // of the selected format
    int _bitsPerPixel = 0;
    mutable std::atomic<bool> _lost = false; // found out when somebody asks
};

DirectShowGraph::~DirectShowGraph()
{
    if (_control) {
        _control->Stop(); // waits for the streaming thread
    }
    if (_grabber) {
        _grabber->SetCallback(nullptr, 0);
    }
    ComPtr<IRunningObjectTable> table;
    if (_registration != 0 && SUCCEEDED(GetRunningObjectTable(0, table.put()))) {
        table->Revoke(_registration);
    }
}

HRESULT DirectShowGraph::build(const QString &name, BasicSampleGrabberCB &samples)
{
    if (!_device) {
        return E_INVALIDARG;
    }
    if (_graph) {
        return S_OK;
    }
    HRESULT result = S_OK;
    const auto succeeds = [&result](HRESULT step) {
        result = step;
        return SUCCEEDED(step);
    };
    if (!succeeds(create(CLSID_FilterGraph, _graph))) {
        return result;
    }
    registerGraph();
    if (!succeeds(create(CLSID_CaptureGraphBuilder2, _builder)) ||
        !succeeds(_builder->SetFiltergraph(_graph.get())) ||
        !succeeds(_graph->AddFilter(_device.get(), name.toStdWString().c_str())) ||
        !succeeds(create(CLSID_SampleGrabber, _grabberFilter)) ||
        !succeeds(_graph->AddFilter(_grabberFilter.get(), L"SampleGrabberFilter")) ||
        !succeeds(create(kNullRenderer, _nullRenderer)) ||
        !succeeds(_graph->AddFilter(_nullRenderer.get(), L"NullRenderer"))) {
        return result;
    }
    _grabber = _grabberFilter.query<ISampleGrabber>();
    _control = _graph.query<IMediaControl>();
    if (!_grabber || !_control) {
        return E_NOINTERFACE;
    }
    if (!succeeds(_graph->QueryInterface(IID_IMediaEvent, _events.putVoid()))) {
        return result;
    }
    ComPtr<ISampleGrabberCB> callback;
    callback.attach(new SampleGrabberCallback(*_grabber, samples));
    constexpr LONG kSampleCallback = 0; // of the two that a grabber can call
    if (succeeds(_grabber->SetCallback(callback.get(), kSampleCallback))) {
        keepUnflipped();
    }
    return result;
}

void DirectShowGraph::registerGraph()
{
    // Graph inspection tools look for this name. A graph that cannot be inspected works as well.
    std::array<wchar_t, 64> name{};
    swprintf(name.data(), name.size(), L"FilterGraph %08x pid %08x",
             static_cast<unsigned>(reinterpret_cast<std::uintptr_t>(_graph.get())),
             static_cast<unsigned>(GetCurrentProcessId()));
    ComPtr<IRunningObjectTable> table;
    ComPtr<IMoniker> moniker;
    if (SUCCEEDED(GetRunningObjectTable(0, table.put())) &&
        SUCCEEDED(CreateItemMoniker(L"!", name.data(), moniker.put()))) {
        table->Register(ROTFLAGS_REGISTRATIONKEEPSALIVE, _graph.get(), moniker.get(),
                        &_registration);
    }
}

void DirectShowGraph::keepUnflipped()
{
    // The order of rows is ours to choose, so a camera that can flip its picture must not.
    ComPtr<IAMVideoControl> control;
    ComPtr<IPin> pin;
    long able = 0;
    long mode = 0;
    if (SUCCEEDED(find(control)) &&
        SUCCEEDED(_builder->FindPin(_device.get(), PINDIR_OUTPUT, &PIN_CATEGORY_CAPTURE,
                                    &MEDIATYPE_Video, FALSE, 0, pin.put())) &&
        SUCCEEDED(control->GetCaps(pin.get(), &able)) &&
        SUCCEEDED(control->GetMode(pin.get(), &mode))) {
        constexpr long kFlips = VideoControlFlag_FlipHorizontal | VideoControlFlag_FlipVertical;
        control->SetMode(pin.get(), mode & ~(able & kFlips));
    }
}

HRESULT DirectShowGraph::selectFormat(const QSize &wanted)
{
    ComPtr<IAMStreamConfig> config;
    HRESULT result = find(config);
    if (FAILED(result)) {
        return result;
    }
    int count = 0;
    int capabilityBytes = 0;
    result = config->GetNumberOfCapabilities(&count, &capabilityBytes);
    if (FAILED(result)) {
        return result;
    }
    std::vector<MediaType> types;
    QList<QSize> sizes;
    std::vector<BYTE> capability(static_cast<std::size_t>(capabilityBytes));
    for (int i = 0; i < count; ++i) {
        AM_MEDIA_TYPE *allocated = nullptr;
        if (config->GetStreamCaps(i, &allocated, capability.data()) != S_OK) {
            continue;
        }
        MediaType type = MediaType::adopt(allocated);
        const BITMAPINFOHEADER *bitmap = type.bitmap();
        const QSize size =
            bitmap != nullptr ? QSize(bitmap->biWidth, std::abs(bitmap->biHeight)) : QSize();
        if (isPlausibleSize(size)) {
            sizes.append(size);
            types.push_back(std::move(type));
        }
    }
    const qsizetype nearest = nearestFormat(sizes, wanted);
    if (nearest < 0) {
        return VFW_E_INVALIDMEDIATYPE;
    }
    MediaType &chosen = types[static_cast<std::size_t>(nearest)];
    _deviceSubtype = chosen->subtype;
    return config->SetFormat(chosen.get());
}

HRESULT DirectShowGraph::render(const GUID &subtype)
{
    AM_MEDIA_TYPE requested{};
    requested.majortype = MEDIATYPE_Video;
    requested.subtype = subtype;
    const HRESULT result = _grabber->SetMediaType(&requested);
    return FAILED(result)
               ? result
               : _builder->RenderStream(&PIN_CATEGORY_PREVIEW, &MEDIATYPE_Video, _device.get(),
                                        _grabberFilter.get(), _nullRenderer.get());
}

HRESULT DirectShowGraph::run()
{
    // A camera of 24 bits keeps them. Where nothing converts to ARGB32, its twin will do.
    const GUID &first =
        _deviceSubtype == MEDIASUBTYPE_RGB24 ? MEDIASUBTYPE_RGB24 : MEDIASUBTYPE_ARGB32;
    HRESULT result = render(first);
    if (FAILED(result)) {
        result = render(MEDIASUBTYPE_RGB32);
    }
    if (FAILED(result)) {
        return result;
    }
    MediaType connected;
    result = _grabber->GetConnectedMediaType(connected.put());
    if (FAILED(result)) {
        return result;
    }
    _bitsPerPixel = bitsOfSubtype(connected->subtype);
    return _control->Run();
}

bool DirectShowGraph::isRunning() const
{
    long code = 0;
    LONG_PTR first = 0;
    LONG_PTR second = 0;
    while (_events->GetEvent(&code, &first, &second, 0) == S_OK) {
        if (code == EC_DEVICE_LOST || code == EC_ERRORABORT || code == EC_COMPLETE) {
            _lost = true;
        }
        _events->FreeEventParams(code, first, second);
    }
    OAFilterState state = State_Stopped;
    return !_lost && SUCCEEDED(_control->GetState(0, &state)) && state == State_Running;
}

} // namespace

void listCaptureDevices(QList<CameraDevice> &devices)
{
    const std::shared_ptr<void> used = apartment();
    ComPtr<ICreateDevEnum> system;
    ComPtr<IEnumMoniker> monikers;
    // An empty category is a success without an enumerator.
    if (!used || FAILED(create(CLSID_SystemDeviceEnum, system)) ||
        system->CreateClassEnumerator(CLSID_VideoInputDeviceCategory, monikers.put(), 0) != S_OK) {
        return;
    }
    for (ComPtr<IMoniker> moniker; monikers->Next(1, moniker.put(), nullptr) == S_OK;) {
        ComPtr<IBaseFilter> filter;
        if (FAILED(moniker->BindToObject(nullptr, nullptr, __uuidof(IBaseFilter),
                                         filter.putVoid())) ||
            filter.query<IAMVfwCaptureDialogs>()) { // a driver of the old model
            continue;
        }
        devices.append(
            {friendlyName(*moniker), std::shared_ptr<void>(filter.detach(), [used](void *device) {
                 static_cast<IBaseFilter *>(device)->Release();
             })});
    }
}

std::unique_ptr<CaptureGraph> openCaptureGraph(const CameraDevice &camera, const QSize &wanted,
                                               BasicSampleGrabberCB &samples,
                                               const std::function<bool()> &abandoned)
{
    std::shared_ptr<void> used = apartment();
    if (!used) {
        return nullptr;
    }
    auto graph = std::make_unique<DirectShowGraph>(
        std::move(used), ComPtr<IBaseFilter>(static_cast<IBaseFilter *>(camera.handle.get())));
    if (FAILED(graph->build(camera.name, samples)) || FAILED(graph->selectFormat(wanted)) ||
        abandoned() || FAILED(graph->run())) {
        return nullptr;
    }
    return graph;
}

} // namespace lumivora
