// What an application may choose for a recording. All of it has defaults that suit, but the path.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace kestro::record {

class Storage;

// When a new file begins: at a key frame of the leading track, which is the first video track, or
// the first audio track where there is no video.
struct SegmentOptions {
  static constexpr std::uint64_t kDefaultSize = (std::uint64_t{1} << 31) - 1;
  std::uint64_t size = kDefaultSize;  // bytes of a file at most, as far as key frames allow
  std::int64_t time_ns = -1;          // of a file; negative: any
};

// How files stay playable when the recording is cut off.
struct SyncOptions {
  enum Mode {
    kOff,
    kInPlace,   // an index of reserved size before the data, updated in place
    kImage,     // the same, written as a whole with the headers, after at least 512 KiB of data
    kCallback,  // headers and index in a file of their own, "OUT.avi.sync", until the file is
                // closed
  } mode = kOff;
  std::int64_t interval_ns = 3000000000;    // from sync to sync
  std::int64_t reserve_ns = 3600000000000;  // the reserve is for a file of this length ...
  std::uint64_t reserveBytes = 0;           // ... unless its size is given
  // In place and image: when a file is closed, it becomes an ordinary one, with its index after the
  // data too, which all players use; while the next one is recorded. False: it keeps the index
  // before the data alone.
  bool ordinary = true;
};

// Packets that wait for the storage. When the queue is full, pushing waits or, with `drop`, whole
// groups of pictures are left out.
struct QueueOptions {
  bool enabled = true;
  bool drop = false;
  unsigned maxTime_ms = 10000;   // 0: no bound
  unsigned maxBytes = 64 << 20;  // 0: no bound
};

// Optional chunks of the head.
struct TagOptions {
  std::vector<char> strd;  // of the first H.264 or HEVC track
  std::string strn;        // its name
  std::string isft;        // of the recording software
  unsigned junk = 0;       // bytes of JUNK before the data
  // Contents carried over from another recording instead: strd and strn by track.
  std::vector<std::vector<char>> strdOf, strnOf;
  std::vector<char> junkData;
};

// Something that happened. The strings are for people, in one line that names the file.
struct Event {
  enum Kind {
    kOpened,   // a file has been opened
    kClosed,   // ... and closed
    kNote,     // worth knowing, nothing is wrong
    kWarning,  // nothing recorded is at risk
    kError,    // packets are refused from now on
  } kind = kNote;
  std::string path, text;
  // kClosed: packets that were stored, bytes of the file, its length, whether it is whole.
  std::uint64_t packets = 0, bytes = 0;
  std::int64_t duration_ns = 0;
  bool complete = false;
};

struct RecorderOptions {
  // "cam-%05d.avi" makes cam-00001.avi and so on, "cam.avi" makes cam.avi, cam-00002.avi. Numbers
  // of files that exist are left out.
  std::string path;
  bool overwrite = false;         // existing files instead
  std::vector<std::string> keep;  // files that are never overwritten all the same

  SegmentOptions segments;
  SyncOptions sync;
  QueueOptions queue;
  TagOptions tags;
  unsigned cacheBlocks = 0;  // of 512 KiB, which may wait for the storage; 0: as many as usual
  std::optional<int> spillSeconds;  // of index kept in memory, the rest in a temporary file
  std::string spillFolder;          // for it; empty: the temporary folder
  std::vector<std::pair<std::string, std::string>> properties;  // of the muxer, as text

  // Everything happens in Push and Stop; no queue, no thread.
  bool threadless = false;
  // One file, whose packets are stored as they come, with times from 0 on: nothing is split, cut
  // into blocks, sorted, or waited for. For repairs.
  bool verbatim = false;

  std::string plugin;  // the file, or its folder; empty: looked for, see Recorder
  // Called on threads of the recorder or in Push and Stop, one call at a time and without locks. It
  // may push packets and ask for the status; Stop called there returns at once.
  std::function<void(Event const&)> onEvent;
  std::function<std::int64_t()> clock;  // nanoseconds, for packets without a time; null: monotonic
  Storage* storage = nullptr;           // outlives the recorder; null: the system's files
};

}  // namespace kestro::record
