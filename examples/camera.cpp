// A camera recorder: it records one file of a few seconds after another. Each file is synced once a
// second, so that a power cut costs at most that much, and a queue keeps the camera from waiting
// for the card.
//   camera PLUGIN IN.h264 OUT-%03d.avi WIDTH HEIGHT FRAMES-PER-SECOND SECONDS-PER-FILE
// IN.h264 stands in for the camera: a delimiter before each picture, start codes of four bytes.
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <iterator>
#include <memory>
#include <utility>

#include "base/Module.h"
#include "stream/IMuxer.h"
#include "stream/PacketQueue.h"

namespace base = kestro::base;
namespace stream = kestro::stream;
using base::Ref;

namespace {

// Returns the frames of an elementary stream, one per call.
class Camera {
 public:
  Camera(char const* path, Ref<stream::IMedia> media, base::Fraction rate)
      : _media(std::move(media)), _rate(rate) {
    std::ifstream file(path, std::ios::binary);
    _data.assign(std::istreambuf_iterator<char>(file), {});
    _at = _data.find(kDelimiter);
  }

  Ref<stream::Packet> Next() {  // null at the end
    if (_at == _data.npos) return {};
    std::size_t const next = _data.find(kDelimiter, _at + 1);
    std::string const unit = _data.substr(_at, next == _data.npos ? next : next - _at);
    _at = next;
    auto packet = stream::Packet::New(static_cast<int>(unit.size()), unit.data());
    packet->Media(_media.get());
    packet->Pts(_frames++ * 1000000000 * _rate.den / _rate.num);
    if (unit.find(kKey) != unit.npos) packet->Flags(stream::Packet::kKey);
    return packet;
  }

 private:
  std::string const kDelimiter{"\0\0\0\1\x09", 5}, kKey{"\0\0\0\1\x65", 5};
  Ref<stream::IMedia> _media;
  base::Fraction _rate;
  std::string _data;
  std::size_t _at;
  base::int64 _frames = 0;
};

// The queue followed by the muxer, for one file after another.
class Recorder {
 public:
  Recorder(stream::IMedia& media, base::Fraction rate, unsigned seconds) {
    _muxer = base::Make<stream::IMuxer>("avi-muxer-vfi");
    _queue = base::Make<stream::PacketQueue>("packet-queue");
    if (!_muxer || !_queue) return;
    // Room before the data for the index of a file: 16 bytes per frame, and half as much again for
    // files that end late, at a key frame. The headers take less than 4 KiB.
    auto const frames = static_cast<base::uint64>(seconds) * rate.num / rate.den + 1;
    base::uint64 const reserve = (4096 + 24 * frames + 511) / 512 * 512;
    _ok = _muxer->Set("constFrameRate", rate) && _muxer->Set("flushtime", 1000u) &&
          _muxer->Set("reservedSize", reserve) && _queue->Set("maxBytes", base::uint64{8} << 20) &&
          _queue->Set("drop", true);
    auto const report = [this](stream::IElement& from, char const* type, char const* text,
                               base::AttrSet const*) {
      std::cerr << "camera: " << from.Name() << ": " << type << ": " << (text ? text : "") << "\n";
      if (std::string(type) == "error") _ok = false;
      return true;
    };
    _muxer->OnMessage(report);
    _queue->OnMessage(report);
    auto const track = _queue->AddTrack();
    _input = track.input;
    _ok = stream::IPort::Link(*track.output, *_muxer->AddInput()) && _input->Offer(&media) && _ok;
  }

  bool Ok() const { return _ok; }
  bool Begin(std::string const& path) {
    _ok = _ok && _muxer->Set("path", path.c_str()) &&
          _muxer->StatusChange(stream::IStatus::kRunning) &&
          _queue->StatusChange(stream::IStatus::kRunning);
    return _ok;
  }
  bool Push(stream::Packet& packet) { return _input->Push(packet) && _ok; }
  // Also after a failure, to keep what was recorded before it. The queue is closed first, because
  // it passes on the packets that it still holds.
  bool End() {
    bool const drained = _queue->StatusChange(stream::IStatus::kClosed);
    bool const closed = _muxer->StatusChange(stream::IStatus::kClosed);
    return drained && closed && _queue->Check() && _muxer->Check() && _ok;
  }

 private:
  std::atomic<bool> _ok{false};  // messages arrive on the queue's thread
  std::unique_ptr<stream::IMuxer> _muxer;
  std::unique_ptr<stream::PacketQueue> _queue;  // destroyed before the muxer that it is linked to
  stream::IPort* _input = nullptr;
};

int Fail(std::string const& text) {
  std::cerr << "camera: " << text << "\n";
  return 1;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 8) return Fail("takes PLUGIN IN.h264 OUT-%03d.avi WIDTH HEIGHT RATE SECONDS");
  auto const rate = base::Fraction::From(argv[6]);
  int const seconds = std::atoi(argv[7]);
  if (!rate.Positive() || seconds <= 0) return Fail("not a frame rate, or not a length");
  std::string error;
  if (!base::LoadPlugin(argv[1], &error)) return Fail(error);

  auto media = Ref<stream::IMedia>::Take(stream::IMedia::New("h264"));
  media->Set("width", std::atoi(argv[4]));
  media->Set("height", std::atoi(argv[5]));
  media->Set("interlace", false);
  media->Set("framerate", rate);
  Camera camera(argv[2], media, rate);
  Recorder recorder(*media, rate, static_cast<unsigned>(seconds));
  if (!recorder.Ok()) return Fail("the plug-in has no muxer that syncs");

  std::string const pattern = argv[3];
  std::size_t const number = pattern.find("%03d");
  if (number == pattern.npos) return Fail("the name has no %03d");
  int files = 0;
  base::int64 end_ns = 0;  // of the current file, if a key frame comes then
  while (Ref<stream::Packet> const frame = camera.Next()) {
    if (files == 0 || (frame->IsKey() && frame->Pts() >= end_ns)) {
      if (files > 0 && !recorder.End()) return Fail("a file was not completed");
      char text[16];
      std::snprintf(text, sizeof text, "%03d", ++files);
      end_ns = frame->Pts() + base::int64{seconds} * 1000000000;
      if (!recorder.Begin(std::string(pattern).replace(number, 4, text)))
        return Fail("a file cannot be begun");
    }
    if (!recorder.Push(*frame)) {
      recorder.End();
      return Fail("recording has failed; what came before is kept");
    }
  }
  if (files == 0) return Fail("no frame in the input");
  if (!recorder.End()) return Fail("the last file was not completed");
  std::cout << files << " files\n";
}
