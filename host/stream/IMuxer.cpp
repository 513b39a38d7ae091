#include "stream/IMuxer.h"

#include <cstring>

namespace kestro::stream {

IMuxer::IMuxer(char const* name) : ISink(name) {}

bool IMuxer::Open() {
  if (!IIO::Open("wb")) return false;
  ClearError();
  return true;
}

bool IMuxer::Close() { return IIO::Close() || (IOError(nullptr), false); }

bool IMuxer::IOError(base::IO* io) {
  _ioFailed = true;
  std::string text = "writing failed";
  if (io != nullptr && io->Error() != 0)
    text += std::string(": ") + std::strerror(io->Error());
  else if (!Why().empty())
    text = Why();
  Fail(text.c_str());
  return true;
}

void IMuxer::Fail(char const* text) {
  _failed = true;
  SendMessageUp("error", text, nullptr);
}

void IMuxer::ClearError() { _failed = _ioFailed = false; }

base::PropertyList const& IMuxer::Properties() { return PropertiesOf<IMuxer>(); }

}  // namespace kestro::stream
