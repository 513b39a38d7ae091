// kestroavisink, and the plug-in that registers it.
#include "TrackSink.h"
#include "recorder/Plugin.h"

using kestro::gst::NewTrackSink;
using kestro::gst::Recording;
using kestro::gst::Settings;
using kestro::gst::Track;
using kestro::gst::TrackOf;
using kestro::record::TrackInfo;

// A bin with a sink for each pad: GstBin and GstBaseSink take care of states, flushes, and the end.
//
// The change to PAUSED waits for the first pad only that is not for text: the others may get data
// late, and the same thread may feed them.
struct KestroAviSink {
  GstBin bin;
  Recording* recording;
  gboolean prerolls;  // one of the pads
};
struct KestroAviSinkClass {
  GstBinClass parent;
};

G_DEFINE_TYPE(KestroAviSink, kestro_avi_sink, GST_TYPE_BIN)

static void kestro_avi_sink_init(KestroAviSink* self) {
  self->recording = new Recording(GST_ELEMENT(self));
  gst_bin_set_suppressed_flags(GST_BIN(self), GST_ELEMENT_FLAG_SINK);
  GST_OBJECT_FLAG_SET(self, GST_ELEMENT_FLAG_SINK);
}

template <class Object>
static Recording& RecordingOf(Object* object) {
  return *reinterpret_cast<KestroAviSink*>(object)->recording;
}

static GstStaticPadTemplate templates[] = {
    GST_STATIC_PAD_TEMPLATE(
        "video_%u", GST_PAD_SINK, GST_PAD_REQUEST,
        GST_STATIC_CAPS("video/x-h264, stream-format=(string)byte-stream, alignment=(string)au; "
                        "video/x-h265, stream-format=(string)byte-stream, alignment=(string)au; "
                        "image/jpeg")),
    GST_STATIC_PAD_TEMPLATE(
        "audio_%u", GST_PAD_SINK, GST_PAD_REQUEST,
        GST_STATIC_CAPS("audio/x-raw, format=(string)S16LE, layout=(string)interleaved, "
                        "rate=(int)[ 1, 384000 ], channels=(int)[ 1, 64 ]")),
    GST_STATIC_PAD_TEMPLATE("text_%u", GST_PAD_SINK, GST_PAD_REQUEST,
                            GST_STATIC_CAPS("text/x-raw, format=(string)utf8")),
};

static void DescribeObject(GObjectClass* object) {
  static guint stats;
  object->finalize = [](GObject* self) {
    delete &RecordingOf(self);
    G_OBJECT_CLASS(kestro_avi_sink_parent_class)->finalize(self);
  };
  object->set_property = [](GObject* self, guint id, GValue const* value, GParamSpec*) {
    RecordingOf(self).Properties().Set(id, value);
  };
  object->get_property = [](GObject* self, guint id, GValue* value, GParamSpec*) {
    if (id != stats) return RecordingOf(self).Properties().Get(id, value);
    g_value_take_boxed(value, kestro::gst::NewStats(RecordingOf(self).Status()));
  };
  stats = Settings::Install(object);
  auto const flags = static_cast<GParamFlags>(G_PARAM_READABLE | G_PARAM_STATIC_STRINGS);
  g_object_class_install_property(
      object, stats,
      g_param_spec_boxed("stats", "stats",
                         "Numbers of this recording: files, packets, bytes, what was dropped, ...",
                         GST_TYPE_STRUCTURE, flags));
}

static void AddActions(GType type) {
  auto const add = [type](char const* name, GType result, GType argument, GCallback function) {
    auto const flags = static_cast<GSignalFlags>(G_SIGNAL_RUN_LAST | G_SIGNAL_ACTION);
    guint const count = argument == G_TYPE_NONE ? 0 : 1;
    g_signal_new_class_handler(name, type, flags, function, nullptr, nullptr, nullptr, result,
                               count, argument);
  };
  add("split-now", G_TYPE_NONE, G_TYPE_NONE,
      G_CALLBACK(+[](KestroAviSink* self) { RecordingOf(self).SplitNow(); }));
  add("split-at-running-time", G_TYPE_NONE, G_TYPE_UINT64,
      G_CALLBACK(+[](KestroAviSink* self, guint64 time) {
        RecordingOf(self).SplitAt(static_cast<std::int64_t>(time));
      }));
  add("event", G_TYPE_BOOLEAN, G_TYPE_STRING,
      G_CALLBACK(+[](KestroAviSink* self, gchar const* label) -> gboolean {
        return RecordingOf(self).Event(label);
      }));
  add("unprotect", G_TYPE_BOOLEAN, G_TYPE_STRING,
      G_CALLBACK(+[](KestroAviSink* self, gchar const* path) -> gboolean {
        return RecordingOf(self).Unprotect(path);
      }));
}

static std::string NewName(GstElement* element, GstPadTemplate* pattern) {
  std::string const form = GST_PAD_TEMPLATE_NAME_TEMPLATE(pattern);  // such as video_%u
  for (unsigned i = 0;; ++i) {
    std::string name = form.substr(0, form.size() - 2) + std::to_string(i);
    GstPad* const taken = gst_element_get_static_pad(element, name.c_str());
    if (taken == nullptr) return name;
    gst_object_unref(taken);
  }
}

static GstPad* RequestPad(GstElement* element, GstPadTemplate* pattern, gchar const* wanted,
                          GstCaps const*) {
  std::string const name = wanted != nullptr ? wanted : NewName(element, pattern);
  auto const codec = name[0] == 'v'   ? TrackInfo::kH264
                     : name[0] == 'a' ? TrackInfo::kPcm
                                      : TrackInfo::kText;
  gboolean& prerolls = reinterpret_cast<KestroAviSink*>(element)->prerolls;
  bool const first = codec != TrackInfo::kText && GST_STATE(element) < GST_STATE_PAUSED &&
                     !std::exchange(prerolls, TRUE);
  Recording& recording = RecordingOf(element);
  Track& track = recording.Add(name, codec, first);
  GstElement* const sink = NewTrackSink(recording, track, GST_PAD_TEMPLATE_CAPS(pattern));
  gst_bin_add(GST_BIN(element), sink);
  GstPad* const target = gst_element_get_static_pad(sink, "sink");
  GstPad* const pad = gst_ghost_pad_new_from_template(name.c_str(), target, pattern);
  gst_object_unref(target);
  gst_element_sync_state_with_parent(sink);
  gst_pad_set_active(pad, TRUE);
  gst_element_add_pad(element, pad);
  return pad;
}

static void ReleasePad(GstElement* element, GstPad* pad) {
  GstPad* const target = gst_ghost_pad_get_target(GST_GHOST_PAD(pad));
  if (target == nullptr) {  // the element is being destroyed
    gst_element_remove_pad(element, pad);
    return;
  }
  GstElement* const sink = gst_pad_get_parent_element(target);
  gst_object_unref(target);
  if (TrackOf(sink).awaited) reinterpret_cast<KestroAviSink*>(element)->prerolls = FALSE;
  gst_element_set_locked_state(sink, TRUE);
  gst_element_set_state(sink, GST_STATE_NULL);  // waits for its thread
  RecordingOf(element).Remove(TrackOf(sink));
  gst_element_remove_pad(element, pad);
  gst_bin_remove(GST_BIN(element), sink);
  gst_object_unref(sink);
}

static GstStateChangeReturn ChangeState(GstElement* element, GstStateChange change) {
  Recording& recording = RecordingOf(element);
  if (change == GST_STATE_CHANGE_NULL_TO_READY) {
    if (auto const loaded = kestro::record::LoadAviPlugin(""); !loaded) {
      GST_ELEMENT_ERROR(element, LIBRARY, INIT, ("%s", loaded.text.c_str()), (nullptr));
      return GST_STATE_CHANGE_FAILURE;
    }
  } else if (change == GST_STATE_CHANGE_READY_TO_PAUSED) {
    if (recording.Properties().ToOptions().path.empty()) {
      GST_ELEMENT_ERROR(element, RESOURCE, NOT_FOUND, ("The property location is not set."),
                        (nullptr));
      return GST_STATE_CHANGE_FAILURE;
    }
    recording.Begin();
  }
  auto* const parent = GST_ELEMENT_CLASS(kestro_avi_sink_parent_class);
  auto const result = parent->change_state(element, change);
  if (change == GST_STATE_CHANGE_PAUSED_TO_READY) recording.Reset();
  return result;
}

static void kestro_avi_sink_class_init(KestroAviSinkClass* self) {
  DescribeObject(G_OBJECT_CLASS(self));
  AddActions(G_OBJECT_CLASS_TYPE(self));
  auto* const element = GST_ELEMENT_CLASS(self);
  element->request_new_pad = RequestPad;
  element->release_pad = ReleasePad;
  element->change_state = ChangeState;
  for (auto& pattern : templates) gst_element_class_add_static_pad_template(element, &pattern);
  gst_element_class_set_static_metadata(
      element, "AVI recorder", "Sink/Muxer/File",
      "Records H.264, H.265, motion JPEG, PCM and text into AVI files that survive a power cut",
      "The kestro project");
}

#define PACKAGE "kestro"
GST_PLUGIN_DEFINE(
    GST_VERSION_MAJOR, GST_VERSION_MINOR, kestro, "Records AVI files",
    [](GstPlugin* plugin) -> gboolean {
      return gst_element_register(plugin, "kestroavisink", GST_RANK_NONE,
                                  kestro_avi_sink_get_type());
    },
    KESTRO_VERSION, GST_LICENSE_UNKNOWN, "kestro", "Orvane")
