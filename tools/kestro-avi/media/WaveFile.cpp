#include "media/WaveFile.h"

#include "cli/Errors.h"

namespace kestro::tool {

static constexpr unsigned kWaveHead = 44;

WaveFile::WaveFile(std::string const& path, avi::AviTrack const& track)
    : StreamFile(path), _track(track), _bytes(Seekable() ? 0 : track.bytes) {
  if (track.bytes > UINT32_MAX - kWaveHead)
    throw Error(kUnusable, path + ": the audio is larger than 4 GiB, the limit of a WAV file");
  StoreHead();
}

void WaveFile::StoreHead() {
  std::string head;
  auto const number = [&head](std::uint64_t value, int bytes) {
    for (int i = 0; i < bytes; ++i) head += static_cast<char>(value >> 8 * i & 0xFF);
  };
  unsigned const frame = _track.channels * _track.bits / 8;
  head += "RIFF";
  number(kWaveHead - 8 + _bytes + _bytes % 2, 4);
  head += "WAVEfmt ";
  number(16, 4);
  number(1, 2);  // PCM
  number(_track.channels, 2);
  number(_track.sampleRate, 4);
  number(std::uint64_t{_track.sampleRate} * frame, 4);
  number(frame, 2);
  number(_track.bits, 2);
  head += "data";
  number(_bytes, 4);
  Store(head.data(), head.size());
}

void WaveFile::Write(std::size_t track, avi::Piece const& piece) {
  if (Seekable()) _bytes += piece.size;
  StreamFile::Write(track, piece);
}

Written WaveFile::Finish() {
  if (_bytes % 2 != 0) Store("", 1);
  if (Seekable()) {
    Rewind();
    StoreHead();
  }
  return StreamFile::Finish();
}

}  // namespace kestro::tool
