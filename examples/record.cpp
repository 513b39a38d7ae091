// Records an H.264 elementary stream into an AVI file:
//   record PLUGIN IN.h264 OUT.avi WIDTH HEIGHT FRAMES-PER-SECOND
// The stream has a delimiter before each picture, and start codes of four bytes.
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <iterator>
#include <memory>

#include "base/Module.h"
#include "stream/IMuxer.h"

using kestro::base::Ref;
namespace base = kestro::base;
namespace stream = kestro::stream;

static int Fail(std::string const& text) {
  std::cerr << "record: " << text << "\n";
  return 1;
}

int main(int argc, char** argv) {
  if (argc != 7) return Fail("takes PLUGIN IN.h264 OUT.avi WIDTH HEIGHT FRAMES-PER-SECOND");
  std::ifstream file(argv[2], std::ios::binary);
  std::string const data{std::istreambuf_iterator<char>(file), {}};
  std::string const delimiter("\0\0\0\1\x09", 5), key("\0\0\0\1\x65", 5);
  auto const rate = base::Fraction::From(argv[6]);
  if (!rate.Positive()) return Fail("not a frame rate");

  std::string error;
  if (!base::LoadPlugin(argv[1], &error)) return Fail(error);
  auto const muxer = base::Make<stream::IMuxer>("avi-muxer");
  if (!muxer || !muxer->Set("path", argv[3]) || !muxer->Set("constFrameRate", rate))
    return Fail("no muxer");

  auto media = Ref<stream::IMedia>::Take(stream::IMedia::New("h264"));
  media->Set("width", std::atoi(argv[4]));
  media->Set("height", std::atoi(argv[5]));
  media->Set("interlace", false);
  media->Set("framerate", rate);
  stream::IPort* input = muxer->AddInput();
  if (!input->Offer(media.get()) || !muxer->StatusChange(stream::IStatus::kRunning))
    return Fail("the muxer does not take the stream");

  base::int64 frames = 0;
  for (std::size_t at = data.find(delimiter), next; at != data.npos; at = next, ++frames) {
    next = data.find(delimiter, at + 1);
    std::string const unit = data.substr(at, next == data.npos ? next : next - at);
    auto packet = stream::Packet::New(unit.size(), unit.data());
    packet->Media(media.get());
    packet->Pts(frames * 1000000000 * rate.den / rate.num);
    if (unit.find(key) != unit.npos) packet->Flags(stream::Packet::kKey);
    if (!input->Push(*packet)) return Fail("a frame was refused");
  }
  if (!muxer->StatusChange(stream::IStatus::kClosed) || !muxer->Check()) return Fail("closing");
  std::cout << frames << " frames in " << argv[3] << "\n";
}
