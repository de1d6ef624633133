// SPDX-License-Identifier: Apache-2.0
// A video file, played over and over.
#include "tools/standin/VideoFile.h"

#include <QLoggingCategory>

#include <gst/app/gstappsink.h>
#include <gst/gst.h>

#include <cstdint>

namespace lumivora::tools {

namespace {

Q_LOGGING_CATEGORY(lcVideoFile, "lumivora.standin.video")

constexpr GstClockTime kPatience = 5 * GST_SECOND; // with a decoder that gives nothing

} // namespace

struct VideoFile::Pipeline
{
    GstElement *pipeline = nullptr;
    GstAppSink *sink = nullptr;

    ~Pipeline()
    {
        if (pipeline != nullptr) {
            gst_element_set_state(pipeline, GST_STATE_NULL);
            gst_object_unref(sink);
            gst_object_unref(pipeline);
        }
    }
};

std::unique_ptr<VideoFile> VideoFile::open(const std::string &path, int width, int height,
                                           int framesPerSecond)
{
    gst_init(nullptr, nullptr);
    GError *error = nullptr;
    GstElement *pipeline =
        gst_parse_launch("filesrc name=file ! decodebin ! videoconvert ! videoscale ! videorate ! "
                         "appsink name=sink sync=false max-buffers=2",
                         &error);
    if (pipeline == nullptr) {
        qCWarning(lcVideoFile) << "no decoder:" << error->message;
        g_clear_error(&error);
        return nullptr;
    }
    g_clear_error(&error);
    std::unique_ptr<VideoFile> video(new VideoFile);
    video->_pipeline = std::make_unique<Pipeline>();
    video->_pipeline->pipeline = pipeline;
    GstElement *sink = gst_bin_get_by_name(GST_BIN(pipeline), "sink");
    video->_pipeline->sink = GST_APP_SINK(sink);
    GstElement *file = gst_bin_get_by_name(GST_BIN(pipeline), "file");
    g_object_set(file, "location", path.c_str(), nullptr);
    gst_object_unref(file);
    GstCaps *caps = gst_caps_new_simple(
        "video/x-raw", "format", G_TYPE_STRING, "BGRx", "width", G_TYPE_INT, width, "height",
        G_TYPE_INT, height, "framerate", GST_TYPE_FRACTION, framesPerSecond, 1, nullptr);
    gst_app_sink_set_caps(video->_pipeline->sink, caps);
    gst_caps_unref(caps);

    video->_frame = cv::Mat(height, width, CV_8UC4, cv::Scalar(0, 0, 0, 255));
    gst_element_set_state(pipeline, GST_STATE_PLAYING);
    if (!video->pull()) {
        qCWarning(lcVideoFile) << "cannot play" << path.c_str();
        return nullptr;
    }
    return video;
}

VideoFile::~VideoFile() = default;

bool VideoFile::pull()
{
    GstSample *sample = gst_app_sink_try_pull_sample(_pipeline->sink, kPatience);
    if (sample == nullptr) {
        return false;
    }
    GstBuffer *buffer = gst_sample_get_buffer(sample);
    GstMapInfo map{};
    const bool mapped = gst_buffer_map(buffer, &map, GST_MAP_READ) != 0;
    if (mapped) {
        if (map.size >= _frame.total() * _frame.elemSize()) {
            cv::Mat(_frame.rows, _frame.cols, CV_8UC4, map.data).copyTo(_frame);
        }
        gst_buffer_unmap(buffer, &map);
    }
    gst_sample_unref(sample);
    return mapped;
}

cv::Mat &VideoFile::next()
{
    if (!pull() && gst_app_sink_is_eos(_pipeline->sink) != 0) {
        gst_element_seek_simple(
            _pipeline->pipeline, GST_FORMAT_TIME,
            static_cast<GstSeekFlags>(GST_SEEK_FLAG_FLUSH | GST_SEEK_FLAG_KEY_UNIT), 0);
        pull();
    }
    return _frame;
}

} // namespace lumivora::tools
