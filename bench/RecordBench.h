// What whoever delivers packets to a muxer waits for, and what syncs cost.
#pragma once

#include <vector>

#include "Bench.h"

namespace kestro::bench {

// In step with time, once each: what recording onto a device that stalls makes a camera wait.
//   "slow/push_p999_ms"    12 Mbit/s, 500 ms every 4 MiB
//   "slow/push24_p999_ms"  24 Mbit/s, with as many blocks as the device asks for
//   "slow/stall_p999_ms"   12 Mbit/s, 2 s: longer than the cache lasts; all four times as fast
//   "sync/queue_p999_ms"   a sync every second on a device whose flush takes 100 ms
std::vector<Case> StallCases();

// As fast as packets are taken, the times of the packets deciding about syncs: 30 frames of 34 KiB
// a second, with sound, onto tmpfs and a disk, synced every second or three.
std::vector<Case> SyncCases();

}  // namespace kestro::bench
