// SPDX-License-Identifier: Apache-2.0
// Software element "omxh264enc", named like the hardware encoder of the camera's board: a bin with an x264enc set to
// low delay. Its rank is none, so that only pipelines that name it use it.
#include <initializer_list>

#include <gst/gst.h>

namespace {

// Constant picture quality rather than constant bit rate, since the stream stays in a board's network.
constexpr guint quantizer = 20;
constexpr guint framesBetweenKeyFrames = 30;
constexpr guint tuneZeroLatency = 4;
constexpr int speedUltraFast = 1;
constexpr int passConstantQuantizer = 4;

struct EncoderStandIn {
  GstBin bin;
};

struct EncoderStandInClass {
  GstBinClass parent;
};

}  // namespace

G_DEFINE_TYPE(EncoderStandIn, encoder_stand_in, GST_TYPE_BIN)

static GstStaticPadTemplate sinkTemplate =
    GST_STATIC_PAD_TEMPLATE("sink", GST_PAD_SINK, GST_PAD_ALWAYS, GST_STATIC_CAPS("video/x-raw"));
static GstStaticPadTemplate sourceTemplate =
    GST_STATIC_PAD_TEMPLATE("src", GST_PAD_SRC, GST_PAD_ALWAYS, GST_STATIC_CAPS("video/x-h264"));

static void encoder_stand_in_class_init(EncoderStandInClass* type) {
  GstElementClass* const element = GST_ELEMENT_CLASS(type);
  gst_element_class_add_static_pad_template(element, &sinkTemplate);
  gst_element_class_add_static_pad_template(element, &sourceTemplate);
  gst_element_class_set_static_metadata(element, "H.264 encoder stand-in", "Codec/Encoder/Video",
                                        "Software encoder under the name of the board's hardware encoder",
                                        "the developers of stereo-camera");
}

static void encoder_stand_in_init(EncoderStandIn* self) {
  GstElement* const encoder = gst_element_factory_make("x264enc", "encoder");
  if (encoder == nullptr) {
    // Without pads, the pipeline fails to link, which is reported.
    g_warning("x264enc is missing: install gstreamer1.0-plugins-ugly");
    return;
  }
  g_object_set(encoder, "tune", tuneZeroLatency, "speed-preset", speedUltraFast, "pass", passConstantQuantizer,
               "quantizer", quantizer, "key-int-max", framesBetweenKeyFrames, nullptr);
  gst_bin_add(GST_BIN(self), encoder);
  for (const char* const name : {"sink", "src"}) {
    GstPad* const inner = gst_element_get_static_pad(encoder, name);
    GstPadTemplate* const shape = gst_static_pad_template_get(name[1] == 'i' ? &sinkTemplate : &sourceTemplate);
    gst_element_add_pad(GST_ELEMENT(self), gst_ghost_pad_new_from_template(name, inner, shape));
    gst_object_unref(shape);
    gst_object_unref(inner);
  }
}

static gboolean registerElement(GstPlugin* plugin) {
  return gst_element_register(plugin, "omxh264enc", GST_RANK_NONE, encoder_stand_in_get_type());
}

#define STAND_IN_DESCRIPTION "Stand-in for the board's hardware H.264 encoder"
GST_PLUGIN_DEFINE(GST_VERSION_MAJOR, GST_VERSION_MINOR, stereocamerastandin, STAND_IN_DESCRIPTION, registerElement,
                  STAND_IN_VERSION, "Apache-2.0", "stereo-camera", "stereo-camera")
