// The recorder library, through its C interface.
#include "recorder/kestro_recorder.h"

#include <gtest/gtest.h>

#include <thread>

#include "recorder/CStorage.h"
#include "recorder/RecorderSession.h"

namespace kestro::test {
namespace {

base::IO& At(void* file, std::int64_t at) {
  auto& io = *static_cast<base::IO*>(file);
  io.Seek(at, base::IO::kBegin);
  return io;
}

// The application's storage, in memory.
kestro_recorder_storage StorageOver(MemoryStorage& memory) {
  kestro_recorder_storage storage = {};
  storage.size = sizeof storage;
  storage.context = &memory;
  storage.open = [](void* context, char const* path, char const* mode, void** file) {
    *file = static_cast<MemoryStorage*>(context)->Open(path, mode).release();
    return *file != nullptr ? 0 : -ENOENT;
  };
  storage.close = [](void*, void* file) { delete static_cast<base::IO*>(file); };
  storage.read = [](void*, void* file, std::int64_t at, void* data, std::size_t n) {
    return std::int64_t{At(file, at).Read(data, static_cast<unsigned>(n))};
  };
  storage.write = [](void*, void* file, std::int64_t at, void const* data, std::size_t n) {
    return std::int64_t{At(file, at).Write(data, static_cast<unsigned>(n))};
  };
  storage.length = [](void*, void* file) { return std::int64_t{At(file, 0).Size()}; };
  storage.truncate = [](void*, void* file, std::int64_t n) {
    return At(file, 0).Truncate(n) ? 0 : -EIO;
  };
  storage.flush = [](void*, void*) { return 0; };
  storage.remove = [](void* context, char const* path) {
    return static_cast<MemoryStorage*>(context)->Remove(path) ? 0 : -ENOENT;
  };
  storage.exists = [](void* context, char const* path) {
    return int{static_cast<MemoryStorage*>(context)->Exists(path)};
  };
  return storage;
}

// The queue fills while the file is opened.
struct SlowStorage : MemoryStorage {
  std::unique_ptr<base::IO> Open(std::string const& path, char const* mode) override {
    if (std::strcmp(mode, "rwbc") == 0) writer = std::this_thread::get_id();
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
    return MemoryStorage::Open(path, mode);
  }
  std::thread::id writer;
};

TEST(CInterface, RecordsWithStructsOfOtherVersions) {
  RegisterClasses();
  base::ConsoleCapture console;
  SlowStorage memory;
  kestro_recorder_storage const storage = StorageOver(memory);
  struct {
    kestro_recorder_options options;
    std::uint64_t more;
  } newer = {};
  kestro_recorder_options_init(&newer.options, sizeof newer);
  newer.options.path = "c.avi";
  newer.options.storage = &storage;
  newer.options.sync_mode = KESTRO_RECORDER_SYNC_IN_PLACE;
  newer.options.start_clock = KESTRO_RECORDER_START_SINCE_BOOT;
  newer.options.overwrite = 1;
  newer.options.queue_max_bytes = 1;
  memory.Open("c.avi", "rwbc");
  newer.options.captured = [](void*, std::int64_t time_ns) { return time_ns + 1500 * kMs; };
  newer.more = 1;
  EXPECT_EQ(kestro_recorder_new(&newer.options), nullptr) << "asks for something unknown";
  newer.more = 0;
  kestro_recorder* const recorder = kestro_recorder_new(&newer.options);
  ASSERT_NE(recorder, nullptr);

  kestro_recorder_track video = KESTRO_RECORDER_TRACK_INIT;
  video.width = video.height = 64;
  EXPECT_EQ(kestro_recorder_start(recorder), KESTRO_RECORDER_INVALID) << "no tracks";
  video.frame_rate_num = 25;
  EXPECT_EQ(kestro_recorder_add_track(recorder, &video), 0);
  kestro_recorder_payload frame = KESTRO_RECORDER_PAYLOAD_INIT;
  EXPECT_EQ(kestro_recorder_push(recorder, 0, &frame), KESTRO_RECORDER_INVALID) << "not started";
  char text[64];
  ASSERT_EQ(kestro_recorder_start(recorder), KESTRO_RECORDER_OK)
      << (kestro_recorder_get_text(recorder, KESTRO_RECORDER_TEXT_RESULT, text, sizeof text), text);
  EXPECT_EQ(kestro_recorder_add_track(recorder, &video), KESTRO_RECORDER_INVALID) << "too late";
  kestro_recorder_get_text(recorder, KESTRO_RECORDER_TEXT_SYNC, text, sizeof text);
  EXPECT_EQ(std::string(text).substr(0, 33), "syncs in place every 3.000 s; the");
  for (int i = 0; i < 50; ++i) {
    std::string const data = Picture(i);
    frame.data = data.data();
    frame.data_size = data.size();
    frame.time_ns = i * 40 * kMs;
    frame.key = i % 5 == 0;
    EXPECT_EQ(kestro_recorder_push(recorder, 0, &frame), KESTRO_RECORDER_OK) << i;
  }
  kestro_recorder_status status = KESTRO_RECORDER_STATUS_INIT;
  EXPECT_EQ(kestro_recorder_get_status(recorder, &status), KESTRO_RECORDER_OK);
  EXPECT_EQ(status.waits > 0, status.longest_wait_us > 0);
  EXPECT_EQ(kestro_recorder_stop(recorder), KESTRO_RECORDER_OK);
  EXPECT_NE(memory.writer, std::this_thread::get_id()) << "there is a queue";
  EXPECT_EQ(kestro_recorder_push(recorder, 0, &frame), KESTRO_RECORDER_ENDED);
  kestro_recorder_status older = KESTRO_RECORDER_STATUS_INIT;
  older.size = offsetof(kestro_recorder_status, bytes);
  EXPECT_EQ(kestro_recorder_get_status(recorder, &older), KESTRO_RECORDER_OK);
  EXPECT_EQ(older.packets, 50u);
  EXPECT_EQ(older.bytes, 0u) << "unknown to the caller";
  EXPECT_EQ(kestro_recorder_get_text(recorder, KESTRO_RECORDER_TEXT_FILE, text, 3), 5u);
  EXPECT_STREQ(text, "c.");
  kestro_recorder_free(recorder);
  EXPECT_EQ(memory.Payloads(0).size(), 50u);
  auto const start = memory.Read("c.avi")->ReadSoftware().start;
  ASSERT_TRUE(start);
  EXPECT_EQ(start->Text(), "1.500 s after boot");
}

TEST(CInterface, RecordsEventsAndChangesTracks) {
  RegisterClasses();
  base::ConsoleCapture console;
  MemoryStorage memory;
  kestro_recorder_storage const storage = StorageOver(memory);
  kestro_recorder_options options;
  kestro_recorder_options_init(&options, sizeof options);
  options.path = "c%d.avi";
  options.storage = &storage;
  options.threadless = options.event_only = 1;
  std::string kinds;
  options.context = &kinds;
  options.on_event = [](void* context, kestro_recorder_event const* event) {
    *static_cast<std::string*>(context) += std::to_string(event->kind) + " ";
  };
  kestro_recorder* const recorder = kestro_recorder_new(&options);
  ASSERT_NE(recorder, nullptr);
  kestro_recorder_track tracks[2] = {KESTRO_RECORDER_TRACK_INIT, KESTRO_RECORDER_TRACK_INIT};
  tracks[0].width = tracks[0].height = 64;
  tracks[0].frame_rate_num = 25;
  tracks[1].codec = KESTRO_RECORDER_PCM;
  tracks[1].rate = 8000;
  tracks[1].channels = 1;
  EXPECT_EQ(kestro_recorder_add_track(recorder, &tracks[0]), 0);
  EXPECT_EQ(kestro_recorder_trigger(recorder, "early"), KESTRO_RECORDER_INVALID) << "not started";
  ASSERT_EQ(kestro_recorder_start(recorder), KESTRO_RECORDER_OK);
  int frames = 0;
  auto const push = [&](int count) {
    for (int const end = frames + count; frames < end; ++frames) {
      kestro_recorder_payload payload = KESTRO_RECORDER_PAYLOAD_INIT;
      std::string const data = Picture(frames);
      payload.data = data.data();
      payload.data_size = data.size();
      payload.time_ns = frames * 40 * kMs;
      payload.key = frames % 5 == 0;
      EXPECT_EQ(kestro_recorder_push(recorder, 0, &payload), KESTRO_RECORDER_OK) << frames;
    }
  };
  kestro_recorder_status status = KESTRO_RECORDER_STATUS_INIT;
  auto const state = [&] { return (kestro_recorder_get_status(recorder, &status), status.state); };
  push(50);
  EXPECT_EQ(state(), KESTRO_RECORDER_IDLE);
  EXPECT_EQ(kestro_recorder_trigger_window(recorder, nullptr, -1, 0), KESTRO_RECORDER_INVALID);
  EXPECT_EQ(kestro_recorder_trigger_window(recorder, "one", 400 * kMs, 400 * kMs), 0);
  push(50);
  EXPECT_EQ(state(), KESTRO_RECORDER_IDLE);
  EXPECT_EQ(status.events, 1u);
  EXPECT_EQ(status.protected_files, 1u);
  EXPECT_EQ(memory.Payloads(0).size(), 20u);
  EXPECT_NE(memory.File("c1.avi.keep"), nullptr);
  EXPECT_EQ(kestro_recorder_unprotect(recorder, "c1.avi"), KESTRO_RECORDER_OK);
  EXPECT_EQ(memory.File("c1.avi.keep"), nullptr);
  EXPECT_EQ(kestro_recorder_unprotect(recorder, "d1.avi"), KESTRO_RECORDER_INVALID);
  EXPECT_EQ(kestro_recorder_change_tracks(recorder, tracks, 2), KESTRO_RECORDER_OK);
  EXPECT_EQ(kestro_recorder_split_at(recorder, 100000 * kMs), KESTRO_RECORDER_OK);
  push(5);
  tracks[1].codec = 99;
  EXPECT_EQ(kestro_recorder_change_tracks(recorder, tracks, 2), KESTRO_RECORDER_INVALID);
  tracks[1].codec = KESTRO_RECORDER_PCM;
  EXPECT_EQ(kestro_recorder_change_tracks(recorder, &tracks[1], 1), KESTRO_RECORDER_OK);
  EXPECT_EQ(kestro_recorder_trigger(recorder, "two"), KESTRO_RECORDER_OK);
  EXPECT_EQ(kestro_recorder_stop(recorder), KESTRO_RECORDER_OK);
  EXPECT_EQ(kestro_recorder_trigger(recorder, "late"), KESTRO_RECORDER_ENDED);
  kestro_recorder_free(recorder);
  std::string const expected =
      std::to_string(KESTRO_RECORDER_OPENED) + " " + std::to_string(KESTRO_RECORDER_PROTECTED) +
      " " + std::to_string(KESTRO_RECORDER_CLOSED) + " " +
      std::to_string(KESTRO_RECORDER_PROTECTED) + " ";  // the second event reaches back
  EXPECT_EQ(kinds, expected);
}

TEST(CInterface, RefusesUnknownProperties) {
  RegisterClasses();
  base::ConsoleCapture console;
  kestro_recorder_options options;
  kestro_recorder_options_init(&options, sizeof options);
  char const* const properties[] = {"none=1", nullptr};
  options.path = "/nowhere/c.avi";
  options.properties = properties;
  kestro_recorder* const recorder = kestro_recorder_new(&options);
  kestro_recorder_track video = KESTRO_RECORDER_TRACK_INIT;
  video.width = video.height = video.frame_rate_num = 25;
  EXPECT_EQ(kestro_recorder_add_track(recorder, &video), 0);
  EXPECT_EQ(kestro_recorder_start(recorder), KESTRO_RECORDER_INVALID);
  char text[64];
  kestro_recorder_get_text(recorder, KESTRO_RECORDER_TEXT_RESULT, text, sizeof text);
  EXPECT_NE(std::string(text).find("none"), std::string::npos) << text;
  EXPECT_EQ(kestro_recorder_split(recorder), KESTRO_RECORDER_INVALID) << "not started";
  kestro_recorder_free(recorder);
}

TEST(CInterface, UsesTheStorageOfTheProgram) {
  kestro_recorder_storage functions = {};
  functions.open = [](void*, char const*, char const*, void**) { return 0; };
  functions.close = [](void*, void*) {};
  functions.write = [](void*, void*, std::int64_t at, void const*, std::size_t) {
    return at == 0 ? 1 : std::int64_t{-ENOSPC};
  };
  functions.flush = [](void*, void*) { return 0; };
  functions.list = [](void*, char const* folder, auto* found, void* to) {
    kestro_recorder_entry const entries[] = {
        {sizeof(kestro_recorder_entry), "a.avi", 7, 5, 1},
        {offsetof(kestro_recorder_entry, plain), "older", 8, 6, 1},
        {sizeof(kestro_recorder_entry), nullptr, 9, 0, 1},
    };
    for (auto const& entry : entries) found(to, &entry);
    return std::strcmp(folder, "a/") == 0 ? 0 : -EACCES;
  };
  record::CStorage storage(functions);
  auto const file = storage.Open("x", "rwbc");
  EXPECT_EQ(file->Write("12", 2), 1u);
  EXPECT_EQ(file->Write("2", 1), 0u) << "full";
  EXPECT_TRUE(file->Flush());
  EXPECT_EQ(file->Error(), ENOSPC) << "the last error";
  std::vector<record::Storage::Entry> entries;
  EXPECT_TRUE(storage.List("a/", entries));
  ASSERT_EQ(entries.size(), 2u) << "without the one that has no name";
  EXPECT_TRUE(entries[0].plain && entries[0].bytes == 7 && entries[0].modified_ns == 5);
  EXPECT_FALSE(entries[1].plain) << "unknown to the program";
  EXPECT_TRUE(!storage.List("b/", entries) && errno == EACCES);
}

TEST(CInterface, EveryCodeHasAText) {
  for (int code = 0; code >= KESTRO_RECORDER_FULL; --code)
    EXPECT_STRNE(kestro_recorder_code_text(code), kestro_recorder_code_text(1)) << code;
}

}  // namespace
}  // namespace kestro::test
