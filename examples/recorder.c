/* Records an H.264 elementary stream and a WAV file into AVI files, as a camera program would:
 *   recorder IN.h264 IN.wav OUT.avi WIDTH HEIGHT FRAMES-PER-SECOND
 * The stream has start codes of four bytes and a delimiter before each picture. The WAV file has a
 * plain header and 16-bit samples. */
#include <recorder/kestro_recorder.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#define AUDIO_FRAMES 512 /* per push, as a sound card might deliver them */

static unsigned char *read_file(const char *path, size_t *size) {
  FILE *file = fopen(path, "rb");
  unsigned char *data = NULL;
  long length;
  if (file == NULL) return NULL;
  if (fseek(file, 0, SEEK_END) == 0 && (length = ftell(file)) > 0 && fseek(file, 0, SEEK_SET) == 0) {
    data = malloc((size_t)length);
    *size = data == NULL ? 0 : fread(data, 1, (size_t)length, file);
  }
  fclose(file);
  return data;
}

/* Returns the next delimiter at or after `from`, or the end. */
static size_t next_unit(const unsigned char *data, size_t size, size_t from) {
  for (; from + 5 <= size; ++from)
    if (memcmp(data + from, "\0\0\0\1\x09", 5) == 0) return from;
  return size;
}

/* Whether an access unit has an IDR slice. */
static int is_key(const unsigned char *data, size_t size) {
  size_t at;
  for (at = 0; at + 4 <= size; ++at)
    if (memcmp(data + at, "\0\0\1", 3) == 0 && (data[at + 3] & 0x1F) == 5) return 1;
  return 0;
}

static void on_event(void *context, const kestro_recorder_event *event) {
  (void)context;
  if (event->kind >= KESTRO_RECORDER_CLOSED) fprintf(stderr, "recorder: %s\n", event->text);
}

static int fail(kestro_recorder *recorder, const char *what, int code) {
  char text[512];
  kestro_recorder_get_text(recorder, KESTRO_RECORDER_TEXT_RESULT, text, sizeof text);
  fprintf(stderr, "recorder: %s: %s\n", what,
          text[0] != '\0' ? text : kestro_recorder_code_text(code));
  kestro_recorder_free(recorder);
  return 1;
}

int main(int argc, char **argv) {
  kestro_recorder_options options;
  kestro_recorder_track video = KESTRO_RECORDER_TRACK_INIT, audio = KESTRO_RECORDER_TRACK_INIT;
  kestro_recorder_payload frame = KESTRO_RECORDER_PAYLOAD_INIT, audio_chunk = frame;
  kestro_recorder_status status = KESTRO_RECORDER_STATUS_INIT;
  kestro_recorder *recorder;
  unsigned char *stream, *wave;
  size_t stream_size = 0, wave_size = 0, at, next, played = 44;
  int video_track, audio_track, code = KESTRO_RECORDER_OK;
  int64_t frames = 0;

  if (argc != 7) return fail(NULL, "takes IN.h264 IN.wav OUT.avi WIDTH HEIGHT RATE", 0);
  stream = read_file(argv[1], &stream_size);
  wave = read_file(argv[2], &wave_size);
  if (stream == NULL || wave == NULL || wave_size < 44) return fail(NULL, "cannot read the inputs", 0);

  kestro_recorder_options_init(&options, sizeof options);
  options.path = argv[3];
  options.overwrite = 1;
  options.sync_mode = KESTRO_RECORDER_SYNC_IN_PLACE; /* survive a power cut */
  options.reserve_ns = INT64_C(600000000000);
  options.on_event = on_event;
  recorder = kestro_recorder_new(&options);

  video.codec = KESTRO_RECORDER_H264;
  video.width = atoi(argv[4]);
  video.height = atoi(argv[5]);
  video.frame_rate_num = atoi(argv[6]);
  audio.codec = KESTRO_RECORDER_PCM;
  audio.channels = wave[22];
  audio.rate = (int32_t)(wave[24] | (unsigned)wave[25] << 8 | (unsigned)wave[26] << 16);
  video_track = kestro_recorder_add_track(recorder, &video);
  audio_track = kestro_recorder_add_track(recorder, &audio);
  if (video_track < 0 || audio_track < 0) return fail(recorder, "a track", KESTRO_RECORDER_INVALID);
  code = kestro_recorder_start(recorder);
  if (code != KESTRO_RECORDER_OK) return fail(recorder, argv[3], code);

  for (at = next_unit(stream, stream_size, 0); at < stream_size && code == 0; at = next, ++frames) {
    next = next_unit(stream, stream_size, at + 5);
    frame.data = stream + at;
    frame.data_size = next - at;
    frame.time_ns = frames * 1000000000 / video.frame_rate_num;
    frame.key = is_key(stream + at, next - at);
    code = kestro_recorder_push(recorder, video_track, &frame);
    while (code == 0 && played < wave_size) {
      const size_t bytes = (size_t)audio.channels * 2, left = (wave_size - played) / bytes;
      audio_chunk.time_ns = (int64_t)((played - 44) / bytes) * 1000000000 / audio.rate;
      if (left == 0 || audio_chunk.time_ns > frame.time_ns) break;
      audio_chunk.data = wave + played;
      audio_chunk.data_size = (left < AUDIO_FRAMES ? left : AUDIO_FRAMES) * bytes;
      code = kestro_recorder_push(recorder, audio_track, &audio_chunk);
      played += audio_chunk.data_size;
    }
  }
  if (code != KESTRO_RECORDER_OK) return fail(recorder, "a packet was refused", code);
  code = kestro_recorder_stop(recorder);
  if (code != KESTRO_RECORDER_OK) return fail(recorder, argv[3], code);
  kestro_recorder_get_status(recorder, &status);
  printf("%lu packets, %lu ms\n", (unsigned long)status.packets,
         (unsigned long)(status.duration_ns / 1000000));
  kestro_recorder_free(recorder);
  free(stream);
  free(wave);
  return 0;
}
