// The C interface, over the one for C++.
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <mutex>
#include <new>

#include "recorder/Recorder.h"
#include "recorder/Storage.h"
#include "recorder/kestro_recorder.h"

using namespace kestro;

namespace {

static_assert(int(record::Code::kMemory) == -KESTRO_RECORDER_MEMORY);
static_assert(int(record::TrackInfo::kText) == KESTRO_RECORDER_TEXT);
static_assert(int(record::SyncOptions::kCallback) == KESTRO_RECORDER_SYNC_CALLBACK);
static_assert(int(record::Event::kError) == KESTRO_RECORDER_ERROR);
static_assert(int(record::Status::kStopped) == KESTRO_RECORDER_STOPPED);

int CodeOf(record::Code code) { return -static_cast<int>(code); }

// Takes a struct of any version of the library: what the caller does not know stays as it is. False
// when the caller asks for what this library does not know.
template <class Struct>
bool Take(Struct const* given, Struct& own) {
  if (given == nullptr || given->size < sizeof(std::size_t)) return false;
  auto const* const bytes = reinterpret_cast<unsigned char const*>(given);
  if (std::any_of(bytes + std::min(sizeof own, given->size), bytes + given->size,
                  [](unsigned char byte) { return byte != 0; }))
    return false;
  std::memcpy(&own, given, std::min(sizeof own, given->size));
  return true;
}

std::string Text(char const* text) { return text != nullptr ? text : ""; }

std::vector<char> Bytes(void const* data, std::size_t size) {
  auto const* const from = static_cast<char const*>(data);
  return data != nullptr ? std::vector<char>(from, from + size) : std::vector<char>();
}

// A file of the application's.
class File : public base::IO {
 public:
  File(kestro_recorder_storage const& storage, void* file)
      : IO("File"), _storage(storage), _file(file) {}
  ~File() override { _storage.close(_storage.context, _file); }

  base::int64 Size() override { return Note(_storage.length(_storage.context, _file)); }
  base::int64 Tell() override { return _position; }
  bool Seek(base::int64 offset, int whence) override {
    return base::SeekTarget(*this, offset, whence, _position);
  }
  unsigned Read(void* data, unsigned size) override {
    auto const done = Note(_storage.read(_storage.context, _file, _position, data, size));
    if (done > 0) _position += done;
    return done < 0 ? kFailed : static_cast<unsigned>(done);
  }
  unsigned Write(void const* data, unsigned size) override {
    auto const done = Note(_storage.write(_storage.context, _file, _position, data, size));
    if (done > 0) _position += done;
    return done < 0 ? 0 : static_cast<unsigned>(done);
  }
  bool Flush() override { return Note(_storage.flush(_storage.context, _file)) >= 0; }
  bool Truncate(base::int64 size) override {
    return Note(_storage.truncate(_storage.context, _file, size)) >= 0;
  }
  int Error() override { return _error; }

 private:
  base::int64 Note(base::int64 result) {
    if (result < 0) _error = static_cast<int>(-result);
    return result < 0 ? -1 : result;
  }

  kestro_recorder_storage const& _storage;
  void* const _file;
  base::int64 _position = 0;
  int _error = 0;
};

class CStorage : public record::Storage {
 public:
  explicit CStorage(kestro_recorder_storage const& storage) : _storage(storage) {}

  std::unique_ptr<base::IO> Open(std::string const& path, char const* mode) override {
    void* file = nullptr;
    int const error = _storage.open(_storage.context, path.c_str(), mode, &file);
    if (error >= 0) return std::make_unique<File>(_storage, file);
    errno = -error;
    return nullptr;
  }
  bool Remove(std::string const& path) override {
    int const error = _storage.remove(_storage.context, path.c_str());
    errno = -error;
    return error >= 0 || error == -ENOENT;
  }
  bool Exists(std::string const& path) override {
    return _storage.exists(_storage.context, path.c_str()) > 0;
  }
  base::uint64 Free(std::string const& path) override {
    return _storage.available != nullptr ? _storage.available(_storage.context, path.c_str())
                                         : UINT64_MAX;
  }

 private:
  kestro_recorder_storage const _storage;
};

}  // namespace

struct kestro_recorder {
  record::RecorderOptions options;
  record::Tracks tracks;
  std::unique_ptr<CStorage> storage;  // null for the system's files
  std::unique_ptr<record::Recorder> recorder;
  mutable std::mutex mutex;  // of what follows
  std::string result;
};

namespace {

int Keep(kestro_recorder& recorder, record::Result const& result) {
  std::lock_guard lock(recorder.mutex);
  recorder.result = result.text;
  return CodeOf(result.code);
}

void TakeFiles(kestro_recorder_options const& from, record::RecorderOptions& to) {
  to.path = Text(from.path);
  to.overwrite = from.overwrite != 0;
  to.segments.size = from.segment_bytes;
  to.segments.time_ns = from.segment_time_ns;
  to.sync.mode = static_cast<record::SyncOptions::Mode>(from.sync_mode);
  to.sync.interval_ns = from.sync_interval_ns;
  to.sync.reserve_ns = from.reserve_ns;
  to.sync.reserveBytes = from.reserve_bytes;
  to.sync.ordinary = from.front_index_only == 0;
  to.tags.strd = Bytes(from.strd, from.strd_size);
  to.tags.strn = Text(from.strn);
  to.tags.isft = Text(from.isft);
  to.tags.junk = from.junk;
}

void TakeFlow(kestro_recorder_options const& from, record::RecorderOptions& to) {
  to.queue = {from.no_queue == 0, from.drop != 0, from.queue_max_time_ms, from.queue_max_bytes};
  to.cacheBlocks = from.cache_blocks;
  if (from.spill_seconds >= 0) to.spillSeconds = from.spill_seconds;
  to.spillFolder = Text(from.spill_folder);
  to.threadless = from.threadless != 0;
  to.plugin = Text(from.plugin);
  for (auto const* setting = from.properties; setting != nullptr && *setting != nullptr;
       ++setting) {
    std::string const text = *setting;
    std::size_t const sign = std::min(text.find('='), text.size());
    to.properties.emplace_back(text.substr(0, sign), text.substr(std::min(sign + 1, text.size())));
  }
  void* const context = from.context;
  if (auto* const call = from.on_event; call != nullptr)
    to.onEvent = [call, context](record::Event const& event) {
      kestro_recorder_event const plain{sizeof plain,       event.kind,    event.path.c_str(),
                                        event.text.c_str(), event.packets, event.bytes,
                                        event.duration_ns,  event.complete};
      call(context, &plain);
    };
  if (auto* const call = from.clock; call != nullptr)
    to.clock = [call, context] { return call(context); };
}

}  // namespace

char const* kestro_recorder_code_text(int code) {
  static char const* const texts[] = {"no error",
                                      "options or a call that cannot be",
                                      "a track that cannot be recorded",
                                      "a file cannot be written",
                                      "another recorder writes these files",
                                      "the plug-in cannot be used",
                                      "recording has been stopped",
                                      "out of memory"};
  return code <= 0 && code >= KESTRO_RECORDER_MEMORY ? texts[-code] : "unknown code";
}

void kestro_recorder_options_init(kestro_recorder_options* options, size_t size) {
  record::RecorderOptions const defaults;
  kestro_recorder_options own = {};
  own.segment_bytes = defaults.segments.size;
  own.segment_time_ns = defaults.segments.time_ns;
  own.sync_interval_ns = defaults.sync.interval_ns;
  own.reserve_ns = defaults.sync.reserve_ns;
  own.queue_max_time_ms = defaults.queue.maxTime_ms;
  own.queue_max_bytes = defaults.queue.maxBytes;
  own.spill_seconds = -1;
  own.size = size;
  std::memset(options, 0, size);
  std::memcpy(options, &own, std::min(size, sizeof own));
}

kestro_recorder* kestro_recorder_new(kestro_recorder_options const* options) try {
  kestro_recorder_options own;
  kestro_recorder_options_init(&own, sizeof own);
  if (!Take(options, own) || own.path == nullptr) return nullptr;
  auto recorder = std::make_unique<kestro_recorder>();
  TakeFiles(own, recorder->options);
  TakeFlow(own, recorder->options);
  if (own.storage != nullptr) {
    kestro_recorder_storage storage = {};
    if (!Take(own.storage, storage)) return nullptr;
    recorder->storage = std::make_unique<CStorage>(storage);
    recorder->options.storage = recorder->storage.get();
  }
  return recorder.release();
} catch (std::exception const&) {
  return nullptr;
}

int kestro_recorder_add_track(kestro_recorder* recorder, kestro_recorder_track const* track) try {
  kestro_recorder_track own = KESTRO_RECORDER_TRACK_INIT;
  if (recorder == nullptr || recorder->recorder || !Take(track, own) || own.codec < 0 ||
      own.codec > KESTRO_RECORDER_TEXT)
    return KESTRO_RECORDER_INVALID;
  record::TrackInfo info;
  info.name = Text(own.name);
  info.codec = static_cast<record::TrackInfo::Codec>(own.codec);
  info.width = own.width;
  info.height = own.height;
  if (own.frame_rate_den > 0) info.frameRate = {own.frame_rate_num, own.frame_rate_den};
  info.rate = own.rate;
  info.channels = own.channels;
  if (own.bits != 0) info.bits = own.bits;
  info.samples = own.samples;
  auto const sets = Bytes(own.parameter_sets, own.parameter_sets_size);
  info.parameterSets.assign(sets.begin(), sets.end());
  recorder->tracks.push_back(std::move(info));
  return static_cast<int>(recorder->tracks.size()) - 1;
} catch (std::exception const&) {
  return KESTRO_RECORDER_MEMORY;
}

int kestro_recorder_start(kestro_recorder* recorder) try {
  if (recorder == nullptr || recorder->recorder) return KESTRO_RECORDER_INVALID;
  record::Result why;
  recorder->recorder = record::Recorder::Open(recorder->options, recorder->tracks, why);
  return Keep(*recorder, why);
} catch (std::exception const&) {
  return KESTRO_RECORDER_MEMORY;
}

int kestro_recorder_push(kestro_recorder* recorder, int track,
                         kestro_recorder_payload const* payload) try {
  kestro_recorder_payload own = KESTRO_RECORDER_PAYLOAD_INIT;
  bool const taken = Take(payload, own);
  if (!taken || recorder == nullptr || !recorder->recorder || track < 0) {
    if (taken && own.release != nullptr) own.release(own.context);
    return KESTRO_RECORDER_INVALID;
  }
  record::Payload const plain{own.data,     own.data_size, own.time_ns, own.duration_ns,
                              own.key != 0, own.release,   own.context};
  return CodeOf(recorder->recorder->Push(static_cast<std::size_t>(track), plain));
} catch (std::exception const&) {
  return KESTRO_RECORDER_MEMORY;
}

int kestro_recorder_split(kestro_recorder* recorder) {
  if (recorder == nullptr || !recorder->recorder) return KESTRO_RECORDER_INVALID;
  recorder->recorder->Split();
  return KESTRO_RECORDER_OK;
}

int kestro_recorder_stop(kestro_recorder* recorder) try {
  if (recorder == nullptr || !recorder->recorder) return KESTRO_RECORDER_INVALID;
  return Keep(*recorder, recorder->recorder->Stop());
} catch (std::exception const&) {
  return KESTRO_RECORDER_MEMORY;
}

void kestro_recorder_free(kestro_recorder* recorder) { delete recorder; }

int kestro_recorder_get_status(kestro_recorder const* recorder,
                               kestro_recorder_status* status) try {
  if (recorder == nullptr || !recorder->recorder || status == nullptr ||
      status->size < sizeof status->size)
    return KESTRO_RECORDER_INVALID;
  record::Status const now = recorder->recorder->GetStatus();
  kestro_recorder_status const plain{
      status->size,    now.state,         now.files,   now.packets, now.bytes,
      now.duration_ns, now.skew_ns,       now.skipped, now.waits,   now.longestWait_us,
      now.dropped,     now.droppedGroups, now.warnings};
  std::memcpy(status, &plain, std::min(status->size, sizeof plain));
  return KESTRO_RECORDER_OK;
} catch (std::exception const&) {
  return KESTRO_RECORDER_MEMORY;
}

size_t kestro_recorder_get_text(kestro_recorder const* recorder, int text, char* buffer,
                                size_t buffer_size) try {
  std::string found;
  if (recorder != nullptr && text == KESTRO_RECORDER_TEXT_RESULT) {
    std::lock_guard lock(recorder->mutex);
    found = recorder->result;
  } else if (recorder != nullptr && recorder->recorder) {
    if (text == KESTRO_RECORDER_TEXT_LAST) found = recorder->recorder->GetStatus().lastError;
    if (text == KESTRO_RECORDER_TEXT_FILE) found = recorder->recorder->GetStatus().file;
    if (text == KESTRO_RECORDER_TEXT_SYNC) found = recorder->recorder->DescribeSync();
  }
  if (buffer_size > 0) {
    std::size_t const fits = std::min(found.size(), buffer_size - 1);
    std::memcpy(buffer, found.data(), fits);
    buffer[fits] = '\0';
  }
  return found.size();
} catch (std::exception const&) {
  return 0;
}
