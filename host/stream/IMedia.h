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

// A codec name and typed keys, set and read through the parameter interface with conversion; a key
// that nobody has set is unknown. Reference-counted and shared: media are compared by pointer.
//
// Keys and parameter sets may be set and read from any thread, since a source may learn parameter
// sets after it has published a track. Bytes that were handed out stay valid as long as the media,
// also after they were replaced.
//
// Video: "width", "height" (pixels, int; of one field when "interlace" is true), "interlace"
// (bool), "framerate" (Fraction, per second), "gop" (int64, packets from key to key). Audio: "rate"
// (samples per second), "channel", "width" (bytes per sample), "depth" (bits per sample), "samples"
// (per packet and channel), all int. Parameter sets: "vps"/"ivps", "sps"/"isps", "pps"/"ipps"
// (unsigned char* and bytes). Of a demuxer: "track", which of the file's tracks it is, and "id",
// the number by which its packets are found (int), which differ when the demuxer does not know a
// track before it.
class KESTRO_API IMedia : public base::Object, public base::Reference {
 public:
  // The creator's reference is the caller's. Null for a null or empty codec name.
  [[nodiscard]] static IMedia* New(char const* codec);

  char const* Codec() const { return _codec.c_str(); }
  bool IsVideo() const { return _kind == Kind::kVideo; }
  bool IsAudio() const { return _kind == Kind::kAudio; }

  using Bytes = std::shared_ptr<std::vector<unsigned char> const>;

  // Stores a copy of the codec's parameter sets; pointer keys into `data` then point into the copy,
  // and those into an earlier copy are unknown. False for no data.
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
  mutable std::mutex _mutex;  // of what follows
  std::vector<std::pair<std::string, base::Value>> _keys;
  std::vector<Bytes> _extras{std::make_shared<std::vector<unsigned char> const>()};
};

}  // namespace kestro::stream
