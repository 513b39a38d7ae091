// All kinds of findings, with id, severity and meaning.
#pragma once

namespace kestro::tool {

enum class Severity { kError, kWarning, kNote };

// Kinds are compared by address.
struct Kind {
  char const* id;
  Severity severity;
  char const* meaning;
};

namespace found {

// The file is unusable
inline constexpr Kind kNotRiff{"not-riff", Severity::kError,
                               "the file does not begin with a RIFF header"};
inline constexpr Kind kNotAvi{"not-avi", Severity::kError, "a RIFF file, but not an AVI file"};
inline constexpr Kind kNoStreams{"no-streams", Severity::kError,
                                 "no stream headers: the kind of data is unknown"};
inline constexpr Kind kNoMovi{"no-movi", Severity::kError, "no movi list: there is no data"};

// Chunks and lists
inline constexpr Kind kRiffSize{"riff-size", Severity::kError,
                                "the size of RIFF does not cover all of its content"};
inline constexpr Kind kTrailing{"trailing-bytes", Severity::kNote, "bytes after the end of RIFF"};
inline constexpr Kind kChunkCut{"chunk-cut", Severity::kError,
                                "a chunk extends beyond the end of its list or of the file"};
inline constexpr Kind kListRest{"list-rest", Severity::kWarning,
                                "bytes in a list that are not a chunk"};

// Headers
inline constexpr Kind kMainHeader{"main-header", Severity::kError, "avih is missing or too short"};
inline constexpr Kind kStreamHeader{"stream-header", Severity::kError,
                                    "strh or strf of a track is missing or too short"};
inline constexpr Kind kStreamCount{
    "stream-count", Severity::kWarning,
    "avih has a different number of streams than there are stream headers"};
inline constexpr Kind kFrameCount{"frame-count", Severity::kWarning,
                                  "avih has a different number of frames than the video track"};
inline constexpr Kind kFrameTime{"frame-time", Severity::kWarning,
                                 "avih and the video track have different frame times"};
inline constexpr Kind kPictureSize{"picture-size", Severity::kWarning,
                                   "avih and the video track have different picture sizes"};
inline constexpr Kind kRate{"rate", Severity::kWarning, "a track without a rate"};
inline constexpr Kind kAudioRate{"sound-rate", Severity::kWarning,
                                 "strh and strf of PCM audio have different rates"};
inline constexpr Kind kAudioFormat{"sound-format", Severity::kWarning,
                                   "the fields of a PCM audio format contradict each other"};
inline constexpr Kind kSets{"parameter-sets", Severity::kError,
                            "the parameter sets in strf are damaged"};
inline constexpr Kind kLength{"length", Severity::kWarning,
                              "the length in strh differs from the length of the track's data"};
inline constexpr Kind kSkew{"track-skew", Severity::kNote,
                            "a track ends over 0.2 s and over 0.5 % before the longest one"};

// Data and index
inline constexpr Kind kMoviSize{"movi-size", Severity::kError,
                                "the size of movi does not cover all of its data"};
inline constexpr Kind kNoIndex{"no-index", Severity::kError, "there is no index"};
inline constexpr Kind kIndexEmpty{"index-empty", Severity::kError, "the index has no entries"};
inline constexpr Kind kIndexLength{"index-length", Severity::kWarning,
                                   "the length of the index is not a multiple of 16"};
inline constexpr Kind kIndexHole{"index-hole", Severity::kError,
                                 "the index has empty entries between others"};
inline constexpr Kind kIndexAstray{"index-astray", Severity::kError,
                                   "the index does not point to chunks"};
inline constexpr Kind kEntryId{"entry-id", Severity::kError,
                               "the id of an index entry is not one of track data"};
inline constexpr Kind kEntryTrack{"entry-track", Severity::kError,
                                  "data of a track without a stream header, or of another type"};
inline constexpr Kind kEntryFlags{"entry-flags", Severity::kWarning,
                                  "an index entry has undefined flags"};
inline constexpr Kind kEntryOffset{"entry-offset", Severity::kError,
                                   "an index entry does not point to a chunk with its id"};
inline constexpr Kind kEntryOutside{"entry-outside", Severity::kError,
                                    "an index entry points to a chunk outside movi"};
inline constexpr Kind kEntrySize{"entry-size", Severity::kError,
                                 "an index entry has another size than its chunk"};
inline constexpr Kind kEntryOrder{"entry-order", Severity::kWarning,
                                  "an index entry comes after that of a later chunk"};
inline constexpr Kind kEntryTwice{"entry-twice", Severity::kError, "a chunk has two index entries"};
inline constexpr Kind kChunkId{"chunk-id", Severity::kError,
                               "a chunk has another id than its index entry"};
inline constexpr Kind kChunkSize{"chunk-size", Severity::kError,
                                 "a chunk's size contradicts its index entry and the next chunk"};
inline constexpr Kind kDataCut{"data-cut", Severity::kError,
                               "a data chunk extends beyond the end of movi or of the file"};
inline constexpr Kind kNoChunk{"no-chunk", Severity::kError, "bytes in movi that are not a chunk"};
inline constexpr Kind kNotIndexed{"not-indexed", Severity::kError,
                                  "a data chunk without an index entry"};
inline constexpr Kind kPadMissing{"pad-missing", Severity::kWarning,
                                  "no pad byte after a chunk of odd size"};
inline constexpr Kind kPadValue{"pad-value", Severity::kWarning, "a pad byte is not zero"};
inline constexpr Kind kUnitLength{"unit-length", Severity::kError,
                                  "the lengths in a frame contradict its size"};
inline constexpr Kind kAudioFrame{"sound-frame", Severity::kWarning,
                                  "a chunk of PCM audio ends inside a sample frame"};
inline constexpr Kind kNoKey{"no-key", Severity::kWarning,
                             "the index marks no key frame of a video track"};
inline constexpr Kind kFirstNotKey{"first-not-key", Severity::kNote,
                                   "a video track does not begin with a key frame"};
inline constexpr Kind kKeyUnmarked{"key-unmarked", Severity::kWarning,
                                   "a key frame is not marked in the index"};
inline constexpr Kind kKeyFalse{"key-false", Severity::kWarning,
                                "the index marks a frame as a key frame that is not one"};

inline constexpr Kind kBroken{"picture-broken", Severity::kError,
                              "a picture cannot be decoded, or only in part"};

// Limits of readers
inline constexpr Kind kFromMovi{
    "offsets-from-movi", Severity::kNote,
    "index offsets are relative to movi: the demuxer needs absolute ones"};
inline constexpr Kind kParts{"several-parts", Severity::kNote,
                             "several RIFF parts: the demuxer plays only the first"};
inline constexpr Kind kTrackOrder{
    "track-order", Severity::kNote,
    "motion JPEG or text before another track: the demuxer counts only tracks that it supports"};
inline constexpr Kind kAllKeys{
    "all-keys", Severity::kNote,
    "the index flags every frame of a track: for the demuxer any flag means a key frame"};
inline constexpr Kind kPrefixed{
    "length-prefixed", Severity::kNote,
    "H.264 or HEVC with lengths: the demuxer needs start codes (\"repair\" converts)"};
inline constexpr Kind kLarge{
    "beyond-2gib", Severity::kNote,
    "larger than 2 GiB: the demuxer and many players do not read the rest"};

}  // namespace found
}  // namespace kestro::tool
