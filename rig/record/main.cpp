// kestro-rig-record: the recorder that the rig's machine runs until its power is cut. Options are
// NAME=VALUE. It writes its promises to the disk, so that they are in the log of the disk's writes.
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <thread>

#include "base/Console.h"
#include "recorder/FileWriter.h"
#include "rig/Film.h"
#include "rig/Options.h"
#include "rig/record/System.h"
#include "stream/PacketQueue.h"

namespace kestro::rig {
namespace {

using Clock = std::chrono::steady_clock;

struct Plan {
  explicit Plan(Options const& options);

  record::RecorderOptions recorder;
  Film film;
  std::string file, disk;
  int64 promisesAt;      // in sectors
  int packets, perFile;  // 0: all in one file
  double pace;           // seconds of film a second, 0: as fast as it goes
  bool queue;
};

record::Tracks FilmTracks() {
  record::Tracks tracks(2);
  tracks[0].name = "video";
  tracks[0].width = 1280;
  tracks[0].height = 720;
  tracks[0].frameRate = {1000 / Film::kMs, 1};
  tracks[1].name = "audio";
  tracks[1].codec = record::TrackInfo::kPcm;
  tracks[1].rate = Film::kAudioRate;
  tracks[1].channels = 1;
  tracks[1].samples = Film::kSamples;
  return tracks;
}

// Records packets, one file after the other, and promises them once they are durable.
class Promiser : public stream::ISink {
 public:
  Promiser(Plan const& plan, record::Tracks const& tracks, record::Packets const& packets)
      : ISink("Promiser"), _plan(plan), _tracks(tracks), _packets(packets) {
    for (std::size_t i = 0; i < tracks.size(); ++i) {
      inputs.push_back(AddInput());
      KESTRO_ASSERT(inputs[i]->Offer(packets.Media(i)));
    }
    _disk = open(plan.disk.c_str(), O_WRONLY | O_DIRECT);
    Promised(0, false);
    KESTRO_ASSERT(ISink::StatusChange(kRunning));
  }
  ~Promiser() override { Detach(); }

  bool ReceivePacket(stream::Packet& packet, void* context) override {
    bool const first = _plan.perFile != 0 ? _pushed % _plan.perFile == 0 : _pushed == 0;
    if (first && !(End() && Begin())) return false;
    long const before = Barriers();
    if (!_recorder || !_recorder->Push(context == inputs[1], packet)) return false;
    ++_pushed;
    // The first packet only opens the file.
    if (!first && Barriers() != before && _recorder->Errors().empty()) Promised(_pushed, false);
    return true;
  }

  // Also true when no file is open.
  bool End() {
    if (!_recorder) return true;
    bool const complete = _recorder->Close();
    for (std::string const& text : _recorder->Errors()) std::printf("error: %s\n", text.c_str());
    for (std::string const& text : _recorder->Warnings()) std::printf("note: %s\n", text.c_str());
    _recorder.reset();
    if (complete && _plan.recorder.sync.mode != record::SyncOptions::kOff) Promised(_pushed, true);
    return complete;
  }
  int Pushed() const { return _pushed; }

  std::vector<stream::IPort*> inputs;

 private:
  bool Begin() try {
    std::string name = _plan.file;
    if (_plan.perFile != 0)
      name.insert(name.rfind('.'), "-" + std::to_string(_pushed / _plan.perFile));
    theSystem.file = name;
    theSystem.barriers = theSystem.sideBarriers = 0;
    _recorder = std::make_unique<record::FileWriter>(_plan.recorder, name, "", _tracks, _packets);
    return true;
  } catch (std::exception const& error) {
    std::printf("error: %s\n", error.what());
    return false;
  }

  long Barriers() const {
    return _plan.recorder.sync.mode == record::SyncOptions::kCallback ? theSystem.sideBarriers
                                                                      : theSystem.barriers;
  }

  void Promised(int packets, bool closed) {
    alignas(4096) static char sector[Promise::kSector];
    std::string const text = Promise{packets, _plan.film.scale, _plan.perFile, closed}.Sector();
    text.copy(sector, sizeof sector);
    if (_disk >= 0 &&
        pwrite(_disk, sector, sizeof sector, (_plan.promisesAt + _promises) * Promise::kSector) < 0)
      std::printf("note: a promise was not noted\n");
    ++_promises;
  }

  Plan const& _plan;
  record::Tracks const& _tracks;
  record::Packets const& _packets;
  std::unique_ptr<record::FileWriter> _recorder;
  int _disk, _pushed = 0;
  int64 _promises = 0;
};

Plan::Plan(Options const& options)
    : film{options.Count("scale", 1)},
      file(options.Text("file")),
      disk(options.Text("disk")),
      promisesAt(options.Count("promises-at", 0)),
      packets(static_cast<int>(options.Number("seconds", 8) * 2000 / Film::kMs)),
      perFile(static_cast<int>(options.Number("per-file", 0) * 2000 / Film::kMs)),
      pace(options.Number("pace", 1)),
      queue(options.Count("queue", 0) != 0) {
  using Sync = record::SyncOptions;
  std::map<std::string, Sync::Mode> const modes{
      {"in-place", Sync::kInPlace}, {"image", Sync::kImage}, {"callback", Sync::kCallback}};
  auto const mode = modes.find(options.Text("mode"));
  if (mode != modes.end()) recorder.sync.mode = mode->second;
  recorder.sync.interval_ns = static_cast<int64>(options.Number("interval", 1000) * 1e6);
  recorder.sync.reserve_ns = static_cast<int64>(packets / 2) * Film::kMs * 1000000;
  if (options.Has("spill")) recorder.spillSeconds = 1;
  recorder.spillFolder = options.Text("spill");
}

// How long each push took the application's thread.
void Report(std::vector<int64> us) {
  if (us.empty()) return;
  std::sort(us.begin(), us.end());
  auto const at = [&](double part) {
    return static_cast<long long>(
        us[static_cast<std::size_t>(part * static_cast<double>(us.size() - 1))]);
  };
  std::printf("push: %zu, median %lld us, p99.9 %lld us, longest %lld us\n", us.size(), at(0.5),
              at(0.999), at(1));
}

int Run(Plan const& plan) {
  record::Tracks const tracks = FilmTracks();
  record::Packets const packets(tracks);
  Promiser sink(plan, tracks, packets);
  std::unique_ptr<stream::PacketQueue> queue;
  std::vector<stream::IPort*> inputs = sink.inputs;
  if (plan.queue) {
    queue = test::Make<stream::PacketQueue>("packet-queue");
    for (std::size_t i = 0; i < tracks.size(); ++i) {
      auto const track = queue->AddTrack();
      KESTRO_ASSERT(stream::IPort::Link(*track.output, *sink.inputs[i]));
      KESTRO_ASSERT(track.input->Offer(packets.Media(i)));
      inputs[i] = track.input;
    }
    KESTRO_ASSERT(queue->StatusChange(stream::IStatus::kRunning));
  }
  auto const begin = Clock::now();
  std::vector<int64> us;
  bool ok = true;
  for (int number = 0; ok && number < plan.packets; ++number) {
    Film::Packet const made = plan.film.At(number);
    record::Payload payload;
    payload.data = made.data.data();
    payload.size = made.data.size();
    payload.key = made.key;
    auto const packet = packets.New(made.track, payload);
    packet->Pts(made.ms * 1000000);
    packet->Duration(Film::kMs * 1000000);
    if (plan.pace > 0)
      std::this_thread::sleep_until(begin + std::chrono::microseconds(static_cast<int64>(
                                                static_cast<double>(made.ms) * 1000 / plan.pace)));
    auto const before = Clock::now();
    ok = inputs[made.track]->Push(*packet);
    us.push_back((Clock::now() - before) / std::chrono::microseconds(1));
  }
  if (queue) ok = queue->StatusChange(stream::IStatus::kClosed) && ok;
  ok = sink.End() && ok;
  Report(us);
  std::printf("%s: %d packets\n", ok ? "complete" : "ended", sink.Pushed());
  return ok ? 0 : 1;
}

}  // namespace
}  // namespace kestro::rig

int main(int argc, char** argv) {
  using namespace kestro;
  std::setvbuf(stdout, nullptr, _IOLBF, 0);
  rig::Options const options(argc, argv);
  rig::theSystem.plant = rig::System::Planted(options.Text("plant"));
  std::string error;
  if (!base::LoadPlugin(options.Text("plugin", "/lib/libpluginavi.so").c_str(), &error)) {
    std::printf("error: %s\n", error.c_str());
    return 2;
  }
  static struct : base::ostream {
    void Write(char const*, std::size_t) override {}
  } nowhere;
  base::cout.Redirect(&nowhere);
  return rig::Run(rig::Plan(options));
}
