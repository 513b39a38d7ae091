/* The recorder library for C programs (C99): takes the packets of several tracks and writes AVI
 * files. Link with -lkestrorec.
 *
 *   kestro_recorder_options options;
 *   kestro_recorder_options_init(&options, sizeof options);
 *   options.path = "/media/card/cam-%05d.avi";
 *   kestro_recorder *recorder = kestro_recorder_new(&options);
 *   kestro_recorder_track track = KESTRO_RECORDER_TRACK_INIT;
 *   ...
 *   int video = kestro_recorder_add_track(recorder, &track);    for each; below 0: an error
 *   int code = kestro_recorder_start(recorder);
 *   while (...) code = kestro_recorder_push(recorder, video, &payload);
 *   code = kestro_recorder_stop(recorder);
 *   kestro_recorder_free(recorder);
 *
 * Threads: once start has returned, push, split, trigger, unprotect, change_tracks, stop,
 * get_status and get_text may be called from any thread at the same time; a track's packets are
 * stored in the order in which they were pushed. Call all other functions from one thread. Call
 * free only when no other call is running, and not from a callback. Callbacks run on threads of the
 * library or inside push and stop, one at a time; they may call everything but free, and stop
 * returns at once there.
 *
 * Structs start with their size, so that later versions can extend them: initialise them as shown,
 * and newer libraries accept them too. What they point to is copied before the call returns, unless
 * stated otherwise. Times are in nanoseconds, sizes in bytes. recorder/Recorder.h describes what
 * the recorder does with tracks and packets; both interfaces behave the same. No C++ exception
 * leaves these functions.
 */
#ifndef KESTRO_RECORDER_H
#define KESTRO_RECORDER_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#define KESTRO_RECORDER_API __attribute__((visibility("default")))

/* Return values of the functions. */
enum {
  KESTRO_RECORDER_OK = 0,
  KESTRO_RECORDER_INVALID = -1,     /* invalid options or arguments */
  KESTRO_RECORDER_UNSUPPORTED = -2, /* a track that cannot be recorded */
  KESTRO_RECORDER_IO = -3,          /* a file cannot be written */
  KESTRO_RECORDER_BUSY = -4,        /* another recorder is writing these files */
  KESTRO_RECORDER_PLUGIN = -5,      /* the plug-in or libcrypto is missing, or the plug-in
                                        lacks a class or property */
  KESTRO_RECORDER_ENDED = -6,       /* the recorder was stopped */
  KESTRO_RECORDER_MEMORY = -7,
  KESTRO_RECORDER_FULL = -8 /* the limits cannot be kept: nothing may be deleted */
};
/* A code as one line for people; a static string, never null. */
KESTRO_RECORDER_API const char* kestro_recorder_code_text(int code);

enum {                        /* codecs */
       KESTRO_RECORDER_H264,  /* Annex B, one access unit per packet */
       KESTRO_RECORDER_HEVC,  /* the same */
       KESTRO_RECORDER_MJPEG, /* one JPEG picture per packet */
       KESTRO_RECORDER_PCM,   /* signed integers, little-endian, interleaved; packets of any size */
       KESTRO_RECORDER_TEXT   /* one text per packet */
};

typedef struct kestro_recorder_track {
  size_t size;
  const char* name; /* used in messages; null: "track N" */
  int32_t codec;
  int32_t width, height;                  /* video: frame size in pixels */
  int64_t frame_rate_num, frame_rate_den; /* video: frames per second */
  int32_t rate, channels;                 /* audio: sample rate, number of channels */
  int32_t bits;                           /* audio: bits per sample; 0: 16 */
  int32_t samples;            /* audio: samples per channel in a block; 0: about 40 ms */
  const void* parameter_sets; /* H.264, HEVC: with start codes, for a stream without them */
  size_t parameter_sets_size;
} kestro_recorder_track;
#define KESTRO_RECORDER_TRACK_INIT \
  { sizeof(kestro_recorder_track), 0, 0, 0, 0, 0, 1, 0, 0, 0, 0, 0, 0 }

#define KESTRO_RECORDER_NOW INT64_MIN

typedef struct kestro_recorder_payload {
  size_t size;
  const void* data;
  size_t data_size;
  int64_t time_ns;     /* presentation time, on one clock for all tracks; NOW: read the clock */
  int64_t duration_ns; /* 0: from the frame rate or the number of samples */
  int32_t key;         /* H.264 and HEVC: decoding can start here */
  /* Null: push copies the bytes before it returns. Otherwise the caller must leave them unchanged
   * until the library calls this function: once, on any thread, whatever push returns. */
  void (*release)(void* context);
  void* context;
} kestro_recorder_payload;
#define KESTRO_RECORDER_PAYLOAD_INIT \
  { sizeof(kestro_recorder_payload), 0, 0, KESTRO_RECORDER_NOW, 0, 0, 0, 0 }

enum { /* how a file is kept playable in case the recording is cut off */
       KESTRO_RECORDER_SYNC_OFF,
       KESTRO_RECORDER_SYNC_IN_PLACE, /* index in reserved space before the data, updated in place
                                       */
       KESTRO_RECORDER_SYNC_IMAGE,    /* the same index, rewritten as a whole with the headers */
       KESTRO_RECORDER_SYNC_CALLBACK  /* headers and index in a separate file until it is closed */
};

enum {                           /* kinds of events */
       KESTRO_RECORDER_OPENED,   /* a file was opened */
       KESTRO_RECORDER_CLOSED,   /* a file was closed */
       KESTRO_RECORDER_NOTE,     /* worth knowing, but nothing is wrong */
       KESTRO_RECORDER_WARNING,  /* a problem that does not put recorded data at risk */
       KESTRO_RECORDER_ERROR,    /* no more packets are accepted */
       KESTRO_RECORDER_DELETED,  /* a file was deleted to stay within the limits */
       KESTRO_RECORDER_PROTECTED /* a file's marker is on the storage: it will not be deleted */
};

typedef struct kestro_recorder_event { /* valid during the call */
  size_t size;
  int32_t kind;
  const char *path, *text; /* never null */
  uint64_t packets, bytes; /* CLOSED: packets stored, and the size of the file; DELETED: its size */
  int64_t duration_ns;     /* CLOSED: the length of the file; WARNING: how far tracks are apart */
  int32_t complete;        /* CLOSED: whether the file is complete */
  /* OPENED: when the file starts, on the packets' clock. WARNING: where the tracks are furthest
   * apart, from the start of the file */
  int64_t time_ns;
  int32_t hashed; /* CLOSED: whether FILE.sha256 was written */
} kestro_recorder_event;

typedef struct kestro_recorder_entry { /* something in a folder; valid during the call */
  size_t size;
  const char* name;
  uint64_t bytes;
  int64_t modified_ns; /* since 1970-01-01 UTC; negative: unknown */
  int32_t plain;       /* not 0: a file without other names: no link, folder, device or pipe */
} kestro_recorder_entry;

/* File operations to use instead of the system's files. The functions return a negative errno on
 * failure. They are called from threads of the library and inside push and stop: for one file one
 * call at a time, for several files possibly at the same time. The struct is copied; the context
 * must outlive the recorder. */
typedef struct kestro_recorder_storage {
  size_t size;
  void* context;
  /* "rwbc": create or replace the file; "r+b", "rb": open an existing one. */
  int (*open)(void* context, const char* path, const char* mode, void** file);
  void (*close)(void* context, void* file);
  int64_t (*read)(void* context, void* file, int64_t offset, void* data, size_t bytes);
  int64_t (*write)(void* context, void* file, int64_t offset, const void* data, size_t bytes);
  int64_t (*length)(void* context, void* file);
  int (*truncate)(void* context, void* file, int64_t length);
  int (*flush)(void* context, void* file); /* data, length and name survive a power cut */
  int (*remove)(void* context, const char* path);
  int (*exists)(void* context, const char* path);         /* 1 or 0 */
  uint64_t (*available)(void* context, const char* path); /* bytes; null or UINT64_MAX: unknown */
  /* Calls `found` for everything in a folder: the part of a path before the name, with its slash,
   * or "". Null when the storage cannot list; limits for deleting files need it. */
  int (*list)(void* context, const char* folder,
              void (*found)(void* to, const kestro_recorder_entry* entry), void* to);
} kestro_recorder_storage;

enum { /* the clock by which files store when their first packet was captured */
       KESTRO_RECORDER_START_AUTO, /* not set while it reads earlier than 2020 */
       KESTRO_RECORDER_START_SET,
       KESTRO_RECORDER_START_SINCE_BOOT, /* not set: the time since the system was booted */
       KESTRO_RECORDER_START_NONE        /* files store no start */
};

typedef struct kestro_recorder_options {
  size_t size;
  /* "cam-%05d.avi": cam-00001.avi, ...; "cam.avi": cam.avi, cam-00002.avi; for dates see
   * RecorderOptions::path */
  const char* path;
  int32_t overwrite;       /* overwrite existing files instead of skipping their numbers */
  uint64_t segment_bytes;  /* most bytes in a file, as far as key frames allow */
  int64_t segment_time_ns; /* length of a file; negative: no limit */

  int32_t sync_mode;
  int64_t sync_interval_ns;
  int64_t reserve_ns;       /* in place, image: reserve index space for a file of this length, */
  uint64_t reserve_bytes;   /* or this many bytes, if not 0 */
  int32_t front_index_only; /* closed files get no second index after the data */

  int32_t no_queue;           /* push waits for the storage */
  int32_t drop;               /* drop groups of pictures when the queue is full, do not wait */
  uint32_t queue_max_time_ms; /* 0: no limit */
  uint32_t queue_max_bytes;   /* 0: no limit */

  uint32_t cache_blocks;    /* write cache in blocks of 512 KiB; 0: the muxer's default */
  int32_t spill_seconds;    /* keep this much index in memory, the rest in a file; negative: all */
  const char* spill_folder; /* folder of that temporary file; null: the temporary folder */

  const void* strd; /* optional chunks in the file header */
  size_t strd_size;
  const char *strn, *isft; /* isft: null for "kestro" and the version, if the start is stored */
  uint32_t junk;
  const char* const* properties; /* muxer properties: "name=value", ..., null */

  int32_t threadless; /* do all work in push and stop */
  const char* plugin; /* the plug-in or its folder; null: search for it */
  void* context;      /* passed to the functions below */
  void (*on_event)(void* context, const kestro_recorder_event* event);
  int64_t (*clock)(void* context);        /* for packets without a time; null: monotonic */
  const kestro_recorder_storage* storage; /* null: the system's files */
  /* Beyond this distance between tracks, after lost frames or with clocks that differ, a new file
   * starts; 0: never. */
  int64_t max_skew_ns;
  /* Not 0: write FILE.sha256 when a file is closed, with a SHA-256 of each packet and of the file.
   * Needs libcrypto. */
  int32_t hash;
  /* How the start of a file is found out and stored: see StartOptions in
   * recorder/RecorderOptions.h. */
  int32_t start_clock;
  int64_t (*wall_clock)(void* context); /* since 1970-01-01 UTC; null: the system's clock */
  /* Instead of reading a clock: when the packet with this time was captured, on the clock that
   * start_clock names; negative: unknown. */
  int64_t (*captured)(void* context, int64_t time_ns);
  /* Loop recording: the oldest files are deleted to stay within these limits; 0: no limit. See
   * RetentionOptions in recorder/RecorderOptions.h. */
  uint64_t keep_free, keep_bytes, keep_files;
  int64_t keep_age_ns;
  /* Events: see EventOptions there. */
  int32_t event_only;          /* keep packets in memory and write files only around events */
  int32_t no_protect;          /* events do not protect their files */
  int64_t before_ns, after_ns; /* of kestro_recorder_trigger */
  uint64_t event_bytes;        /* event_only: most payload bytes in memory */
} kestro_recorder_options;
/* Sets the defaults; pass sizeof(kestro_recorder_options) as `size`. */
KESTRO_RECORDER_API void kestro_recorder_options_init(kestro_recorder_options* options,
                                                      size_t size);

enum {                          /* states */
       KESTRO_RECORDER_WAITING, /* no key frame has come yet */
       KESTRO_RECORDER_RECORDING,
       KESTRO_RECORDER_FAILED, /* no more packets are accepted */
       KESTRO_RECORDER_STOPPED,
       KESTRO_RECORDER_IDLE /* event_only: waits for an event */
};

typedef struct kestro_recorder_status {
  size_t size;
  int32_t state;
  uint64_t files, packets, bytes; /* files started; packets stored, and their payload bytes */
  int64_t duration_ns;            /* recorded so far */
  int64_t skew_ns;  /* how far the tracks of the current file have drifted apart; see max_skew_ns */
  uint64_t skipped; /* packets before the first key frame */
  uint64_t waits, longest_wait_us;  /* how often and how long push waited for the queue */
  uint64_t dropped, dropped_groups; /* packets, groups of pictures */
  uint64_t warnings;
  uint64_t events; /* that were accepted */
  uint64_t deleted_files, deleted_bytes;
  uint64_t protected_files;                    /* files with a marker */
  uint64_t available;                          /* free bytes; UINT64_MAX: unknown */
  uint64_t space_waits, longest_space_wait_us; /* how often and how long writing waited for space */
} kestro_recorder_status;
#define KESTRO_RECORDER_STATUS_INIT \
  { sizeof(kestro_recorder_status), 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0 }

typedef struct kestro_recorder kestro_recorder;

/* Returns null when memory runs out, when the options have no size or path, or when they set fields
 * that only a newer library has. */
KESTRO_RECORDER_API kestro_recorder* kestro_recorder_new(const kestro_recorder_options* options);
/* Returns the track's number, or a negative code. Call it before start. */
KESTRO_RECORDER_API int kestro_recorder_add_track(kestro_recorder* recorder,
                                                  const kestro_recorder_track* track);
/* Nothing is written before the first packet. May be called again after a failure. */
KESTRO_RECORDER_API int kestro_recorder_start(kestro_recorder* recorder);
KESTRO_RECORDER_API int kestro_recorder_push(kestro_recorder* recorder, int track,
                                             const kestro_recorder_payload* payload);
/* Starts a new file at the next key frame. */
KESTRO_RECORDER_API int kestro_recorder_split(kestro_recorder* recorder);
/* ... or at the first key frame from a time on. */
KESTRO_RECORDER_API int kestro_recorder_split_at(kestro_recorder* recorder, int64_t time_ns);
/* Something has happened: protects the files around this moment, or records them with event_only.
 * The label is UTF-8. See Recorder::Event. */
KESTRO_RECORDER_API int kestro_recorder_trigger(kestro_recorder* recorder, const char* label);
/* ... with its own times. */
KESTRO_RECORDER_API int kestro_recorder_trigger_window(kestro_recorder* recorder, const char* label,
                                                       int64_t before_ns, int64_t after_ns);
/* Removes the marker of a file, of which the name is enough. */
KESTRO_RECORDER_API int kestro_recorder_unprotect(kestro_recorder* recorder, const char* path);
/* Closes the file, and records other tracks from now on; see Recorder::ChangeTracks. `tracks`: an
 * array of `count` structs with the same size; 0: packets are refused until the next call. Not from
 * on_event. */
KESTRO_RECORDER_API int kestro_recorder_change_tracks(kestro_recorder* recorder,
                                                      const kestro_recorder_track* tracks,
                                                      size_t count);
/* Stores the queued packets and closes the last file. Every call returns the same result. */
KESTRO_RECORDER_API int kestro_recorder_stop(kestro_recorder* recorder);
/* Stops the recorder and frees it. Ignores null. */
KESTRO_RECORDER_API void kestro_recorder_free(kestro_recorder* recorder);

KESTRO_RECORDER_API int kestro_recorder_get_status(const kestro_recorder* recorder,
                                                   kestro_recorder_status* status);

enum {                              /* texts */
       KESTRO_RECORDER_TEXT_RESULT, /* why start, stop, unprotect or change_tracks failed */
       KESTRO_RECORDER_TEXT_LAST,   /* the last error or warning */
       KESTRO_RECORDER_TEXT_FILE,   /* the current file, or the last one */
       KESTRO_RECORDER_TEXT_SYNC    /* how the files are synced */
};
/* Copies a text into the buffer, truncated to fit and zero-terminated. Returns the full length of
 * the text without the zero. */
KESTRO_RECORDER_API size_t kestro_recorder_get_text(const kestro_recorder* recorder, int text,
                                                    char* buffer, size_t buffer_size);

#ifdef __cplusplus
}
#endif

#endif
