// SPDX-License-Identifier: Apache-2.0
#include "vcam/capture/linux/SourceFormats.h"

#include "vcam/capture/CaptureRules.h"

#include <QByteArray>
#include <QByteArrayView>
#include <QList>

#include <algorithm>
#include <optional>
#include <utility>

namespace lumivora {

namespace {

constexpr int kPreferredFps = 30;
// More than any camera has; a source that declares more is not worth the time.
constexpr std::size_t kMaxFormats = 4096;

/** Calls a function for the field's value or, when it is a list, for each of its values. */
template <typename Function>
void forEachValue(const GstStructure &structure, const char *field, const Function &function)
{
    const GValue *value = gst_structure_get_value(&structure, field);
    if (value == nullptr) {
        return;
    }
    if (!GST_VALUE_HOLDS_LIST(value)) {
        function(value);
        return;
    }
    for (guint i = 0; i < gst_value_list_get_size(value); ++i) {
        function(gst_value_list_get_value(value, i));
    }
}

/** The value of a range that is nearest to the wanted one. */
int nearestInRange(const GValue &range, int wanted)
{
    const int min = gst_value_get_int_range_min(&range);
    const int max = gst_value_get_int_range_max(&range);
    const int step = std::max(1, gst_value_get_int_range_step(&range));
    if (wanted <= min) {
        return min;
    }
    const qint64 steps = (qint64{std::min(wanted, max)} - min + step / 2) / step;
    const qint64 value = min + steps * step;
    return static_cast<int>(value > max ? value - step : value);
}

QList<int> lengths(const GstStructure &structure, const char *field, int wanted)
{
    if (!gst_structure_has_field(&structure, field)) {
        return {wanted}; // anything is allowed
    }
    QList<int> result;
    forEachValue(structure, field, [&](const GValue *value) {
        if (G_VALUE_HOLDS_INT(value)) {
            result.append(g_value_get_int(value));
        } else if (GST_VALUE_HOLDS_INT_RANGE(value)) {
            result.append(nearestInRange(*value, wanted));
        }
    });
    return result;
}

/** Formats that can be read pixel by pixel; the name is empty for compressed pictures. */
QList<QByteArray> pixelFormats(const GstStructure &structure)
{
    QList<QByteArray> result;
    forEachValue(structure, "format", [&result](const GValue *value) {
        const char *name = G_VALUE_HOLDS_STRING(value) ? g_value_get_string(value) : nullptr;
        const GstVideoFormat format =
            name != nullptr ? gst_video_format_from_string(name) : GST_VIDEO_FORMAT_UNKNOWN;
        if (format == GST_VIDEO_FORMAT_UNKNOWN || format == GST_VIDEO_FORMAT_ENCODED) {
            return;
        }
        const GstVideoFormatInfo *info = gst_video_format_get_info(format);
        if (!GST_VIDEO_FORMAT_INFO_IS_COMPLEX(info) && !GST_VIDEO_FORMAT_INFO_IS_TILED(info)) {
            result.append(QByteArray(name));
        }
    });
    return result;
}

bool isInMemory(const GstCaps &caps, guint index)
{
    const GstCapsFeatures *features = gst_caps_get_features(&caps, index);
    return features == nullptr ||
           gst_caps_features_is_equal(features, GST_CAPS_FEATURES_MEMORY_SYSTEM_MEMORY);
}

GstPtr<GstCaps> fixedCaps(const GstStructure &offered, const QByteArray &pixelFormat,
                          const QSize &size)
{
    GstPtr<GstStructure> fixed(gst_structure_new(gst_structure_get_name(&offered), "width",
                                                 G_TYPE_INT, size.width(), "height", G_TYPE_INT,
                                                 size.height(), nullptr));
    if (!pixelFormat.isEmpty()) {
        gst_structure_set(fixed.get(), "format", G_TYPE_STRING, pixelFormat.constData(), nullptr);
    }
    if (const GValue *rate = gst_structure_get_value(&offered, "framerate"); rate != nullptr) {
        gst_structure_set_value(fixed.get(), "framerate", rate);
        gst_structure_fixate_field_nearest_fraction(fixed.get(), "framerate", kPreferredFps, 1);
    }
    return GstPtr<GstCaps>(gst_caps_new_full(fixed.release(), nullptr));
}

} // namespace

int imageBits(GstVideoFormat format)
{
    return format == GST_VIDEO_FORMAT_RGB || format == GST_VIDEO_FORMAT_BGR ? 24 : 32;
}

std::vector<SourceFormat> sourceFormats(const GstCaps &caps, const QSize &wanted)
{
    std::vector<SourceFormat> result;
    if (gst_caps_is_any(&caps)) {
        return result;
    }
    for (guint i = 0; i < gst_caps_get_size(&caps); ++i) {
        const GstStructure &structure = *gst_caps_get_structure(&caps, i);
        const bool jpeg = gst_structure_has_name(&structure, "image/jpeg");
        const bool raw = gst_structure_has_name(&structure, "video/x-raw");
        if (!isInMemory(caps, i) || !(jpeg || raw)) {
            continue;
        }
        const QList<int> widths = lengths(structure, "width", wanted.width());
        const QList<int> heights = lengths(structure, "height", wanted.height());
        for (const QByteArray &pixels : jpeg ? QList<QByteArray>{{}} : pixelFormats(structure)) {
            for (const int width : widths) {
                for (const int height : heights) {
                    const QSize size(width, height);
                    if (!isPlausibleSize(size)) {
                        continue;
                    }
                    if (result.size() == kMaxFormats) {
                        return result;
                    }
                    const int bits =
                        jpeg ? 32 : imageBits(gst_video_format_from_string(pixels.constData()));
                    result.push_back({size, jpeg, bits, fixedCaps(structure, pixels, size)});
                }
            }
        }
    }
    return result;
}

} // namespace lumivora
