// All that can be found, each with its id, severity and meaning.
#pragma once

namespace kestro::tool {

enum class Severity { kError, kWarning, kNote };

// Told apart by address.
struct Kind {
  char const* id;
  Severity severity;
  char const* meaning;
};

namespace found {

// Beyond use
inline constexpr Kind kNotRiff{"not-riff", Severity::kError,
                               "the file does not begin with a RIFF header"};
inline constexpr Kind kNotAvi{"not-avi", Severity::kError, "a RIFF file of another type"};
inline constexpr Kind kNoStreams{"no-streams", Severity::kError,
                                 "no stream headers: what the data is cannot be known"};
inline constexpr Kind kNoMovi{"no-movi", Severity::kError, "no movi list: there is no data"};

// Chunks and lists
inline constexpr Kind kRiffSize{"riff-size", Severity::kError,
                                "the size of RIFF does not reach to the end of what belongs to it"};
inline constexpr Kind kTrailing{"trailing-bytes", Severity::kNote, "bytes behind the end of RIFF"};
inline constexpr Kind kChunkCut{"chunk-cut", Severity::kError,
                                "a chunk is larger than what is left of its list or of the file"};
inline constexpr Kind kListRest{"list-rest", Severity::kWarning,
                                "bytes in a list that are no chunk"};

// Headers
inline constexpr Kind kMainHeader{"main-header", Severity::kError, "avih is missing or too short"};
inline constexpr Kind kStreamHeader{"stream-header", Severity::kError,
                                    "strh or strf of a track is missing or too short"};
inline constexpr Kind kStreamCount{"stream-count", Severity::kWarning,
                                   "avih counts other than the stream headers that are there"};
inline constexpr Kind kFrameCount{"frame-count", Severity::kWarning,
                                  "avih counts other frames than the video track has"};
inline constexpr Kind kFrameTime{"frame-time", Severity::kWarning,
                                 "the frame times of avih and of the video track differ"};
inline constexpr Kind kPictureSize{"picture-size", Severity::kWarning,
                                   "the picture sizes of avih and of the video track differ"};
inline constexpr Kind kRate{"rate", Severity::kWarning, "a track without a rate"};
inline constexpr Kind kSoundRate{"sound-rate", Severity::kWarning,
                                 "strh and strf of PCM sound tell different rates"};
inline constexpr Kind kSoundFormat{"sound-format", Severity::kWarning,
                                   "the numbers in the format of PCM sound contradict each other"};
inline constexpr Kind kLength{"length", Severity::kWarning,
                              "strh tells another length than the track's data has"};
inline constexpr Kind kSkew{"track-skew", Severity::kNote,
                            "a track is shorter than the longest by over a second and a twentieth"};

// Data and index
inline constexpr Kind kMoviSize{"movi-size", Severity::kError,
                                "the size of movi does not reach to the end of its data"};
inline constexpr Kind kNoIndex{"no-index", Severity::kError, "there is no index"};
inline constexpr Kind kIndexEmpty{"index-empty", Severity::kError, "the index has no entries"};
inline constexpr Kind kIndexLength{"index-length", Severity::kWarning,
                                   "the length of the index is not a multiple of 16"};
inline constexpr Kind kIndexHole{"index-hole", Severity::kError,
                                 "empty entries stand where there should be none"};
inline constexpr Kind kIndexAstray{"index-astray", Severity::kError,
                                   "the index does not lead to chunks"};
inline constexpr Kind kEntryId{"entry-id", Severity::kError,
                               "an index entry's id is not that of track data"};
inline constexpr Kind kEntryTrack{
    "entry-track", Severity::kError,
    "data of a track that has no stream header, or is of another kind"};
inline constexpr Kind kEntryFlags{"entry-flags", Severity::kWarning,
                                  "an index entry has flags without a meaning"};
inline constexpr Kind kEntryOffset{"entry-offset", Severity::kError,
                                   "an index entry does not lead to a chunk of its id"};
inline constexpr Kind kEntryOutside{"entry-outside", Severity::kError,
                                    "an index entry leads to a chunk outside movi"};
inline constexpr Kind kEntrySize{"entry-size", Severity::kError,
                                 "an index entry's size is not that of its chunk"};
inline constexpr Kind kEntryOrder{"entry-order", Severity::kWarning,
                                  "an index entry stands behind that of a later chunk"};
inline constexpr Kind kEntryTwice{"entry-twice", Severity::kError, "a chunk has two index entries"};
inline constexpr Kind kChunkId{"chunk-id", Severity::kError,
                               "a chunk's id is not the one that the index gives"};
inline constexpr Kind kChunkSize{"chunk-size", Severity::kError,
                                 "a chunk's size is not what the index and the next chunk tell"};
inline constexpr Kind kDataCut{"data-cut", Severity::kError,
                               "a data chunk goes beyond the end of movi or of the file"};
inline constexpr Kind kNoChunk{"no-chunk", Severity::kError, "bytes in movi that are no chunk"};
inline constexpr Kind kNotIndexed{"not-indexed", Severity::kError,
                                  "a data chunk without an index entry"};
inline constexpr Kind kPadMissing{"pad-missing", Severity::kWarning,
                                  "the next chunk follows one of odd size without a pad byte"};
inline constexpr Kind kPadValue{"pad-value", Severity::kWarning, "a pad byte is not zero"};
inline constexpr Kind kSoundFrame{"sound-frame", Severity::kWarning,
                                  "a chunk of PCM sound ends inside a sample frame"};
inline constexpr Kind kNoKey{"no-key", Severity::kWarning,
                             "no key frame is marked in a video track"};
inline constexpr Kind kFirstNotKey{"first-not-key", Severity::kNote,
                                   "a video track does not begin with a key frame"};
inline constexpr Kind kKeyUnmarked{"key-unmarked", Severity::kWarning,
                                   "a key frame is not marked in the index"};
inline constexpr Kind kKeyFalse{"key-false", Severity::kWarning,
                                "the index marks a frame that is no key frame"};

// What readers will make of it
inline constexpr Kind kFromMovi{"offsets-from-movi", Severity::kNote,
                                "index offsets count from movi: the demuxer takes absolute ones"};
inline constexpr Kind kParts{"several-parts", Severity::kNote,
                             "several RIFF parts: the demuxer plays the first"};
inline constexpr Kind kTrackOrder{
    "track-order", Severity::kNote,
    "motion JPEG or text before another track: the demuxer counts only the tracks that it knows"};
inline constexpr Kind kAllKeys{
    "all-keys", Severity::kNote,
    "the index flags every frame of a track: the demuxer takes any flag for that of a key frame"};
inline constexpr Kind kLarge{"beyond-2gib", Severity::kNote,
                             "larger than 2 GiB: the demuxer and many players read no further"};

}  // namespace found
}  // namespace kestro::tool
