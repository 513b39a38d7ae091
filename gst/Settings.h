// The properties of kestroavisink.
#pragma once

#include <gst/gst.h>

#include <mutex>
#include <vector>

#include "base/Fraction.h"
#include "recorder/RecorderOptions.h"

namespace kestro::gst {

// Any thread may call any function.
class Settings {
 public:
  // Identifiers begin at 1. Returns the one after the last.
  static guint Install(GObjectClass* object);

  Settings();
  ~Settings();
  void Set(guint id, GValue const* value);
  void Get(guint id, GValue* value) const;
  base::Fraction FrameRate() const;
  record::RecorderOptions ToOptions() const;

 private:
  GValue const& Value(char const* name) const;

  mutable std::mutex _mutex;
  std::vector<GValue> _values;
};

}  // namespace kestro::gst
