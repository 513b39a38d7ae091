// kestro-target: makes recordings that are the same on every machine.
//   kestro-target PLUGIN LAYOUT OUT.avi [BASE]
// Prints the peak of resident memory; in an emulator, within the 4 GiB from BASE (in hex), where
// the emulator keeps the program's memory.
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "support/FileLayout.h"

namespace {

using namespace kestro;
using u64 = unsigned long long;

struct Layout {
  char const* name;
  bool syncs = false, indexFirst = false;
  int spill = -1;
  u64 reserved = 0, header = 0, index = 0;
  int frames = 500, size = 4000;
};
Layout const kLayouts[] = {
    {"plain"},
    {"first", false, true},
    {"spilled", false, false, 1, 0, 0, 0, 9000, 300},
    {"in-place", true, false, -1, 65536},
    {"image", true, true, -1, 1028 + 65544, 1028, 65544},
    {"callback", true, false, -1, 1028, 1028},
    {"hour", false, false, -1, 0, 0, 0, 90000, 500},
    {"large", false, false, -1, 0, 0, 0, 60, 40 << 20},
};

u64 guest = 0;  // where the emulated program's memory begins; 0: all memory counts
long most = 0;  // KiB

void MeasureMemory() {
  // Reading the maps is slow: in large files, only some writes do.
  if (static int writes = 0; ++writes > 64 && writes % 64 != 0) return;
  std::FILE* const maps = std::fopen("/proc/self/smaps", "r");
  if (maps == nullptr) return;
  long sum = 0, size;
  u64 from, to;
  bool counts = false;
  for (char line[512]; std::fgets(line, sizeof line, maps) != nullptr;) {
    if (std::sscanf(line, "%llx-%llx ", &from, &to) == 2)
      counts = guest == 0 || (from >= guest && to <= guest + (u64{1} << 32));
    else if (counts && std::sscanf(line, "Rss: %ld", &size) == 1)
      sum += size;
  }
  std::fclose(maps);
  most = std::max(most, sum);
}

// Leaves holes for zeros, so that large files cost nothing.
class SparseFile : public base::FileIO {
 public:
  using FileIO::FileIO;
  unsigned Write(void const* data, unsigned size) override {
    MeasureMemory();
    auto const* bytes = static_cast<char const*>(data);
    bool const zeros = bytes[0] == 0 && std::memcmp(bytes, bytes + 1, size - 1) == 0;
    if (size < 65536 || !zeros) return FileIO::Write(data, size);
    return Seek(size, base::File::kCurrent) ? size : 0;
  }
};

std::FILE* images = nullptr;
void KeepImage(unsigned, unsigned, unsigned char const* data, unsigned size, unsigned) {
  std::fwrite(data, 1, size, images);
}

bool Record(Layout const& layout, std::string const& path) {
  std::string const folder = path + ".spill";  // made by check.sh
  base::File::TemporaryFolder(folder.c_str());
  images = std::fopen((path + ".images").c_str(), "wb");
  SparseFile file(path.c_str(), "wb");
  test::Shape shape;
  shape.indexFirst = layout.indexFirst;
  shape.junk = std::string(28, '\0');
  test::Tags const tags(shape);
  test::Recording r(&file, layout.syncs ? "VFIAviMuxer-avi-muxer-vfi" : "AviMuxer-avi-muxer");
  r.muxer->Set("vidtag", tags.object.get());
  r.muxer->Set("listfile", layout.spill);
  if (layout.syncs) {
    r.muxer->Set("flushtime", 1000u);
    r.muxer->Set("reservedSize", layout.reserved);
    r.muxer->Set("periodicSyncEn", layout.header != 0);
    r.muxer->Set("periodicSyncHeaderSize", layout.header);
    r.muxer->Set("periodicSyncIdx1Size", layout.index);
    r.muxer->Set("periodicSyncCallback", &KeepImage);
  }
  r.Track(test::VideoMedia()).Track(test::AudioMedia(8000, 1, 320));
  bool ok = images != nullptr && file.Opened() && r.Open();
  for (int n = 0; ok && n < layout.frames; ++n) {
    std::string frame;
    for (int i = 0; i < n % 251; ++i) frame += static_cast<char>(1 + (n + i) % 255);
    frame.resize(frame.size() + static_cast<std::size_t>(layout.size), '\0');
    frame = n % 25 == 0 ? test::KeyFrame(frame) : test::Frame(frame);
    std::string const audio(640, static_cast<char>(n));
    ok = r.Push(0, frame, n % 25 == 0, n * 40) && r.Push(1, audio, true, n * 40);
  }
  ok = r.Close() && r.muxer->Check() && ok && std::fclose(images) == 0 && file.Close();
  std::fprintf(stderr, ok ? "\nresident: %ld\n" : "\nrecording failed\n", most);
  return ok;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc > 4) guest = std::strtoull(argv[4], nullptr, 16);
  for (Layout const& layout : kLayouts)
    if (argc >= 4 && std::string(layout.name) == argv[2] && base::LoadPlugin(argv[1]))
      return Record(layout, argv[3]) ? 0 : 1;
  std::fprintf(stderr, "kestro-target PLUGIN LAYOUT OUT.avi [BASE]\n");
  return 2;
}
