#include "stream/IDemuxer.h"

namespace kestro::stream {

IDemuxer::IDemuxer(char const* name) : ISource(name) {}

bool IDemuxer::Start() {
  for (auto const& port : _ports)
    if (!port->IsInput() && port->Media() == nullptr) port->Silence();
  return ISource::Start();
}

bool IDemuxer::Close() {
  IElementWithThread::Stop();
  for (auto const& port : _ports)
    if (!port->IsInput()) port->Offer(nullptr);
  bool const closed = IIO::Close();
  return ISource::Close() && closed;
}

base::PropertyList const& IDemuxer::Properties() { return PropertiesOf<IDemuxer>(); }

}  // namespace kestro::stream
