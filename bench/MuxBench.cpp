#include "MuxBench.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>

#include "LavfMuxer.h"
#include "Recorder.h"
#include "Recording.h"

namespace kestro::bench {

namespace {

Contender Ours(Mix const& mix, std::int64_t packets, Target const& target) {
  return {"ours", [&mix, packets, target](Stopwatch& watch) {
            target.Clear();
            NullIO null;
            Recorder recorder =
                target.path.empty() ? Recorder(mix, null) : Recorder(mix, target.path.c_str());
            watch.Start();
            recorder.Start();
            mix.Play(packets, [&](Mix::Unit const& unit, std::size_t, std::int64_t number) {
              recorder.Push(unit, number);
            });
            recorder.Close();
            watch.Stop();
            target.Clear();
            Require(!target.path.empty() || null.Size() > 0, "nothing was written");
          }};
}

// The least work of any writer: copies a chunk header and the payload through one buffer.
class CopyWriter {
 public:
  using Sink = bool (*)(int fd, unsigned char const* data, std::size_t size);

  CopyWriter(Sink sink, int fd) : _sink(sink), _fd(fd) {}

  bool Append(unsigned char const* data, std::size_t size) {
    while (size > 0) {
      std::size_t const part = std::min(size, kBytes - _fill);
      std::memcpy(_buffer.get() + _fill, data, part);
      _fill += part;
      data += part;
      size -= part;
      if (_fill == kBytes && !Flush()) return false;
    }
    return true;
  }
  bool Flush() {
    bool const ok = _sink(_fd, _buffer.get(), _fill);
    _fill = 0;
    return ok;
  }

 private:
  static constexpr std::size_t kBytes = 512 << 10;
  std::unique_ptr<unsigned char[]> _buffer{new unsigned char[kBytes]};
  std::size_t _fill = 0;
  Sink _sink;
  int _fd;
};

bool Drop(int, unsigned char const* data, std::size_t) {
  // Keeps the compiler from removing the copy.
  asm volatile("" : : "r"(data) : "memory");
  return true;
}

bool Store(int fd, unsigned char const* data, std::size_t size) {
  return write(fd, data, size) == static_cast<ssize_t>(size);
}

void CopyAll(Mix const& mix, std::int64_t packets, CopyWriter::Sink sink, int fd) {
  CopyWriter writer(sink, fd);
  mix.Play(packets, [&](Mix::Unit const& unit, std::size_t, std::int64_t) {
    auto const size = static_cast<unsigned>(unit.Size());
    unsigned char header[8] = {'0', '0', 'd', 'c'};
    for (int i = 0; i < 4; ++i) header[4 + i] = static_cast<unsigned char>(size >> (8 * i));
    Require(writer.Append(header, 8) && writer.Append(unit.Data(), size), "write failed");
  });
  Require(writer.Flush(), "write failed");
}

Contender Copy(Mix const& mix, std::int64_t packets, Target const& target) {
  return {"copy", [&mix, packets, target](Stopwatch& watch) {
            target.Clear();
            mix.Units();
            watch.Start();
            if (target.path.empty()) {
              CopyAll(mix, packets, Drop, -1);
            } else {
              int const fd =
                  open(target.path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
              Require(fd >= 0, "cannot create a file on tmpfs");
              CopyAll(mix, packets, Store, fd);
              Require(close(fd) == 0, "close failed");
            }
            watch.Stop();
            target.Clear();
          }};
}

}  // namespace

std::vector<Case> MuxCases(Mix const& mix, std::int64_t packets) {
  auto const bytes = static_cast<double>(mix.Bytes(packets));
  std::vector<Case> cases;
  for (auto const& [name, path] :
       {std::pair<char const*, std::string>{"mux/null", ""},
        std::pair<char const*, std::string>{"mux/tmpfs", TmpfsPath("mux")}}) {
    Target const target{path};
    Case c{name, "s/GB", 1e9 / bytes, packets, {}};
    c.contenders.push_back(Ours(mix, packets, target));
    c.contenders.push_back(Copy(mix, packets, target));
#ifdef KESTRO_BENCH_LIBAV
    c.contenders.push_back(LavfMuxer(mix, packets, target));
#endif
    cases.push_back(std::move(c));
  }
  return cases;
}

}  // namespace kestro::bench
