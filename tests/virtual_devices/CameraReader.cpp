// SPDX-License-Identifier: Apache-2.0
// A client of a PipeWire camera, as any program is one.
#include "tests/virtual_devices/CameraReader.h"

#include <gst/app/gstappsink.h>
#include <gst/gst.h>

namespace lumivora::test {

namespace {

QString property(const GstStructure *properties, const char *name)
{
    const char *text =
        properties == nullptr ? nullptr : gst_structure_get_string(properties, name);
    return text == nullptr ? QString() : QString::fromUtf8(text);
}

} // namespace

struct CameraReader::Pipeline
{
    GstElement *pipeline = nullptr;
    GstAppSink *sink = nullptr;
};

CameraReader::CameraReader(const QString &nodeName, const QString &caps)
    : _pipeline(std::make_unique<Pipeline>())
{
    gst_init(nullptr, nullptr);
    const QString description =
        QStringLiteral("pipewiresrc target-object=%1 ! %2 ! appsink name=sink sync=false "
                       "max-buffers=1 drop=true")
            .arg(nodeName, caps);
    _pipeline->pipeline = gst_parse_launch(description.toUtf8().constData(), nullptr);
    _pipeline->sink = GST_APP_SINK(gst_bin_get_by_name(GST_BIN(_pipeline->pipeline), "sink"));
    gst_element_set_state(_pipeline->pipeline, GST_STATE_PLAYING);
}

CameraReader::~CameraReader()
{
    gst_element_set_state(_pipeline->pipeline, GST_STATE_NULL);
    gst_object_unref(_pipeline->sink);
    gst_object_unref(_pipeline->pipeline);
}

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
        frame.bytes = QByteArray(reinterpret_cast<const char *>(map.data),
                                 static_cast<qsizetype>(map.size));
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
