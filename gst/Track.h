// One track of kestroavisink.
#pragma once

#include <gst/gst.h>

#include <atomic>
#include <optional>
#include <string>

#include "recorder/TrackInfo.h"

namespace kestro::gst {

// The functions and times belong to the thread of the track's pad, the rest to Recording.
struct Track {
  // `awaited`: the recorder is not opened before data of this track.
  Track(std::string const& name, record::TrackInfo::Codec codec, bool awaited);

  // The track that these caps describe. Throws std::runtime_error when they lack something.
  record::TrackInfo Parse(GstCaps* caps, base::Fraction const& frameRate) const;
  // The running time at which AVI files play a buffer, if it has timestamps.
  std::optional<std::int64_t> Time_ns(GstSegment const& segment, GstBuffer* buffer);
  std::int64_t Duration_ns(std::size_t size) const;
  bool NeedsRate() const { return info.IsVideo() && !info.frameRate.Positive(); }

  record::TrackInfo::Codec const codec;
  bool const awaited;
  std::optional<record::TrackInfo> caps;  // as the caps describe the track
  record::TrackInfo info;                 // the same, with a frame rate that was measured
  std::optional<std::size_t> number;      // in the recorder
  bool live = false, eos = false;
  std::int64_t next_ns = 0;              // when the buffer after the last one is due
  std::optional<std::int64_t> delay_ns;  // from decoding a key frame to showing it
};

}  // namespace kestro::gst
