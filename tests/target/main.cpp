// kestro-target: makes recordings that are the same on every machine, and reads indexes.
//   kestro-target record PLUGIN LAYOUT OUT.avi [BASE]
// Prints the most memory that was resident; in an emulator, of the 4 GiB from BASE on (in hex),
// where it keeps the program's memory.
//   kestro-target read FILE.avi
// Looks at the chunk of every entry; the index is the file's last chunk.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

#include "base/File.h"
#include "base/Module.h"
#include "stream/IMuxer.h"

namespace {

using namespace kestro;
using base::int64;
using base::Ref;
using u64 = unsigned long long;

struct Layout {
  char const* name;
  char const* alias = "AviMuxer-avi-muxer";
  bool indexFirst = false;
  int spill = -1;
  u64 reserved = 0, header = 0, index = 0;
  int frames = 500, size = 4000;
};
constexpr char const* kSyncs = "VFIAviMuxer-avi-muxer-vfi";
Layout const kLayouts[] = {
    {"plain"},
    {"first", "AviMuxer-avi-muxer", true},
    {"spilled", "AviMuxer-avi-muxer", false, 1, 0, 0, 0, 9000, 300},
    {"in-place", kSyncs, false, -1, 65536},
    {"image", kSyncs, true, -1, 1028 + 65544, 1028, 65544},
    {"callback", kSyncs, false, -1, 1028, 1028},
    {"hour", "AviMuxer-avi-muxer", false, -1, 0, 0, 0, 90000, 500},
    {"large", "AviMuxer-avi-muxer", false, -1, 0, 0, 0, 60, 40 << 20},
};

u64 guest = 0;  // where the emulated program's memory begins; 0: all memory counts
long most = 0;  // KiB

void MeasureMemory() {
  // To look takes long: in large files, now and then.
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
  if (sum > most) most = sum;
}

// Leaves holes for what is nothing but zeros, so that large files cost nothing.
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

unsigned char junk[28];
std::FILE* images = nullptr;
void KeepImage(unsigned, unsigned, unsigned char const* data, unsigned size, unsigned) {
  std::fwrite(data, 1, size, images);
}

bool Configure(stream::IMuxer& muxer, base::Object& tags, Layout const& layout) {
  bool ok = tags.Set("idx1_first", static_cast<unsigned char>(layout.indexFirst)) &&
            tags.Set("junkbuf", static_cast<unsigned char*>(junk)) &&
            tags.Set("junksize", unsigned(sizeof junk)) && muxer.Set("vidtag", &tags) &&
            muxer.Set("constFrameRate", base::Fraction(25, 1)) &&
            muxer.Set("listfile", layout.spill);
  if (layout.reserved != 0)
    ok = ok && muxer.Set("reservedSize", layout.reserved) && muxer.Set("flushtime", 1000u) &&
         muxer.Set("periodicSyncEn", layout.header != 0) &&
         muxer.Set("periodicSyncHeaderSize", layout.header) &&
         muxer.Set("periodicSyncIdx1Size", layout.index) &&
         muxer.Set("periodicSyncCallback", &KeepImage);
  return ok;
}

Ref<stream::IMedia> Media(char const* codec,
                          std::initializer_list<std::pair<char const*, int>> what) {
  auto media = Ref<stream::IMedia>::Take(stream::IMedia::New(codec));
  for (auto const& [name, value] : what) media->Set(name, value);
  return media;
}

bool Push(stream::IPort* port, stream::IMedia* media, std::string const& data, int64 ms, bool key) {
  auto packet =
      Ref<stream::Packet>::Take(stream::Packet::New(static_cast<int>(data.size()), data.data()));
  packet->Media(media);
  packet->Pts(ms * 1000000);
  if (key) packet->Flags(stream::Packet::kKey);
  return port->Push(*packet);
}

bool Record(Layout const& layout, base::IO* to) {
  base::AttrSet attrs;
  attrs.Add("Register", layout.alias);
  std::unique_ptr<base::Object> const tags(
      dynamic_cast<base::Object*>(base::Object::New("AviVideoTags")));
  std::unique_ptr<stream::IMuxer> const muxer(base::IClass::New<stream::IMuxer>(attrs));
  if (!muxer || !tags || !Configure(*muxer, *tags, layout) || !muxer->Set("io", to)) return false;

  auto const video = Media("h264", {{"width", 320}, {"height", 180}, {"interlace", 0}});
  video->Set("framerate", base::Fraction(25, 1));
  auto const sound =
      Media("pcm", {{"rate", 8000}, {"channel", 1}, {"width", 2}, {"depth", 16}, {"samples", 320}});
  stream::IPort *const pictures = muxer->AddInput(), *const samples = muxer->AddInput();
  bool ok = pictures->Offer(video.get()) && samples->Offer(sound.get()) &&
            muxer->StatusChange(stream::IStatus::kRunning);
  std::string const start("\0\0\0\1", 4), sets = start + "\x67set" + start + "\x68set";
  for (int n = 0; ok && n < layout.frames; ++n) {
    bool const key = n % 25 == 0;
    std::string frame = key ? sets + start + "\x65" : start + "\x41";
    for (int i = 0; i < n % 251; ++i) frame += static_cast<char>(1 + (n + i) % 255);
    frame.resize(frame.size() + static_cast<std::size_t>(layout.size), '\0');
    ok = Push(pictures, video.get(), frame, n * 40, key) &&
         Push(samples, sound.get(), std::string(640, static_cast<char>(n)), n * 40, true);
  }
  return muxer->StatusChange(stream::IStatus::kClosed) && muxer->Check() && ok;
}

int RecordTo(char const* plugin, std::string const& layout, std::string const& path) {
  std::string error;
  std::string const folder = path + ".spill";  // made by whoever wants one
  base::File::TemporaryFolder(folder.c_str());
  images = std::fopen((path + ".images").c_str(), "wb");
  SparseFile file(path.c_str(), "wb");
  bool ok = images != nullptr && file.Opened() && base::LoadPlugin(plugin, &error);
  for (Layout const& known : kLayouts)
    if (known.name == layout) ok = ok && Record(known, &file);
  ok = ok && std::fclose(images) == 0 && file.Close();
  std::fprintf(stderr, ok ? "\nresident: %ld\n" : "\nrecording failed\n", most);
  return ok ? 0 : 1;
}

unsigned Number(unsigned char const* at) {
  return at[0] | unsigned{at[1]} << 8 | unsigned{at[2]} << 16 | unsigned{at[3]} << 24;
}

int Read(char const* path) {
  base::FileIO file(path, "rb");
  unsigned char head[12], chunk[8], entry[16];
  auto const at = [&file](int64 place, void* data, unsigned size) {
    return file.Seek(place, base::File::kBegin) && file.Read(data, size) == size;
  };
  long entries = 0, beyond = 0;
  // RIFF holds LISTs and chunks up to the index.
  int64 place = 12;
  while (at(place, head, 8) && std::memcmp(head, "idx1", 4) != 0)
    place += 8 + int64{Number(head + 4)} + Number(head + 4) % 2;
  unsigned const bytes = Number(head + 4);
  bool ok = place + 8 + bytes == file.Size();
  for (unsigned done = 0; ok && done < bytes; done += 16, ++entries) {
    ok = at(place + 8 + done, entry, 16);
    int64 const offset = Number(entry + 8);
    ok = ok && at(offset, chunk, 8) && std::memcmp(entry, chunk, 4) == 0 &&
         Number(entry + 12) == Number(chunk + 4);
    beyond += offset >= int64{1} << 31;
  }
  std::printf("%ld entries, %ld of them beyond 2 GiB\n", entries, beyond);
  return ok && entries > 0 ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc > 5) guest = std::strtoull(argv[5], nullptr, 16);
  if (argc >= 5) return RecordTo(argv[2], argv[3], argv[4]);
  if (argc == 3) return Read(argv[2]);
  std::fprintf(stderr, "kestro-target record PLUGIN LAYOUT OUT.avi [BASE] | read FILE.avi\n");
  return 2;
}
