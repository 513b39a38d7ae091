// SHA-256 by libavutil.
#pragma once

#include <memory>

#include "media/Hash.h"
#include "media/libav/Libav.h"

namespace kestro::tool {

class Sha256 : public Hash {
 public:
  Sha256();
  void Add(void const* data, std::size_t size) override;
  std::string Text() override;

 private:
  struct Free {
    void operator()(AVSHA* p) const { av_free(p); }
  };
  std::unique_ptr<AVSHA, Free> _state;
};

}  // namespace kestro::tool
