// The messages that kestroavisink posts about its recording.
#pragma once

#include <gst/gst.h>

#include <atomic>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>

#include "recorder/Recorder.h"

namespace kestro::gst {

// Any thread may call any function but Report.
class Messages {
 public:
  explicit Messages(GstElement* element) : _element(element) {}

  void Begin() { _failed = _opened = false; }
  // Posts the first error only: later ones follow from it.
  void Fail(record::Code code, std::string const& text);
  bool Failed() const { return _failed; }
  void Warn(std::string const& text) const;
  void Accepted(std::string const& label) const;  // an event
  // RecorderOptions::onEvent.
  void Report(record::Event const& event);
  // Whether upstream had to wait for the queue, or packets were dropped, since the last call.
  void ReportQueue(record::Status const& status);

 private:
  void Post(GstStructure* structure) const;

  GstElement* const _element;
  std::atomic<bool> _failed{false}, _opened{false};
  std::atomic<std::uint64_t> _waits{0}, _dropped{0};
  std::map<std::string, std::int64_t> _starts;  // of open files
};

GstStructure* NewStats(record::Status const& status);

}  // namespace kestro::gst
