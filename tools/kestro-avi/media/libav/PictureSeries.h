// Reads a numbered series of JPEG files.
#pragma once

#include "media/SeriesName.h"
#include "media/libav/Input.h"
#include "media/libav/Libav.h"

namespace kestro::tool {

// One motion JPEG track with a frame per picture, in the order of the numbers. Pictures that are
// missing or damaged are skipped and reported.
class PictureSeries : public Input {
 public:
  PictureSeries(std::string const& address, SeriesName name, InputOptions const& options);

  void Begin(Timeline& timeline, EpochStart const& start) override;
  bool HasVideo() const override { return _rate.Positive(); }
  bool Read() override;
  void CutAt(std::int64_t session_ns) override;
  Notices Findings() const override;

 private:
  struct Run {  // of numbers with the same problem
    std::uint32_t first, last;
    std::string problem;
  };
  void ListNumbers();
  bool ReadPicture();
  std::string ReadFile(std::uint32_t number);
  void Add(std::uint32_t first, std::uint32_t last, std::string const& problem);
  std::string Describe(Run const& run) const;

  std::string const _address;
  SeriesName const _name;
  std::vector<std::uint32_t> _numbers;  // of the existing files
  std::size_t _next = 0;                // in _numbers
  std::uint64_t _skipped = 0;
  std::vector<Run> _runs;  // the first ones, and the last one
  std::size_t _runCount = 0;
  Bytes _picture;  // read, but not yet passed to the track
  int _width = 0, _height = 0;
  base::Fraction _rate;  // 0/1: no video is wanted
  std::int64_t _frame = 0;
  std::int64_t _from_ns = INT64_MAX;      // the pictures from this time on are for the next track
  std::optional<std::int64_t> _shift_ns;  // by how much the session's clock is ahead

  struct ContextDelete {
    void operator()(AVFormatContext* p) const { avformat_free_context(p); }
  };
  std::unique_ptr<AVFormatContext, ContextDelete> _format;  // holds the stream of the track
  InputClock _clock;
};

}  // namespace kestro::tool
