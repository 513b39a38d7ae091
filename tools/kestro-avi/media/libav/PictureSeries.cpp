#include "media/libav/PictureSeries.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "cli/Errors.h"
#include "cli/Text.h"
#include "media/FrameRate.h"
#include "media/Jpeg.h"
#include "media/libav/Padded.h"
#include "media/libav/VideoTrack.h"

namespace kestro::tool {

namespace fs = std::filesystem;

static constexpr std::size_t kMaxRuns = 20;  // reported one by one
static constexpr std::uint64_t kMaxBytes = 256 << 20;

PictureSeries::PictureSeries(std::string const& address, SeriesName name,
                             InputOptions const& options)
    : _address(address), _name(std::move(name)) {
  ListNumbers();
  Chosen(options.choices, {{InputTrack::kVideo, 0, 0, ""}}, address);
  if (!options.video) return;
  base::Fraction const rate = ChooseRate({options.rate, {}, {}}, address);
  if (!ReadPicture())
    throw Error(kUnusable, address + ": no complete picture; " + Describe(_runs.front()));
  _rate = rate;
}

void PictureSeries::ListNumbers() {
  std::error_code failed;
  for (fs::directory_iterator it(_name.Folder(), failed), end; !failed && it != end;
       it.increment(failed))
    if (auto const number = _name.NumberOf(it->path().filename())) _numbers.push_back(*number);
  if (failed) throw Error(kIo, _address + ": " + failed.message());
  if (_numbers.empty()) throw Error(kIo, _address + ": " + std::strerror(ENOENT));
  std::sort(_numbers.begin(), _numbers.end());
}

void PictureSeries::Begin(Timeline& timeline, EpochStart const& start) {
  _tracks.clear();
  if (!HasVideo()) return;
  bool const placed = start.placed && _shift_ns;
  _clock = {placed ? start.session_ns - *_shift_ns : 0, true};
  if (!_shift_ns) _shift_ns = start.session_ns;
  _cut_ns.reset();
  _from_ns = INT64_MAX;
  _format.reset(avformat_alloc_context());
  AVStream* const stream = _format ? avformat_new_stream(_format.get(), nullptr) : nullptr;
  if (stream == nullptr) throw std::bad_alloc();
  stream->codecpar->codec_type = AVMEDIA_TYPE_VIDEO;
  stream->codecpar->codec_id = AV_CODEC_ID_MJPEG;
  stream->codecpar->width = _width;
  stream->codecpar->height = _height;
  av_reduce(&stream->time_base.num, &stream->time_base.den, _rate.den, _rate.num, INT_MAX);
  VideoOptions video;
  video.rate = _rate;
  _tracks.push_back(std::make_unique<VideoTrack>(*stream, _address, video, timeline, _clock));
}

void PictureSeries::CutAt(std::int64_t session_ns) {
  _cut_ns = session_ns;
  _from_ns = session_ns - _shift_ns.value_or(0);
}

void PictureSeries::Add(std::uint32_t first, std::uint32_t last, std::string const& problem) {
  bool const continues =
      !_runs.empty() && _runs.back().last + 1 == first && _runs.back().problem == problem;
  if (continues)
    _runs.back().last = last;
  else if (_runs.size() > kMaxRuns)
    _runs.back() = {first, last, problem};
  else
    _runs.push_back({first, last, problem});
  _runCount += !continues;
  Run const added{first, last, problem};
  _events.push_back({Describe(added),
                     "loss",
                     {{"input", _address},
                      {"reason", problem},
                      {"first", _name.Path(first)},
                      {"last", _name.Path(last)},
                      {"count", std::int64_t{last} - first + 1}}});
}

// Reads a file into _picture. Returns why it is skipped; empty for a picture.
std::string PictureSeries::ReadFile(std::uint32_t number) {
  std::string const path = _name.Path(number);
  std::error_code failed;
  std::uint64_t const size = fs::file_size(path, failed);  // fails for what is not a regular file
  if (failed) return failed.message();
  if (size > kMaxBytes) return "too large";
  std::ifstream file(path, std::ios::binary);
  if (!file) return std::strerror(errno);
  _picture.resize(size);
  file.read(reinterpret_cast<char*>(_picture.data()), static_cast<std::streamsize>(size));
  if (file.bad()) return "cannot be read";
  _picture.resize(static_cast<std::size_t>(file.gcount()));
  JpegCheck const check = CheckJpeg(_picture.data(), _picture.size());
  if (check.fault != nullptr) return check.fault;
  if (_width == 0) _width = check.width, _height = check.height;
  return "";
}

// Reads the next complete picture. Returns false at the end.
bool PictureSeries::ReadPicture() {
  while (_next < _numbers.size()) {
    std::uint32_t const number = _numbers[_next];
    std::uint32_t const expected = _next == 0 ? number : _numbers[_next - 1] + 1;
    if (expected < number) {
      Add(expected, number - 1, "missing");
      _skipped += number - expected;
    }
    ++_next;
    std::string const problem = ReadFile(number);
    if (problem.empty()) return true;
    Add(number, number, problem);
    ++_skipped;
  }
  _picture.clear();
  return false;
}

bool PictureSeries::Read() {
  if (_tracks.empty()) return false;
  Track& track = *_tracks.front();
  if (FrameTime_ns(_rate, _frame) >= _from_ns) {
    track.End();
    return false;
  }
  if (_picture.empty() && !ReadPicture()) {
    track.End();
    _ended = true;
    return false;
  }
  PacketPtr const packet = Padded(_picture.data(), _picture.size());
  packet->pts = packet->dts = _frame++;
  packet->flags = AV_PKT_FLAG_KEY;
  _picture.clear();
  track.Take(*packet);
  return true;
}

std::string PictureSeries::Describe(Run const& run) const {
  std::string text = _name.Path(run.first);
  if (run.last != run.first) text += " to " + _name.Path(run.last);
  return text + ": " + run.problem;
}

Notices PictureSeries::Findings() const {
  Notices findings;
  for (std::size_t i = 0; i < std::min(_runs.size(), kMaxRuns); ++i)
    findings.emplace_back(Describe(_runs[i]));
  if (_runCount > kMaxRuns)
    findings.push_back(_address + ": " + std::to_string(_runCount - kMaxRuns) +
                       " more problems of this kind");
  if (_skipped != 0)
    findings.push_back(_address + ": " + Quantity(_skipped, "picture") +
                       " left out; the pictures after them come earlier");
  for (Notice& finding : findings) finding.reported = true;
  return findings;
}

}  // namespace kestro::tool
