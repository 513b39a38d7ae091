#include "Settings.h"

#include <algorithm>
#include <cstring>

namespace kestro::gst {

using record::SyncOptions;

namespace {

enum Type { kText, kFraction, kMode, kFlag, kNumber, kNumber64 };

struct Property {
  char const* name;
  Type type;
  guint64 standard;  // the default
  char const* blurb;
};

constexpr guint64 kSecond_ns = 1000000000;

Property const kProperties[] = {
    {"location", kText, 0,
     "Files to write: a pattern such as cam-%05d.avi, numbered from 1, or the name of the first "
     "file; recording fails if the first file exists already, unless overwrite is set"},
    {"frame-rate", kFraction, 0,
     "Frame rate of all video (0/1=from the caps or, without one, the timestamps)"},
    {"overwrite", kFlag, false, "Overwrite existing files instead of skipping their numbers"},
    {"hash", kFlag, false,
     "Write FILE.sha256 when a file is closed: checksums of each packet and of the file"},
    {"max-size-bytes", kNumber64, record::SegmentOptions::kDefaultSize,
     "Most bytes in a file, as far as key frames allow (0=4 GiB, the most that the format allows)"},
    {"max-size-time", kNumber64, 0,
     "Length of a file, as far as key frames allow (in ns, 0=disable)"},
    {"max-skew", kNumber64, kSecond_ns / 5,
     "Start a new file when the tracks have drifted apart by more than this, because frames were "
     "lost or clocks differ (in ns, 0=disable)"},
    {"max-files", kNumber, 0,
     "Most files to keep, the open one included; the oldest are deleted (0=disable)"},
    {"keep-free", kNumber64, 0,
     "Delete the oldest files to keep this much free on the storage (in bytes, 0=disable)"},
    {"keep-bytes", kNumber64, 0,
     "Delete the oldest files to stay within this size in all (in bytes, 0=disable)"},
    {"keep-age", kNumber64, 0, "Delete files that ended longer ago (in ns, 0=disable)"},
    {"sync-mode", kMode, SyncOptions::kInPlace,
     "How files are kept playable in case the recording is cut off"},
    {"sync-interval", kNumber64, 3 * kSecond_ns, "Time between two syncs (in ns)"},
    {"reserve-time", kNumber64, 0,
     "With sync-mode in-place or image: reserve index space for a file of this length (in ns, "
     "0=max-size-time or, without it, one hour; at most a sixteenth of max-size-bytes)"},
    {"cache-blocks", kNumber, 0,
     "Write cache in blocks of 512 KiB (0=three blocks, or one without a queue)"},
    {"queue-drop", kFlag, false,
     "Drop whole groups of pictures when the queue is full, instead of blocking upstream"},
    {"queue-size-time", kNumber64, 10 * kSecond_ns,
     "Most data that waits for the storage (in ns, 0=disable); without queue-drop, there is a "
     "queue only if upstream is live"},
    {"queue-size-bytes", kNumber, 64 << 20,
     "Most data that waits for the storage (in bytes, 0=disable)"},
    {"event-only", kFlag, false,
     "Keep the latest data in memory and write files only around events"},
    {"event-protect", kFlag, true, "Protect files with events from being deleted"},
    {"event-before", kNumber64, 10 * kSecond_ns, "How much before an event belongs to it (in ns)"},
    {"event-after", kNumber64, 20 * kSecond_ns, "How much after an event belongs to it (in ns)"},
    {"event-max-bytes", kNumber64, 64 << 20, "With event-only: most data in memory (in bytes)"},
};

constexpr guint kCount = std::size(kProperties);
GParamSpec* specs[kCount];

GType SyncModeType() {
  static GEnumValue const values[] = {
      {SyncOptions::kOff, "Index only when a file is closed", "off"},
      {SyncOptions::kInPlace, "Index in reserved space before the data, updated in place",
       "in-place"},
      {SyncOptions::kImage, "The same index, rewritten with the headers", "image"},
      {SyncOptions::kCallback, "Headers and index in FILE.sync until the file is closed",
       "callback"},
      {0, nullptr, nullptr}};
  static GType const type = g_enum_register_static("KestroAviSinkSyncMode", values);
  return type;
}

GParamSpec* NewSpec(Property const& p) {
  auto const flags = static_cast<GParamFlags>(G_PARAM_READWRITE | G_PARAM_STATIC_STRINGS |
                                              GST_PARAM_MUTABLE_READY);
  auto const standard = static_cast<guint>(p.standard);
  switch (p.type) {
    case kText:
      return g_param_spec_string(p.name, p.name, p.blurb, nullptr, flags);
    case kFraction:
      return gst_param_spec_fraction(p.name, p.name, p.blurb, 0, 1, G_MAXINT, 1, 0, 1, flags);
    case kMode:
      return g_param_spec_enum(p.name, p.name, p.blurb, SyncModeType(), int(standard), flags);
    case kFlag:
      return g_param_spec_boolean(p.name, p.name, p.blurb, standard != 0, flags);
    case kNumber:
      return g_param_spec_uint(p.name, p.name, p.blurb, 0, G_MAXUINT, standard, flags);
    default:
      return g_param_spec_uint64(p.name, p.name, p.blurb, 0, G_MAXUINT64, p.standard, flags);
  }
}

}  // namespace

guint Settings::Install(GObjectClass* object) {
  for (guint i = 0; i < kCount; ++i) {
    specs[i] = NewSpec(kProperties[i]);
    g_object_class_install_property(object, i + 1, specs[i]);
  }
  gst_type_mark_as_plugin_api(SyncModeType(), static_cast<GstPluginAPIFlags>(0));
  return kCount + 1;
}

Settings::Settings() : _values(kCount, GValue G_VALUE_INIT) {
  for (guint i = 0; i < kCount; ++i) {
    g_value_init(&_values[i], specs[i]->value_type);
    g_param_value_set_default(specs[i], &_values[i]);
  }
}

Settings::~Settings() {
  for (GValue& value : _values) g_value_unset(&value);
}

void Settings::Set(guint id, GValue const* value) {
  std::lock_guard lock(_mutex);
  g_value_copy(value, &_values[id - 1]);
}

void Settings::Get(guint id, GValue* value) const {
  std::lock_guard lock(_mutex);
  g_value_copy(&_values[id - 1], value);
}

GValue const& Settings::Value(char const* name) const {
  guint i = 0;
  while (std::strcmp(kProperties[i].name, name) != 0) ++i;
  return _values[i];
}

base::Fraction Settings::FrameRate() const {
  std::lock_guard lock(_mutex);
  GValue const& rate = Value("frame-rate");
  return {gst_value_get_fraction_numerator(&rate), gst_value_get_fraction_denominator(&rate)};
}

// A file that waits for a key frame gets a little longer than planned.
static void ReserveByDefault(record::RecorderOptions& o) {
  if (o.segments.time_ns > 0) o.sync.reserve_ns = o.segments.time_ns + o.segments.time_ns / 4;
  constexpr double kPerSecond = 100 * 16;  // entries and their size
  if (double(o.sync.reserve_ns) / 1e9 * kPerSecond > double(o.segments.size) / 16)
    o.sync.reserveBytes = std::max<std::uint64_t>(o.segments.size / 16, 16);
}

record::RecorderOptions Settings::ToOptions() const {
  std::lock_guard lock(_mutex);
  auto const number = [this](char const* name) {
    GValue value = G_VALUE_INIT;
    g_value_init(&value, G_TYPE_UINT64);
    g_value_transform(&Value(name), &value);
    return static_cast<std::int64_t>(std::min<guint64>(g_value_get_uint64(&value), G_MAXINT64));
  };
  auto const narrow = [](std::int64_t value) {
    return static_cast<unsigned>(std::min<std::int64_t>(value, UINT32_MAX));
  };
  auto const limit = [&](char const* name, auto& to) {
    if (auto const value = number(name); value != 0) to = value;
  };
  record::RecorderOptions o;
  char const* const location = g_value_get_string(&Value("location"));
  o.path = location != nullptr ? location : "";
  o.overwrite = number("overwrite") != 0;
  o.hash = number("hash") != 0;
  o.segments.size = UINT32_MAX;
  limit("max-size-bytes", o.segments.size);
  limit("max-size-time", o.segments.time_ns);
  o.segments.maxSkew_ns = number("max-skew");
  limit("max-files", o.retention.keepFiles);
  limit("keep-free", o.retention.keepFree);
  limit("keep-bytes", o.retention.keepBytes);
  limit("keep-age", o.retention.keepAge_ns);
  o.sync.mode = static_cast<SyncOptions::Mode>(number("sync-mode"));
  o.sync.interval_ns = number("sync-interval");
  if (number("reserve-time") == 0) ReserveByDefault(o);
  limit("reserve-time", o.sync.reserve_ns);
  o.cacheBlocks = narrow(number("cache-blocks"));
  o.queue.drop = number("queue-drop") != 0;
  o.queue.maxTime_ms = narrow((number("queue-size-time") + 999999) / 1000000);
  o.queue.maxBytes = narrow(number("queue-size-bytes"));
  o.events.only = number("event-only") != 0;
  o.events.protect = number("event-protect") != 0;
  o.events.before_ns = number("event-before");
  o.events.after_ns = number("event-after");
  o.events.maxBytes = static_cast<std::uint64_t>(number("event-max-bytes"));
  return o;
}

}  // namespace kestro::gst
