// Writes the seeds: small recordings of every layout and codec, with scripts, and streams of
// operations.
#include <filesystem>
#include <fstream>
#include <iostream>
#include <random>

#include "support/FileLayout.h"

namespace kestro::test {
namespace {

namespace fs = std::filesystem;

std::string image;  // the last one handed over
void Keep(unsigned, unsigned, unsigned char const* data, unsigned size, unsigned) {
  image.assign(data, data + size);
}

enum Way { kPlain, kInPlace, kImage, kCallback };

struct Film {
  Way way;
  char const* tracks;  // "h"264, he"v"c, "p"cm, "t"ext, "j"peg, "a"ac
  int packets;         // of each
  bool tags = false;
};

base::Ref<IMedia> Media(char kind) {
  if (kind == 'p') return SoundMedia(8000, 1, 10);
  if (kind == 'a') return base::Ref<IMedia>::Take(IMedia::New("aac"));
  return VideoMedia(kind == 'h' ? "h264" : kind == 'v' ? "hevc" : kind == 't' ? "txt" : "jpeg");
}

std::string Data(char kind, std::size_t track, int n) {
  std::string some(static_cast<std::size_t>(n % 4), 'x');
  std::string const sets = kStart + "\x40vps" + kStart + "\x42sps" + kStart + "\x44pps";
  switch (kind) {
    case 'h':
      return n % 3 == 0 ? KeyFrame(some) : Frame(some);
    case 'v':
      return n % 3 == 0 ? sets + kStart + "\x26\x01" + some : kStart + "\x02\x01" + some;
    case 'p':
      return std::string(20, static_cast<char>(n));
    case 't':
      return "text" + some;
    case 'j': {
      std::string const picture = "\xFF\xD8" + some;
      return "0" + std::to_string(track) + "dc" + static_cast<char>(picture.size()) +
             std::string(3, '\0') + picture;
    }
    default:
      return some;
  }
}

std::string Record(Film const& film) {
  base::ConsoleCapture quiet;
  Shape shape;
  shape.indexFirst = film.way == kInPlace || film.way == kImage;
  if (film.tags) shape.strd = "data", shape.strn = "name", shape.isft = "soft", shape.junk = "junk";
  Tags tags(shape);
  MemoryIO io;
  {
    Recording r(&io, film.way == kPlain ? "AviMuxer-avi-muxer" : "VFIAviMuxer-avi-muxer-vfi");
    r.muxer->Set("vidtag", tags.object.get());
    if (film.way != kPlain) {
      unsigned long long const header = 1028, index = 8 + 16 * 40;
      r.muxer->Set("flushtime", 100u);
      r.muxer->Set("periodicSyncEn", film.way != kInPlace);
      r.muxer->Set("periodicSyncCallback", &Keep);
      r.muxer->Set("reservedSize", film.way == kInPlace ? index : header + index);
      r.muxer->Set("periodicSyncHeaderSize", header);
      r.muxer->Set("periodicSyncIdx1Size", index);
    }
    std::string const tracks = film.tracks;
    for (char kind : tracks) r.Track(Media(kind));
    r.Open();
    for (int n = 0; n < film.packets; ++n)
      for (std::size_t t = 0; t < tracks.size(); ++t)
        r.Push(static_cast<int>(t), Data(tracks[t], t, n), n % 3 == 0 || tracks[t] == 'j',
               base::int64{40} * n);
  }
  return {io.bytes.begin(), io.bytes.end()};
}

void Write(fs::path const& path, std::string const& bytes) {
  fs::create_directories(path.parent_path());
  std::ofstream(path, std::ios::binary) << bytes;
}

std::string Script(std::initializer_list<int> steps) {
  std::string bytes;
  for (int step : steps) bytes += static_cast<char>(step);
  return bytes + static_cast<char>(bytes.size());
}

// For every way of recording and every kind of fault, operations of all kinds.
void WriteOperations(fs::path const& to) {
  constexpr unsigned char tracks[] = {1, 0x0C, 0x13, 0x47, 0x7F};
  constexpr unsigned char lengths[] = {0, 3, 10, 51, 200, 239, 245, 255};
  std::mt19937 random(1);
  auto const byte = [&](auto value) { return static_cast<char>(value); };
  for (int way = 0; way < 4; ++way)
    for (int fault = 0; fault < 6; ++fault) {
      std::string bytes{byte(way), byte(tracks[random() % 5]), byte(random() % 8)};
      bytes += byte(random() % 32);                                    // tags
      if (way == 1 || way == 2) bytes += byte(5 + random() % 2 * 90);  // entries of the index
      bytes += {byte(fault), byte(random() % 6), byte(random()), byte(random() % 3)};
      for (unsigned steps = 10 + random() % 30; steps > 0; --steps)
        bytes += {byte(random()), byte(random()), byte(lengths[random() % 8])};
      Write(to / ("way" + std::to_string(way) + "-fault" + std::to_string(fault)), bytes);
    }
}

int WriteAll(fs::path const& to) {
  struct {
    char const* name;
    Film film;
  } const films[] = {
      {"h264-pcm", {kPlain, "hp", 9}},    {"every-codec", {kPlain, "hvpptja", 5, true}},
      {"two-videos", {kPlain, "hhp", 8}}, {"sound", {kPlain, "pp", 6}},
      {"in-place", {kInPlace, "vp", 10}}, {"image", {kImage, "hp", 12, true}},
      {"callback", {kCallback, "hpt", 7}}};
  std::string const trick = Script({6, 0, 0, 5,   1, 1, 0, 255, 1, 2,   0, 9,   2, 6, 0, 1,
                                    1, 3, 0, 255, 4, 1, 1, 4,   0, 255, 3, 200, 1, 0, 0, 255});
  std::string const faults =
      Script({11, 1, 5, 9, 8,  0, 6, 0, 8, 0, 9, 1, 0, 9, 9, 2, 0,   255, 7,
              0,  8, 0, 5, 16, 6, 0, 9, 3, 0, 9, 1, 2, 5, 8, 0, 255, 2,   255});
  for (auto const& [name, film] : films) {
    image.clear();
    std::string const avi = Record(film), file = std::string(name) + ".avi";
    Write(to / "play" / file, avi + '\0');
    Write(to / "play" / ("trick-" + file), avi + trick);
    Write(to / "play" / ("faults-" + file), avi + faults);
    Write(to / "repair" / file, avi + std::string(2, '\0'));
    std::string const cut = avi.substr(0, avi.size() - 100);
    Write(to / "repair" / ("cut-" + file), cut + std::string(2, '\0'));
    if (image.empty()) continue;
    Write(to / "repair" / ("side-" + file),
          cut + image + static_cast<char>(image.size()) + static_cast<char>(image.size() >> 8));
  }
  WriteOperations(to / "record");
  return 0;
}

}  // namespace
}  // namespace kestro::test

int main(int argc, char** argv) {
  if (argc == 2) return kestro::test::WriteAll(argv[1]);
  std::cerr << "usage: kestro-fuzz-seeds FOLDER\n";
  return 2;
}
