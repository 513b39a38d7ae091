// The description of one track.
#pragma once

#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "base/Object.h"
#include "base/Reference.h"
#include "base/Value.h"

namespace kestro::stream {

// A codec name and typed keys. Keys are set and read through the parameter interface, with
// conversion; a key that was never set is unknown. Media are reference-counted, shared and compared
// by pointer.
//
// Keys and parameter sets may be set and read from any thread, since a source may learn parameter
// sets after it has published a track. Bytes returned from here stay valid for the lifetime of the
// media, even after they were replaced.
//
// Video: "width", "height" (pixels, int; of one field if "interlace" is true), "interlace" (bool),
// "framerate" (Fraction, per second), "gop" (int64, packets from one key packet to the next).
// Audio: "rate" (samples per second), "channel", "width" (bytes per sample), "depth" (bits per
// sample), "samples" (per packet and channel), all int. Parameter sets: "vps"/"ivps", "sps"/"isps",
// "pps"/"ipps" (unsigned char* and bytes). From a demuxer: "track", the number of the track in the
// file, and "id", the number that identifies its packets (both int). They differ if the demuxer
// skips an earlier track, whose codec it does not know.
class KESTRO_API IMedia : public base::Object, public base::Reference {
 public:
  // Returns null for a null or empty codec name. The caller owns the first reference.
  [[nodiscard]] static IMedia* New(char const* codec);

  char const* Codec() const { return _codec.c_str(); }
  bool IsVideo() const { return _kind == Kind::kVideo; }
  bool IsAudio() const { return _kind == Kind::kAudio; }

  using Bytes = std::shared_ptr<std::vector<unsigned char> const>;

  // Stores a copy of the codec's parameter sets. Pointer keys into `data` then point into the copy,
  // and those into the previous copy become unknown. False if there is no data.
  [[nodiscard]] bool Extra(void const* data, unsigned size);
  Bytes ExtraData() const;  // never null

  using base::Object::Get;
  using base::Object::Set;
  bool Set(char const* name, void* value, std::type_info const* type) override;
  bool Get(char const* name, void* value, std::type_info const* type) override;

 private:
  enum class Kind { kOther, kVideo, kAudio };
  explicit IMedia(char const* codec);
  ~IMedia() override = default;

  std::string const _codec;
  Kind const _kind;
  mutable std::mutex _mutex;  // guards the members below
  std::vector<std::pair<std::string, base::Value>> _keys;
  std::vector<Bytes> _extras{std::make_shared<std::vector<unsigned char> const>()};
};

}  // namespace kestro::stream
