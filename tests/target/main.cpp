// kestro-target: makes a recording of a number of frames that is the same on every machine.
//   kestro-target PLUGIN FRAMES OUT.avi [BASE]
// Prints the peak of resident memory; in an emulator, within the 4 GiB from BASE (in hex), where
// the emulator keeps the program's memory.
#include <cstdio>
#include <cstdlib>

#include "support/FileLayout.h"

namespace {

using namespace kestro;

unsigned long long guest = 0;  // where the emulated program's memory begins; 0: all memory counts
long most = 0;                 // KiB

void MeasureMemory() {
  std::FILE* const maps = std::fopen("/proc/self/smaps", "r");
  if (maps == nullptr) return;
  long sum = 0, size;
  unsigned long long from, to;
  bool counts = false;
  for (char line[512]; std::fgets(line, sizeof line, maps) != nullptr;) {
    if (std::sscanf(line, "%llx-%llx ", &from, &to) == 2)
      counts = guest == 0 || (from >= guest && to <= guest + (1ull << 32));
    else if (counts && std::sscanf(line, "Rss: %ld", &size) == 1)
      sum += size;
  }
  std::fclose(maps);
  most = std::max(most, sum);
}

struct MeasuredFile : base::FileIO {
  using FileIO::FileIO;
  unsigned Write(void const* data, unsigned size) override {
    MeasureMemory();
    return FileIO::Write(data, size);
  }
};

bool Record(int frames, char const* path) {
  MeasuredFile file(path, "wb");
  test::Tags const tags{test::Shape()};
  test::Recording r(&file);
  r.muxer->Set("vidtag", tags.object.get());
  r.Track(test::VideoMedia()).Track(test::AudioMedia(8000, 1, 320));
  bool ok = file.Opened() && r.Open();
  for (int n = 0; ok && n < frames; ++n) {
    std::string const payload(500 + n % 251, static_cast<char>(1 + n % 255));
    bool const key = n % 25 == 0;
    ok = r.Push(0, key ? test::KeyFrame(payload) : test::Frame(payload), key, n * 40) &&
         r.Push(1, std::string(640, static_cast<char>(n)), true, n * 40);
  }
  ok = r.Close() && r.muxer->Check() && ok && file.Close();
  std::fprintf(stderr, ok ? "\nresident: %ld\n" : "\nrecording failed\n", most);
  return ok;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc > 4) guest = std::strtoull(argv[4], nullptr, 16);
  if (argc >= 4 && base::LoadPlugin(argv[1])) return Record(std::atoi(argv[2]), argv[3]) ? 0 : 1;
  std::fprintf(stderr, "kestro-target PLUGIN FRAMES OUT.avi [BASE]\n");
  return 2;
}
