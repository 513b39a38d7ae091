// The module's entry point and its implementation of Media.
#include <cstdarg>
#include <cstring>

#include "media/Media.h"
#include "media/libav/CodecParser.h"
#include "media/libav/ContainerFile.h"
#include "media/libav/DecodeCheck.h"
#include "media/libav/InputSession.h"

namespace kestro::tool {

namespace {

class LibavMedia : public Media {
 public:
  // The tool reports errors itself, and libav's lines contain passwords of addresses.
  LibavMedia() {
    av_log_set_level(AV_LOG_QUIET);
    av_log_set_callback([](void*, int, char const*, va_list) {});
  }

  std::unique_ptr<Session> OpenInputs(std::vector<std::string> const& addresses,
                                      InputOptions const& options,
                                      Selection const& selection) override {
    return std::make_unique<InputSession>(addresses, options, selection);
  }
  bool KnowsContainer(std::string const& path) override { return ContainerFile::IsContainer(path); }
  std::unique_ptr<FrameParser> NewFrameParser(avi::AviTrack const& track) override {
    return CodecParser::For(CodecOf(track));
  }
  std::unique_ptr<FrameChecker> NewFrameChecker(avi::AviTrack const& track) override {
    return std::make_unique<DecodeCheck>(CodecOf(track));
  }
  std::unique_ptr<Output> NewContainer(std::string const& path,
                                       std::vector<ContainerTrack> const& tracks) override {
    return std::make_unique<ContainerFile>(path, tracks);
  }
};

}  // namespace

extern "C" KESTRO_API Media* kestro_media(char const* version) {
  static LibavMedia media;
  return std::strcmp(version, KESTRO_VERSION) == 0 ? &media : nullptr;
}

}  // namespace kestro::tool
