// Hostile and damaged files: what can be played is played, at a cost that the file size bounds.
#include <gmock/gmock.h>
#include <malloc.h>

#include <atomic>
#include <climits>

#include "common/IAviDemux.h"
#include "support/HostileFiles.h"
#include "support/Playing.h"

// Memory in use by this process, and its peak. Every allocation comes through here,
// but for builds with a sanitizer, which finds absurd ones itself.
static std::atomic<std::int64_t> used, peak;

#ifndef __has_feature  // which clang has
#define __has_feature(what) 0
#endif
#if !__SANITIZE_ADDRESS__ && !__SANITIZE_THREAD__ && !__has_feature(address_sanitizer) && \
    !__has_feature(thread_sanitizer)
extern "C" {
void* __libc_malloc(std::size_t size);
void __libc_free(void* memory);
void* malloc(std::size_t size) {
  void* const memory = __libc_malloc(size);
  auto const now = used += static_cast<std::int64_t>(malloc_usable_size(memory));
  for (auto seen = peak.load(); now > seen && !peak.compare_exchange_weak(seen, now);) {
  }
  return memory;
}
void free(void* memory) {
  used -= static_cast<std::int64_t>(malloc_usable_size(memory));
  __libc_free(memory);
}
}
#endif

namespace kestro::test {
namespace {

using plugin::avi::IAviDemux;

int64 bytesRead;
void Meter(unsigned, void*, unsigned size) { bytesRead += size; }

// Plays to the end. Returns the packets with data, INT_MAX for more than the index can name.
int Drain(Playing& p, std::size_t most) {
  std::size_t all = 0;
  int withData = 0;
  for (auto packet = p.Next(); packet; packet = p.Next()) {
    withData += packet->Size() > 0;
    if (++all > most) return INT_MAX;
  }
  return withData;
}

// Plays a file in every way. Returns the packets with data of normal play, kRefused, or INT_MAX for
// play without end.
int PlayEveryWay(base::IO& io, char const* alias) {
  auto const most = static_cast<std::size_t>(io.Size()) / 16;
  Playing p(&io, 0, alias);
  p.demuxer->Set("preloadsz", int64{1 << 20});
  p.demuxer->Set("vlcPreload", true);
  if (!p.Open()) return kRefused;
  unsigned size = 0;
  if (p.demuxer->Get("strdsize", size) && size <= io.Size()) {
    std::vector<unsigned char> content(size);
    unsigned char* data = content.data();
    p.demuxer->Get("strddata", data);
  }
  int packets = Drain(p, most);
  for (auto mode :
       {PlayMode::kNormal, PlayMode::kFast, PlayMode::kBack, PlayMode::kVideo, PlayMode::kAudio})
    for (int64 ms : std::initializer_list<int64>{0, 50, INT64_MAX, INT64_MIN}) {
      p.demuxer->PlayModeSwitch(mode);
      p.demuxer->Seek(ms);
      if (Drain(p, most) == INT_MAX) packets = INT_MAX;
    }
  return p.Close() ? packets : INT_MAX;
}

void Examine(Hostile const& file, bool exactly) {
  SCOPED_TRACE(file.symptom);
  MemoryIO memory;
  memory.bytes = file.bytes;
  auto const size = static_cast<int64>(file.bytes.size());
  for (char const* alias : {"AviDemuxer-avi-demuxer", "CusAviDemuxer"}) {
    if (base::IClass::Find(alias, true) == nullptr) continue;
    bool const opensAll = *alias == 'C';
    memory.position = used = peak = 0;
    testing::internal::CaptureStdout();
    int const packets = PlayEveryWay(memory, alias);
    std::string const said = testing::internal::GetCapturedStdout();
    // An index entry takes 24 bytes instead of 16, lists grow by doubling, and an empty chunk takes
    // ten times its size in the file.
    EXPECT_LE(peak, std::min(5 * size + (32 << 20), 80 * size + (2 << 20))) << alias;
    EXPECT_EQ(packets == kRefused, !opensAll && said.find("!Parse(io)") != said.npos) << said;
    if (exactly) {
      EXPECT_EQ(packets, opensAll ? std::max(file.packets, 0) : file.packets) << alias;
    }
  }
  // The headers and the index are read once; blocks overlap a little where a list ends early.
  base::IOCallBack io(memory, 0, Meter);
  IAviDemux demux;
  bytesRead = 0;
  testing::internal::CaptureStdout();
  static_cast<void>(demux.Open(io));  // what it could read is played
  testing::internal::GetCapturedStdout();
  EXPECT_LE(bytesRead, 2 * size + (64 << 10));
}

TEST(Hostile, FilesPlayWhatCanBePlayed) {
  RegisterClasses();
  for (Hostile const& file : HostileFiles()) Examine(file, true);
  for (Hostile const& file : HostileSizes()) Examine(file, true);
}

TEST(Hostile, EveryByte) {
  RegisterClasses();
  Bytes const whole = HostileBase();
  for (std::size_t at = 0; at < whole.size(); ++at) {
    Bytes bytes = whole;
    for (unsigned char value : {0x00, 0x7F, 0x80, 0xFF}) {
      bytes[at] = value;
      Examine({"byte " + std::to_string(at) + " is " + std::to_string(value), bytes, 0}, false);
    }
    bytes.resize(at);
    Examine({"cut after " + std::to_string(at) + " bytes", bytes, 0}, false);
  }
}

}  // namespace
}  // namespace kestro::test
