// Plays an AVI file into its own sink, which counts what each track delivers:
//   sink PLUGIN IN.avi
#include <future>
#include <iostream>
#include <map>
#include <memory>
#include <string>
#include <string_view>

#include "base/Module.h"
#include "stream/IDemuxer.h"
#include "stream/ISink.h"

namespace base = kestro::base;
namespace stream = kestro::stream;

class Counter : public stream::ISink {
 public:
  Counter() : ISink("Counter") {}
  ~Counter() override { Detach(); }  // no packet arrives once members are destroyed

  // The host delivers one packet at a time, whatever threads they come from.
  bool ReceivePacket(stream::Packet& packet, void* context) override {
    Counts& counts = _counts[static_cast<stream::IPort*>(context)];
    counts.codec = packet.Media()->Codec();
    ++counts.packets;
    counts.keys += packet.IsKey() ? 1 : 0;
    counts.bytes += packet.Size();
    return true;  // false would mean: refused or lost
  }

  // Returns false if nothing has arrived.
  bool Print() const {
    for (auto const& [port, counts] : _counts)
      std::cout << counts.codec << ": " << counts.packets << " packets, " << counts.keys << " key, "
                << counts.bytes << " bytes\n";
    return !_counts.empty();
  }

 private:
  struct Counts {
    std::string codec;
    base::int64 packets = 0, keys = 0, bytes = 0;
  };
  std::map<stream::IPort*, Counts> _counts;
};

static int Fail(std::string const& text) {
  std::cerr << "sink: " << text << "\n";
  return 1;
}

int main(int argc, char** argv) {
  if (argc != 3) return Fail("takes PLUGIN IN.avi");
  std::string error;
  if (!base::LoadPlugin(argv[1], &error)) return Fail(error);
  Counter counter;
  auto const demuxer = base::Make<stream::IDemuxer>("avi-demuxer");
  if (!demuxer || !demuxer->Set("path", argv[2])) return Fail("no demuxer");

  std::promise<bool> end;
  demuxer->OnMessage(
      [&end](stream::IElement&, char const* type, char const*, base::AttrSet const*) {
        std::string_view const what = type;
        if (what != "warning")
          end.set_value(what == "eos");  // or "error"; exactly one of them comes
        return true;
      });
  for (char const* codecs : {"h264,hevc", "pcm"})
    if (!stream::IPort::Link(*demuxer->AddOutput(codecs), *counter.AddInput()))
      return Fail("the elements cannot be linked");
  if (!demuxer->StatusChange(stream::IStatus::kOpen)) return Fail("the file cannot be opened");
  if (!counter.StatusChange(stream::IStatus::kRunning) ||
      !demuxer->StatusChange(stream::IStatus::kRunning))
    return Fail("the elements cannot be started");
  bool const whole = end.get_future().get();
  // The source first: it then pushes no more.
  if (!demuxer->StatusChange(stream::IStatus::kClosed) ||
      !counter.StatusChange(stream::IStatus::kClosed))
    return Fail("the elements cannot be closed");
  if (!counter.Print()) return Fail("nothing to play");
  return whole ? 0 : Fail("the file could not be read to its end");
}
