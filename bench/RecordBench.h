// Measures how long the caller of a muxer waits, and the cost of syncs.
#pragma once

#include <vector>

#include "Bench.h"

namespace kestro::bench {

// In real time, once each: how long a camera waits while recording to a device that stalls.
//   "slow/push_p999_ms"    12 Mbit/s, 500 ms every 4 MiB
//   "slow/push24_p999_ms"  24 Mbit/s, with as many cache blocks as the device requests
//   "slow/stall_p999_ms"   12 Mbit/s, 2 s: longer than the cache lasts; all four times as fast
//   "sync/queue_p999_ms"   a sync every second on a device whose flush takes 100 ms
std::vector<Case> StallCases();

// As fast as possible, with syncs by the times of the packets: 30 frames of 34 KiB per second with
// audio, to tmpfs and to a disk, synced every one or three seconds.
std::vector<Case> SyncCases();

}  // namespace kestro::bench
