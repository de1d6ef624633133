// SPDX-License-Identifier: Apache-2.0
#include "vcam/capture/linux/SampleReader.h"

#include "vcam/capture/SampleRows.h"
#include "vcam/capture/linux/SourceFormats.h"

#include <algorithm>

namespace lumivora {

namespace {

/** A frame's pixels, readable while it lives. */
class MappedFrame
{
public:
    MappedFrame(const GstVideoInfo &info, GstBuffer *buffer)
        : _mapped(gst_video_frame_map(&_frame, &info, buffer, GST_MAP_READ) != FALSE)
    {}
    ~MappedFrame()
    {
        if (_mapped) {
            gst_video_frame_unmap(&_frame);
        }
    }

    MappedFrame(const MappedFrame &) = delete;
    MappedFrame &operator=(const MappedFrame &) = delete;

    [[nodiscard]] GstVideoFrame &get() { return _frame; }

    /** Whether every row of every plane lies within the memory: sources declare strides and offsets
     *  freely, and the mapping trusts them. */
    [[nodiscard]] bool isComplete() const
    {
        if (!_mapped) {
            return false;
        }
        for (guint component = 0; component < GST_VIDEO_FRAME_N_COMPONENTS(&_frame); ++component) {
            const auto rowBytes = qsizetype{GST_VIDEO_FRAME_COMP_WIDTH(&_frame, component)} *
                                  GST_VIDEO_FRAME_COMP_PSTRIDE(&_frame, component);
            const PixelRows rows = plane(GST_VIDEO_FRAME_COMP_PLANE(&_frame, component));
            const qsizetype lastRow = GST_VIDEO_FRAME_COMP_HEIGHT(&_frame, component) - 1;
            if (rows.stride < rowBytes || rows.bytes < rows.stride * lastRow + rowBytes) {
                return false;
            }
        }
        return true;
    }

    [[nodiscard]] PixelRows plane(int index) const
    {
        const auto *pixels = static_cast<const uchar *>(_frame.data[index]);
        // Without a description of its planes, a buffer is mapped in one piece.
        const GstMapInfo &map = _frame.map[_frame.meta != nullptr ? index : 0];
        const qsizetype offset = pixels - map.data;
        return {pixels, static_cast<qsizetype>(map.size) - offset, _frame.info.stride[index]};
    }

private:
    GstVideoFrame _frame{};
    bool _mapped;
};

bool isImageOrder(GstVideoFormat format)
{
    return format == GST_VIDEO_FORMAT_BGRx || format == GST_VIDEO_FORMAT_BGRA ||
           format == GST_VIDEO_FORMAT_BGR;
}

/** Whether the source's pixels have a fourth byte, which the conversion may pass on. */
bool hasFourthByte(const GstVideoFormatInfo &info)
{
    return GST_VIDEO_FORMAT_INFO_HAS_ALPHA(&info) ||
           (GST_VIDEO_FORMAT_INFO_IS_RGB(&info) && GST_VIDEO_FORMAT_INFO_PSTRIDE(&info, 0) == 4);
}

} // namespace

SampleReader::SampleReader()
{
    gst_video_info_init(&_info);
}

bool SampleReader::describe(GstSample &sample, SampleOutline &outline)
{
    GstCaps *caps = gst_sample_get_caps(&sample);
    GstBuffer *buffer = gst_sample_get_buffer(&sample);
    if (caps == nullptr || buffer == nullptr) {
        return false;
    }
    if (caps != _caps.get()) {
        _caps.reset();
        _converter.reset();
        if (gst_video_info_from_caps(&_info, caps) == FALSE) {
            return false;
        }
        _caps.reset(gst_caps_ref(caps));
    }
    outline.size = QSize(GST_VIDEO_INFO_WIDTH(&_info), GST_VIDEO_INFO_HEIGHT(&_info));
    outline.bitsPerPixel = imageBits(GST_VIDEO_INFO_FORMAT(&_info));
    outline.bytes = static_cast<qsizetype>(gst_buffer_get_size(buffer));
    return true;
}

bool SampleReader::write(GstSample &sample, QImage &image, bool topDown)
{
    MappedFrame frame(_info, gst_sample_get_buffer(&sample));
    if (!frame.isComplete()) {
        return false;
    }
    const bool reversed = !topDown; // GStreamer's pictures are top-down
    if (isImageOrder(GST_VIDEO_INFO_FORMAT(&_info))) {
        return copyRows(frame.plane(0), image, reversed);
    }
    return convert(frame.get(), image, reversed);
}

bool SampleReader::convert(GstVideoFrame &from, QImage &image, bool reversed)
{
    GstVideoFrame to{};
    gst_video_info_set_format(
        &to.info,
        image.format() == QImage::Format_RGB32 ? GST_VIDEO_FORMAT_BGRx : GST_VIDEO_FORMAT_BGR,
        static_cast<guint>(image.width()), static_cast<guint>(image.height()));
    to.info.fps_n = _info.fps_n; // a converter does not change rates and checks it
    to.info.fps_d = _info.fps_d;
    if (!_converter) {
        // One thread: the conversion of a camera's format takes well under a millisecond.
        _converter.reset(
            gst_video_converter_new(&_info, &to.info,
                                    gst_structure_new("options", GST_VIDEO_CONVERTER_OPT_THREADS,
                                                      G_TYPE_UINT, 1U, nullptr)));
        if (!_converter) {
            return false;
        }
    }
    to.data[0] = image.bits();
    to.info.stride[0] = static_cast<gint>(image.bytesPerLine());
    gst_video_converter_frame(_converter.get(), &from, &to);
    if (reversed) {
        image.mirror(false, true); // not on the way: some conversions cannot write upwards
    }
    if (image.depth() == 32 && hasFourthByte(*_info.finfo)) {
        makeOpaque(image);
    }
    return true;
}

} // namespace lumivora
