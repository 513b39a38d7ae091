// Opens recorders, with errors as the tool throws them.
#pragma once

#include <string_view>

#include "cli/Documents.h"
#include "cli/Errors.h"
#include "recorder/Recorder.h"

namespace kestro::tool {

inline ExitCode CodeFor(record::Code code) {
  switch (code) {
    case record::Code::kInvalid:
      return kUsage;
    case record::Code::kUnsupported:
      return kUnusable;
    default:
      return kIo;
  }
}

// A closed file, for programs.
inline Json ClosedJson(record::Event const& closed) {
  return {{"file", closed.path},
          {"packets", closed.packets},
          {"bytes", closed.bytes},
          {"duration_ms", closed.duration_ns / 1000000},
          {"complete", closed.complete}};
}

// Throws Error.
inline std::unique_ptr<record::Recorder> OpenRecorder(record::RecorderOptions const& options,
                                                      record::Tracks const& tracks) {
  record::Result why;
  auto recorder = record::Recorder::Open(options, tracks, why);
  if (recorder != nullptr) return recorder;
  constexpr std::string_view kExists = ": exists already";
  bool const exists = why.text.size() > kExists.size() &&
                      why.text.substr(why.text.size() - kExists.size()) == kExists;
  throw Error(CodeFor(why.code), why.text + (exists ? " (--force overwrites it)" : ""));
}

}  // namespace kestro::tool
