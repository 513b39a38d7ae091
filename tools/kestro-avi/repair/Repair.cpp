#include "repair/Repair.h"

#include <algorithm>
#include <filesystem>
#include <memory>

#include "avi/HeadCopy.h"
#include "avi/SlotFile.h"
#include "cli/Errors.h"
#include "cli/Interrupt.h"
#include "cli/NewFile.h"
#include "cli/Recorder.h"
#include "cli/Text.h"
#include "repair/Image.h"
#include "repair/Rates.h"
#include "repair/TrackClock.h"

namespace kestro::tool {

namespace fs = std::filesystem;

namespace {

// Throws Error if the output or its temporary file is one of the files to read.
void CheckPaths(RepairJob const& job) {
  std::error_code none;
  auto const [side, twin] = avi::SlotFile::Names(job.input + avi::SlotFile::kEnding);
  for (std::string const& read : {job.input, job.image, side, twin})
    for (std::string const& written : {job.output, NewFile::TemporaryOf(job.output)})
      if (!read.empty() && fs::equivalent(read, written, none))
        throw Error(kUsage, job.output + ": " + read + " would be overwritten");
  NewFile::Check(job.output, job.force);
}

class Repairer {
 public:
  Repairer(RepairJob const& job, RepairReport& report) : _job(job), _report(report) {}

  void Open();
  void CopyPackets(std::string const& output);

 private:
  void OpenCopy(std::string const& why);
  void OpenImage(std::string const& why);
  void ForEachEntry(avi::EntrySink const& sink);
  bool PushPacket(record::Recorder& recorder, Salvage::Packet const& from);
  void Finish(record::Recorder& recorder, std::string const& path);
  void AddCounts(Salvage const& salvage);
  void AddWarnings();

  RepairJob const& _job;
  RepairReport& _report;
  std::unique_ptr<avi::AviFile> _avi;  // null when its header is unusable
  std::optional<avi::HeadCopy> _copy;  // of the header, used instead
  std::unique_ptr<Image> _image;       // null when there is none
  std::unique_ptr<avi::RiffReader> _file;
  Head _head;
  std::vector<TrackClock> _clocks;  // of the recorded tracks
  std::vector<std::string> _recorderWarnings;
  base::uint64 _fillers = 0;  // empty chunks between frames that are left out
};

void Repairer::Open() {
  _file = std::make_unique<avi::RiffReader>(_job.input);
  std::string why;
  try {
    _avi = std::make_unique<avi::AviFile>(_job.input);
    _head = ReadHead(*_avi, _job.input);
  } catch (Error const& error) {
    if (error.Code() != kUnusable) throw;
    why = error.what();
    _avi.reset();
  }
  OpenCopy(why);
  OpenImage(why);
  bool const head = _avi || _copy;
  if (!head && !_image) throw Error(kUnusable, why);
  if (!head) {
    _head = _image->Headers();
    _report.headOfImage = true;
    _report.notes.push_back(why + "; using the header in " + _report.image);
  }
  _report.tracks = _head.tracks;
  _report.numbers = _head.numbers;
  SpeedReport const speed = SetRates(_head, _job.rate);
  _report.notes.insert(_report.notes.end(), speed.notes.begin(), speed.notes.end());
  _report.warnings.insert(_report.warnings.end(), speed.warnings.begin(), speed.warnings.end());
  bool const indexed = _avi ? _avi->HasIndex() : _copy && _copy->places.entries != 0;
  _report.source = _image    ? RepairReport::Source::kImage
                   : indexed ? RepairReport::Source::kIndex
                             : RepairReport::Source::kNothing;
}

// Uses the copy of the header if the header itself is unusable or has other tracks.
// `why`: what is wrong with the header.
void Repairer::OpenCopy(std::string const& why) {
  auto const copy = avi::HeadCopy::Find(*_file);
  if (!copy) return;
  Head head;
  try {
    auto memory = std::make_unique<base::IOBuffer>(static_cast<int>(copy->head.size()));
    memory->Write(copy->head.data(), static_cast<unsigned>(copy->head.size()));
    avi::AviFile avi(std::move(memory), _job.input);
    head = ReadHead(avi, _job.input, copy->places.data);
  } catch (Error const&) {
    return;  // not a copy of this header
  }
  if (_avi && SameTracks(head, _head)) return;
  _avi.reset();
  _copy = copy;
  _head = std::move(head);
  _head.tags.junk = copy->places.junk;
  _report.headOfCopy = true;
  _report.notes.push_back((why.empty() ? _job.input + ": its header is damaged" : why) +
                          "; using its copy at offset " + std::to_string(copy->at));
}

// `why`: what is wrong with the header.
void Repairer::OpenImage(std::string const& why) {
  bool const given = !_job.image.empty();
  if (!given && _avi && _avi->Indexed()) return;
  std::string const path = given ? _job.image : Image::Find(_job.input);
  if (path.empty()) return;
  std::string mismatch;
  try {
    _image = std::make_unique<Image>(path);
    mismatch = _image->Mismatch(*_file, _avi || _copy ? &_head : nullptr);
    if (!mismatch.empty())
      mismatch = path + ": not the side file of " + _job.input + ": " + mismatch;
  } catch (Error const& error) {
    if (given) throw;
    mismatch = error.what();
  }
  if (mismatch.empty()) {
    _report.image = path;
    return;
  }
  if (given) throw Error(kUnusable, mismatch + (why.empty() ? "" : "; " + why));
  _image.reset();
  _report.warnings.push_back(mismatch + "; not using it");
}

void Repairer::ForEachEntry(avi::EntrySink const& sink) {
  if (_image)
    _image->ForEachEntry(sink);
  else if (_avi)
    _avi->ForEachEntry(sink);
  else if (avi::HeadPlaces const& places = _copy->places; places.entries >= 8)
    avi::ReadEntries(*_file,
                     {base::Convert4("idx1"), 0, int64{places.entries} - 8, places.reserve,
                      std::min(int64{places.entries} + places.reserve, _file->Size()), 0},
                     0, sink);
}

bool Repairer::PushPacket(record::Recorder& recorder, Salvage::Packet const& from) {
  std::vector<std::uint8_t> const& data = from.data;
  int const number = _head.numbers[from.track];
  if (number < 0) return true;
  auto const track = static_cast<std::size_t>(number);
  if (data.empty() && ChunksPerFrame(_head.tracks[from.track]) > 1) {
    ++_fillers;
    return true;
  }
  record::Payload packet;
  packet.data = data.data();
  packet.size = data.size();
  packet.time_ns = _clocks[track].Now_ns();
  _clocks[track].Advance(data.size());
  packet.duration_ns = _clocks[track].Now_ns() - packet.time_ns;
  packet.key = from.key;
  return recorder.Push(track, packet) == record::Code::kOk;
}

void Repairer::CopyPackets(std::string const& output) {
  _clocks = {_head.recorded.begin(), _head.recorded.end()};
  record::RecorderOptions options;
  options.path = fs::absolute(output);
  options.tags = _head.tags;
  options.overwrite = options.verbatim = options.threadless = true;
  options.onEvent = [this](record::Event const& event) {
    if (event.kind == record::Event::kWarning) _recorderWarnings.push_back(event.text);
  };
  auto const recorder = OpenRecorder(options, _head.recorded);
  bool pushed = true;
  Salvage salvage(*_file, _head.data, _head.tracks, [&](Salvage::Packet const& packet) {
    pushed = PushPacket(*recorder, packet);
    _job.advance(salvage.Position());
    return pushed && !Interrupted();
  });
  ForEachEntry([&salvage](avi::IndexEntry const& entry) { salvage.AddEntry(entry); });
  salvage.Finish();
  _report.interrupted = Interrupted();
  if (_report.interrupted) return;
  AddCounts(salvage);
  if (_report.kept.bytes == 0 && pushed)
    throw Error(kUnusable, _job.input + ": no complete packet with data after its header");
  Finish(*recorder, options.path);
}

// `path`: the temporary name, which the recorder uses in its messages.
void Repairer::Finish(record::Recorder& recorder, std::string const& path) {
  record::Result const result = recorder.Stop();
  auto const renamed = [&](std::string const& text) {
    return _job.output + text.substr(text.rfind(path, 0) == 0 ? path.size() : 0);
  };
  if (!result) throw Error(kIo, renamed(result.text));
  for (std::string const& text : _recorderWarnings) _report.warnings.push_back(renamed(text));
  AddWarnings();
}

void Repairer::AddCounts(Salvage const& salvage) {
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
}

void Repairer::AddWarnings() {
  SalvageCounts const& counts = _report.counts;
  auto const warn = [this](base::uint64 count, std::string const& what) {
    if (count != 0) _report.warnings.push_back(std::to_string(count) + " " + what);
  };
  warn(counts.trimmed.packets, "packet(s) are stored without the " +
                                   std::to_string(counts.trimmed.bytes) +
                                   " bytes before their parameter sets or first slice");
  for (avi::AviTrack const& track : _head.tracks)
    if (FrameConverter const converter(track); converter.Needed() && converter.SetsDamaged())
      _report.warnings.push_back("track " + std::to_string(&track - _head.tracks.data()) +
                                 ": the parameter sets in its header are damaged");
  if (_fillers != 0)
    _report.notes.push_back(Quantity(_fillers, "empty chunk") +
                            " left out, because the frame rate in the header counts them");
  warn(counts.empty - std::min(counts.empty, _fillers),
       "empty packet(s) get no index entries: later packets move forward in time");
}

}  // namespace

RepairReport Repair(RepairJob const& job) {
  RepairReport report;
  CheckPaths(job);
  NewFile made(job.output);
  Repairer repairer(job, report);
  repairer.Open();
  repairer.CopyPackets(made.Temporary());
  if (report.interrupted) return report;
  made.Keep(true);  // durable, as the user may now delete the input
  std::error_code none;
  report.size = fs::file_size(job.output, none);
  return report;
}

}  // namespace kestro::tool
