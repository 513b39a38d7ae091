// The C interface, on top of the C++ one.
#include <algorithm>
#include <cstring>
#include <mutex>
#include <new>

#include "recorder/CStorage.h"
#include "recorder/Recorder.h"

using namespace kestro;

namespace {

static_assert(int(record::Code::kFull) == -KESTRO_RECORDER_FULL);
static_assert(int(record::TrackInfo::kText) == KESTRO_RECORDER_TEXT);
static_assert(int(record::SyncOptions::kCallback) == KESTRO_RECORDER_SYNC_CALLBACK);
static_assert(int(record::StartOptions::kNone) == KESTRO_RECORDER_START_NONE);
static_assert(int(record::Event::kProtected) == KESTRO_RECORDER_PROTECTED);
static_assert(int(record::Status::kIdle) == KESTRO_RECORDER_IDLE);

int CodeOf(record::Code code) { return -static_cast<int>(code); }

// Copies a struct from a caller built for any version of the library. Fields that the caller does
// not know keep their values. False when the caller sets fields that this library does not know.
template <class Struct>
bool CopyStruct(Struct const* given, Struct& own) {
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

}  // namespace

struct kestro_recorder {
  record::RecorderOptions options;
  record::Tracks tracks;
  std::unique_ptr<record::CStorage> storage;  // null for the system's files
  std::unique_ptr<record::Recorder> recorder;
  mutable std::mutex mutex;  // protects what follows
  std::string result;
};

namespace {

int SetResult(kestro_recorder& recorder, record::Result const& result) {
  std::lock_guard lock(recorder.mutex);
  recorder.result = result.text;
  return CodeOf(result.code);
}

void ConvertFileOptions(kestro_recorder_options const& from, record::RecorderOptions& to) {
  to.path = Text(from.path);
  to.overwrite = from.overwrite != 0;
  to.segments.size = from.segment_bytes;
  to.segments.time_ns = from.segment_time_ns;
  to.segments.maxSkew_ns = from.max_skew_ns;
  to.hash = from.hash != 0;
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

void ConvertStart(kestro_recorder_options const& from, record::StartOptions& to) {
  to.clock = static_cast<record::StartOptions::Clock>(from.start_clock);
  void* const context = from.context;
  if (auto* const call = from.wall_clock; call != nullptr)
    to.wallClock = [call, context] { return call(context); };
  bool const set = from.start_clock != KESTRO_RECORDER_START_SINCE_BOOT;
  if (auto* const call = from.captured; call != nullptr)
    to.captured = [call, context, set](std::int64_t time_ns) {
      return record::CaptureTime{call(context, time_ns), set};
    };
}

void ConvertRetention(kestro_recorder_options const& from, record::RetentionOptions& to) {
  if (from.keep_free != 0) to.keepFree = from.keep_free;
  if (from.keep_bytes != 0) to.keepBytes = from.keep_bytes;
  if (from.keep_files != 0) to.keepFiles = from.keep_files;
  if (from.keep_age_ns != 0) to.keepAge_ns = from.keep_age_ns;
}

void ConvertOtherOptions(kestro_recorder_options const& from, record::RecorderOptions& to) {
  to.queue = {from.no_queue == 0, from.drop != 0, from.queue_max_time_ms, from.queue_max_bytes};
  to.events = {from.event_only != 0, from.before_ns, from.after_ns, from.event_bytes,
               from.no_protect == 0};
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
      kestro_recorder_event const plain{
          sizeof plain, event.kind,        event.path.c_str(), event.text.c_str(), event.packets,
          event.bytes,  event.duration_ns, event.complete,     event.time_ns,      event.hashed};
      call(context, &plain);
    };
  if (auto* const call = from.clock; call != nullptr)
    to.clock = [call, context] { return call(context); };
}

}  // namespace

char const* kestro_recorder_code_text(int code) {
  static char const* const texts[] = {"no error",
                                      "invalid options or arguments",
                                      "a track that cannot be recorded",
                                      "a file cannot be written",
                                      "another recorder is writing these files",
                                      "the plug-in cannot be used",
                                      "the recorder was stopped",
                                      "out of memory",
                                      "nothing may be deleted"};
  return code <= 0 && code >= KESTRO_RECORDER_FULL ? texts[-code] : "unknown code";
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
  own.max_skew_ns = defaults.segments.maxSkew_ns;
  own.before_ns = defaults.events.before_ns;
  own.after_ns = defaults.events.after_ns;
  own.event_bytes = defaults.events.maxBytes;
  own.size = size;
  std::memset(options, 0, size);
  std::memcpy(options, &own, std::min(size, sizeof own));
}

kestro_recorder* kestro_recorder_new(kestro_recorder_options const* options) try {
  kestro_recorder_options own;
  kestro_recorder_options_init(&own, sizeof own);
  if (!CopyStruct(options, own) || own.path == nullptr) return nullptr;
  auto recorder = std::make_unique<kestro_recorder>();
  ConvertFileOptions(own, recorder->options);
  ConvertOtherOptions(own, recorder->options);
  ConvertRetention(own, recorder->options.retention);
  ConvertStart(own, recorder->options.start);
  if (own.storage != nullptr) {
    kestro_recorder_storage storage = {};
    if (!CopyStruct(own.storage, storage)) return nullptr;
    recorder->storage = std::make_unique<record::CStorage>(storage);
    recorder->options.storage = recorder->storage.get();
  }
  return recorder.release();
} catch (std::exception const&) {
  return nullptr;
}

// False when the struct is invalid.
static bool ConvertTrack(kestro_recorder_track const* track, record::TrackInfo& info) {
  kestro_recorder_track own = KESTRO_RECORDER_TRACK_INIT;
  if (!CopyStruct(track, own) || own.codec < 0 || own.codec > KESTRO_RECORDER_TEXT) return false;
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
  return true;
}

int kestro_recorder_add_track(kestro_recorder* recorder, kestro_recorder_track const* track) try {
  record::TrackInfo info;
  if (recorder == nullptr || recorder->recorder || !ConvertTrack(track, info))
    return KESTRO_RECORDER_INVALID;
  recorder->tracks.push_back(std::move(info));
  return static_cast<int>(recorder->tracks.size()) - 1;
} catch (std::exception const&) {
  return KESTRO_RECORDER_MEMORY;
}

int kestro_recorder_start(kestro_recorder* recorder) try {
  if (recorder == nullptr || recorder->recorder) return KESTRO_RECORDER_INVALID;
  record::Result why;
  recorder->recorder = record::Recorder::Open(recorder->options, recorder->tracks, why);
  return SetResult(*recorder, why);
} catch (std::exception const&) {
  return KESTRO_RECORDER_MEMORY;
}

int kestro_recorder_push(kestro_recorder* recorder, int track,
                         kestro_recorder_payload const* payload) try {
  kestro_recorder_payload own = KESTRO_RECORDER_PAYLOAD_INIT;
  bool const copied = CopyStruct(payload, own);
  if (!copied || recorder == nullptr || !recorder->recorder || track < 0) {
    if (copied && own.release != nullptr) own.release(own.context);
    return KESTRO_RECORDER_INVALID;
  }
  record::Payload const plain{own.data,     own.data_size, own.time_ns, own.duration_ns,
                              own.key != 0, own.release,   own.context};
  return CodeOf(recorder->recorder->Push(static_cast<std::size_t>(track), plain));
} catch (std::exception const&) {
  return KESTRO_RECORDER_MEMORY;
}

int kestro_recorder_split(kestro_recorder* recorder) {
  return kestro_recorder_split_at(recorder, INT64_MIN);
}

int kestro_recorder_split_at(kestro_recorder* recorder, int64_t time_ns) try {
  if (recorder == nullptr || !recorder->recorder) return KESTRO_RECORDER_INVALID;
  recorder->recorder->SplitAt(time_ns);
  return KESTRO_RECORDER_OK;
} catch (std::exception const&) {
  return KESTRO_RECORDER_MEMORY;
}

int kestro_recorder_trigger(kestro_recorder* recorder, char const* label) try {
  if (recorder == nullptr || !recorder->recorder) return KESTRO_RECORDER_INVALID;
  return CodeOf(recorder->recorder->Event(Text(label)));
} catch (std::exception const&) {
  return KESTRO_RECORDER_MEMORY;
}

int kestro_recorder_trigger_window(kestro_recorder* recorder, char const* label, int64_t before_ns,
                                   int64_t after_ns) try {
  if (recorder == nullptr || !recorder->recorder) return KESTRO_RECORDER_INVALID;
  return CodeOf(recorder->recorder->Event(Text(label), before_ns, after_ns));
} catch (std::exception const&) {
  return KESTRO_RECORDER_MEMORY;
}

int kestro_recorder_unprotect(kestro_recorder* recorder, char const* path) try {
  if (recorder == nullptr || !recorder->recorder) return KESTRO_RECORDER_INVALID;
  return SetResult(*recorder, recorder->recorder->Unprotect(Text(path)));
} catch (std::exception const&) {
  return KESTRO_RECORDER_MEMORY;
}

int kestro_recorder_change_tracks(kestro_recorder* recorder, kestro_recorder_track const* tracks,
                                  size_t count) try {
  if (recorder == nullptr || !recorder->recorder) return KESTRO_RECORDER_INVALID;
  record::Tracks infos(count);
  auto const* bytes = reinterpret_cast<unsigned char const*>(tracks);
  for (record::TrackInfo& info : infos) {
    if (!ConvertTrack(reinterpret_cast<kestro_recorder_track const*>(bytes), info))
      return KESTRO_RECORDER_INVALID;
    bytes += tracks->size;
  }
  return SetResult(*recorder, recorder->recorder->ChangeTracks(infos));
} catch (std::exception const&) {
  return KESTRO_RECORDER_MEMORY;
}

int kestro_recorder_stop(kestro_recorder* recorder) try {
  if (recorder == nullptr || !recorder->recorder) return KESTRO_RECORDER_INVALID;
  return SetResult(*recorder, recorder->recorder->Stop());
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
      status->size,     now.state,          now.files,    now.packets,    now.bytes,
      now.duration_ns,  now.skew_ns,        now.skipped,  now.waits,      now.longestWait_us,
      now.dropped,      now.droppedGroups,  now.warnings, now.events,     now.deletedFiles,
      now.deletedBytes, now.protectedFiles, now.free,     now.spaceWaits, now.longestSpaceWait_us};
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
