#include "repair/Repair.h"

#include <algorithm>
#include <filesystem>
#include <memory>

#include "Errors.h"
#include "Interrupt.h"
#include "Recorder.h"
#include "output/Output.h"
#include "repair/Image.h"

namespace kestro::tool {

namespace fs = std::filesystem;

namespace {

// Before a temporary file of the output's is made, or removed.
void CheckPaths(RepairJob const& job) {
  std::error_code none;
  for (std::string const& read : {job.input, job.image, job.input + ".sync"})
    for (std::string const& written : {job.output, NewFile::TemporaryOf(job.output)})
      if (!read.empty() && fs::equivalent(read, written, none))
        throw Error(kUsage, job.output + ": " + read + " would be overwritten");
  auto const status = fs::status(job.output, none);
  if (!fs::exists(status)) return;
  if (!fs::is_regular_file(status)) throw Error(kIo, job.output + ": is not a file");
  if (!job.force) throw Error(kUsage, job.output + ": exists already (--force overwrites it)");
}

class Repairer {
 public:
  Repairer(RepairJob const& job, RepairReport& report) : _job(job), _report(report) {}

  void Open();
  void Copy(std::string const& output);

 private:
  void OpenImage(std::string const& why);
  void ForEachEntry(EntrySink const& sink);
  bool Push(Recorder& recorder, std::size_t track, Bytes& data, bool key);
  void Finish(Recorder& recorder, Salvage const& salvage, bool pushed);

  RepairJob const& _job;
  RepairReport& _report;
  std::unique_ptr<AviFile> _avi;  // null when its head is beyond use
  std::unique_ptr<Image> _image;  // null when there is none
  std::unique_ptr<RiffReader> _file;
  Head _head;
  std::vector<std::int64_t> _position;  // by recorded track: frames or sample frames
  TimedPacket _packet;
};

void Repairer::Open() {
  _file = std::make_unique<RiffReader>(_job.input);
  std::string why;
  try {
    _avi = std::make_unique<AviFile>(_job.input);
    _head = ReadHead(*_avi, _job.input);
  } catch (Error const& error) {
    if (error.Code() != kUnusable) throw;
    why = error.what();
    _avi.reset();
  }
  OpenImage(why);
  if (!_avi && !_image) throw Error(kUnusable, why);
  if (!_avi) {
    _head = _image->Headers();
    _report.headOfImage = true;
    _report.notes.push_back(why + "; the head of " + _report.image + " is taken");
  }
  _report.tracks = _head.tracks;
  for (int number : _head.numbers) _report.leftOut.push_back(number < 0);
  _report.source = _image                    ? RepairReport::Source::kImage
                   : _avi && _avi->Indexed() ? RepairReport::Source::kIndex
                                             : RepairReport::Source::kNothing;
}

// `why`: what is wrong with the recording's own head.
void Repairer::OpenImage(std::string const& why) {
  bool const asked = !_job.image.empty();
  std::string const path = asked ? _job.image : _job.input + ".sync";
  std::error_code none;
  if (!asked && ((_avi && _avi->Indexed()) || !fs::exists(path, none))) return;
  std::string mismatch;
  try {
    _image = std::make_unique<Image>(path);
    mismatch = _image->Mismatch(*_file, _avi ? &_head : nullptr);
    if (!mismatch.empty())
      mismatch = path + ": not the side file of " + _job.input + ": " + mismatch;
  } catch (Error const& error) {
    if (asked) throw;
    mismatch = error.what();
  }
  if (mismatch.empty()) {
    _report.image = path;
    return;
  }
  if (asked) throw Error(kUnusable, mismatch + (why.empty() ? "" : "; " + why));
  _image.reset();
  _report.warnings.push_back(mismatch + "; it is not used");
}

void Repairer::ForEachEntry(EntrySink const& sink) {
  if (_image)
    _image->ForEachEntry(sink);
  else if (_avi)
    _avi->ForEachEntry(sink);
}

bool Repairer::Push(Recorder& recorder, std::size_t track, Bytes& data, bool key) {
  auto const number = static_cast<std::size_t>(_head.numbers[track]);
  TrackInfo const& info = _head.recorded[number];
  bool const sound = info.kind == TrackInfo::kSound;
  base::Fraction const rate = sound ? base::Fraction(info.rate, 1) : info.frameRate;
  auto const time = [&](std::int64_t at) { return rate.Positive() ? FrameTime_ns(rate, at) : 0; };
  std::int64_t& position = _position[number];
  _packet.time_ns = time(position);
  position += sound ? static_cast<std::int64_t>(data.size()) / (info.channels * info.bits / 8) : 1;
  _packet.duration_ns = time(position) - _packet.time_ns;
  _packet.key = key;
  _packet.data.swap(data);
  bool const pushed = recorder.Push(number, _packet);
  _packet.data.swap(data);
  return pushed;
}

void Repairer::Copy(std::string const& output) {
  RecorderOptions options;
  options.tags = _head.tags;
  Recorder recorder(options, fs::absolute(output), _head.recorded);
  _position.assign(_head.recorded.size(), 0);
  bool pushed = true;
  Salvage salvage(*_file, _head.data, _head.tracks, [&](std::size_t track, Bytes& data, bool key) {
    if (_head.numbers[track] >= 0) pushed = Push(recorder, track, data, key);
    return pushed && !Interrupted();
  });
  ForEachEntry([&salvage](IndexEntry const& entry) { salvage.Entry(entry); });
  salvage.Rest();
  _report.interrupted = Interrupted();
  if (!_report.interrupted) Finish(recorder, salvage, pushed);
}

void Repairer::Finish(Recorder& recorder, Salvage const& salvage, bool pushed) {
  SalvageCounts& counts = _report.counts = salvage.Counts();
  for (std::size_t i = 0; i < _head.numbers.size(); ++i) {
    if (_head.numbers[i] < 0) {
      counts.lost[i].packets += std::exchange(counts.kept[i].packets, 0);
      counts.lost[i].bytes += std::exchange(counts.kept[i].bytes, 0);
    }
    _report.kept += counts.kept[i];
    _report.lost += counts.lost[i];
  }
  _report.lost += counts.unknown;
  if (_report.kept.packets == 0 && pushed)
    throw Error(kUnusable, _job.input + ": there is no whole packet behind its head");
  bool const closed = recorder.Close();
  if (!pushed || !closed)
    throw Error(
        kIo, _job.output + ": " +
                 (recorder.Errors().empty() ? "a packet was refused" : recorder.Errors().front()));
  for (std::string const& text : recorder.Warnings()) _report.warnings.push_back(text);
}

}  // namespace

RepairReport Repair(RepairJob const& job) {
  RepairReport report;
  CheckPaths(job);
  NewFile made(job.output);
  Repairer repairer(job, report);
  repairer.Open();
  repairer.Copy(made.Temporary());
  if (report.interrupted) return report;
  made.Keep();
  std::error_code none;
  report.size = fs::file_size(job.output, none);
  return report;
}

}  // namespace kestro::tool
