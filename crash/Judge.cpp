#include "crash/Judge.h"

#include <cstdlib>
#include <filesystem>

#include "base/LittleEndian.h"
#include "crash/Image.h"
#include "crash/Tool.h"

namespace kestro::crash {

Judge::Judge(Recorded const& recorded, bool trusting)
    : _recorded(recorded), _trusting(trusting), _folder(test::NewFolder()), _playing(&_repaired) {}

Judge::~Judge() {
  std::error_code none;
  std::filesystem::remove_all(_folder, none);
}

Verdict Judge::Play(test::MemoryIO& file, Others& others, int64 promised) {
  _from = _to = 0;
  Verdict const asItIs = Deliver(file, promised);
  if (asItIs.Good() || others.empty()) return asItIs;
  _repaired.bytes = file.bytes;
  ApplyImage(_repaired.bytes, NewestImage(others), static_cast<std::size_t>(_recorded.front));
  return Deliver(_repaired, promised);
}

Verdict Judge::Mended(base::IO& file, int64 promised) {
  _from = _to = 0;
  _loose = true;
  Verdict const verdict = Deliver(file, promised);
  _loose = false;
  return verdict;
}

void Judge::AddSeen(std::vector<bool>& played) const {
  std::size_t at = 0;
  for (auto const& track : _seen)
    for (char seen : track) {
      if (at == played.size()) played.push_back(false);
      played[at] = played[at] || seen != 0;
      ++at;
    }
}

std::vector<bool> Judge::Played(test::MemoryIO& file, Others& others) {
  std::vector<bool> played;
  _from = _to = 0;
  Deliver(file, 0);
  AddSeen(played);
  if (others.empty()) return played;
  _repaired.bytes = file.bytes;
  ApplyImage(_repaired.bytes, NewestImage(others), static_cast<std::size_t>(_recorded.front));
  Deliver(_repaired, 0);
  AddSeen(played);
  return played;
}

Verdict Judge::Repaired(test::MemoryIO& file, Others& others, int64 promised, int64 from,
                        int64 to) {
  _from = from;
  _to = to;
  long const named = Repair(_folder, file.bytes, others, _repaired.bytes);
  if (named < 0) return {};
  Verdict verdict = Deliver(_repaired, promised);
  verdict.alien = 0;  // what follows the promised packets may have been torn
  verdict.lost += std::max(0, verdict.shared - verdict.unnamed - static_cast<int>(named));
  return verdict;
}

// Makes every checksum right, as far as there is something that it could be of.
static void Trust(std::vector<unsigned char>& bytes) {
  if (bytes.size() < 4096) return;
  std::size_t const slot = base::Load32(&bytes[12]);
  for (std::size_t at : {std::size_t{4096}, 4096 + slot})
    if (at + 16 <= bytes.size())
      if (auto const size = base::Load32(&bytes[at + 4]); size <= bytes.size() - at - 16)
        base::Store32(&bytes[at + 8], avi::Crc32(&bytes[at] + 16, size, avi::Crc32(&bytes[at], 8)));
}

// A file that has no slots is an image.
std::vector<unsigned char> Judge::NewestImage(Others& others) const {
  avi::SlotFile::Image newest, image;
  for (auto& [number, io] : others) {
    if (_trusting) Trust(io.bytes);
    if (!avi::SlotFile::Read(io, image)) image.bytes = io.bytes;
    if (newest.bytes.empty() || image.generation > newest.generation) newest = image;
  }
  return newest.bytes;
}

Verdict Judge::Deliver(base::IO& file, int64 promised) {
  _seen.clear();
  for (auto const& track : _recorded.tracks) _seen.emplace_back(track.size(), 0);
  _next.assign(_recorded.tracks.size(), 0);

  Verdict verdict;
  _playing.demuxer->Set("io", &file);
  verdict.opened = _playing.Open();
  if (verdict.opened)
    while (auto const packet = _playing.Next()) Compare(*packet, promised, verdict);
  static_cast<void>(_playing.demuxer->StatusChange(stream::IStatus::kClosed));

  for (std::size_t t = 0; t < _seen.size(); ++t)
    for (std::size_t i = 0; i < _seen[t].size(); ++i) {
      Sample const& sample = _recorded.tracks[t][i];
      if (_seen[t][i] || sample.number >= promised) continue;
      ++(Hit(sample) ? verdict.shared : verdict.lost);
      verdict.unnamed += Hit(sample) && _recorded.scenario.full &&
                         sample.number >= static_cast<int>(_recorded.scenario.room);
    }
  return verdict;
}

// Whether some of it lies in the garbage, of its header at least.
bool Judge::Hit(Sample const& sample) const {
  return sample.at < _to && sample.at + 8 + static_cast<int64>(sample.bytes.size()) > _from;
}

void Judge::Compare(stream::Packet const& packet, int64 promised, Verdict& verdict) {
  std::size_t t = 0;
  while (t < _seen.size() && _playing.outputs[t]->Media().get() != packet.Media()) ++t;
  if (t == _seen.size()) {
    ++verdict.alien;
    return;
  }
  auto const& samples = _recorded.tracks[t];
  auto const size = static_cast<std::size_t>(packet.Size());
  auto const same = [&](Sample const& sample) {
    return sample.bytes.size() == size &&
           std::memcmp(sample.bytes.data(), packet.Data(), size) == 0;
  };
  // The one whose turn it is, or any.
  std::size_t at = _next[t];
  if (at >= samples.size() || !same(samples[at]))
    for (at = 0; at < samples.size() && !same(samples[at]);) ++at;
  if (at == samples.size() || _seen[t][at]) {
    at = _next[t];
    bool const altered = at < samples.size() && Hit(samples[at]) && samples[at].number < promised &&
                         samples[at].bytes.size() == size;
    ++(altered ? verdict.altered : verdict.alien);
    if (!altered) return;
  }
  _seen[t][at] = 1;
  _next[t] = at + 1;
  // The times of what comes after packets that are gone are earlier: no promise covers it.
  if ((_loose || _to != 0) && samples[at].number >= promised) return;
  verdict.late += std::abs(packet.Pts() - samples[at].ms * 1000000) > 1000000 ||
                  packet.IsKey() != samples[at].key;
}

}  // namespace kestro::crash
