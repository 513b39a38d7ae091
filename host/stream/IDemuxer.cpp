#include "stream/IDemuxer.h"

namespace kestro::stream {

IDemuxer::IDemuxer(char const* name) : ISource(name) {}

bool IDemuxer::Start() {
  for (auto const& port : _ports)
    if (!port->IsInput() && !port->Media()) port->Silence();
  return ISource::Start();
}

bool IDemuxer::Close() {
  ISource::Stop();
  Withdraw();
  bool const closed = IIO::Close();
  return ISource::Close() && closed;
}

void IDemuxer::Withdraw() {
  for (auto const& port : _ports)
    if (!port->IsInput()) port->Withdraw();
}

base::PropertyList const& IDemuxer::Properties() { return PropertiesOf<IDemuxer>(); }

}  // namespace kestro::stream
