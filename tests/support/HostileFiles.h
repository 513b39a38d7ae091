// Files as an attacker or a failing card would leave them, each named after its symptom.
#pragma once

#include "base/FourCC.h"
#include "base/LittleEndian.h"
#include "support/FileLayout.h"

namespace kestro::test {

struct Hostile {
  std::string symptom;
  Bytes bytes;
  // What normal play gives: packets with data, kRefused for a file that does not open.
  int packets;
};
constexpr int kRefused = -1;

inline Shape HostileShape() {
  Shape shape;
  shape.audio = true;
  shape.strd = "data";
  return shape;
}

// Three frames and two audio blocks, with `streams` in hdrl, `between` hdrl and movi, and `after`
// the index.
inline Bytes HostileFilm(Bytes const& streams, Bytes const& between = {}, Bytes const& after = {}) {
  std::vector<Chunk> const chunks = {{"00dc", StoredKeyFrame("first"), true},
                                     {"01wb", "audio.1.", true},
                                     {"00dc", StoredFrame("next.."), false},
                                     {"01wb", "audio.2.", true},
                                     {"00dc", StoredKeyFrame("last."), true}};
  Bytes front = List("LIST", "hdrl", MainHeader(HostileShape(), 3, 1000).Add(streams));
  front.Add(between);
  Body const body(chunks, 12 + front.size() + 12);
  front.Add(body.movi).Add(Plain("idx1", {body.index.begin(), body.index.end()})).Add(after);
  return List("RIFF", "AVI ", front);
}

inline Bytes HostileVideo() { return VideoHeaders(HostileShape(), 3); }
inline Bytes HostileBase() {
  return HostileFilm(HostileVideo().Add(AudioHeaders(4)), Plain("JUNK", "filler.."));
}

inline std::size_t Find(Bytes const& bytes, char const* code, int nth = 0) {
  auto at = bytes.begin();
  for (int i = 0; i <= nth; ++i) at = std::search(at + (i > 0), bytes.end(), code, code + 4);
  return static_cast<std::size_t>(at - bytes.begin());
}
inline Bytes With(Bytes bytes, std::size_t at, unsigned value) {
  base::Store32(&bytes.at(at), value);
  return bytes;
}
inline Bytes Copies(Bytes const& unit, std::size_t count) {
  Bytes all;
  all.reserve(unit.size() * count);
  while (count-- > 0) all.insert(all.end(), unit.begin(), unit.end());
  return all;
}
// Lists one in another, the innermost with this content.
inline Bytes Nested(char const* type, unsigned levels, Bytes const& content) {
  Bytes all;
  auto const inside = static_cast<unsigned>(content.size());
  for (unsigned left = levels; left-- > 0;) all.Cc("LIST").U32(4 + 12 * left + inside).Cc(type);
  return all.Add(content);
}

// Every chunk with every suspect size; a wrong size hides the chunks after it.
inline std::vector<Hostile> HostileSizes() {
  struct Row {
    char const* chunk;
    int nth;
    int small, large;  // packets
  } const rows[] = {{"RIFF", 0, 0, 5}, {"hdrl", 0, 0, 5}, {"avih", 0, 0, 5}, {"strl", 0, 0, 3},
                    {"strh", 0, 5, 5}, {"strf", 0, 5, 5}, {"strd", 0, 5, 5}, {"strl", 1, 3, 5},
                    {"strh", 1, 5, 5}, {"strf", 1, 5, 5}, {"JUNK", 0, 0, 0}, {"movi", 0, 0, 0},
                    {"00dc", 0, 5, 5}, {"01wb", 0, 5, 5}, {"idx1", 0, 0, 5}};
  Bytes const base = HostileBase();
  std::vector<Hostile> files;
  for (Row const& row : rows)
    for (unsigned size : {0u, 1u, 0x7FFFFFFFu, 0xFFFFFFF8u, 0xFFFFFFFFu}) {
      std::size_t const code = Find(base, row.chunk, row.nth);
      bool const list = code >= 8 && std::equal(&base[code - 8], &base[code - 4], "LIST");
      files.push_back({std::string(row.chunk) + " " + std::to_string(row.nth) + " of " +
                           std::to_string(size) + " bytes",
                       With(base, list ? code - 4 : code + 4, size),
                       size > 1 ? row.large : row.small});
    }
  return files;
}

// NOLINTNEXTLINE(readability-function-size): a table
inline std::vector<Hostile> HostileFiles() {
  Bytes const base = HostileBase(), video = HostileVideo(), audio = AudioHeaders(4);
  Bytes const both = Joined({video, audio}), filler = Plain("JUNK", "");
  Bytes const many = HostileFilm(Joined({video, video, Copies(audio, 10)}));
  auto const header = [](Bytes const& strl) {
    return Bytes(std::string(strl.begin() + 12, strl.begin() + 76));
  };
  auto const format = [](Bytes const& strl) {
    return Bytes(std::string(strl.begin() + 76, strl.end()));
  };
  Bytes const strh = header(video), strf = format(video);
  auto const film = [&](Bytes const& first) { return HostileFilm(Joined({first, audio})); };
  auto const videoOf = [&](Bytes const& content) { return film(List("LIST", "strl", content)); };
  auto const data = [&](Bytes const& content) {
    return videoOf(Joined({strh, strf, Plain("strd", {content.begin(), content.end()})}));
  };
  // Fields of the first or the second stream header, its format, the index's entries.
  auto const field = [&](char const* code, int nth, unsigned at, unsigned value) {
    return With(base, Find(base, code, nth) + 8 + at, value);
  };
  auto const entry = [&](unsigned number, unsigned at, unsigned value) {
    return field("idx1", 0, number * 16 + at, value);
  };
  auto const entries = [&](unsigned at, unsigned first, unsigned step) {
    Bytes bytes = base;
    for (unsigned i = 0; i < 5; ++i)
      bytes = With(bytes, Find(bytes, "idx1") + 8 + 16 * i + at, first + i * step);
    return bytes;
  };
  // A film with an index of that many pairs of entries.
  auto const indexed = [&](std::size_t count, unsigned flags, unsigned size) {
    Bytes two;
    for (char const* id : {"00dc", "01wb"}) two.Cc(id).U32(flags).U32(4).U32(size);
    Bytes const film(std::string(base.begin(), base.begin() + std::ptrdiff_t(Find(base, "idx1"))));
    return Joined(
        {film, Bytes().Cc("idx1").U32(static_cast<unsigned>(32 * count)), Copies(two, count)});
  };

  return {
      {"undamaged", base, 5},
      {"no bytes", {}, kRefused},
      {"another kind of RIFF", With(base, 8, base::Convert4("WAVE")), 5},
      {"zeros", Bytes().Zeros(4096), 0},
      {"RIFF in RIFF", List("RIFF", "AVI ", base), 5},
      {"RIFF after RIFF", Joined({base, base}), 5},
      {"LIST of 0 bytes", HostileFilm(both, Bytes().Cc("LIST").U32(0)), 5},
      {"unknown LIST", HostileFilm(both, List("LIST", "none", Plain("avih", ""))), 5},
      {"unknown leaf in hdrl", HostileFilm(Joined({Plain("vprp", ""), both})), 0},
      {"isft in INFO", HostileFilm(both, List("LIST", "INFO", Plain("isft", "soft"))), 5},
      {"10,000 hdrl in each other", HostileFilm(both, Nested("hdrl", 10000, {})), 5},
      {"10,000 strl in each other", HostileFilm(Nested("strl", 10000, both)), 0},
      {"10,000 small hdrl with large ones in them",
       HostileFilm(
           both,
           Copies(Bytes().Cc("LIST").U32(16).Cc("hdrl").Cc("LIST").U32(1 << 30).Cc("hdrl"), 5000)),
       5},
      {"a million JUNK before movi", HostileFilm(both, Copies(filler, 1000000)), 0},
      {"a million JUNK after the index", HostileFilm(both, {}, Copies(filler, 1000000)), 5},
      {"30,000 JUNK before strh and 30,000 strf after",
       videoOf(Joined({Copies(filler, 30000), strh, Copies(Plain("strf", ""), 30000)})), 5},
      {"two hdrl", HostileFilm(both, List("LIST", "hdrl", both)), 5},
      {"two strh", videoOf(Joined({strh, header(audio), strf})), 5},
      {"two movi", HostileFilm(both, List("LIST", "movi", Plain("00dc", "1"))), 5},
      {"two idx1", HostileFilm(both, Plain("idx1", std::string(160, '0'))), 0},
      {"no strh", videoOf(strf), 3},
      {"no strf", videoOf(strh), 5},
      {"strf before strh", videoOf(Joined({strf, strh})), 3},
      {"strf of 4 bytes", videoOf(Joined({strh, Plain("strf", "size")})), 5},
      {"strh of 1,000 bytes",
       videoOf(Joined({Plain("strh", "vidsH264" + std::string(992, 'h')), strf})), 5},
      {"strl in strd", data(audio), 5},
      {"idx1 in strd", data(Plain("idx1", std::string(160, '\xFF'))), 0},
      {"video with the format of audio", videoOf(Joined({strh, format(audio)})), 5},
      {"handler of a printf format", field("strh", 0, 4, base::Convert4("%n%s")), 3},
      {"audio called H264", field("strh", 1, 4, base::Convert4("H264")), 3},
      {"video called PCM", field("strh", 0, 4, base::Convert4("PCM")), 5},
      {"scale 0", field("strh", 0, 20, 0), 5},
      {"frames of 136 years", With(field("strh", 0, 20, ~0u), Find(base, "strh") + 32, 1), 5},
      {"rate 0", field("strh", 0, 24, 0), 5},
      {"rate of 32 bits", field("strh", 0, 24, ~0u), 5},
      {"length of 32 bits", field("strh", 0, 32, ~0u), 5},
      {"audio of length 0", field("strh", 1, 32, 0), 5},
      {"audio of scale 0", field("strh", 1, 20, 0), 5},
      {"channels 0", field("strf", 1, 0, 1), 5},
      {"65,535 channels of 65,528 bits",
       With(field("strf", 1, 0, 0xFFFF0001), Find(base, "strf", 1) + 20, 0xFFF80004), 5},
      {"byte rate 0", field("strf", 1, 8, 0), 5},
      {"block align 0", field("strf", 1, 12, 0x100000), 5},
      {"two million samples of 4 GiB at one byte a second",
       With(With(With(field("strh", 1, 44, ~0u), Find(base, "strh", 1) + 40, 0x200000),
                 Find(base, "strf", 1) + 16, 1),
            Find(base, "strf", 1) + 12, 0),
       5},
      {"stream number 02", entry(0, 0, base::Convert4("02dc")), 4},
      {"stream number 11", With(many, Find(many, "idx1") + 56, base::Convert4("11wb")), 4},
      {"stream number of letters", entry(0, 0, base::Convert4("xydc")), 4},
      {"stream number of bytes above 0x7F", entry(0, 0, 0xFFFFFFFF), 4},
      {"1,000 strl", HostileFilm(Copies(video, 1000)), 3},
      {"filler after a text track",
       HostileFilm(Joined({With(video, 24, base::Convert4("txt")), filler, both})), 5},
      {"index larger than the file", With(base, Find(base, "idx1") + 4, 1 << 20), 5},
      {"index of 17 bytes", With(base, Find(base, "idx1") + 4, 17), 1},
      {"offsets past the end", entries(8, 1 << 20, 0), 0},
      {"offsets past 2 GiB", entries(8, 0x80000000, 16), 0},
      {"offsets 8 bytes before 4 GiB", entries(8, 0xFFFFFFF8, 0), 5},
      {"offsets at 0", entries(8, 0, 0), 5},
      {"offsets overlapping", entries(8, 100, 1), 5},
      {"entries of 0 bytes", entries(12, 0, 0), 0},
      {"entries of 4 GiB", entries(12, 0xFFFFFFFF, 0), 5},
      {"8,000 entries of 4 GiB at one sample a second",
       With(indexed(4000, 0x10, ~0u), Find(base, "strf", 1) + 12, 1), 8000},
      {"100,000 entries without key frames", indexed(50000, 0, 4), 100000},
      {"no index", With(base, Find(base, "idx1"), base::Convert4("JUNK")), 0},
  };
}

}  // namespace kestro::test
