// SPDX-License-Identifier: Apache-2.0
// Capture through GStreamer: source -> (JPEG decoder) -> application sink.
#include "vcam/capture/CaptureGraph.h"

#include "vcam/capture/CaptureRules.h"
#include "vcam/capture/linux/GstPointers.h"
#include "vcam/capture/linux/PipeWireSocket.h"
#include "vcam/capture/linux/SampleReader.h"
#include "vcam/capture/linux/SourceFormats.h"

#include <QDeadlineTimer>
#include <QLoggingCategory>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <future>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

#include <gst/app/gstappsink.h>
#include <gst/base/gstbasesrc.h>

#include <unistd.h>

namespace lumivora {

namespace {

Q_LOGGING_CATEGORY(lcGraph, "lumivora.vcam.capture")

using namespace std::chrono_literals;

// PipeWire 1.4's source now and then waits for a start that it has already had, and the session
// manager may turn a client away that is faster than its look at a new camera: a second attempt
// helps with both. A slow camera is given more time then.
constexpr std::array kStartPatience = {1500ms, 4000ms};
constexpr auto kListPatience = 2s;
constexpr auto kStopPatience = 1s;
constexpr auto kPollPeriod = 50ms;

/** Calls a function on a thread of its own. GStreamer waits half a minute for a PipeWire that
 * hangs; nobody has to wait with it: the thread goes on alone when its result is not wanted any
 * more. */
template <typename Function>
auto inBackground(Function function)
{
    std::packaged_task<decltype(function())()> task(std::move(function));
    auto result = task.get_future();
    std::thread(std::move(task)).detach();
    return result;
}

std::future<GstStateChangeReturn> changeState(GstElement *pipeline, GstState state)
{
    return inBackground([kept = GstPtr<GstElement>(GST_ELEMENT(gst_object_ref(pipeline))), state] {
        return gst_element_set_state(kept.get(), state);
    });
}

bool startGStreamer()
{
    static const bool started = gst_init_check(nullptr, nullptr, nullptr) != FALSE;
    return started;
}

/** An element that is not in a bin yet; null when its plug-in is missing. */
GstPtr<GstElement> makeElement(const char *factory)
{
    GstElement *element = gst_element_factory_make(factory, nullptr);
    if (element == nullptr) {
        qCWarning(lcGraph) << "GStreamer element missing:" << factory;
        return {};
    }
    return GstPtr<GstElement>(GST_ELEMENT(gst_object_ref_sink(element)));
}

/** Gives a PipeWire source a connection of its own, which lives as long as the element. By default
 *  all of GStreamer shares one, and then listing devices a second time while a source runs hangs:
 *  PipeWire 1.4's device provider leaves its listener in the shared connection when it stops. */
void isolate(GstElement &source)
{
    const int connection = connectToPipeWire();
    if (connection < 0) {
        return;
    }
    g_object_set(&source, "fd", connection, nullptr);
    g_object_set_data_full(G_OBJECT(&source), "lumivora-connection", GINT_TO_POINTER(connection),
                           [](gpointer descriptor) { close(GPOINTER_TO_INT(descriptor)); });
}

GstPtr<GstElement> makeSource(GstDevice &device)
{
    GstElement *element = gst_device_create_element(&device, nullptr);
    if (element == nullptr) {
        return {};
    }
    GstPtr<GstElement> source(GST_ELEMENT(gst_object_ref_sink(element)));
    GObjectClass *type = G_OBJECT_GET_CLASS(source.get());
    if (g_object_class_find_property(type, "stream-properties") != nullptr) {
        // A camera that goes must not be replaced by another one behind the user's back.
        const GstPtr<GstStructure> properties(gst_structure_new(
            "properties", "node.dont-fallback", G_TYPE_STRING, "true", "node.dont-move",
            G_TYPE_STRING, "true", "media.role", G_TYPE_STRING, "Camera", nullptr));
        // Copied, because PipeWire 1.4's source unmaps pictures that it gave out when the camera
        // settles on its buffers anew, and a reader of one would crash.
        g_object_set(source.get(), "stream-properties", properties.get(), "always-copy", TRUE,
                     nullptr);
        isolate(*source);
    }
    return source;
}

/** How far a capture is. @thread thread-safe */
class Progress
{
public:
    enum class State { Starting, Running, Failed };

    [[nodiscard]] State state() const { return _state; }

    void set(State state) noexcept
    {
        {
            const std::lock_guard guard(_lock);
            if (_state == State::Failed) {
                return; // what has failed does not come back
            }
            _state = state;
        }
        _changed.notify_all();
    }

    /** Waits for a change; for a moment, at most. */
    void waitWhileStarting()
    {
        std::unique_lock guard(_lock);
        _changed.wait_for(guard, kPollPeriod, [this] { return _state != State::Starting; });
    }

private:
    std::mutex _lock;
    std::condition_variable _changed;
    std::atomic<State> _state{State::Starting}; // written under the lock, so that a wait sees it
};

/** The pipeline of one capture. */
class GStreamerGraph final : public CaptureGraph
{
public:
    GStreamerGraph(BasicSampleGrabberCB &samples, int bitsPerPixel)
        : _samples(samples), _bitsPerPixel(bitsPerPixel)
    {}
    ~GStreamerGraph() override;

    GStreamerGraph(const GStreamerGraph &) = delete;
    GStreamerGraph &operator=(const GStreamerGraph &) = delete;

    [[nodiscard]] bool build(GstDevice &device, GstCaps &choice, bool jpeg);
    [[nodiscard]] bool run(std::chrono::milliseconds patience,
                           const std::function<bool()> &abandoned);

    [[nodiscard]] bool isRunning() const override;
    [[nodiscard]] int bitsPerPixel() const override { return _bitsPerPixel; }

private:
    [[nodiscard]] bool add(GstPtr<GstElement> element);
    void listen();
    void endWaiting();

    static GstFlowReturn takeSample(GstAppSink *sink, gpointer self) noexcept;
    static GstPadProbeReturn takeEvent(GstPad *pad, GstPadProbeInfo *info, gpointer self) noexcept;
    static GstBusSyncReply takeMessage(GstBus *bus, GstMessage *message,
                                       gpointer progress) noexcept;

    BasicSampleGrabberCB &_samples;
    const int _bitsPerPixel;
    SampleReader _reader;

    // Shared with the bus: some messages come from threads that nobody waits for.
    std::shared_ptr<Progress> _progress = std::make_shared<Progress>();

    GstPtr<GstElement> _pipeline;
    bool _opened = false;          // the device is, and what the pipeline calls is this object
    GstElement *_source = nullptr; // the pipeline's, as the next two
    GstElement *_sink = nullptr;
    GstElement *_last = nullptr; // the next one follows it
    GstPtr<GstPad> _sourcePad;
};

GStreamerGraph::~GStreamerGraph()
{
    if (!_pipeline) {
        return;
    }
    if (_opened) {
        // Ends the streaming thread, so that nothing calls us any more. Stopped at once after it
        // was started, that thread may begin to wait for a picture too late to be woken up.
        auto stopping = changeState(_pipeline.get(), GST_STATE_READY);
        while (stopping.wait_for(kPollPeriod) != std::future_status::ready) {
            endWaiting();
        }
    }
    changeState(_pipeline.get(), GST_STATE_NULL).wait_for(kStopPatience);
}

bool GStreamerGraph::add(GstPtr<GstElement> element)
{
    if (!element || gst_bin_add(GST_BIN(_pipeline.get()), element.get()) == FALSE) {
        return false;
    }
    if (_last != nullptr && gst_element_link(_last, element.get()) == FALSE) {
        return false;
    }
    _last = element.get();
    return true;
}

bool GStreamerGraph::build(GstDevice &device, GstCaps &choice, bool jpeg)
{
    _pipeline.reset(GST_ELEMENT(gst_object_ref_sink(gst_pipeline_new(nullptr))));
    // No sample waits for its time. The clock that a PipeWire source offers stands still while no
    // frame comes, too, and the source would wait for it with the frames after a pause.
    gst_pipeline_use_clock(GST_PIPELINE(_pipeline.get()), nullptr);
    GstPtr<GstElement> filter = makeElement("capsfilter");
    GstPtr<GstElement> sink = makeElement("appsink");
    if (!filter || !sink) {
        return false;
    }
    g_object_set(filter.get(), "caps", &choice, nullptr);

    const GstPtr<GstCaps> raw(gst_caps_new_empty_simple("video/x-raw"));
    // A live picture: a sample that cannot be taken gives way to the next.
    g_object_set(sink.get(), "caps", raw.get(), "sync", FALSE, "max-buffers", 1U, "drop", TRUE,
                 "enable-last-sample", FALSE, nullptr);

    if (!add(makeSource(device))) {
        return false;
    }
    _source = _last;
    _sourcePad.reset(gst_element_get_static_pad(_source, "src"));
    if (!_sourcePad || !add(std::move(filter))) {
        return false;
    }
    if (jpeg && !add(makeElement("jpegdec"))) {
        return false;
    }
    _sink = sink.get();
    return add(std::move(sink));
}

void GStreamerGraph::listen()
{
    const GstPtr<GstBus> bus(gst_element_get_bus(_pipeline.get()));
    gst_bus_set_sync_handler(
        bus.get(), &GStreamerGraph::takeMessage, new std::shared_ptr<Progress>(_progress),
        [](gpointer progress) { delete static_cast<std::shared_ptr<Progress> *>(progress); });
    GstAppSinkCallbacks callbacks{};
    callbacks.new_sample = &GStreamerGraph::takeSample;
    gst_app_sink_set_callbacks(GST_APP_SINK(_sink), &callbacks, this, nullptr);
    const GstPtr<GstPad> pad(gst_element_get_static_pad(_sink, "sink"));
    gst_pad_add_probe(pad.get(), GST_PAD_PROBE_TYPE_EVENT_DOWNSTREAM, &GStreamerGraph::takeEvent,
                      this, nullptr);
}

bool GStreamerGraph::run(std::chrono::milliseconds patience, const std::function<bool()> &abandoned)
{
    const QDeadlineTimer deadline(patience);
    const auto givesUp = [&] {
        return abandoned() || deadline.hasExpired();
    };

    auto opening = changeState(_pipeline.get(), GST_STATE_READY);
    while (opening.wait_for(kPollPeriod) != std::future_status::ready) {
        if (givesUp()) {
            return false;
        }
    }
    if (opening.get() == GST_STATE_CHANGE_FAILURE) {
        return false;
    }
    _opened = true;
    listen();

    // A PipeWire source changes its state only once the camera streams.
    auto pausing = changeState(_pipeline.get(), GST_STATE_PAUSED);
    while (pausing.wait_for(kPollPeriod) != std::future_status::ready) {
        if (givesUp()) {
            endWaiting();
        }
    }
    if (pausing.get() == GST_STATE_CHANGE_FAILURE || givesUp() ||
        gst_element_set_state(_pipeline.get(), GST_STATE_PLAYING) == GST_STATE_CHANGE_FAILURE) {
        return false;
    }
    // Other sources agree to the format, or refuse it, on the streaming thread. The first picture
    // may take longer, and its absence is no failure.
    while (_progress->state() == Progress::State::Starting && !givesUp()) {
        _progress->waitWhileStarting();
    }
    return _progress->state() == Progress::State::Running;
}

void GStreamerGraph::endWaiting()
{
    if (!GST_IS_BASE_SRC(_source)) {
        return;
    }
    auto *source = GST_BASE_SRC(_source);
    if (const auto unlock = GST_BASE_SRC_GET_CLASS(source)->unlock; unlock != nullptr) {
        unlock(source);
    }
}

bool GStreamerGraph::isRunning() const
{
    // A PipeWire source whose server goes stops its task without a word.
    return _progress->state() == Progress::State::Running &&
           gst_pad_get_task_state(_sourcePad.get()) == GST_TASK_STARTED;
}

GstFlowReturn GStreamerGraph::takeSample(GstAppSink *sink, gpointer self) noexcept
{
    auto &graph = *static_cast<GStreamerGraph *>(self);
    const GstPtr<GstSample> sample(gst_app_sink_pull_sample(sink));
    SampleOutline outline;
    if (sample && graph._reader.describe(*sample, outline)) {
        graph._samples.onSample(outline, [&graph, &sample](QImage &image, bool topDown) {
            return graph._reader.write(*sample, image, topDown);
        });
    }
    return GST_FLOW_OK;
}

GstPadProbeReturn GStreamerGraph::takeEvent(GstPad * /*pad*/, GstPadProbeInfo *info,
                                            gpointer self) noexcept
{
    auto &graph = *static_cast<GStreamerGraph *>(self);
    if (GST_EVENT_TYPE(GST_PAD_PROBE_INFO_EVENT(info)) == GST_EVENT_CAPS) {
        graph._progress->set(Progress::State::Running);
    }
    return GST_PAD_PROBE_OK;
}

GstBusSyncReply GStreamerGraph::takeMessage(GstBus * /*bus*/, GstMessage *message,
                                            gpointer progress) noexcept
{
    // The end of the stream means that the device has gone.
    if (GST_MESSAGE_TYPE(message) == GST_MESSAGE_ERROR ||
        GST_MESSAGE_TYPE(message) == GST_MESSAGE_EOS) {
        (*static_cast<std::shared_ptr<Progress> *>(progress))->set(Progress::State::Failed);
    }
    gst_message_unref(message);
    return GST_BUS_DROP; // nobody reads the bus
}

/** Every video source, in the order in which the system announces them. */
std::vector<GstPtr<GstDevice>> monitoredDevices()
{
    std::vector<GstPtr<GstDevice>> devices;
    const GstPtr<GstDeviceMonitor> monitor(gst_device_monitor_new());
    gst_device_monitor_add_filter(monitor.get(), "Video/Source", nullptr);
    if (gst_device_monitor_start(monitor.get()) == FALSE) {
        return devices;
    }
    GList *found = gst_device_monitor_get_devices(monitor.get());
    gst_device_monitor_stop(monitor.get());
    for (const GList *item = found; item != nullptr; item = item->next) {
        devices.emplace_back(static_cast<GstDevice *>(item->data)); // the list's reference
    }
    g_list_free(found);
    // The monitor puts each device that is announced before those it has.
    std::reverse(devices.begin(), devices.end());
    return devices;
}

} // namespace

void listCaptureDevices(QList<CameraDevice> &devices)
{
    if (!startGStreamer()) {
        return;
    }
    auto listing = inBackground(&monitoredDevices);
    if (listing.wait_for(kListPatience) != std::future_status::ready) {
        return;
    }
    for (GstPtr<GstDevice> &device : listing.get()) {
        const GstPtr<gchar> name(gst_device_get_display_name(device.get()));
        devices.append({QString::fromUtf8(name.get()),
                        std::shared_ptr<void>(device.release(), &gst_object_unref)});
    }
}

std::unique_ptr<CaptureGraph> openCaptureGraph(const CameraDevice &camera, const QSize &wanted,
                                               BasicSampleGrabberCB &samples,
                                               const std::function<bool()> &abandoned)
{
    auto *device = static_cast<GstDevice *>(camera.handle.get());
    if (device == nullptr) {
        return nullptr;
    }
    const GstPtr<GstCaps> caps(gst_device_get_caps(device));
    if (!caps) {
        return nullptr;
    }
    const std::vector<SourceFormat> formats = sourceFormats(*caps, wanted);
    QList<QSize> sizes;
    std::transform(formats.begin(), formats.end(), std::back_inserter(sizes),
                   [](const SourceFormat &format) { return format.size; });
    const qsizetype nearest = nearestFormat(sizes, wanted);
    if (nearest < 0) {
        return nullptr;
    }
    const SourceFormat &format = formats[static_cast<std::size_t>(nearest)];
    // A PipeWire camera that has another client already has settled on one of these.
    const GstPtr<GstCaps> choice(gst_caps_copy(format.caps.get()));
    for (const SourceFormat &other : formats) {
        if (other.size == format.size && other.jpeg == format.jpeg &&
            other.bitsPerPixel == format.bitsPerPixel) {
            gst_caps_append(choice.get(), gst_caps_copy(other.caps.get()));
        }
    }
    for (const auto patience : kStartPatience) {
        auto graph = std::make_unique<GStreamerGraph>(samples, format.bitsPerPixel);
        if (graph->build(*device, *choice, format.jpeg) && graph->run(patience, abandoned)) {
            return graph;
        }
        if (abandoned()) {
            break;
        }
    }
    return nullptr;
}

} // namespace lumivora
