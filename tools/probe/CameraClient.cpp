// SPDX-License-Identifier: Apache-2.0
// A client of a PipeWire camera, as a video-call program is one.
#include "tools/probe/CameraClient.h"

#include <gst/app/gstappsink.h>
#include <gst/gst.h>
#include <gst/video/video.h>

#include <chrono>
#include <ctime>
#include <future>
#include <utility>

namespace lumivora::tools {

namespace {

using namespace std::chrono_literals;

constexpr guint kLookAgainMs = 200;
constexpr std::uint64_t kStuckAfterUs = 3'000'000;

/** A device property as text; empty when there is none. */
QString property(GstDevice *device, const char *name)
{
    GstStructure *properties = gst_device_get_properties(device);
    if (properties == nullptr) {
        return {};
    }
    QString text;
    if (const char *value = gst_structure_get_string(properties, name)) {
        text = QString::fromUtf8(value);
    }
    gst_structure_free(properties);
    return text;
}

} // namespace

struct CameraClient::Gst
{
    GstDeviceMonitor *monitor = nullptr;
    GstElement *pipeline = nullptr;
    GstElement *sink = nullptr;
    GstPad *pad = nullptr;                      // the camera's frames come out of it
    std::future<GstStateChangeReturn> starting; // while the pipeline does
    std::uint64_t startedUs = 0;
    guint lookTimer = 0;
    guint busWatch = 0;
    std::uint64_t arrivalUs = 0; // of the frame on its way; streaming thread only
};

CameraClient::CameraClient(QString name) : _name(std::move(name)), _gst(std::make_unique<Gst>()) {}

CameraClient::~CameraClient()
{
    stop();
}

std::uint64_t CameraClient::nowUs()
{
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<std::uint64_t>(now.tv_sec) * 1'000'000 +
           static_cast<std::uint64_t>(now.tv_nsec) / 1'000;
}

void CameraClient::start()
{
    look();
    _gst->lookTimer = g_timeout_add(
        kLookAgainMs,
        [](gpointer self) -> gboolean {
            static_cast<CameraClient *>(self)->look();
            return G_SOURCE_CONTINUE;
        },
        this);
}

void CameraClient::stop()
{
    if (_gst->lookTimer != 0) {
        g_source_remove(_gst->lookTimer);
        _gst->lookTimer = 0;
    }
    close({});
    if (_gst->monitor != nullptr) {
        gst_device_monitor_stop(_gst->monitor);
        gst_clear_object(&_gst->monitor);
    }
}

void CameraClient::look()
{
    if (_gst->pipeline != nullptr && holds()) {
        return;
    }
    if (_gst->monitor == nullptr) {
        // Made anew for each search: a monitor does not outlive its PipeWire connection.
        _gst->monitor = gst_device_monitor_new();
        gst_device_monitor_add_filter(_gst->monitor, "Video/Source", nullptr);
        if (gst_device_monitor_start(_gst->monitor) == FALSE) {
            gst_clear_object(&_gst->monitor);
            return;
        }
    }
    GList *devices = gst_device_monitor_get_devices(_gst->monitor);
    QString serial;
    for (GList *entry = devices; entry != nullptr && serial.isEmpty(); entry = entry->next) {
        auto *device = GST_DEVICE(entry->data);
        gchar *name = gst_device_get_display_name(device);
        if (QString::fromUtf8(name).contains(_name)) {
            serial = property(device, "object.serial");
        }
        g_free(name);
    }
    g_list_free_full(devices, gst_object_unref);

    gst_device_monitor_stop(_gst->monitor);
    gst_clear_object(&_gst->monitor);
    if (!serial.isEmpty()) {
        open(serial);
    }
}

bool CameraClient::holds()
{
    if (_gst->starting.valid()) {
        if (_gst->starting.wait_for(0s) != std::future_status::ready) {
            // PipeWire 1.4's source waits for its start until half a minute is over when it started
            // too quickly.
            if (nowUs() - _gst->startedUs < kStuckAfterUs) {
                return true;
            }
            close(QStringLiteral("the source did not start"));
            return false;
        }
        if (_gst->starting.get() == GST_STATE_CHANGE_FAILURE) {
            close(QStringLiteral("the source could not start"));
            return false;
        }
        const std::lock_guard guard(_lock);
        ++_opened;
    }
    // A source whose PipeWire goes stops without a word.
    if (gst_pad_get_task_state(_gst->pad) != GST_TASK_STARTED) {
        close(QStringLiteral("the source stopped"));
        return false;
    }
    return true;
}

void CameraClient::open(const QString &serial)
{
    // The stream stays with the camera that was asked for: the session must not move it to another
    // one, and tells us when the camera has gone.
    // It copies each picture, because pipewiresrc 1.4 unmaps those it gave out when the camera
    // settles on its buffers anew.
    GError *error = nullptr;
    GstElement *pipeline =
        gst_parse_launch("pipewiresrc name=source always-copy=true "
                         "stream-properties=\"props,node.dont-fallback=true,"
                         "node.dont-reconnect=true\" ! videoconvert ! video/x-raw,format=BGRx ! "
                         "appsink name=sink sync=false max-buffers=2",
                         &error);
    if (error != nullptr) {
        const std::lock_guard guard(_lock);
        _lastError = QString::fromUtf8(error->message);
        g_clear_error(&error);
        gst_clear_object(&pipeline);
        return;
    }
    // The clock that pipewiresrc offers stands still while no frame comes; waiting for it, the
    // source would hold back the frames after a pause.
    GstClock *clock = gst_system_clock_obtain();
    gst_pipeline_use_clock(GST_PIPELINE(pipeline), clock);
    gst_object_unref(clock);
    _gst->pipeline = pipeline;

    GstElement *source = gst_bin_get_by_name(GST_BIN(pipeline), "source");
    g_object_set(source, "target-object", serial.toUtf8().constData(), nullptr);
    _gst->pad = gst_element_get_static_pad(source, "src");
    // The time of arrival is taken ahead of the conversion, which is no part of the delivery.
    gst_pad_add_probe(
        _gst->pad, GST_PAD_PROBE_TYPE_BUFFER,
        [](GstPad *, GstPadProbeInfo *, gpointer self) -> GstPadProbeReturn {
            static_cast<CameraClient *>(self)->_gst->arrivalUs = nowUs();
            return GST_PAD_PROBE_OK;
        },
        this, nullptr);
    gst_object_unref(source);

    _gst->sink = gst_bin_get_by_name(GST_BIN(pipeline), "sink");
    GstAppSinkCallbacks callbacks{};
    callbacks.new_sample = [](GstAppSink *, gpointer self) -> GstFlowReturn {
        static_cast<CameraClient *>(self)->take();
        return GST_FLOW_OK;
    };
    gst_app_sink_set_callbacks(GST_APP_SINK(_gst->sink), &callbacks, this, nullptr);

    GstBus *bus = gst_element_get_bus(pipeline);
    _gst->busWatch = gst_bus_add_watch(
        bus,
        [](GstBus *, GstMessage *message, gpointer self) -> gboolean {
            auto *client = static_cast<CameraClient *>(self);
            if (GST_MESSAGE_TYPE(message) == GST_MESSAGE_ERROR) {
                GError *reason = nullptr;
                gst_message_parse_error(message, &reason, nullptr);
                const QString why = QString::fromUtf8(reason->message);
                g_clear_error(&reason);
                client->_gst->busWatch = 0; // this watch ends here
                client->close(why);
                return G_SOURCE_REMOVE;
            }
            if (GST_MESSAGE_TYPE(message) == GST_MESSAGE_EOS) {
                client->_gst->busWatch = 0;
                client->close(QStringLiteral("end of stream"));
                return G_SOURCE_REMOVE;
            }
            return G_SOURCE_CONTINUE;
        },
        this);
    gst_object_unref(bus);

    // The source changes its state only once the camera streams; nobody has to wait with it.
    _gst->startedUs = nowUs();
    _gst->starting = std::async(std::launch::async, [pipeline] {
        return gst_element_set_state(pipeline, GST_STATE_PLAYING);
    });
}

void CameraClient::close(const QString &why)
{
    if (_gst->busWatch != 0) {
        g_source_remove(_gst->busWatch);
        _gst->busWatch = 0;
    }
    if (_gst->pipeline != nullptr) {
        while (_gst->starting.valid() &&
               _gst->starting.wait_for(20ms) != std::future_status::ready) {
            gst_pad_send_event(_gst->pad, gst_event_new_flush_start()); // ends its waiting
        }
        _gst->starting = {};
        gst_element_set_state(_gst->pipeline, GST_STATE_NULL);
        gst_clear_object(&_gst->pad);
        gst_clear_object(&_gst->sink);
        gst_clear_object(&_gst->pipeline);
    }
    if (!why.isEmpty()) {
        const std::lock_guard guard(_lock);
        _lastError = why;
    }
}

void CameraClient::take()
{
    GstSample *sample = gst_app_sink_pull_sample(GST_APP_SINK(_gst->sink));
    if (sample == nullptr) {
        return;
    }
    GstVideoInfo info;
    GstVideoFrame frame;
    if (gst_video_info_from_caps(&info, gst_sample_get_caps(sample)) != FALSE &&
        gst_video_frame_map(&frame, &info, gst_sample_get_buffer(sample), GST_MAP_READ) != FALSE) {
        const auto *pixels =
            static_cast<const std::uint8_t *>(GST_VIDEO_FRAME_PLANE_DATA(&frame, 0));
        const int width = GST_VIDEO_FRAME_WIDTH(&frame);
        const int height = GST_VIDEO_FRAME_HEIGHT(&frame);
        const int stride = GST_VIDEO_FRAME_PLANE_STRIDE(&frame, 0);
        const auto top = readFrameStamp(pixels, width, height, stride, StampBand::Top);
        const auto bottom = readFrameStamp(pixels, width, height, stride, StampBand::Bottom);

        const std::lock_guard guard(_lock);
        if (_tally.add(top, bottom, _gst->arrivalUs) == FrameTally::Kind::Live) {
            _picture = QImage(pixels, width, height, stride, QImage::Format_RGB32).copy();
        }
        if (_format.isEmpty()) {
            if (GstCaps *caps = gst_pad_get_current_caps(_gst->pad)) {
                gchar *text = gst_caps_to_string(caps);
                _format = QString::fromUtf8(text);
                g_free(text);
                gst_caps_unref(caps);
            }
        }
        gst_video_frame_unmap(&frame);
    }
    gst_sample_unref(sample);
}

FrameTally CameraClient::tally() const
{
    const std::lock_guard guard(_lock);
    return _tally;
}

QImage CameraClient::picture() const
{
    const std::lock_guard guard(_lock);
    return _picture;
}

QString CameraClient::format() const
{
    const std::lock_guard guard(_lock);
    return _format;
}

int CameraClient::opened() const
{
    const std::lock_guard guard(_lock);
    return _opened;
}

QString CameraClient::lastError() const
{
    const std::lock_guard guard(_lock);
    return _lastError;
}

} // namespace lumivora::tools
