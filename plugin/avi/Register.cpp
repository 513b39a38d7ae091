#include "Register.h"

#include "AviDemux.h"
#include "AviMuxer.h"
#include "PluginAvi.h"
#include "VideoTag.h"
#include "common/StreamAac.h"
#include "common/StreamH264.h"
#include "common/StreamHevc.h"
#include "common/StreamJpeg.h"
#include "common/StreamPcm.h"
#include "common/StreamTxt.h"

using namespace kestro::plugin::avi;

void RegisterAviStreamAac(char const* name) {
  RegisterClass<StreamAac>(name, "AviStreamAac-avi-stream-mp4a-aac", {}, "Ida Marel");
}

void RegisterAviStreamH264(char const* name) {
  RegisterClass<StreamH264>(name, "AviStreamH264-avi-stream-avc1-h264-H264",
                            StreamH264::Properties(), "Ida Marel");
}

void RegisterAviStreamHevc(char const* name) {
  RegisterClass<StreamHevc>(name, "AviStreamHevc-avi-stream-hev1-hevc-h265",
                            StreamHevc::Properties(), "Ida Marel");
}

void RegisterAviStreamPcm(char const* name) {
  RegisterClass<StreamPcm>(name, "AviStreamPcm-avi-stream-pcm-sowt-s16le-PCM", {}, "Ida Marel");
}

void RegisterAviStreamJpeg(char const* name) {
  RegisterClass<StreamJpeg>(name, "AviStreamJpeg-avi-stream-jpeg-mjpg-jpg", {}, "Ida Marel");
}

void RegisterAviStreamTxt(char const* name) {
  RegisterClass<StreamTxt>(name, "AviStreamTxt-avi-stream-txt", {}, "Ida Marel");
}

void RegisterAviVideoTags(char const* name) {
  RegisterClass<AviVideoTags>(name, "AviVideoTags", AviVideoTags::Properties(), "Tomas Weil");
}

void RegisterAviMuxer(char const* name) {
  RegisterClass<AviMuxer>(name, "AviMuxer-avi-muxer", AviMuxer::Properties(), "Tomas Weil");
}

void RegisterAviDemuxer(char const* name) {
  RegisterClass<AviDemuxer>(name, "AviDemuxer-avi-demuxer", AviDemuxer::Properties(), "Tomas Weil");
}
