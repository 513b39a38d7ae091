// A camera for tests: an RTSP server on 127.0.0.1.
//   kestro-test-camera [PORT [jpeg]]
// Prints its port. rtsp://127.0.0.1:PORT/video has H.264 with a key frame a second, or motion JPEG;
// /audio has G.711, and /both has both. Commands on standard input: "size WIDTH HEIGHT" changes the
// picture, also for connected clients; "end" closes the streams with an end of stream; the end of
// the input ends the server without a word to its clients.
#include <gst/rtsp-server/rtsp-server.h>
#include <unistd.h>

#include <cstdio>
#include <iostream>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace {

constexpr char kVideo[] = "videotestsrc is-live=true pattern=ball ! capsfilter name=size ! ";
constexpr char kH264[] =
    "openh264enc gop-size=25 complexity=low bitrate=200000 ! h264parse ! "
    "rtph264pay name=pay0 pt=96 config-interval=-1 ";
constexpr char kJpeg[] = "jpegenc ! rtpjpegpay name=pay0 ";
constexpr char kAudio[] =
    "audiotestsrc is-live=true ! audio/x-raw,rate=8000 ! alawenc ! rtppcmapay pt=8 name=";

std::mutex mutex;
int width = 320, height = 240, rate = 25;
std::vector<GstElement*> pipelines;  // of all clients so far

void SetSize(GstElement* pipeline) {
  GstElement* const filter = gst_bin_get_by_name(GST_BIN(pipeline), "size");
  if (filter == nullptr) return;
  GstCaps* const caps = gst_caps_new_simple("video/x-raw", "format", G_TYPE_STRING, "I420", "width",
                                            G_TYPE_INT, width, "height", G_TYPE_INT, height,
                                            "framerate", GST_TYPE_FRACTION, rate, 1, nullptr);
  g_object_set(filter, "caps", caps, nullptr);
  gst_caps_unref(caps);
  gst_object_unref(filter);
}

void OnMedia(GstRTSPMediaFactory*, GstRTSPMedia* media, gpointer) {
  std::lock_guard lock(mutex);
  pipelines.push_back(gst_rtsp_media_get_element(media));
  SetSize(pipelines.back());
}

void Serve(GstRTSPServer* server, char const* path, std::string const& launch) {
  GstRTSPMountPoints* const mounts = gst_rtsp_server_get_mount_points(server);
  GstRTSPMediaFactory* const factory = gst_rtsp_media_factory_new();
  gst_rtsp_media_factory_set_launch(factory, ("( " + launch + " )").c_str());
  gst_rtsp_media_factory_set_shared(factory, TRUE);
  g_signal_connect(factory, "media-configure", G_CALLBACK(OnMedia), nullptr);
  gst_rtsp_mount_points_add_factory(mounts, path, factory);
  g_object_unref(mounts);
}

void TakeCommands() {
  for (std::string command; std::cin >> command;) {
    std::lock_guard lock(mutex);
    if (command == "size" && std::cin >> width >> height >> rate)
      for (GstElement* pipeline : pipelines) SetSize(pipeline);
    if (command == "end")
      for (GstElement* pipeline : pipelines) gst_element_send_event(pipeline, gst_event_new_eos());
  }
  _exit(0);
}

}  // namespace

int main(int argc, char** argv) {
  gst_init(nullptr, nullptr);
  GstRTSPServer* const server = gst_rtsp_server_new();
  gst_rtsp_server_set_address(server, "127.0.0.1");
  gst_rtsp_server_set_service(server, argc > 1 ? argv[1] : "0");
  std::string const video = std::string(kVideo) + (argc > 2 ? kJpeg : kH264);
  Serve(server, "/video", video);
  Serve(server, "/audio", std::string(kAudio) + "pay0");
  Serve(server, "/both", video + kAudio + "pay1");
  if (gst_rtsp_server_attach(server, nullptr) == 0) return 1;
  std::printf("%d\n", gst_rtsp_server_get_bound_port(server));
  std::fflush(stdout);
  std::thread(TakeCommands).detach();
  g_main_loop_run(g_main_loop_new(nullptr, FALSE));
}
