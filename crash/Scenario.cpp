#include "crash/Scenario.h"

#include <random>

#include "avi/AviFile.h"
#include "base/FourCC.h"
#include "recorder/OrdinaryClose.h"
#include "support/Recording.h"

namespace kestro::crash {

namespace {

thread_local avi::SlotFile* handedTo = nullptr;

void OnImage(unsigned, unsigned, unsigned char const* data, unsigned size, unsigned) {
  KESTRO_ASSERT(handedTo->Store(data, size));
}

constexpr unsigned kSlot = 20480;  // is outgrown halfway

// Bytes that no start code is made of, and that are not the same twice.
std::string Payload(std::size_t size, std::mt19937& random) {
  std::string bytes(size, '\0');
  for (char& c : bytes) c = static_cast<char>(1 + random() % 255);
  return bytes;
}

// The parameter sets before a key frame's slice are delivered as zeros.
std::string Delivered(std::string stored, std::size_t payload) {
  std::fill(stored.begin(), stored.end() - static_cast<std::ptrdiff_t>(payload + 5), '\0');
  return stored;
}

int64 Find(std::string const& bytes, char const* code, int64 from = 0) {
  return static_cast<int64>(bytes.find(code, static_cast<std::size_t>(from)));
}

}  // namespace

std::string Name(Scenario const& scenario) {
  Mode const mode = scenario.mode;
  std::string const name = mode == Mode::kInPlace ? "in place"
                           : mode == Mode::kImage ? "image"
                                                  : "callback";
  return scenario.full ? name + ", index full" : name;
}

// As the recorder does after the muxer. The old index becomes several JUNK chunks.
static bool CloseOrdinarily(LogIO& file, Recorded const& recorded, std::vector<bool> const& keys) {
  auto const held = std::min<std::size_t>(keys.size(), recorded.scenario.room);
  record::FrontIndex index;
  index.at = static_cast<std::uint64_t>(recorded.entries);
  index.data = static_cast<std::uint64_t>(recorded.front);
  index.entries = held;
  index.beyond.assign(keys.begin() + static_cast<std::ptrdiff_t>(held), keys.end());
  if (!record::OrdinaryClose(file, index, kLargestJunk).Run(UINT64_MAX).empty()) return false;
  avi::AviFile const avi(std::make_unique<test::MemoryIO>(test::Text(file)), "the recording");
  avi::Chunk const& last = avi.Tree().back();
  bool const first = avi.IndexPlace() == avi::AviFile::Index::kFirst;
  return last.id == base::Convert4("idx1") && first != recorded.scenario.full &&
         last.size == 16 * static_cast<int64>(keys.size()) && !avi.CutOff();
}

// Pushes a film and notes what each packet is, where it lies, and which syncs were promised.
struct Session {
  Recorded& recorded;
  CrashLog& log;
  test::Recording& recording;
  std::vector<bool> keys = {};
  int64 size = 0;
  bool ok = true;

  // What the index has no room for plays only once there is an index after the data.
  void Promise() {
    bool const all = recorded.scenario.mode == Mode::kCallback;
    int64 const number = recorded.packets;
    log.Add({Op::kPromise, 0, all ? number : std::min<int64>(number, recorded.scenario.room)});
  }

  void Push(unsigned track, int64 duration, std::string const& data, bool key,
            std::string const& delivered) {
    auto& samples = recorded.tracks[track];
    int64 const ms = static_cast<int64>(samples.size()) * duration;
    samples.push_back({recorded.packets++, ms, key, delivered, size});
    keys.push_back(key && track == 0);
    size += 8 + static_cast<int64>(delivered.size() + delivered.size() % 2);
    auto const packet = test::MakePacket(recording.media[track].get(), data, key, duration);
    packet->Pts(ms * 1000000);
    int const before = log.Barriers();
    ok = recording.ports[track]->Push(*packet) && ok;
    if (log.Barriers() == before || recorded.packets == 1) return;  // the first opens the file
    Promise();
    ++recorded.syncs;
  }

  void PushFilm() {
    std::mt19937 random(7);
    bool const image = recorded.scenario.mode == Mode::kImage;
    std::size_t const large = image ? 52000 : 200;
    for (int frame = 0; frame < (image ? 36 : 125); ++frame) {
      std::string const payload = Payload(large + random() % (large * 8 / 9), random);
      bool const key = frame % 5 == 0;
      Push(0, 40, key ? test::KeyFrame(payload) : test::Frame(payload), key,
           Delivered(key ? test::StoredKeyFrame(payload) : test::StoredFrame(payload),
                     payload.size()));
      for (unsigned track : {1, 1, 2}) {
        std::string const audio = Payload(320, random);
        Push(track, track == 1 ? 20 : 40, audio, true, audio);
      }
    }
  }
};

Recorded Record(Scenario const& scenario) {
  Mode const mode = scenario.mode;
  Recorded recorded{scenario, {}, std::vector<std::vector<Sample>>(3)};
  CrashLog log;
  LogIO file(log);
  LogFolder folder(log);
  avi::SlotFile slots("sync", kSlot, &folder);
  handedTo = &slots;
  test::RegisterClasses();
  Setup setup;
  test::Recording recording(&file, "VFIAviMuxer-avi-muxer-vfi");
  setup = Configure(*recording.muxer, scenario);
  if (mode == Mode::kCallback) recording.muxer->Set("periodicSyncCallback", &OnImage);
  recording.Track(test::VideoMedia("h264", 320, 180));
  recording.Track(test::AudioMedia(8000, 1, 160)).Track(test::AudioMedia(4000, 1, 160));
  Session session{recorded, log, recording};
  bool ok = recording.Open();
  session.PushFilm();
  ok = (recording.Close() || scenario.full) && session.ok && ok;
  session.Promise();
  slots.Remove();

  std::string const bytes(file.bytes.begin(), file.bytes.end());
  recorded.front = Find(bytes, "movi") + 4;
  for (auto& track : recorded.tracks)
    for (Sample& sample : track) sample.at += recorded.front;
  recorded.entries = (mode == Mode::kCallback ? recorded.front : Find(bytes, "idx1")) + 8;
  ok = ok && recorded.syncs >= 3 && (mode == Mode::kCallback || recorded.entries % 16 == 0);
  if (mode != Mode::kCallback) {
    recorded.closed = log.Size();
    ok = ok && CloseOrdinarily(file, recorded, session.keys);
    log.Add({Op::kPromise, 0, recorded.packets});
  }
  if (ok) recorded.ops = log.Take();
  return recorded;
}

}  // namespace kestro::crash
