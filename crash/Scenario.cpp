#include "crash/Scenario.h"

#include <random>

#include "support/Recording.h"

namespace kestro::crash {

namespace {

thread_local tool::SlotFile* handedTo = nullptr;

void OnImage(unsigned, unsigned, unsigned char const* data, unsigned size, unsigned) {
  handedTo->Store(data, size);
}

constexpr unsigned kIndexSize = 8 + 16 * 512;
constexpr unsigned kSlot = 8192;  // half of what the last image takes
unsigned char junk[28];           // so that the index entries begin at a multiple of 16, in place

void Configure(test::Recording& recording, Mode mode, base::Object& tags) {
  auto& muxer = *recording.muxer;
  tags.Set("junkbuf", static_cast<unsigned char*>(junk));
  tags.Set("junksize", mode == Mode::kInPlace ? unsigned(sizeof junk) : 0u);
  tags.Set("isftbuf", static_cast<unsigned char*>(junk));
  tags.Set("isftsize", 4u);
  tags.Set("idx1_first", static_cast<unsigned char>(mode == Mode::kImage));
  using Reserve = unsigned long long;
  Reserve const header = HeaderSize(mode);
  muxer.Set("reservedSize", mode == Mode::kInPlace ? kIndexSize - 8
                            : mode == Mode::kImage ? header + kIndexSize
                                                   : header);
  muxer.Set("flushtime", mode == Mode::kImage ? 1u : 380u);  // images come with every 512 KiB
  muxer.Set("periodicSyncEn", mode != Mode::kInPlace);
  muxer.Set("periodicSyncHeaderSize", header);
  muxer.Set("periodicSyncIdx1Size", Reserve(kIndexSize));
  if (mode == Mode::kCallback) muxer.Set("periodicSyncCallback", &OnImage);
}

// Bytes that no start code is made of, and that are not the same twice.
std::string Payload(std::size_t size, std::mt19937& random) {
  std::string bytes(size, '\0');
  for (char& c : bytes) c = static_cast<char>(1 + random() % 255);
  return bytes;
}

// The parameter sets in front of a key frame's slice are delivered blank.
std::string Delivered(std::string stored, std::size_t payload) {
  std::fill(stored.begin(), stored.end() - static_cast<std::ptrdiff_t>(payload + 5), '\0');
  return stored;
}

int64 Find(std::string const& bytes, char const* code, int64 from = 0) {
  return static_cast<int64>(bytes.find(code, static_cast<std::size_t>(from)));
}

}  // namespace

char const* Name(Mode mode) {
  return mode == Mode::kInPlace ? "in place" : mode == Mode::kImage ? "image" : "callback";
}

Recorded Record(Mode mode) {
  Recorded recorded{mode, {}, std::vector<std::vector<Sample>>(3)};
  CrashLog log;
  LogIO file(log);
  LogFolder folder(log);
  tool::SlotFile slots("sync", kSlot, &folder);
  handedTo = &slots;
  std::mt19937 random(7);
  test::RegisterClasses();
  std::unique_ptr<base::Object> const tags(
      dynamic_cast<base::Object*>(base::Object::New("AviVideoTags")));
  int number = 0;
  bool ok = true;
  {
    test::Recording recording(&file, "VFIAviMuxer-avi-muxer-vfi");
    recording.muxer->Set("vidtag", tags.get());
    Configure(recording, mode, *tags);
    recording.Track(test::VideoMedia("h264", 320, 180));
    recording.Track(test::SoundMedia(8000, 1, 160)).Track(test::SoundMedia(4000, 1, 160));
    ok = recording.Open();

    auto const push = [&](unsigned track, int64 duration, std::string const& data, bool key,
                          std::string const& delivered) {
      auto& samples = recorded.tracks[track];
      int64 const ms = static_cast<int64>(samples.size()) * duration;
      samples.push_back({number++, ms, delivered});
      auto* const medium = recording.media[track].get();
      auto const packet = test::MakePacket(medium, data, key, duration);
      packet->Pts(ms * 1000000);
      int const before = log.Barriers();
      ok = recording.ports[track]->Push(*packet) && ok;
      if (log.Barriers() == before || number == 1) return;  // the first packet opens the file
      log.Add({Op::kPromise, 0, number});
      ++recorded.syncs;
    };
    std::size_t const large = mode == Mode::kImage ? 52000 : 200;
    for (int frame = 0; frame < (mode == Mode::kImage ? 36 : 125); ++frame) {
      std::string const payload = Payload(large + random() % (large * 8 / 9), random);
      bool const key = frame % 5 == 0;
      push(0, 40, key ? test::KeyFrame(payload) : test::Frame(payload), key,
           Delivered(key ? test::StoredKeyFrame(payload) : test::StoredFrame(payload),
                     payload.size()));
      for (unsigned track : {1, 1, 2}) {
        std::string const sound = Payload(320, random);
        push(track, track == 1 ? 20 : 40, sound, true, sound);
      }
    }
    ok = recording.Close() && ok;
  }
  log.Add({Op::kPromise, 0, number});
  slots.Remove();

  std::string const bytes(file.bytes.begin(), file.bytes.end());
  recorded.front = Find(bytes, "movi") + 4;
  recorded.entries = mode == Mode::kCallback ? HeaderSize(mode) + 8 : Find(bytes, "idx1") + 8;
  ok = ok && recorded.syncs >= 3 && (mode == Mode::kCallback || recorded.entries % 16 == 0);
  if (ok) recorded.ops = log.Take();
  return recorded;
}

}  // namespace kestro::crash
