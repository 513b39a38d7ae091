/* Recording for C programs: tracks and packets in, AVI files out. C99. Link with -lkestrorec.
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
 * Threads: push, split, stop, status and text may be called from any thread once start has
 * returned, all at the same time; packets of a track come in the order of their pushes. Everything
 * else is for one thread, and free for when no other call is under way and not inside a callback.
 * Callbacks are called on threads of the library or inside push and stop, one at a time; there,
 * everything but free may be called, and stop returns at once.
 *
 * Structs begin with their size, so that they can grow: initialise them as shown and newer
 * libraries take them too. What they point to is copied before the call returns, unless it is said
 * otherwise. Times are nanoseconds, sizes bytes. See recorder/Recorder.h for what the recorder does
 * with tracks and packets; the two interfaces are the same. No C++ exception leaves these
 * functions.
 */
#ifndef KESTRO_RECORDER_H
#define KESTRO_RECORDER_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#define KESTRO_RECORDER_API __attribute__((visibility("default")))

/* What functions return: one of these, negative. */
enum {
  KESTRO_RECORDER_OK = 0,
  KESTRO_RECORDER_INVALID = -1,     /* options or a call that cannot be */
  KESTRO_RECORDER_UNSUPPORTED = -2, /* tracks that cannot be recorded */
  KESTRO_RECORDER_IO = -3,          /* a file that cannot be written */
  KESTRO_RECORDER_BUSY = -4,        /* another recorder writes files of this name there */
  KESTRO_RECORDER_PLUGIN = -5,      /* the plug-in is not there, or lacks something */
  KESTRO_RECORDER_ENDED = -6,       /* recording has been stopped */
  KESTRO_RECORDER_MEMORY = -7
};
/* One line for people; never null, lives for ever. */
KESTRO_RECORDER_API const char* kestro_recorder_code_text(int code);

enum {                        /* codecs */
       KESTRO_RECORDER_H264,  /* Annex B, an access unit a packet */
       KESTRO_RECORDER_HEVC,  /* the same */
       KESTRO_RECORDER_MJPEG, /* a JPEG picture a packet */
       KESTRO_RECORDER_PCM,   /* signed integers, little-endian, interleaved; any amount a packet */
       KESTRO_RECORDER_TEXT   /* a text a packet */
};

typedef struct kestro_recorder_track {
  size_t size;
  const char* name; /* for messages; null: "track N" */
  int32_t codec;
  int32_t width, height;                  /* video: pixels of the frame */
  int64_t frame_rate_num, frame_rate_den; /* video: frames a second */
  int32_t rate, channels;                 /* audio: samples a second and channel */
  int32_t bits;                           /* audio: of a sample; 0: 16 */
  int32_t samples;                        /* audio: of a block and channel; 0: about 40 ms */
  const void* parameter_sets; /* H.264, HEVC: with start codes, for a stream that lacks them */
  size_t parameter_sets_size;
} kestro_recorder_track;
#define KESTRO_RECORDER_TRACK_INIT \
  { sizeof(kestro_recorder_track), 0, 0, 0, 0, 0, 1, 0, 0, 0, 0, 0, 0 }

#define KESTRO_RECORDER_NOW INT64_MIN

typedef struct kestro_recorder_payload {
  size_t size;
  const void* data;
  size_t data_size;
  int64_t time_ns;     /* of presentation, by one clock for all tracks; NOW: by the recorder's */
  int64_t duration_ns; /* 0: by frame rate, or number of samples */
  int32_t key;         /* H.264 and HEVC: decoding can begin here */
  /* Null: the bytes are copied before push returns. Otherwise they stay as they are until this is
   * called, once, on any thread, whatever push returns. */
  void (*release)(void* context);
  void* context;
} kestro_recorder_payload;
#define KESTRO_RECORDER_PAYLOAD_INIT \
  { sizeof(kestro_recorder_payload), 0, 0, KESTRO_RECORDER_NOW, 0, 0, 0, 0 }

enum { /* how files stay playable when the recording is cut off */
       KESTRO_RECORDER_SYNC_OFF,
       KESTRO_RECORDER_SYNC_IN_PLACE, /* an index of reserved size before the data, updated in place
                                       */
       KESTRO_RECORDER_SYNC_IMAGE,    /* the same, written as a whole with the headers */
       KESTRO_RECORDER_SYNC_CALLBACK  /* headers and index in a file next to it, until it is closed
                                       */
};

enum {                          /* kinds of events */
       KESTRO_RECORDER_OPENED,  /* a file has been opened */
       KESTRO_RECORDER_CLOSED,  /* ... and closed */
       KESTRO_RECORDER_NOTE,    /* worth knowing, nothing is wrong */
       KESTRO_RECORDER_WARNING, /* nothing recorded is at risk */
       KESTRO_RECORDER_ERROR    /* packets are refused from now on */
};

typedef struct kestro_recorder_event { /* valid during the call */
  size_t size;
  int32_t kind;
  const char *path, *text; /* never null */
  uint64_t packets, bytes; /* CLOSED: stored packets, bytes of the file, ... */
  int64_t duration_ns;     /* ... its length ... */
  int32_t complete;        /* ... and whether it is whole */
} kestro_recorder_event;

/* Where files are kept, in place of the system's. Functions return a negative errno on failure;
 * they are called from threads of the library and inside push and stop, also for several files at
 * the same time, but for one file one at a time. The struct is copied; the context lives as long as
 * the recorder. */
typedef struct kestro_recorder_storage {
  size_t size;
  void* context;
  /* "rwbc": new, in place of one of that name; "r+b", "rb": one that exists. */
  int (*open)(void* context, const char* path, const char* mode, void** file);
  void (*close)(void* context, void* file);
  int64_t (*read)(void* context, void* file, int64_t offset, void* data, size_t bytes);
  int64_t (*write)(void* context, void* file, int64_t offset, const void* data, size_t bytes);
  int64_t (*length)(void* context, void* file);
  int (*truncate)(void* context, void* file, int64_t length);
  int (*flush)(void* context, void* file); /* data, length and name survive the machine */
  int (*remove)(void* context, const char* path);
  int (*exists)(void* context, const char* path);         /* 1 or 0 */
  uint64_t (*available)(void* context, const char* path); /* bytes; null or UINT64_MAX: unknown */
} kestro_recorder_storage;

typedef struct kestro_recorder_options {
  size_t size;
  const char* path;  /* "cam-%05d.avi": cam-00001.avi, ...; "cam.avi": cam.avi, cam-00002.avi */
  int32_t overwrite; /* existing files, instead of passing over their numbers */
  uint64_t segment_bytes;  /* a file's size at most, as far as key frames allow */
  int64_t segment_time_ns; /* of a file; negative: any */

  int32_t sync_mode;
  int64_t sync_interval_ns;
  int64_t reserve_ns;       /* in place, image: the reserve is for a file of this length ... */
  uint64_t reserve_bytes;   /* ... unless its size is given */
  int32_t front_index_only; /* closed files keep the index before the data alone */

  int32_t no_queue;           /* pushing waits for the storage */
  int32_t drop;               /* leave out groups of pictures instead of waiting for room */
  uint32_t queue_max_time_ms; /* 0: no bound */
  uint32_t queue_max_bytes;   /* 0: no bound */

  uint32_t cache_blocks; /* of 512 KiB, which may wait for the storage; 0: as many as usual */
  int32_t spill_seconds; /* of index kept in memory, the rest in a temporary file; below 0: all */
  const char* spill_folder; /* for it; null: the temporary folder */

  const void* strd; /* optional chunks of the head */
  size_t strd_size;
  const char *strn, *isft;
  uint32_t junk;
  const char* const* properties; /* of the muxer: "name=value", ..., null */

  int32_t threadless; /* everything happens in push and stop */
  const char* plugin; /* the file or its folder; null: looked for */
  void* context;      /* of the following */
  void (*on_event)(void* context, const kestro_recorder_event* event);
  int64_t (*clock)(void* context);        /* for packets without a time; null: monotonic */
  const kestro_recorder_storage* storage; /* null: the system's files */
} kestro_recorder_options;
/* Sets defaults; `size` is sizeof(kestro_recorder_options). */
KESTRO_RECORDER_API void kestro_recorder_options_init(kestro_recorder_options* options,
                                                      size_t size);

enum {                          /* states */
       KESTRO_RECORDER_WAITING, /* for the first key frame */
       KESTRO_RECORDER_RECORDING,
       KESTRO_RECORDER_FAILED, /* packets are refused */
       KESTRO_RECORDER_STOPPED
};

typedef struct kestro_recorder_status {
  size_t size;
  int32_t state;
  uint64_t files, packets, bytes;   /* begun; stored; of payload stored */
  int64_t duration_ns;              /* recorded so far */
  int64_t skew_ns;                  /* how far the tracks of the current file have come apart */
  uint64_t skipped;                 /* packets before the first key frame */
  uint64_t waits, longest_wait_us;  /* of push, for room in the queue */
  uint64_t dropped, dropped_groups; /* packets; groups of pictures */
  uint64_t warnings;
} kestro_recorder_status;
#define KESTRO_RECORDER_STATUS_INIT \
  { sizeof(kestro_recorder_status), 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0 }

typedef struct kestro_recorder kestro_recorder;

/* Null when memory runs out, or for options of no size or path, or of a newer library that are set.
 */
KESTRO_RECORDER_API kestro_recorder* kestro_recorder_new(const kestro_recorder_options* options);
/* The track's number, or a negative code. Before start. */
KESTRO_RECORDER_API int kestro_recorder_add_track(kestro_recorder* recorder,
                                                  const kestro_recorder_track* track);
/* Nothing is written before the first packet. After a failure it can be called again. */
KESTRO_RECORDER_API int kestro_recorder_start(kestro_recorder* recorder);
KESTRO_RECORDER_API int kestro_recorder_push(kestro_recorder* recorder, int track,
                                             const kestro_recorder_payload* payload);
/* Begins a new file at the next key frame. */
KESTRO_RECORDER_API int kestro_recorder_split(kestro_recorder* recorder);
/* Stores what waits and closes the last file; more than once: the result is the same. */
KESTRO_RECORDER_API int kestro_recorder_stop(kestro_recorder* recorder);
/* Stops. Null is ignored. */
KESTRO_RECORDER_API void kestro_recorder_free(kestro_recorder* recorder);

KESTRO_RECORDER_API int kestro_recorder_get_status(const kestro_recorder* recorder,
                                                   kestro_recorder_status* status);

enum {                              /* texts */
       KESTRO_RECORDER_TEXT_RESULT, /* why start or stop has failed */
       KESTRO_RECORDER_TEXT_LAST,   /* the last error or warning */
       KESTRO_RECORDER_TEXT_FILE,   /* the current file, or the last */
       KESTRO_RECORDER_TEXT_SYNC    /* how the files are synced */
};
/* Copies a text, cut to the buffer and ended by a zero; returns its whole length without the zero.
 */
KESTRO_RECORDER_API size_t kestro_recorder_get_text(const kestro_recorder* recorder, int text,
                                                    char* buffer, size_t buffer_size);

#ifdef __cplusplus
}
#endif

#endif
