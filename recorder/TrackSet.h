// The tracks of a recording, checked and in file order.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "recorder/RecorderOptions.h"
#include "recorder/TrackInfo.h"
#include "stream/Packet.h"

namespace kestro::record {

class TrackSet {
 public:
  // Takes the tracks in the application's order. Throws Refusal when they cannot be recorded.
  TrackSet(RecorderOptions const& options, Tracks const& tracks);

  Tracks const& Infos() const { return _infos; }
  std::size_t Count() const { return _infos.size(); }
  TrackInfo const& Info(std::size_t number) const { return _infos[number]; }
  // The number in the file, by the application's number.
  std::size_t NumberOf(std::size_t track) const { return _numberOf[track]; }
  // From the frame rate or the number of samples.
  std::int64_t Duration_ns(std::size_t number, stream::Packet const& packet) const;

 private:
  void Sort(Tracks const& tracks);
  void UseStoredRates(bool verbatim);

  Tracks _infos;
  std::vector<std::int64_t> _frame_ns;  // how long a frame lasts, by number
  std::vector<std::size_t> _numberOf;
};

}  // namespace kestro::record
