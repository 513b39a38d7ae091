#include "avi/Hashes.h"

#include <algorithm>
#include <vector>

#include "avi/Error.h"
#include "avi/Sha256.h"

namespace kestro::avi {

namespace {

class HashReader {
 public:
  HashReader(AviFile& avi, HashProgress const& advance) : _avi(avi), _advance(advance) {}

  // Hashes a packet, and the bytes before it as a part of the file only.
  std::string Packet(int64 begin, int64 end) {
    end = std::min(end, _avi.Size());
    begin = std::min(begin, end);
    if (begin >= _at) {
      Read(_at, begin, {&_file});
      Read(begin, end, {&_file, &_packet});
      _at = end;
    } else {  // packets out of order, or a damaged index
      Read(begin, end, {&_packet});
    }
    return _packet.Text();
  }
  std::string File() {
    Read(_at, _avi.Size(), {&_file});
    return _file.Text();
  }
  bool Stopped() const { return _stopped; }

 private:
  void Read(int64 begin, int64 end, std::initializer_list<Sha256*> hashes) {
    while (begin < end && !_stopped) {
      auto const size = std::min(end - begin, static_cast<int64>(_buffer.size()));
      unsigned const got = _avi.Reader().Read(begin, _buffer.data(), static_cast<unsigned>(size));
      if (got == 0) throw Error(kIo, "it cannot be read at offset " + std::to_string(begin));
      for (Sha256* hash : hashes) hash->Add(_buffer.data(), got);
      begin += got;
      _stopped = !_advance(static_cast<std::uint64_t>(begin));
    }
  }

  AviFile& _avi;
  HashProgress const& _advance;
  std::vector<std::uint8_t> _buffer = std::vector<std::uint8_t>(1 << 18);
  Sha256 _file, _packet;
  int64 _at = 0;  // the file has been hashed up to here
  bool _stopped = false;
};

}  // namespace

std::string HashPackets(AviFile& avi, std::function<void(PacketHash const&)> const& sink,
                        HashProgress const& advance) {
  HashReader reader(avi, advance);
  std::vector<std::uint64_t> numbers(avi.Tracks().size());
  avi.ForEachPacket([&](IndexEntry const& entry) {
    auto const track = static_cast<std::size_t>(TrackOfCode(entry.id));
    if (track >= numbers.size() || reader.Stopped()) return;
    int64 const begin = entry.offset + 8;
    std::uint64_t const size = avi.DataSize(entry);
    sink({track, numbers[track]++, size, reader.Packet(begin, begin + static_cast<int64>(size))});
  });
  return reader.File();
}

std::string WriteHashes(AviFile& avi, std::string const& name,
                        std::function<void(std::string const&)> const& write,
                        HashProgress const& advance) {
  write("# Packets: track, number, size, SHA-256\n");
  std::string file = HashPackets(
      avi,
      [&write](PacketHash const& packet) {
        write("# " + std::to_string(packet.track) + " " + std::to_string(packet.number) + " " +
              std::to_string(packet.size) + " " + packet.hash + "\n");
      },
      advance);
  // sha256sum escapes such names, and marks their lines.
  std::string escaped;
  for (char const c : name) escaped += c == '\n' ? "\\n" : c == '\\' ? "\\\\" : std::string(1, c);
  write((escaped == name ? "" : "\\") + file + "  " + escaped + "\n");
  return file;
}

}  // namespace kestro::avi
