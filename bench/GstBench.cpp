#include "GstBench.h"

#ifdef KESTRO_BENCH_GSTREAMER

#include <gst/gst.h>

#include <filesystem>
#include <memory>

#include "Recording.h"
#include "Target.h"

namespace kestro::bench {

namespace {

constexpr std::int64_t kPackets = 6000;

// The pads of both sinks have the same names.
std::string Pipeline(std::string const& input, std::string const& sink) {
  return "filesrc location=" + input + " ! avidemux name=in in.video_0 ! capssetter replace=true " +
         "caps=video/x-h264,stream-format=byte-stream,alignment=au,width=1920,height=1080," +
         "framerate=30/1 ! queue ! out.video_0 in.audio_0 ! queue ! out.audio_0 " + sink;
}

// Runs a pipeline from its first state change to the last one, as an application does.
void Run(std::string const& description, Stopwatch& watch) {
  GstElement* const pipeline = gst_parse_launch(description.c_str(), nullptr);
  Require(pipeline != nullptr, "a pipeline cannot be built");
  watch.Start();
  gst_element_set_state(pipeline, GST_STATE_PLAYING);
  GstBus* const bus = gst_element_get_bus(pipeline);
  auto const ends = static_cast<GstMessageType>(GST_MESSAGE_EOS | GST_MESSAGE_ERROR);
  GstMessage* const end = gst_bus_timed_pop_filtered(bus, GST_CLOCK_TIME_NONE, ends);
  bool const complete = GST_MESSAGE_TYPE(end) == GST_MESSAGE_EOS;
  gst_message_unref(end);
  gst_object_unref(bus);
  gst_element_set_state(pipeline, GST_STATE_NULL);
  watch.Stop();
  gst_object_unref(pipeline);
  Require(complete, "a pipeline failed");
}

bool Available() {
  auto const folder = std::filesystem::canonical("/proc/self/exe").parent_path();
  std::string const plugin = folder / KESTRO_BENCH_GSTREAMER;
  if (!gst_init_check(nullptr, nullptr, nullptr)) return false;
  GstPlugin* const loaded = gst_plugin_load_file(plugin.c_str(), nullptr);
  if (loaded == nullptr) return false;
  gst_object_unref(loaded);
  for (char const* name : {"avidemux", "avimux", "capssetter", "queue"}) {
    GstElementFactory* const factory = gst_element_factory_find(name);
    if (factory == nullptr) return false;
    gst_object_unref(factory);
  }
  return true;
}

}  // namespace

std::vector<Case> GstCases() {
  if (!Available()) return {};
  auto const footage = std::make_shared<Recording>("gst-in", Mix::Sizes{}, kPackets);
  Target const target{TmpfsPath("gst-out")};
  auto const contender = [=](char const* name, std::string const& sink) {
    return Contender{name, [=](Stopwatch& watch) {
                       target.Clear();
                       Run(Pipeline(footage->Path(), sink), watch);
                       target.Clear();
                     }};
  };
  std::string const ours = "kestroavisink name=out location=" + target.path;
  return {{"gst/record",
           "s/GB",
           1e9 / static_cast<double>(Mix(1, {}).Bytes(kPackets)),
           kPackets,
           {contender("ours", ours),
            contender("avimux", "avimux name=out ! filesink location=" + target.path),
            contender("sync off", ours + " sync-mode=off")}}};
}

}  // namespace kestro::bench

#else

std::vector<kestro::bench::Case> kestro::bench::GstCases() { return {}; }

#endif
