// SPDX-License-Identifier: Apache-2.0
// A client of a PipeWire camera, as any program is one.
#include "tests/virtual_devices/CameraReader.h"

#include <gst/app/gstappsink.h>
#include <gst/gst.h>

#include <future>

namespace lumivora::test {

namespace {

constexpr std::chrono::seconds kStuckAfter{3};

QString property(const GstStructure *properties, const char *name)
{
    const char *text = properties == nullptr ? nullptr : gst_structure_get_string(properties, name);
    return text == nullptr ? QString() : QString::fromUtf8(text);
}

} // namespace

struct CameraReader::Pipeline
{
    GstElement *pipeline = nullptr;
    GstPad *source = nullptr;
    GstAppSink *sink = nullptr;

    explicit Pipeline(const QString &description)
        : pipeline(gst_parse_launch(description.toUtf8().constData(), nullptr)),
          sink(GST_APP_SINK(gst_bin_get_by_name(GST_BIN(pipeline), "sink")))
    {
        GstElement *element = gst_bin_get_by_name(GST_BIN(pipeline), "source");
        source = gst_element_get_static_pad(element, "src");
        gst_object_unref(element);
        // The source's own clock stands still while no frame comes.
        GstClock *clock = gst_system_clock_obtain();
        gst_pipeline_use_clock(GST_PIPELINE(pipeline), clock);
        gst_object_unref(clock);
    }

    ~Pipeline()
    {
        gst_element_set_state(pipeline, GST_STATE_NULL);
        gst_object_unref(source);
        gst_object_unref(sink);
        gst_object_unref(pipeline);
    }

    Pipeline(const Pipeline &) = delete;
    Pipeline &operator=(const Pipeline &) = delete;

    /** @return false when the source got stuck */
    [[nodiscard]] bool play() const
    {
        auto playing = std::async(std::launch::async, [this] {
            return gst_element_set_state(pipeline, GST_STATE_PLAYING);
        });
        if (playing.wait_for(kStuckAfter) == std::future_status::timeout) {
            gst_pad_send_event(source, gst_event_new_flush_start()); // ends its waiting
            return false;
        }
        return true;
    }
};

CameraReader::CameraReader(const QString &nodeName, const QString &caps)
{
    gst_init(nullptr, nullptr);
    // Without copies, the source gives out memory that it unmaps when its stream is set up anew.
    const QString description =
        QStringLiteral(
            "pipewiresrc name=source always-copy=true target-object=%1 ! %2 ! appsink name=sink "
            "sync=false max-buffers=1 drop=true")
            .arg(nodeName, caps);
    // PipeWire 1.4's source waits for ever when its stream starts before it began to wait, which
    // happens now and then on a busy machine.
    do {
        _pipeline = std::make_unique<Pipeline>(description);
    } while (!_pipeline->play());
}

CameraReader::~CameraReader() = default;

std::optional<CameraReader::Frame> CameraReader::next(std::chrono::milliseconds patience)
{
    GstSample *sample = gst_app_sink_try_pull_sample(
        _pipeline->sink, static_cast<GstClockTime>(patience.count()) * GST_MSECOND);
    if (sample == nullptr) {
        return std::nullopt;
    }
    Frame frame;
    GstBuffer *buffer = gst_sample_get_buffer(sample);
    frame.timeNs = static_cast<std::int64_t>(GST_BUFFER_PTS(buffer) +
                                             gst_element_get_base_time(_pipeline->pipeline));
    GstMapInfo map{};
    if (gst_buffer_map(buffer, &map, GST_MAP_READ) != 0) {
        frame.bytes =
            QByteArray(reinterpret_cast<const char *>(map.data), static_cast<qsizetype>(map.size));
        gst_buffer_unmap(buffer, &map);
    }
    gst_sample_unref(sample);
    return frame;
}

QList<ListedCamera> listCameras()
{
    gst_init(nullptr, nullptr);
    QList<ListedCamera> result;
    GstDeviceMonitor *monitor = gst_device_monitor_new();
    gst_device_monitor_add_filter(monitor, "Video/Source", nullptr);
    gst_device_monitor_start(monitor);
    GList *devices = gst_device_monitor_get_devices(monitor);
    for (GList *entry = devices; entry != nullptr; entry = entry->next) {
        GstDevice *device = GST_DEVICE(entry->data);
        ListedCamera camera;
        gchar *name = gst_device_get_display_name(device);
        camera.name = QString::fromUtf8(name);
        g_free(name);
        GstStructure *properties = gst_device_get_properties(device);
        camera.nodeName = property(properties, "node.name");
        camera.role = property(properties, "media.role");
        gst_structure_free(properties);
        GstCaps *caps = gst_device_get_caps(device);
        for (guint i = 0; i < gst_caps_get_size(caps); ++i) {
            const GstStructure *structure = gst_caps_get_structure(caps, i);
            int width = 0;
            int height = 0;
            int numerator = 0;
            int denominator = 0;
            // These fail for ranges and lists, which is what browsers cannot read either.
            gst_structure_get_int(structure, "width", &width);
            gst_structure_get_int(structure, "height", &height);
            gst_structure_get_fraction(structure, "framerate", &numerator, &denominator);
            camera.caps += QStringLiteral("%1 %2 %3x%4 %5/%6")
                               .arg(QString::fromUtf8(gst_structure_get_name(structure)),
                                    property(structure, "format"))
                               .arg(width)
                               .arg(height)
                               .arg(numerator)
                               .arg(denominator);
        }
        gst_caps_unref(caps);
        result += camera;
    }
    g_list_free_full(devices, gst_object_unref);
    gst_device_monitor_stop(monitor);
    gst_object_unref(monitor);
    return result;
}

} // namespace lumivora::test
