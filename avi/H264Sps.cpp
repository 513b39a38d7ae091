// The sequence parameter set of H.264.
#include <iterator>

#include "avi/VideoFormat.h"

namespace kestro::avi {

namespace {

enum Constraint { kSet1 = 0x40, kSet3 = 0x10 };
// Limits of any level.
constexpr unsigned kMostPixels = 1 << 16, kMostReordering = 16;

std::string ProfileName(unsigned profile, unsigned constraints) {
  std::string const intra = (constraints & kSet3) != 0 ? " Intra" : "";
  switch (profile) {
    case 66:
      return (constraints & kSet1) != 0 ? "Constrained Baseline" : "Baseline";
    case 77:
      return "Main";
    case 88:
      return "Extended";
    case 100:
      return "High";
    case 110:
      return "High 10" + intra;
    case 122:
      return "High 4:2:2" + intra;
    case 244:
      return intra.empty() ? "High 4:4:4 Predictive" : "High 4:4:4" + intra;
    case 44:
      return "CAVLC 4:4:4 Intra";
    default:
      return std::to_string(profile);
  }
}

std::string LevelName(unsigned profile, unsigned constraints, unsigned level) {
  bool const old = profile == 66 || profile == 77 || profile == 88;
  if (level == 9 || (level == 11 && old && (constraints & kSet3) != 0)) return "1b";
  return std::to_string(level / 10) + "." + std::to_string(level % 10);
}

bool HasChroma(unsigned profile) {
  for (unsigned const known : {100, 110, 122, 244, 44, 83, 86, 118, 128, 134, 135, 138, 139})
    if (profile == known) return true;
  return false;
}

void SkipScalingList(BitReader& bits, int size) {
  int last = 8, next = 8;
  for (int i = 0; i < size && next != 0 && bits.Good(); ++i) {
    next = (last + bits.Signed() % 256 + 256) % 256;
    if (next != 0) last = next;
  }
}

// Returns false for values that do not exist.
bool ReadChroma(BitReader& bits, VideoFormat& format) {
  static constexpr char const* kForms[] = {"4:0:0", "4:2:0", "4:2:2", "4:4:4"};
  unsigned const form = bits.Number();
  if (form >= std::size(kForms)) return false;
  format.chroma = kForms[form];
  if (form == 3) bits.Skip(1);  // colour planes are coded separately
  unsigned const more = bits.Number();
  if (more > 6 || bits.Number() > 6) return false;
  format.bits = 8 + more;
  bits.Skip(1);
  bool const scaling = bits.Bit() != 0;
  for (int i = 0; scaling && i < (form == 3 ? 12 : 8); ++i)
    if (bits.Bit() != 0) SkipScalingList(bits, i < 6 ? 16 : 64);
  return true;
}

void ReadPictureOrder(BitReader& bits, VideoFormat& format) {
  unsigned const type = bits.Number();
  if (type == 0) bits.Number();
  if (type == 2) format.reordering = 0;  // pictures are shown in the order of decoding
  if (type != 1) return;
  bits.Skip(1);
  bits.SkipNumbers(2);
  bits.SkipNumbers(bits.Number());
}

// The size of a picture, after cropping.
void ReadSize(BitReader& bits, VideoFormat& format) {
  unsigned const across = bits.Number() + 1, down = bits.Number() + 1;
  format.interlaced = bits.Bit() == 0;
  unsigned const fields = format.interlaced ? 2 : 1;
  if (format.interlaced) bits.Skip(1);
  bits.Skip(1);
  unsigned left = 0, right = 0, top = 0, bottom = 0;
  if (bits.Bit() != 0) {
    left = bits.Number();
    right = bits.Number();
    top = bits.Number();
    bottom = bits.Number();
  }
  std::uint64_t const stepX = format.chroma == "4:2:0" || format.chroma == "4:2:2" ? 2 : 1;
  std::uint64_t const stepY = (format.chroma == "4:2:0" ? 2 : 1) * std::uint64_t{fields};
  std::uint64_t const width = std::uint64_t{across} * 16,
                      cutX = stepX * (std::uint64_t{left} + right);
  std::uint64_t const height = std::uint64_t{down} * 16 * fields,
                      cutY = stepY * (std::uint64_t{top} + bottom);
  if (width > kMostPixels || height > kMostPixels || cutX >= width || cutY >= height) return;
  format.width = static_cast<unsigned>(width - cutX);
  format.height = static_cast<unsigned>(height - cutY);
}

void SkipHrd(BitReader& bits) {
  unsigned const count = bits.Number() + 1;
  bits.Skip(8);
  for (unsigned i = 0; i < count && bits.Good(); ++i) {
    bits.SkipNumbers(2);
    bits.Skip(1);
  }
  bits.Skip(20);
}

void ReadVui(BitReader& bits, VideoFormat& format) {
  ReadAspect(bits, format);
  SkipColours(bits);
  if (bits.Bit() != 0) bits.Skip(65);  // timing
  bool const nal = bits.Bit() != 0;
  if (nal) SkipHrd(bits);
  bool const vcl = bits.Bit() != 0;
  if (vcl) SkipHrd(bits);
  bits.Skip(nal || vcl ? 2 : 1);
  if (bits.Bit() == 0) return;
  bits.Skip(1);
  bits.SkipNumbers(4);
  unsigned const reordering = bits.Number();
  if (bits.Good() && reordering <= kMostReordering) format.reordering = reordering;
}

}  // namespace

std::optional<VideoFormat> ReadH264Sps(BitReader bits) {
  VideoFormat format;
  unsigned const profile = bits.Bits(8), constraints = bits.Bits(8), level = bits.Bits(8);
  format.profile = ProfileName(profile, constraints);
  format.level = LevelName(profile, constraints, level);
  bits.Number();  // its id
  if (HasChroma(profile) && !ReadChroma(bits, format)) return std::nullopt;
  bits.Number();  // bits of a frame number
  ReadPictureOrder(bits, format);
  bits.Number();  // reference frames
  bits.Skip(1);
  ReadSize(bits, format);
  bool const vui = bits.Bit() != 0;
  if (!bits.Good()) return std::nullopt;
  if (vui) ReadVui(bits, format);
  return format;
}

}  // namespace kestro::avi
