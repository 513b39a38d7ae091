#include "verbs/TrackFormats.h"

#include <algorithm>

#include "media/Scaled.h"
#include "stream/NalUnits.h"
#include "verify/FrameConverter.h"

namespace kestro::tool {

namespace {

// The parameter sets come first in a frame, or after a few small units.
constexpr unsigned kStart = 4096, kMost = 1 << 20;
constexpr int kFrames = 8;  // that are searched for the format

class FormatReader {
 public:
  FormatReader(avi::AviFile& avi, std::size_t track, bool deep)
      : _reader(avi.Reader()),
        _track(avi.Tracks()[track]),
        _codec(stream::NalCodecOf(_track.codec)),
        _converter(_track),
        _deep(deep && _codec),
        _flagged(avi.Indexed()) {}

  void Take(avi::IndexEntry const& entry) {
    std::uint64_t const frame = _frame++;
    bool const key = !_flagged || (entry.flags & avi::IndexEntry::kKey) != 0;
    bool const search = !_found.format && _searched < kFrames;
    if (entry.size == 0 || !(search || (_deep && (key || frame == 0)))) return;
    ++_searched;
    Read(entry);
    if (!_found.format)
      _found.format = avi::VideoFormat::Read(_track.codec, _data.data(), _data.size());
    if (_deep) Compare(frame);
  }
  TrackFormat Found() const { return _found; }

 private:
  // Sets _data to a frame's beginning, with start codes.
  void Read(avi::IndexEntry const& entry) {
    ReadBytes(entry, _converter.Needed() ? kMost : kStart);
    if (!_converter.Needed()) {
      if (_codec && entry.size > kStart && !HasSlice()) ReadBytes(entry, kMost);
      return;
    }
    _converter.Convert(_data.data(), _data.size(), _converted);
    std::swap(_data, _converted);
  }
  void ReadBytes(avi::IndexEntry const& entry, unsigned most) {
    _data.resize(std::min(entry.size, most));
    _data.resize(_reader.Read(entry.offset + 8, _data.data(), static_cast<unsigned>(_data.size())));
  }
  bool HasSlice() const {
    for (stream::NalUnits<stream::AllCodes> unit(*_codec, _data.data(), _data.size()); unit.More();
         unit.Next())
      if (unit.Header().IsSlice()) return true;
    return false;
  }
  void Compare(std::uint64_t frame) {
    auto sets =
        stream::ParameterSets(*_codec == stream::NalCodec::kHevc, _data.data(), _data.size());
    if (sets.empty() || sets == _sets) return;
    bool const first = _sets.empty();
    _sets = std::move(sets);
    if (first || _found.changes++ != 0) return;
    _found.firstChange_ms =
        Scaled(static_cast<std::int64_t>(frame), std::int64_t{1000} * _track.scale, _track.rate);
  }

  avi::RiffReader& _reader;
  avi::AviTrack const& _track;
  std::optional<stream::NalCodec> const _codec;
  FrameConverter _converter;
  bool const _deep;
  bool const _flagged;  // the index marks the key frames
  std::uint64_t _frame = 0;
  int _searched = 0;
  Bytes _data, _converted;
  std::vector<std::uint8_t> _sets;  // the last ones
  TrackFormat _found;
};

}  // namespace

std::vector<TrackFormat> ReadFormats(avi::AviFile& avi, bool deep) {
  std::vector<std::optional<FormatReader>> readers(avi.Tracks().size());
  for (std::size_t i = 0; i < readers.size(); ++i)
    if (avi.Tracks()[i].type == "video") readers[i].emplace(avi, i, deep);
  avi.ForEachPacket([&readers](avi::IndexEntry const& entry) {
    auto const track = static_cast<std::size_t>(avi::TrackOfCode(entry.id));
    if (track < readers.size() && readers[track]) readers[track]->Take(entry);
  });
  std::vector<TrackFormat> formats(readers.size());
  for (std::size_t i = 0; i < readers.size(); ++i)
    if (readers[i]) formats[i] = readers[i]->Found();
  return formats;
}

}  // namespace kestro::tool
