// The sequence parameter set of HEVC.
#include <algorithm>
#include <iterator>

#include "avi/VideoFormat.h"

namespace kestro::avi {

namespace {

std::string ProfileName(unsigned profile) {
  static constexpr char const* kNames[] = {"Main", "Main 10", "Main Still Picture",
                                           "Range Extensions"};
  return profile >= 1 && profile <= std::size(kNames) ? kNames[profile - 1]
                                                      : std::to_string(profile);
}

void ReadProfile(BitReader& bits, unsigned layers, VideoFormat& format) {
  bits.Skip(2);
  bool const high = bits.Bit() != 0;
  format.profile = ProfileName(bits.Bits(5));
  bits.Skip(32);
  bool const progressive = bits.Bit() != 0;
  format.interlaced = bits.Bit() != 0 && !progressive;
  bits.Skip(46);
  unsigned const level = bits.Bits(8);
  format.level = std::to_string(level / 30) + "." + std::to_string(level % 30 / 3) +
                 (high ? " high tier" : "");
  unsigned profiles = 0, levels = 0;  // of sub-layers
  for (unsigned i = 0; i < (layers != 0 ? 8 : 0); ++i) {
    profiles += bits.Bit();
    levels += bits.Bit();
  }
  bits.Skip(profiles * 88 + levels * 8);
}

void SkipScalingLists(BitReader& bits) {
  for (int size = 0; size < 4; ++size)
    for (int matrix = 0; matrix < 6; matrix += size == 3 ? 3 : 1) {
      bool const coded = bits.Bit() != 0;
      unsigned const values = std::min(64u, 16u << 2 * size);
      bits.SkipNumbers(coded ? values + (size > 1 ? 1 : 0) : 1);
    }
}

void SkipReferenceSets(BitReader& bits) {
  unsigned const count = bits.Number();
  unsigned pictures = 0;  // in the last set
  for (unsigned i = 0; i < count && bits.Good(); ++i) {
    if (i > 0 && bits.Bit() != 0) {  // differences from the last set
      bits.Skip(1);
      bits.Number();
      unsigned const before = pictures;
      pictures = 0;
      for (unsigned j = 0; j <= before && bits.Good(); ++j)
        pictures += bits.Bit() != 0 || bits.Bit() != 0;
    } else {
      unsigned const earlier = bits.Number(), later = bits.Number();
      pictures = std::min(earlier, 16u) + std::min(later, 16u);
      for (unsigned j = 0; j < pictures; ++j) {
        bits.Number();
        bits.Skip(1);
      }
    }
  }
}

// What lies between the bit depth and the VUI.
void SkipCodingTools(BitReader& bits, unsigned layers) {
  unsigned const orderBits = bits.Number() + 4;
  bits.SkipNumbers(3 * (bits.Bit() != 0 ? layers + 1 : 1));
  bits.SkipNumbers(6);  // block sizes
  if (bits.Bit() != 0 && bits.Bit() != 0) SkipScalingLists(bits);
  bits.Skip(2);
  if (bits.Bit() != 0) {  // PCM blocks
    bits.Skip(8);
    bits.SkipNumbers(2);
    bits.Skip(1);
  }
  SkipReferenceSets(bits);
  if (bits.Bit() != 0) bits.Skip(std::size_t{bits.Number()} * (orderBits + 1));  // long-term ones
  bits.Skip(2);
}

void ReadVui(BitReader& bits, VideoFormat& format) {
  ReadAspect(bits, format);
  SkipColours(bits);
  bits.Skip(1);
  bool const fields = bits.Bit() != 0;
  if (bits.Good()) format.interlaced |= fields;
}

}  // namespace

std::optional<VideoFormat> ReadHevcSps(BitReader bits) {
  static constexpr char const* kForms[] = {"4:0:0", "4:2:0", "4:2:2", "4:4:4"};
  VideoFormat format;
  bits.Skip(4);
  unsigned const layers = bits.Bits(3);
  bits.Skip(1);
  ReadProfile(bits, layers, format);
  bits.Number();  // its id
  unsigned const form = bits.Number();
  if (form >= std::size(kForms)) return std::nullopt;
  format.chroma = kForms[form];
  if (form == 3) bits.Skip(1);
  bits.SkipNumbers(2);                       // width and height
  if (bits.Bit() != 0) bits.SkipNumbers(4);  // cropping
  unsigned const more = bits.Number();
  if (more > 8 || bits.Number() > 8 || !bits.Good()) return std::nullopt;
  format.bits = 8 + more;
  SkipCodingTools(bits, layers);
  bool const vui = bits.Bit() != 0;
  if (vui && bits.Good()) ReadVui(bits, format);
  return format;
}

}  // namespace kestro::avi
