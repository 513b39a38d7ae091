// Any bytes as a damaged recording: repair never crashes, always ends and does not change its
// input. Its output passes a check, plays to the end and needs no second repair.
#include "repair/Repair.h"

#include "base/File.h"
#include "cli/Errors.h"
#include "fuzz/Fuzz.h"
#include "fuzz/SmallMuxer.h"
#include "support/Playing.h"
#include "verify/Verify.h"

namespace kestro::fuzz {

namespace found = tool::found;

namespace {

constexpr std::size_t kFile = 32768;

std::string Read(std::string const& path) {
  base::FileIO file(path.c_str(), "rb");
  std::string bytes(static_cast<std::size_t>(std::max<base::int64>(file.Size(), 0)), '\0');
  KESTRO_ASSERT(file.Read(bytes.data(), static_cast<unsigned>(bytes.size())) == bytes.size());
  return bytes;
}

void Write(std::string const& path, std::string const& bytes) {
  base::FileIO file(path.c_str(), "wb");
  auto const size = static_cast<unsigned>(bytes.size());
  KESTRO_ASSERT(file.Write(bytes.data(), size) == size && file.Close());
}

// False for an input that is beyond use, the only reason to refuse apart from a missing frame rate.
bool Repair(tool::RepairJob job, tool::RepairReport& report) {
  try {
    report = tool::Repair(job);
  } catch (tool::Error const& error) {
    if (error.Code() == tool::kUsage && !job.rate.Positive()) {
      job.rate = base::Fraction(25, 1);
      return Repair(job, report);
    }
    if (error.Code() != tool::kUnusable) std::fprintf(stderr, "%s\n", error.what());
    KESTRO_ASSERT(error.Code() == tool::kUnusable);
    return false;
  }
  return true;
}

// Missing in the input, or a fault of the data itself, which repair does not change.
bool OfInput(tool::Kind const* kind) {
  return kind == &found::kRate || kind == &found::kNoKey || kind == &found::kAudioFrame;
}

void CheckOutput(std::string const& path) {
  tool::Findings findings;
  KESTRO_ASSERT(tool::Verify(path, true, findings));
  for (auto const& group : findings.Groups()) {
    if (group.kind->severity == tool::Severity::kNote || OfInput(group.kind)) continue;
    std::fprintf(stderr, "%s at %lld\n", group.kind->id,
                 static_cast<long long>(group.first.front().offset));
    KESTRO_ASSERT(!"a fault in the output");
  }
}

void CheckPlay(std::string const& path) {
  test::MemoryIO io(Read(path));
  test::Playing playing(&io);
  KESTRO_ASSERT(playing.Open());
  playing.All();
  KESTRO_ASSERT(playing.failures == 0);
}

}  // namespace
}  // namespace kestro::fuzz

// A file, followed by a side file, whose length is in the last two bytes. With the top bit of the
// length, the file is only verified.
extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  using namespace kestro;
  using namespace kestro::fuzz;
  static Folder const folder;
  static bool const once = [] {
    bool const quiet = Quiet();
    // Takes the place of the plug-in's muxer. Its blocks are larger than any file here.
    RegisterMuxer<SmallMuxer<plugin::avi::AviMuxer, 16>>("AviMuxer-avi-muxer");
    test::RegisterClasses();
    return quiet;
  }();
  KESTRO_ASSERT(once);
  bool const verifies = size >= 2 && (data[size - 1] & 0x80) != 0;
  Input file(data, std::min(size, kFile));
  Input const image = file.TakeTail(2, kFile);
  tool::RepairJob job{folder.At("in.avi"), folder.At("out.avi"), "", true};
  Write(job.input, file.Text());
  if (verifies) {
    tool::Findings findings;
    tool::Verify(job.input, true, findings);
    return 0;
  }
  if (!image.Empty()) Write(job.image = folder.At("image"), image.Text());
  tool::RepairReport report, again;
  bool const repaired = Repair(job, report);
  KESTRO_ASSERT(Read(job.input) == file.Text());
  if (!repaired) return 0;
  CheckOutput(job.output);
  CheckPlay(job.output);
  KESTRO_ASSERT(Repair({job.output, folder.At("again.avi"), "", true}, again));
  KESTRO_ASSERT(again.kept.packets == report.kept.packets && again.Complete());
  return 0;
}
