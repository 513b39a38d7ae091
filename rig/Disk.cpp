#include "rig/Disk.h"

#include <algorithm>
#include <fstream>
#include <iterator>

#include "base/LittleEndian.h"

namespace kestro::rig {

namespace {
constexpr int64 kSector = Promise::kSector;
}

bool Disk::Load(std::string const& path) {
  std::ifstream file(path, std::ios::binary);
  std::string block(kBlock, '\0');
  for (int64 at = 0; file.read(block.data(), kBlock) || file.gcount() > 0; at += kBlock) {
    if (block.find_first_not_of('\0') != block.npos) Write(at, block.data(), file.gcount());
    _size = at + file.gcount();
  }
  return _size > 0;
}

bool Disk::Save(std::string const& path) const {
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  for (auto const& [number, block] : _blocks) {
    file.seekp(number * kBlock);
    file.write(block.data(), kBlock);
  }
  if (_blocks.count(_size / kBlock - 1) == 0) {
    file.seekp(_size - 1);
    file.put('\0');
  }
  return file.flush().good();
}

void Disk::Write(int64 at, char const* data, int64 size) {
  while (size > 0) {
    int64 const from = at % kBlock, part = std::min(size, kBlock - from);
    auto& block = _blocks.try_emplace(at / kBlock).first->second;
    std::copy_n(data, part, block.begin() + from);
    at += part;
    data += part;
    size -= part;
  }
}

bool WriteLog::Load(std::string const& path) {
  std::ifstream file(path, std::ios::binary);
  bytes.assign(std::istreambuf_iterator<char>(file), {});
  auto const number = [this](std::size_t at) {
    auto const* const from = reinterpret_cast<unsigned char const*>(bytes.data() + at);
    return static_cast<int64>(base::Load32(from) | static_cast<base::uint64>(base::Load32(from + 4))
                                                       << 32);
  };
  constexpr std::size_t kHead = kSector;  // the superblock's and an entry's
  constexpr int64 kMagic = 0x6a736677736872, kFlush = 1, kDiscard = 4;
  if (bytes.size() < kHead || number(0) != kMagic) return false;
  for (std::size_t at = kHead; at + kHead <= bytes.size();) {
    int64 const size = number(at + 8) * kSector, flags = number(at + 16);
    bool const discard = (flags & kDiscard) != 0;
    std::size_t const next = at + kHead + (discard ? 0 : static_cast<std::size_t>(size));
    if ((size == 0 && flags == 0) || next > bytes.size()) break;
    entries.push_back(
        {number(at) * kSector, size, discard ? bytes.npos : at + kHead, (flags & kFlush) != 0});
    at = next;
  }
  return true;
}

std::string State::Text() const {
  char const* const kinds[] = {"what was flushed", "everything", "half of the writes",
                               "half of the sectors"};
  return "after " + std::to_string(at) + " writes, " + kinds[kind] + "; promised " +
         std::to_string(promise.packets) + " packets";
}

std::vector<std::pair<std::size_t, Promise>> States::Promises() const {
  std::vector<std::pair<std::size_t, Promise>> promises;
  Promise promise;
  for (std::size_t i = 0; i < _log.entries.size(); ++i) {
    auto const& entry = _log.entries[i];
    if (entry.size == kSector && entry.data != std::string::npos &&
        Promise::Read(_log.bytes.data() + entry.data, promise))
      promises.push_back({i, promise});
  }
  return promises;
}

std::vector<State> States::List(int random, unsigned seed, bool switches) const {
  std::vector<State> list;
  auto const promises = Promises();
  if (promises.empty()) return list;
  auto const add = [&](std::size_t at, State::Kind kind) {  // with the promise that holds there
    auto const after = std::find_if(promises.begin(), promises.end(),
                                    [&](auto const& promise) { return promise.first >= at; });
    list.push_back({at, kind, std::prev(after)->second});
  };
  for (auto const& [at, promise] : promises)
    if (promise.packets > 0) list.push_back({at + 1, State::kFlushed, promise, true});
  for (std::size_t p = 1; switches && p + 1 < promises.size(); ++p)
    for (std::size_t at = promises[p - 1].first + 1;
         promises[p].second.closed != 0 && at <= promises[p + 1].first; ++at)
      add(at, at % 2 == 0 ? State::kFlushed : State::kSectors);
  std::mt19937 dice(seed);
  std::size_t const begin = promises[0].first + 1, end = _log.entries.size() + 1;
  constexpr State::Kind kKinds[] = {State::kFlushed, State::kEverything, State::kWrites,
                                    State::kWrites,  State::kSectors,    State::kSectors};
  for (int i = 0; i < random; ++i) add(begin + dice() % (end - begin), kKinds[dice() % 6]);
  std::stable_sort(list.begin(), list.end(),
                   [](State const& a, State const& b) { return a.at < b.at; });
  return list;
}

// All of an entry, or about half of its units.
void States::Apply(WriteLog::Entry const& entry, Disk& disk, int unit) {
  std::string const zeros(
      entry.data == std::string::npos ? static_cast<std::size_t>(entry.size) : 0, '\0');
  char const* const data = zeros.empty() ? _log.bytes.data() + entry.data : zeros.data();
  for (int64 from = 0, to; from < entry.size; from = to) {
    to = unit == 0 ? entry.size
                   : std::min(entry.size, (entry.at + from) / unit * unit + unit - entry.at);
    if (unit == 0 || _random() % 2 == 0) disk.Write(entry.at + from, data + from, to - from);
  }
}

Disk States::Build(State const& state) {
  auto const& entries = _log.entries;
  std::size_t flush = state.at;
  while (flush > _flushed && !entries[flush - 1].flush) --flush;
  for (; _flushed < flush; ++_flushed) Apply(entries[_flushed], _disk, 0);
  Disk disk = _disk;
  for (std::size_t i = _flushed; i < state.at && state.kind != State::kFlushed; ++i)
    if (state.kind == State::kEverything || _random() % 2 == 0)
      Apply(entries[i], disk, state.kind == State::kSectors ? _unit : 0);
  return disk;
}

}  // namespace kestro::rig
