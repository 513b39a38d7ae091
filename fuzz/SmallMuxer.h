// A muxer element that reserves little memory: large blocks cost most of the time of an execution.
#pragma once

#include "AviMuxer.h"
#include "Register.h"

namespace kestro::fuzz {

// Its writer has blocks of 2^shift bytes, and its index has memory for a few entries.
template <class Muxer, int shift>
class SmallMuxer : public Muxer {
  int BlockSize() const override { return 1 << shift; }
  std::size_t Reserved(std::size_t) const override { return 32; }
};

template <class Muxer>
void RegisterMuxer(char const* alias) {
  plugin::avi::RegisterClass<Muxer>(alias, nullptr, Muxer::Properties(), "");
}

}  // namespace kestro::fuzz
