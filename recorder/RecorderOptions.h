// The options of a recording. Only the path has no default.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace kestro::record {

class Storage;

// When to start a new file. A file starts at a key frame of the leading track: the first video
// track or, without video, the first audio track.
struct SegmentOptions {
  static constexpr std::uint64_t kDefaultSize = (std::uint64_t{1} << 31) - 1;
  std::uint64_t size = kDefaultSize;  // most bytes in a file, as far as key frames allow
  std::int64_t time_ns = -1;          // length of a file; negative: no limit
  // Files store no times, so that tracks drift apart when frames are lost or clocks differ. Beyond
  // this a new file starts, in which they are in sync again; 0: never.
  std::int64_t maxSkew_ns = 200000000;
};

// How a file is kept playable in case the recording is cut off.
struct SyncOptions {
  enum Mode {
    kOff,
    kInPlace,   // an index in reserved space before the data, updated in place
    kImage,     // the same index, rewritten with the headers after at least 512 KiB of data
    kCallback,  // headers and index in a separate file, "OUT.avi.sync", until the file is closed
  } mode = kOff;
  std::int64_t interval_ns = 3000000000;    // time between syncs
  std::int64_t reserve_ns = 3600000000000;  // reserve index space for a file of this length,
  std::uint64_t reserveBytes = 0;           // or this many bytes, if not 0
  // kInPlace and kImage: whether a closed file also gets an index after the data, where all players
  // look for it. This is done while the next file is recorded.
  bool ordinary = true;
};

// The queue of packets that wait for the storage. When it is full, Push waits or, with `drop`,
// whole groups of pictures are dropped.
struct QueueOptions {
  bool enabled = true;
  bool drop = false;
  unsigned maxTime_ms = 10000;   // 0: no limit
  unsigned maxBytes = 64 << 20;  // 0: no limit
};

// Loop recording: the oldest files are deleted to stay within these limits.
//
// With any limit, the recorder also keeps a little space free to close the open file. It deletes
// files that its own pattern can name, in its own folder, with their side files (.sync, .sync2,
// .sha256): the one with the lowest number first, one at a time. It never deletes the open file,
// one that is still being finished, one with a marker (FILE.keep, of any kind), or anything but
// plain files with one name: links, folders and the like neither count nor are touched. Files of
// earlier recordings count.
//
// This happens on a thread of its own or, if threadless, in Push: when a file begins, when space
// runs low, and once a second. When the storage is full, writing waits until a file was deleted,
// while packets wait in the queue. When nothing may be deleted and a limit other than the age is
// exceeded, the open file is closed and recording fails with Code::kFull.
//
// No file is larger than a quarter of what the limits leave, so that the open one is never all
// there is; a kNote says so.
struct RetentionOptions {
  std::optional<std::uint64_t> keepFree;  // bytes that stay free on the file system
  // Most bytes of this recorder's files and their side files, the open one included.
  std::optional<std::uint64_t> keepBytes;
  // Most files, the open one included; protected ones do not count.
  std::optional<std::uint64_t> keepFiles;
  // Files that ended longer ago are deleted. The age of files of this recorder is measured with
  // RecorderOptions::clock, which is then also called on the recorder's threads. That of older ones
  // is the wall clock's distance from the time at which they were modified; it is unknown when
  // either is earlier than 2020.
  std::optional<std::int64_t> keepAge_ns;
  bool Any() const { return keepFree || keepBytes || keepFiles || keepAge_ns; }
};

// What Recorder::Event does.
struct EventOptions {
  // Keep the latest packets in memory and write files only around events: one file holds the time
  // before and after an event, and further events extend it.
  bool only = false;
  std::int64_t before_ns = 10'000'000'000, after_ns = 20'000'000'000;  // of events without times
  // With `only`: most payload bytes in memory. A group of pictures that is larger is dropped.
  std::uint64_t maxBytes = 64 << 20;
  bool protect = true;  // events protect their files from being deleted
};

// Optional chunks in the file header.
struct TagOptions {
  std::vector<char> strd;  // codec data of the first H.264 or HEVC track
  std::string strn;        // name of that track
  std::string isft;        // name of the recording software; empty: see StartOptions
  unsigned junk = 0;       // bytes of JUNK before the data
  // Instead: contents copied from another recording, strd and strn by track.
  std::vector<std::vector<char>> strdOf, strnOf;
  std::vector<char> junkData;
};

// When something was captured: since 1970-01-01 UTC or, when the clock was not set, since the
// system was booted.
struct CaptureTime {
  std::int64_t time_ns = 0;
  bool set = true;
};

// Each file stores when its first packet was captured, and whether the clock was set: in isft,
// after the name of the software or, if TagOptions::isft is empty, after "kestro" and the version.
//
// The clock is read in Push, for the leading track. It is related to the packets' times once for
// the recording, so that the starts of its files differ exactly as their packets' times do, and
// again when that no longer holds: when the clock is set for the first time, which counts for all
// files that begin later, when it was set back by more than 2 s, or when packets have come more
// than 2 s late for 10 s, because it was set forward or the packets' clock is slower. Repairs (see
// RecorderOptions::verbatim) write isft as it is.
struct StartOptions {
  enum Clock {
    kAuto,  // not set while it reads earlier than 2020: clocks without a battery begin in 1970
    kSet,
    kSinceBoot,
    kNone,  // files store no start
  } clock = kAuto;
  // Nanoseconds since 1970 UTC; null: the system's clock. With dates in file names or a limit of
  // age, it is also called on the recorder's threads.
  std::function<std::int64_t()> wallClock;
  // Instead of reading a clock: when the packet with this time was captured; empty: unknown. Both
  // are called in Push with packets of the leading track, with no lock held, and by several threads
  // at once if they push such packets.
  std::function<std::optional<CaptureTime>(std::int64_t time_ns)> captured;
};

// Something that happened. The text is one line for people and names the file.
struct Event {
  enum Kind {
    kOpened,     // a file was opened
    kClosed,     // a file was closed
    kNote,       // worth knowing, but nothing is wrong
    kWarning,    // a problem that does not put recorded data at risk
    kError,      // no more packets are accepted
    kDeleted,    // a file was deleted to stay within the limits; its size is in `bytes`
    kProtected,  // a file's marker is on the storage: it will not be deleted
  } kind = kNote;
  std::string path, text;
  // kClosed: packets stored, size and length of the file, and whether it is complete.
  std::uint64_t packets = 0, bytes = 0;
  std::int64_t duration_ns = 0;
  bool complete = false;
  bool hashed = false;       // kClosed: FILE.sha256 was written, see RecorderOptions::hash
  std::int64_t time_ns = 0;  // kOpened: when the file starts, on the packets' clock
  // The kWarning that the tracks of a file are apart has the distance in `duration_ns`, and in
  // `time_ns` where it is largest, from the start of the file. Both are 0 in other warnings.
};

struct RecorderOptions {
  // "cam-%05d.avi" creates cam-00001.avi and so on; "cam.avi" creates cam.avi, cam-00002.avi and so
  // on; %% is a percent sign. If the name has a number or a date, or with limits (`retention`),
  // numbers go on from the highest in the folder. Otherwise the first file must not exist yet, and
  // numbers of others are skipped.
  //
  // "cam-%Y%m%d-%H%M%S-%05N.avi" also has the local time at which the file starts: with any of %Y,
  // %m, %H, %M and %S in the name, %d is the day and %N or %05N the number, which is added at the
  // end of the name if it is missing.
  std::string path;
  bool overwrite = false;         // overwrite existing files instead of skipping their numbers
  std::vector<std::string> keep;  // files that must never be overwritten

  SegmentOptions segments;
  SyncOptions sync;
  QueueOptions queue;
  RetentionOptions retention;
  EventOptions events;
  TagOptions tags;
  StartOptions start;
  unsigned cacheBlocks = 0;  // write cache in blocks of 512 KiB; 0: the muxer's default
  // Write FILE.sha256 when a file is closed: a SHA-256 of each packet and of the file, which
  // sha256sum can check. The file is read for this while the next one is recorded. Needs libcrypto.
  bool hash = false;
  std::optional<int> spillSeconds;  // keep this much index in memory, the rest in a temporary file
  std::string spillFolder;          // folder of that file; empty: the temporary folder
  std::vector<std::pair<std::string, std::string>> properties;  // muxer properties, as text

  // Do all work in Push and Stop, without a queue or threads.
  bool threadless = false;
  // Write one file and store packets as they come, with times starting at 0: no splitting, no
  // audio blocks, no sorting, no waiting for other tracks. Used for repairs.
  bool verbatim = false;

  std::string plugin;  // the plug-in or its folder; empty: search for it, see Recorder
  // Called on the recorder's threads or in Push and Stop, one call at a time and with no lock held.
  // It may call all functions of the recorder, but ChangeTracks is refused; Stop called from it
  // returns at once. It must not throw.
  std::function<void(Event const&)> onEvent;
  std::function<std::int64_t()> clock;  // nanoseconds, for packets without a time; null: monotonic
  Storage* storage = nullptr;           // must outlive the recorder; null: the system's files
};

}  // namespace kestro::record
