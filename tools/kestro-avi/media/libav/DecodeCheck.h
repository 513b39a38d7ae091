// Looks for damaged frames by decoding them with libavcodec.
#pragma once

#include <set>

#include "media/FrameChecker.h"
#include "media/libav/Libav.h"

namespace kestro::tool {

class DecodeCheck : public FrameChecker {
 public:
  // Throws Error if there is no decoder.
  explicit DecodeCheck(AVCodecID codec);

  std::vector<std::uint64_t> Check(std::uint8_t const* data, std::size_t size) override;
  std::vector<std::uint64_t> Finish() override;

 private:
  void Add(std::uint64_t number, std::vector<std::uint64_t>& damaged);
  void Receive(std::vector<std::uint64_t>& damaged);

  CodecPtr _codec;
  FramePtr _frame;
  std::uint64_t _number = 0;          // of the next frame
  std::set<std::uint64_t> _reported;  // damaged frames
};

}  // namespace kestro::tool
