#include "TrackSink.h"

#include <gst/base/gstbasesink.h>

using kestro::gst::Recording;
using kestro::gst::Track;

struct KestroTrackSink {
  GstBaseSink base;
  Recording* recording;
  Track* track;
  GstCaps* caps;
  bool prerolling;  // in PAUSED, before the element plays for the first time
};
struct KestroTrackSinkClass {
  GstBaseSinkClass parent;
};

G_DEFINE_TYPE(KestroTrackSink, kestro_track_sink, GST_TYPE_BASE_SINK)

template <class Object>
static KestroTrackSink& Self(Object* object) {
  return *reinterpret_cast<KestroTrackSink*>(object);
}

static void kestro_track_sink_init(KestroTrackSink* self) {
  GstBaseSink* const base = &self->base;
  gst_base_sink_set_sync(base, FALSE);  // data is recorded when it arrives
  gst_base_sink_set_drop_out_of_segment(base, FALSE);
  gst_base_sink_set_last_sample_enabled(base, FALSE);
}

// While prerolling, data goes to the recording, which blocks when it has enough of all tracks. With
// the first data, an awaited track completes the change to PAUSED.
static GstFlowReturn Preroll(GstBaseSink* base, GstBuffer*) {
  if (Self(base).prerolling) base->need_preroll = FALSE;
  return GST_FLOW_OK;
}

static void Pass(GstBaseSink* base) {
  GST_BASE_SINK_PREROLL_LOCK(base);
  if (Self(base).prerolling && !Self(base).track->awaited) base->need_preroll = FALSE;
  GST_BASE_SINK_PREROLL_SIGNAL(base);
  GST_BASE_SINK_PREROLL_UNLOCK(base);
}

static GstStateChangeReturn ChangeState(GstElement* element, GstStateChange change) {
  GstBaseSink* const base = GST_BASE_SINK(element);
  GST_BASE_SINK_PREROLL_LOCK(base);
  if (change == GST_STATE_CHANGE_READY_TO_PAUSED) Self(base).prerolling = true;
  if (change == GST_STATE_CHANGE_PAUSED_TO_PLAYING) Self(base).prerolling = false;
  GST_BASE_SINK_PREROLL_UNLOCK(base);
  auto* const parent = GST_ELEMENT_CLASS(kestro_track_sink_parent_class);
  auto const result = parent->change_state(element, change);
  if (change == GST_STATE_CHANGE_READY_TO_PAUSED) Pass(base);
  return result;
}

static GstFlowReturn Render(GstBaseSink* base, GstBuffer* buffer) {
  auto const await = [&] {
    GstFlowReturn flow = GST_FLOW_OK;
    while (Self(base).prerolling && flow == GST_FLOW_OK) {
      base->need_preroll = TRUE;
      flow = gst_base_sink_do_preroll(base, GST_MINI_OBJECT(buffer));
    }
    return flow;
  };
  Recording::Buffer own(gst_buffer_ref(buffer), [](GstBuffer* of) { gst_buffer_unref(of); });
  return Self(base).recording->Write(*Self(base).track, base->segment, std::move(own), await);
}

static bool IsLive(GstPad* pad) {
  gboolean live = TRUE;
  GstQuery* const query = gst_query_new_latency();
  if (gst_pad_peer_query(pad, query)) gst_query_parse_latency(query, &live, nullptr, nullptr);
  gst_query_unref(query);
  return live != FALSE;
}

static gboolean HandleEvent(GstBaseSink* base, GstEvent* event) {
  Recording& recording = *Self(base).recording;
  Track& track = *Self(base).track;
  auto const type = GST_EVENT_TYPE(event);
  if (type == GST_EVENT_STREAM_START || type == GST_EVENT_SEGMENT) recording.Restart(track);
  if (type == GST_EVENT_FLUSH_STOP) recording.Flush(track);
  // The file is complete when the message is posted.
  if (type == GST_EVENT_EOS && !recording.End(track)) {
    gst_event_unref(event);
    return FALSE;
  }
  gboolean const handled = GST_BASE_SINK_CLASS(kestro_track_sink_parent_class)->event(base, event);
  if (type == GST_EVENT_FLUSH_STOP) Pass(base);
  return handled;
}

static void kestro_track_sink_class_init(KestroTrackSinkClass* self) {
  G_OBJECT_CLASS(self)->finalize = [](GObject* object) {
    gst_caps_unref(Self(object).caps);
    G_OBJECT_CLASS(kestro_track_sink_parent_class)->finalize(object);
  };
  static GstStaticPadTemplate any =
      GST_STATIC_PAD_TEMPLATE("sink", GST_PAD_SINK, GST_PAD_ALWAYS, GST_STATIC_CAPS_ANY);
  auto* const element = GST_ELEMENT_CLASS(self);
  gst_element_class_add_static_pad_template(element, &any);
  gst_element_class_set_static_metadata(element, "AVI track", "Sink", "One track of kestroavisink",
                                        "The kestro project");
  element->change_state = ChangeState;
  auto* const base = GST_BASE_SINK_CLASS(self);
  base->get_caps = [](GstBaseSink* sink, GstCaps* filter) {
    if (filter == nullptr) return gst_caps_ref(Self(sink).caps);
    return gst_caps_intersect_full(filter, Self(sink).caps, GST_CAPS_INTERSECT_FIRST);
  };
  base->set_caps = [](GstBaseSink* sink, GstCaps* caps) -> gboolean {
    bool const live = IsLive(GST_BASE_SINK_PAD(sink));
    return Self(sink).recording->SetCaps(*Self(sink).track, caps, live);
  };
  base->event = HandleEvent;
  base->preroll = Preroll;
  base->render = Render;
}

namespace kestro::gst {

GstElement* NewTrackSink(Recording& recording, Track& track, GstCaps* caps) {
  auto* const sink = GST_ELEMENT(g_object_new(kestro_track_sink_get_type(), nullptr));
  Self(sink).recording = &recording;
  Self(sink).track = &track;
  Self(sink).caps = gst_caps_ref(caps);
  gst_base_sink_set_async_enabled(GST_BASE_SINK(sink), track.awaited);
  return sink;
}

Track& TrackOf(GstElement* sink) { return *Self(sink).track; }

}  // namespace kestro::gst
