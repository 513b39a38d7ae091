#include "recorder/Packets.h"

#include <algorithm>
#include <utility>

#include "base/LittleEndian.h"
#include "stream/NalUnits.h"

namespace kestro::record {

using base::Ref;
using stream::IMedia;

// Packets of motion JPEG include the chunk header: "NNdc" with the track's number, and the size,
// little-endian.
static constexpr std::size_t kChunkHead = 8;

static void WriteChunkHead(std::size_t track, std::size_t size, std::uint8_t* out) {
  out[0] = static_cast<std::uint8_t>('0' + track / 10 % 10);
  out[1] = static_cast<std::uint8_t>('0' + track % 10);
  out[2] = 'd';
  out[3] = 'c';
  base::Store32(out + 4, static_cast<unsigned>(size));
}

static Ref<IMedia> NewMedia(TrackInfo const& info) {
  static constexpr char const* kNames[] = {"h264", "hevc", "mjpg", "pcm", "txt"};
  auto media = Ref<IMedia>::Take(IMedia::New(kNames[info.codec]));
  if (info.IsAudio()) {
    media->Set("rate", info.rate);
    media->Set("channel", info.channels);
    media->Set("width", info.bits / 8);
    media->Set("depth", info.bits);
    media->Set("samples", info.samples);
    return media;
  }
  media->Set("framerate", info.frameRate);
  if (info.IsText()) return media;
  media->Set("width", info.width);
  media->Set("height", info.height);
  media->Set("interlace", false);
  return media;
}

// Encoders may use start codes of three bytes; the muxer finds those of four. Returns a copy of the
// access unit in which those up to the first slice have four bytes; empty if they have already.
static std::vector<std::uint8_t> WithLongStartCodes(stream::NalCodec codec,
                                                    std::uint8_t const* data, std::size_t size) {
  std::vector<std::uint8_t> wide;
  std::size_t copied = 0;
  for (stream::NalUnits<stream::AllCodes> unit(codec, data, size); unit.More(); unit.Next()) {
    std::size_t const code = unit.Code();
    if (code == 0 || data[code - 1] != 0) {
      wide.reserve(size + 8);
      wide.insert(wide.end(), data + copied, data + code);
      wide.push_back(0);
      copied = code;
    }
    if (unit.Header().IsSlice()) break;
  }
  if (!wide.empty()) wide.insert(wide.end(), data + copied, data + size);
  return wide;
}

Packets::Packets(Tracks const& tracks, int mostHeld, bool verbatim) : _mostHeld(mostHeld) {
  for (TrackInfo const& track : tracks) {
    _media.push_back(NewMedia(track));
    _nal.push_back(track.TakesParameterSets() && !verbatim
                       ? std::optional(track.codec == TrackInfo::kHevc ? stream::NalCodec::kHevc
                                                                       : stream::NalCodec::kH264)
                       : std::nullopt);
    _headed.push_back(track.codec == TrackInfo::kMjpeg);
  }
}

// Memory of the application, released with the last packet that uses it.
class Packets::BorrowedMemory : public base::Reference {
 public:
  BorrowedMemory(Payload const& payload, std::shared_ptr<std::atomic<int>> held)
      : _payload(payload), _held(std::move(held)) {
    ++*_held;
  }

 private:
  ~BorrowedMemory() override {
    _payload.release(_payload.context);
    --*_held;
  }

  Payload const _payload;
  std::shared_ptr<std::atomic<int>> const _held;
};

namespace {
// Releases a payload unless a packet has taken it over.
struct Release {
  explicit Release(Payload const& payload) : of(payload.release != nullptr ? &payload : nullptr) {}
  ~Release() {
    if (of != nullptr) of->release(of->context);
  }
  Payload const* of;
};
}  // namespace

Ref<stream::Packet> Packets::New(std::size_t track, Payload const& payload) const {
  Release release(payload);
  std::size_t const head = _headed[track] ? kChunkHead : 0;
  auto const* data = static_cast<std::uint8_t const*>(payload.data);
  std::size_t size = payload.size;
  auto const wide =
      _nal[track] ? WithLongStartCodes(*_nal[track], data, size) : std::vector<std::uint8_t>();
  if (!wide.empty()) {
    data = wide.data();
    size = wide.size();
  }
  Ref<stream::Packet> made;
  if (wide.empty() && release.of != nullptr && head == 0 && _held->load() < _mostHeld) {
    auto const owner = Ref<BorrowedMemory>::Take(new BorrowedMemory(payload, _held));
    release.of = nullptr;
    made =
        stream::Packet::Wrap(const_cast<std::uint8_t*>(data), static_cast<int>(size), owner.get());
  } else {
    made = stream::Packet::New(static_cast<int>(head + size));
    if (head != 0) WriteChunkHead(track, size, made->Data());
    std::copy_n(data, size, made->Data() + head);
  }
  made->Media(Media(track));
  if (payload.key) made->Flags(stream::Packet::kKey);
  return made;
}

}  // namespace kestro::record
