// The description of one track.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "base/Object.h"
#include "base/Reference.h"
#include "base/Value.h"

namespace kestro::stream {

// A codec name and typed keys, set and read through the parameter interface with conversion; a key
// that nobody has set is unknown. Reference-counted and shared: media are compared by pointer.
// Filled by one thread before it is published, only read afterwards.
//
// Video: "width", "height" (pixels, int; of one field when "interlace" is true), "interlace"
// (bool), "framerate" (Fraction, per second), "gop" (int64, packets from key to key). Sound: "rate"
// (samples per second), "channel", "width" (bytes per sample), "depth" (bits per sample), "samples"
// (per packet and channel), all int. Parameter sets: "vps"/"ivps", "sps"/"isps", "pps"/"ipps"
// (unsigned char* and bytes).
class KESTRO_API IMedia : public base::Object, public base::Reference {
 public:
  // The creator's reference is the caller's. Null for a null or empty codec name.
  static IMedia* New(char const* codec);

  char const* Codec() const { return _codec.c_str(); }
  bool IsVideo() const { return _kind == Kind::kVideo; }
  bool IsAudio() const { return _kind == Kind::kAudio; }

  // Stores a copy of the codec's parameter sets; pointer keys into `data` then point into the copy.
  // False for no data.
  bool Extra(void const* data, unsigned size);
  std::vector<unsigned char> const& ExtraData() const { return _extra; }

  using base::Object::Get;
  using base::Object::Set;
  bool Set(char const* name, void* value, std::type_info const* type) override;
  bool Get(char const* name, void* value, std::type_info const* type) override;

 private:
  enum class Kind { kOther, kVideo, kAudio };
  explicit IMedia(char const* codec);
  ~IMedia() override = default;

  std::string _codec;
  Kind _kind;
  std::vector<std::pair<std::string, base::Value>> _keys;
  std::vector<unsigned char> _extra;
};

}  // namespace kestro::stream
