// The play modes: the element against a model of it, packet by packet, with random files, seeks,
// modes and tracks.
#include <gtest/gtest.h>

#include <functional>
#include <random>
#include <tuple>

#include "support/Film.h"
#include "support/HostileFiles.h"
#include "support/Playing.h"

namespace kestro::test {
namespace {

struct Entry {
  bool key;
  unsigned offset;
  std::string data;  // no two have the same
};

// A cursor over the entries of a track, and its clock.
struct ModelTrack {
  bool video;
  int64 us;  // of each entry
  std::vector<Entry> entries = {};
  std::size_t cursor = 0;
  int64 clock = 0;
  unsigned seq = 0;
  bool sought = false;

  bool AtEnd() const { return cursor == entries.size(); }
  bool Key() const { return !AtEnd() && entries[cursor].key; }
  int64 Ms() const { return clock / 1000; }
  void Next() {
    if (!AtEnd()) ++cursor, clock += us;
  }
  void Prev() {
    if (cursor > 0) --cursor, clock -= us;
  }
  // The distance of key frames: the index of the first one after the first two entries.
  std::size_t Gap() const {
    std::size_t at = std::min<std::size_t>(2, entries.size());
    while (at < entries.size() && !entries[at].key) ++at;
    return at;
  }

  // To the last key entry at or before a time.
  void Seek(int64 ms) {
    int64 const target = ms * 1000;
    auto const backward = [&] {
      bool const goes = clock >= target;
      while (goes && cursor > 0 && !(clock <= target && Key())) Prev();
    };
    if (entries.empty() || (target == clock && Key())) return;
    if (target <= clock) return backward();
    std::pair<std::size_t, int64> found{entries.size(), 0};
    for (;; Next()) {
      if (AtEnd()) {
        Prev();
        return backward();
      }
      if (target < clock) break;
      if (Key()) found = {cursor, clock};
    }
    if (found.first == entries.size()) return backward();
    std::tie(cursor, clock) = found;
  }
  // As the element seeks: from an entry that is not key, once more.
  void SeekTwice(int64 ms) {
    Seek(ms);
    if (!Key()) Seek(Ms());
  }

  // A packet as text; `end`: whether it is marked as the last one even so.
  std::string Packet(std::function<bool()> const& end = [] { return false; }) {
    if (AtEnd()) return "none";
    Entry const& entry = entries[cursor];
    int64 const ms = Ms();
    Next();
    std::string words = entry.data + " at " + std::to_string(ms) + ", " + std::to_string(seq++);
    words += entry.key ? " key" : "";
    words += AtEnd() || end() ? " end" : "";
    return words + (std::exchange(sought, false) ? " sought" : "");
  }
};

struct Model {
  std::vector<ModelTrack> tracks;
  PlayMode mode = PlayMode::kNormal;
  unsigned chosen = 0;
  int64 current = 0;

  ModelTrack* Video() {
    unsigned number = 0;
    for (ModelTrack& track : tracks)
      if (track.video && number++ == chosen) return &track;
    return nullptr;
  }
  std::string Lead(
      ModelTrack& leader, std::function<bool()> const& end = [] { return false; }) {
    current = leader.Ms();
    for (ModelTrack& track : tracks)
      if (&track != &leader) track.Seek(current);
    return leader.Packet(end);
  }

  std::string Normal() {
    ModelTrack* best = nullptr;
    for (ModelTrack& track : tracks) {
      if ((track.video && &track != Video()) || track.AtEnd()) continue;
      if (best == nullptr ||
          track.entries[track.cursor].offset < best->entries[best->cursor].offset ||
          track.Ms() < best->Ms())
        best = &track;
    }
    if (best == nullptr) return "none";
    current = best->Ms();
    return best->Packet();
  }
  std::string Fast(ModelTrack& video) {
    while (!video.AtEnd() && !video.Key()) video.Next();
    return Lead(video, [&] { return video.entries.size() - video.cursor < video.Gap(); });
  }
  std::string Back(ModelTrack& video) {
    video.Prev();
    do video.Prev();
    while (!video.Key() && video.cursor > 0);
    return video.Ms() == current ? "none" : Lead(video, [&] { return video.cursor == 1; });
  }
  std::string Packet() {
    auto const audio = std::find_if(tracks.begin(), tracks.end(), [](auto& t) { return !t.video; });
    ModelTrack* const video = Video();
    if (mode == PlayMode::kNormal) return Normal();
    if (mode == PlayMode::kAudio) return audio != tracks.end() ? Lead(*audio) : "none";
    if (video == nullptr) return "none";
    if (mode == PlayMode::kVideo) return Lead(*video);
    return mode == PlayMode::kFast ? Fast(*video) : Back(*video);
  }

  void Seek(int64 ms) {
    int64 time = ms;
    ModelTrack* last = nullptr;
    for (ModelTrack& track : tracks)
      if (track.video) {
        track.SeekTwice(ms);
        time = track.Ms();
        last = &track;
      }
    for (ModelTrack& track : tracks) {
      if (&track != last) track.SeekTwice(time);
      track.sought = true;
    }
    current = -1;
  }
  void Switch(PlayMode to) {
    if (to != mode) current = -1;
    mode = to;
  }
};

// A file of random tracks, key frames and order, and the model of it.
struct RandomFilm {
  explicit RandomFilm(unsigned seed) : random(seed) {
    int const rates[] = {25, 15, 7, 1};
    Shape shape;
    shape.audio = true;
    shape.rate = {rates[Below(4)], 1};
    // One of a frame a second goes beyond 2^31 microseconds.
    unsigned const frames = 1 + Below(shape.rate.num == 1 ? 4000 : 40);
    unsigned const videos = Below(3), density = 1 + Below(8);
    std::vector<unsigned> left;
    for (unsigned i = 0; i < std::max(videos + Below(3), 1u); ++i) {
      // Audio has two samples in each block; its duration is counted in whole milliseconds, too.
      bool const video = i < videos;
      unsigned const blocks = frames + (video ? 0 : Below(5));
      left.push_back(blocks);
      model.tracks.push_back(
          {video, int64(1000 * blocks / unsigned(shape.rate.num)) * 1000 / blocks});
      Bytes const audio = AudioHeaders(0);
      headers.Add(video ? VideoHeaders(shape, blocks)
                        : With(audio, Find(audio, "strf") + 12, 2 * unsigned(shape.rate.num)));
    }
    for (std::size_t total = 0; total < left.size();) {
      auto const i = Below(unsigned(left.size()));
      if (left[i] == 0) continue;
      bool const video = model.tracks[i].video, key = !video || Below(density) == 0;
      std::string data = std::to_string(100000 + left[i]-- * 10 + i);
      data = video ? kStart + (key ? "\x65" : "\x41") + data : data + "au";
      model.tracks[i].entries.push_back({key, 0, data});
      chunks.push_back({"0" + std::to_string(i) + (video ? "dc" : "wb"), data, key});
      total += left[i] == 0;
    }
  }
  unsigned Below(unsigned n) { return static_cast<unsigned>(random() % n); }

  // The file; the model gets the places of its chunks.
  std::string File() {
    Bytes front = List("LIST", "hdrl", MainHeader(Shape(), 1, 1000).Add(headers));
    Body const body(chunks, 12 + front.size() + 12);
    std::vector<std::size_t> next(model.tracks.size());
    for (std::size_t i = 0; i < chunks.size(); ++i) {
      auto const track = static_cast<std::size_t>(chunks[i].id[1] - '0');
      model.tracks[track].entries[next[track]++].offset = base::Load32(&body.index[i * 16 + 8]);
    }
    front.Add(body.movi).Add(Plain("idx1", {body.index.begin(), body.index.end()}));
    Bytes const file = List("RIFF", "AVI ", front);
    return {file.begin(), file.end()};
  }

  std::minstd_rand random;
  Model model;
  Bytes headers;
  std::vector<Chunk> chunks;
};

std::string Words(Packet const* packet) {
  if (packet == nullptr) return "none";
  std::string words(packet->Data(), packet->Data() + packet->Size());
  words += " at " + std::to_string(packet->Pts() / 1000000) + ", " + std::to_string(packet->Seq());
  words += packet->IsKey() ? " key" : "";
  words += (packet->Flags() & Packet::kEndOfStream) != 0 ? " end" : "";
  return words + ((packet->Flags() & Packet::kDiscontinuity) != 0 ? " sought" : "");
}

TEST(TrickPlay, PlaysWhatTheModelPlays) {
  int packets = 0;
  for (unsigned seed = 1; seed <= 200; seed += TEST_STEP) {
    RandomFilm film(seed);
    MemoryIO io(film.File());
    Model& model = film.model;
    for (ModelTrack& track : model.tracks) track.seq = track.video;  // Open reads the first one
    Playing p(&io);
    base::ConsoleCapture console;
    ASSERT_TRUE(p.Open());
    EXPECT_FALSE(p.demuxer->PlayModeSwitch(static_cast<PlayMode>(7))) << "and keeps the mode";
    std::string said = "film " + std::to_string(seed);
    for (int step = 0; step < 60; ++step) {
      unsigned const what = film.Below(8);
      if (what == 0) {
        auto const last = int64(model.tracks[0].entries.size()) * model.tracks[0].us / 1000;
        int64 const from = film.Below(2) == 0 ? 0 : last;  // or around the end
        int64 const ms = from + film.Below(unsigned(last - from + 3000)) - 1000;
        model.Seek(ms);
        ASSERT_TRUE(p.demuxer->Seek(ms));
        said += ", seek " + std::to_string(ms);
      } else if (what < 4) {
        auto const mode = static_cast<PlayMode>(film.Below(5));
        model.Switch(mode);
        ASSERT_TRUE(p.demuxer->PlayModeSwitch(mode));
        said += ", mode " + std::to_string(int(mode));
      } else if (what == 4) {
        model.chosen = film.Below(3);
        ASSERT_TRUE(p.demuxer->Set("plyVidCtrl", model.chosen));
        said += ", video " + std::to_string(model.chosen);
      }
      unsigned const most = film.Below(film.Below(5) == 0 ? 200 : 4);
      for (unsigned n = 0; n < most; ++n, ++packets)
        ASSERT_EQ(model.Packet(), Words(p.Next().get())) << said << ", packet " << n;
      said += ", " + std::to_string(most) + " packets";
    }
  }
  EXPECT_GT(packets, 100000 / TEST_STEP);
}

}  // namespace
}  // namespace kestro::test
