// kestroavisink, driven by a harness: one step after the other, on one thread.
#include <gst/check/gstharness.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <filesystem>
#include <map>
#include <random>
#include <sstream>
#include <thread>
#include <vector>

namespace kestro::gst {
namespace {

namespace fs = std::filesystem;
using Bytes = std::vector<std::uint8_t>;

struct Kind {
  char const* pad;
  std::string caps;
  Bytes key, delta;
};
Bytes const kSet{0, 0, 0, 1, 0x67, 1, 2, 0, 0, 0, 1, 0x68, 3, 0, 0, 0, 1, 0x65, 4, 5},
    kSlice{0, 0, 0, 1, 0x41, 6, 7}, kBlock(640), kText{'h', 'i', 0};
std::string const kH264 = "video/x-h264, stream-format=byte-stream, alignment=au, ",
                  kPcm = "audio/x-raw, format=S16LE, layout=interleaved, rate=8000, channels=1";
std::map<char, Kind> const kKinds{
    {'v', {"video_0", kH264 + "width=64, height=48, framerate=25/1", kSet, kSlice}},
    {'w', {"video_0", kH264 + "width=32, height=24, framerate=25/1", kSet, kSlice}},
    {'u', {"video_0", kH264 + "width=64, height=48", kSet, kSlice}},  // without a frame rate
    {'j', {"video_1", "image/jpeg, width=64, height=48, framerate=25/1", kSlice, kSlice}},
    {'a', {"audio_0", kPcm, kBlock, kBlock}},
    {'t', {"text_0", "text/x-raw, format=utf8", kText, kText}},
};

// A sink with pads, and what it has posted.
class Rig {
 public:
  explicit Rig(fs::path const& location, char const* properties = "") {
    std::string const text = "kestroavisink location=" + location.string() + " " + properties;
    sink = gst_parse_launch(text.c_str(), nullptr);
    gst_object_ref_sink(sink);
    gst_element_set_bus(sink, _bus);
    // The harness accepts no asynchronous change. Without pads, this one is not.
    gst_element_set_state(sink, GST_STATE_PLAYING);
  }
  ~Rig() {
    for (auto& [pad, harness] : _harnesses) gst_harness_teardown(harness);
    gst_element_set_state(sink, GST_STATE_NULL);
    gst_object_unref(sink);
    gst_object_unref(_bus);
  }

  GstHarness* Harness(Kind const& kind) {
    GstHarness*& harness = _harnesses[kind.pad];
    if (harness == nullptr) harness = gst_harness_new_with_element(sink, kind.pad, nullptr);
    if (_caps[kind.pad] != kind.caps) gst_harness_set_src_caps_str(harness, kind.caps.c_str());
    _caps[kind.pad] = kind.caps;
    return harness;
  }

  // Steps: "v0!" a key frame of 'v' at 0 ms, "a40" audio at 40 ms, "a?" only its caps, "v." EOS,
  // "v~" a flush, "v-" release the pad, "split", "event", or a state.
  void Run(std::string const& steps) {
    std::istringstream words(steps);
    for (std::string step; words >> step;) {
      SCOPED_TRACE("step " + step);
      static std::map<std::string, GstState> const states{
          {"null", GST_STATE_NULL}, {"ready", GST_STATE_READY}, {"play", GST_STATE_PLAYING}};
      gboolean accepted = TRUE;
      if (step == "split") g_signal_emit_by_name(sink, "split-now");
      if (step == "event") g_signal_emit_by_name(sink, "event", "crash", &accepted);
      EXPECT_TRUE(accepted);
      if (states.count(step) != 0) gst_element_set_state(sink, states.at(step));
      if (step.size() > 3 && std::isalpha(step[1])) continue;
      Kind const& kind = kKinds.at(step[0]);
      GstHarness* const harness = Harness(kind);
      char const what = step[1];
      if (what == '?') continue;
      if (what == '.') {
        EXPECT_TRUE(gst_harness_push_event(harness, gst_event_new_eos()));
      } else if (what == '~') {
        gst_harness_push_event(harness, gst_event_new_flush_start());
        gst_harness_push_event(harness, gst_event_new_flush_stop(TRUE));
        GstSegment segment;
        gst_segment_init(&segment, GST_FORMAT_TIME);
        gst_harness_push_event(harness, gst_event_new_segment(&segment));
        gst_element_set_state(sink, GST_STATE_PLAYING);  // a pipeline does this
      } else if (what == '-') {
        gst_harness_teardown(harness);
        _harnesses.erase(kind.pad);
        _caps.erase(kind.pad);
      } else {
        bool const key = step.back() == '!';
        Bytes const& bytes = key ? kind.key : kind.delta;
        GstBuffer* const buffer = gst_buffer_new_memdup(bytes.data(), bytes.size());
        GST_BUFFER_PTS(buffer) = std::stoull(step.substr(1)) * GST_MSECOND;
        if (!key) GST_BUFFER_FLAG_SET(buffer, GST_BUFFER_FLAG_DELTA_UNIT);
        EXPECT_EQ(gst_harness_push(harness, buffer), GST_FLOW_OK);
      }
    }
  }

  // "PACKETS@START+LENGTH" of each file that was closed, and other messages.
  std::string Posted() {
    std::ostringstream text;
    std::map<std::string, guint64> starts;
    bool marked = false;  // by another thread, at any time
    while (GstMessage* const message = gst_bus_pop(_bus)) {
      GError* error = nullptr;
      if (GST_MESSAGE_TYPE(message) == GST_MESSAGE_EOS) text << "eos ";
      if (GST_MESSAGE_TYPE(message) == GST_MESSAGE_ERROR)
        gst_message_parse_error(message, &error, nullptr);
      if (error != nullptr) text << g_quark_to_string(error->domain) << ':' << error->code << ' ';
      g_clear_error(&error);
      if (GST_MESSAGE_TYPE(message) == GST_MESSAGE_ELEMENT) {
        GstStructure const* const fields = gst_message_get_structure(message);
        std::string const name = gst_structure_get_name(fields);
        char const* const path = gst_structure_get_string(fields, "location");
        guint64 time = 0, packets = 0, length = 0;
        gst_structure_get(fields, "running-time", G_TYPE_UINT64, &time, nullptr);
        if (name == "kestroavisink-fragment-opened") starts[path] = time;
        marked |= name == "kestroavisink-fragment-protected";
        if (name == "kestroavisink-event") text << gst_structure_get_string(fields, "label") << ' ';
        if (name == "kestroavisink-fragment-closed") {
          gst_structure_get(fields, "packets", G_TYPE_UINT64, &packets, "duration", G_TYPE_UINT64,
                            &length, nullptr);
          text << packets << '@' << starts[path] / GST_MSECOND << '+' << length / GST_MSECOND
               << ' ';
        }
      }
      gst_message_unref(message);
    }
    std::string const all = (marked ? "protected " : "") + text.str();
    return all.empty() ? all : all.substr(0, all.size() - 1);
  }

  GstElement* sink;

 private:
  GstBus* const _bus = gst_bus_new();
  std::map<std::string, GstHarness*> _harnesses;
  std::map<std::string, std::string> _caps;
};

fs::path NewFolder() {
  std::string name = (fs::temp_directory_path() / "gst-XXXXXX").string();
  return mkdtemp(name.data());
}

TEST(GstSink, RecordsEveryOrderOfSteps) {
  struct Row {
    char const *name, *properties, *steps, *posted;
  };
  for (Row const& row : {
           Row{"one track", "", "v0! v40 v80 v.", "3@0+120 eos"},
           Row{"NULL without EOS", "", "v0! v40 v80 null", "3@0+120"},
           Row{"no data", "", "v? v.", "eos"},
           Row{"no data at all", "", "v? null", ""},
           Row{"waits for the caps of audio", "", "v? a? v0! a0 v40 a40 v. a.", "4@0+80 eos"},
           Row{"audio ends before video starts", "", "v? a0 a. v0! v40 v.", "3@0+80 eos"},
           Row{"EOS of one pad", "", "v? a0 v0! a. v40 v80 v.", "4@0+120 eos"},
           Row{"text before its frame", "", "v? t0 v0! v40 t50 v80 v. t.", "5@0+120 eos"},
           Row{"motion JPEG next to H.264", "", "v? j0! v0! j40! v40 v. j.", "4@0+80 eos"},
           Row{"other caps start a file", "", "v0! v40 w80! w120 w.", "2@0+80 2@80+80 eos"},
           Row{"the same caps again do not", "", "v0! v40 v80! v.", "3@0+120 eos"},
           Row{"a late pad", "", "v0! v40 a? v80! a80 v. a.", "2@0+80 2@80+40 eos"},
           Row{"a pad goes", "", "v? a0 v0! a- v40! v80 v.", "2@0+40 2@40+80 eos"},
           Row{"the last pad goes", "", "v0! v40 v-", "2@0+80"},
           Row{"split-now", "", "v0! v40 split v80! v.", "2@0+80 1@80+40 eos"},
           Row{"max-size-time", "max-size-time=80000000", "v0! v40 v80! v120! v160! v.",
               "2@0+80 2@80+80 1@160+40 eos"},
           Row{"a flush starts a file that goes on", "", "v0! v40 v~ v0! v40 v.",
               "2@0+80 2@80+80 eos"},
           Row{"times that jump back", "", "v5000! v5040 v0! v40 v.", "2@5000+80 2@5080+80 eos"},
           Row{"EOS, flush, more", "overwrite=true", "v0! v. v~ v0! v40 v.",
               "1@0+40 eos 2@0+80 eos"},
           Row{"READY and NULL in between", "", "v0! v40 ready play v0! null play v0! v.",
               "2@0+80 1@0+40 1@0+40 eos"},
           Row{"an event", "", "v0! v40 event v80! v.", "protected crash 3@0+120 eos"},
           Row{"frame rate from the timestamps", "",
               "u0! u50 u100 u150 u200 u250 u300 u350 u400 u450 u500 u.", "11@0+550 eos"},
           Row{"frame rate of few frames", "", "u0! u50 u.", "2@0+100 eos"},
           Row{"frame-rate", "frame-rate=10/1", "u0! u100 u.", "2@0+200 eos"},
       }) {
    SCOPED_TRACE(row.name);
    auto const folder = NewFolder();
    Rig rig(folder / "a%02d.avi", row.properties);
    rig.Run(row.steps);
    EXPECT_EQ(rig.Posted(), row.posted);
    fs::remove_all(folder);
  }
}

TEST(GstSink, PostsTheRightError) {
  auto const folder = NewFolder();
  std::string const keepAll = "keep-free=" + std::to_string(fs::space(folder).capacity - 100000000);
  struct Row {
    char const *name, *location, *properties, *steps, *posted;
  };
  for (Row const& row : {
           Row{"missing folder", "none/a.avi", "", "v0!", "gst-resource-error-quark:6"},
           Row{"no picture size", "e.avi", "", "x", "gst-stream-error-quark:11"},
           Row{"text alone", "b.avi", "", "t0", "gst-stream-error-quark:11"},
           Row{"index larger than the file", "c.avi",
               "max-size-bytes=100000 reserve-time=3600000000000", "v0!",
               "gst-resource-error-quark:13"},
           Row{"full card", "d%02d.avi", keepAll.c_str(), "v0!", "gst-resource-error-quark:14"},
       }) {
    SCOPED_TRACE(row.name);
    Rig rig(folder / row.location, row.properties);
    bool const sizeless = row.steps[0] == 'x';
    Kind const& kind = kKinds.at(sizeless ? 'v' : row.steps[0]);
    GstHarness* const harness = rig.Harness(kind);
    GstCaps* const caps = gst_caps_from_string("image/jpeg");
    if (sizeless) gst_harness_push_event(harness, gst_event_new_caps(caps));
    gst_caps_unref(caps);
    // Some storage errors are found after the push.
    gst_harness_push(harness, gst_buffer_new_memdup(kind.key.data(), kind.key.size()));
    gst_element_set_state(rig.sink, GST_STATE_NULL);
    std::string const posted = rig.Posted();
    EXPECT_NE(posted.find(row.posted), posted.npos) << posted;
  }
  fs::remove_all(folder);
}

// Pushes flushes, buffers and ends until it is stopped, whatever the sink answers.
void Push(GstPad* pad, Kind const& kind, std::atomic<bool> const& stop, std::atomic<int>& taken) {
  GstSegment segment;
  gst_segment_init(&segment, GST_FORMAT_TIME);
  GstClockTime now = 0;
  for (int round = 0; !stop; ++round) {
    if (round % 4 == 1) gst_pad_push_event(pad, gst_event_new_flush_start());
    gst_pad_push_event(pad, gst_event_new_flush_stop(TRUE));
    gst_pad_push_event(pad, gst_event_new_stream_start("stream"));
    GstCaps* const caps = gst_caps_from_string(kind.caps.c_str());
    gst_pad_push_event(pad, gst_event_new_caps(caps));
    gst_caps_unref(caps);
    gst_pad_push_event(pad, gst_event_new_segment(&segment));
    GstFlowReturn flow = GST_FLOW_OK;
    for (int i = 0; i < 50 && flow == GST_FLOW_OK; ++i, now += 40 * GST_MSECOND) {
      GstBuffer* const buffer = gst_buffer_new_memdup(kind.key.data(), kind.key.size());
      GST_BUFFER_PTS(buffer) = now;
      flow = gst_pad_push(pad, buffer);
      taken += flow == GST_FLOW_OK;
    }
    if (round % 8 == 3) gst_pad_push_event(pad, gst_event_new_eos());
  }
}

TEST(GstSink, SurvivesStatesPadsAndActionsAtRandom) {
  auto const folder = NewFolder();
  Rig rig(folder / "a%05d.avi", "max-files=5 max-size-time=1000000000");
  std::mt19937 random(1);
  struct Source {
    GstPad *pad = nullptr, *peer = nullptr;
    std::atomic<bool> stop{false};
    std::thread thread;
  } sources[3];
  std::atomic<int> taken{0};
  for (int i = 0; i < 103; ++i) {
    auto const which = i < 100 ? random() % 3 : static_cast<std::size_t>(i - 100);
    Source& source = sources[which];
    if (source.pad != nullptr && (i >= 100 || random() % 5 == 0)) {
      source.stop = true;
      gst_element_release_request_pad(rig.sink, source.peer);
      source.thread.join();
      gst_object_unref(source.peer);
      gst_object_unref(std::exchange(source.pad, nullptr));
    } else if (source.pad == nullptr && i < 100) {
      Kind const& kind = kKinds.at("vaj"[which]);
      source.stop = false;
      source.pad = gst_pad_new("src", GST_PAD_SRC);
      source.peer = gst_element_request_pad_simple(rig.sink, kind.pad);
      gst_pad_set_active(source.pad, TRUE);
      EXPECT_EQ(gst_pad_link(source.pad, source.peer), GST_PAD_LINK_OK);
      source.thread = std::thread([&] { Push(source.pad, kind, source.stop, taken); });
    }
    gst_element_set_state(rig.sink,
                          static_cast<GstState>(1 + std::min(3, static_cast<int>(random() % 8))));
    gboolean accepted = FALSE;
    g_signal_emit_by_name(rig.sink, "event", "any", &accepted);
    g_signal_emit_by_name(rig.sink, "split-now");
    std::this_thread::sleep_for(std::chrono::milliseconds(random() % 8));
  }
  EXPECT_GT(taken, 500);
  std::string const posted = rig.Posted();
  EXPECT_EQ(posted.find("quark"), posted.npos) << posted;
  gst_element_set_state(rig.sink, GST_STATE_NULL);
  fs::remove_all(folder);
}

}  // namespace
}  // namespace kestro::gst

int main(int argc, char** argv) {
  gst_init(&argc, &argv);
  testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
