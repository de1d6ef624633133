// SPDX-License-Identifier: Apache-2.0
// Owners of GStreamer's objects.
#pragma once

#include <memory>

#include <gst/gst.h>

namespace lumivora {

struct GstDeleter
{
    void operator()(GstObject *object) const { gst_object_unref(object); }
    void operator()(GstElement *object) const { gst_object_unref(object); }
    void operator()(GstDevice *object) const { gst_object_unref(object); }
    void operator()(GstDeviceMonitor *object) const { gst_object_unref(object); }
    void operator()(GstBus *object) const { gst_object_unref(object); }
    void operator()(GstPad *object) const { gst_object_unref(object); }
    void operator()(GstCaps *caps) const { gst_caps_unref(caps); }
    void operator()(GstSample *sample) const { gst_sample_unref(sample); }
    void operator()(GstStructure *structure) const { gst_structure_free(structure); }
    void operator()(gchar *text) const { g_free(text); }
};

/** One reference of ours; a floating one is sunk before. */
template <typename T>
using GstPtr = std::unique_ptr<T, GstDeleter>;

} // namespace lumivora
