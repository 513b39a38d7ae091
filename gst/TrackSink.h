// The sink of one track, inside kestroavisink.
#pragma once

#include "Recording.h"

namespace kestro::gst {

// Creates a GstBaseSink that passes everything to the track. The change to PAUSED waits for data if
// the track is awaited.
GstElement* NewTrackSink(Recording& recording, Track& track, GstCaps* caps);
Track& TrackOf(GstElement* sink);

}  // namespace kestro::gst
