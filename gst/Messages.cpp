#include "Messages.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace kestro::gst {

using record::Code;

static guint64 Unsigned(std::int64_t value) { return guint64(std::max<std::int64_t>(0, value)); }

void Messages::Post(GstStructure* structure) const {
  gst_element_post_message(_element, gst_message_new_element(GST_OBJECT(_element), structure));
}

void Messages::Fail(Code code, std::string const& text) {
  if (_failed.exchange(true)) return;
  bool const full = code == Code::kFull || text.find(std::strerror(ENOSPC)) != text.npos;
  GQuark domain = GST_RESOURCE_ERROR;
  int number = full                     ? GST_RESOURCE_ERROR_NO_SPACE_LEFT
               : code == Code::kInvalid ? GST_RESOURCE_ERROR_SETTINGS
               : code == Code::kBusy    ? GST_RESOURCE_ERROR_BUSY
               : _opened                ? GST_RESOURCE_ERROR_WRITE
                                        : GST_RESOURCE_ERROR_OPEN_WRITE;
  if (code == Code::kUnsupported) {
    domain = GST_STREAM_ERROR;
    number = GST_STREAM_ERROR_FORMAT;
  } else if (code == Code::kPlugin) {
    domain = GST_LIBRARY_ERROR;
    number = GST_LIBRARY_ERROR_INIT;
  }
  gst_element_message_full(_element, GST_MESSAGE_ERROR, domain, number, g_strdup(text.c_str()),
                           nullptr, __FILE__, GST_FUNCTION, __LINE__);
}

void Messages::Warn(std::string const& text) const {
  GST_ELEMENT_WARNING(_element, STREAM, MUX, ("%s", text.c_str()), (nullptr));
}

void Messages::Accepted(std::string const& label) const {
  Post(gst_structure_new("kestroavisink-event", "label", G_TYPE_STRING, label.c_str(), nullptr));
}

void Messages::Report(record::Event const& event) {
  using Kind = record::Event::Kind;
  if (event.kind == Kind::kNote) GST_INFO_OBJECT(_element, "%s", event.text.c_str());
  // After an error, the next call of Push or Stop returns its code.
  if (event.kind == Kind::kWarning || event.kind == Kind::kError) Warn(event.text);
  if (event.kind == Kind::kOpened) _starts[event.path] = event.time_ns;
  _opened = _opened || event.kind == Kind::kOpened;
  char const* const name = event.kind == Kind::kOpened      ? "kestroavisink-fragment-opened"
                           : event.kind == Kind::kClosed    ? "kestroavisink-fragment-closed"
                           : event.kind == Kind::kDeleted   ? "kestroavisink-fragment-deleted"
                           : event.kind == Kind::kProtected ? "kestroavisink-fragment-protected"
                                                            : nullptr;
  if (name == nullptr) return;
  GstStructure* const fields =
      gst_structure_new(name, "location", G_TYPE_STRING, event.path.c_str(), nullptr);
  if (event.kind == Kind::kOpened || event.kind == Kind::kClosed)
    gst_structure_set(fields, "running-time", G_TYPE_UINT64,
                      Unsigned(_starts[event.path] + event.duration_ns), nullptr);
  if (event.kind == Kind::kClosed) {
    gst_structure_set(fields, "duration", G_TYPE_UINT64, Unsigned(event.duration_ns), "packets",
                      G_TYPE_UINT64, guint64{event.packets}, "complete", G_TYPE_BOOLEAN,
                      gboolean{event.complete}, nullptr);
    _starts.erase(event.path);
  }
  if (event.kind == Kind::kClosed || event.kind == Kind::kDeleted)
    gst_structure_set(fields, "bytes", G_TYPE_UINT64, guint64{event.bytes}, nullptr);
  Post(fields);
}

void Messages::ReportQueue(record::Status const& s) {
  if (_waits.exchange(s.waits) < s.waits)
    Post(gst_structure_new("kestroavisink-stall", "waits", G_TYPE_UINT64, guint64{s.waits},
                           "longest", G_TYPE_UINT64, guint64{s.longestWait_us * 1000}, nullptr));
  if (_dropped.exchange(s.dropped) < s.dropped)
    Post(gst_structure_new("kestroavisink-drop", "packets", G_TYPE_UINT64, guint64{s.dropped},
                           "groups", G_TYPE_UINT64, guint64{s.droppedGroups}, nullptr));
}

GstStructure* NewStats(record::Status const& s) {
  static char const* const kStates[] = {"waiting", "recording", "failed", "stopped", "idle"};
  GstStructure* const stats =
      gst_structure_new("kestroavisink-stats", "state", G_TYPE_STRING, kStates[s.state], "location",
                        G_TYPE_STRING, s.file.c_str(), nullptr);
  std::pair<char const*, guint64> const numbers[] = {{"duration", Unsigned(s.duration_ns)},
                                                     {"skew", Unsigned(s.skew_ns)},
                                                     {"files", s.files},
                                                     {"packets", s.packets},
                                                     {"bytes", s.bytes},
                                                     {"skipped", s.skipped},
                                                     {"waits", s.waits},
                                                     {"longest-wait", s.longestWait_us * 1000},
                                                     {"dropped", s.dropped},
                                                     {"dropped-groups", s.droppedGroups},
                                                     {"warnings", s.warnings},
                                                     {"events", s.events},
                                                     {"deleted-files", s.deletedFiles},
                                                     {"protected-files", s.protectedFiles},
                                                     {"free", s.free}};
  for (auto const& [name, number] : numbers)
    gst_structure_set(stats, name, G_TYPE_UINT64, number, nullptr);
  return stats;
}

}  // namespace kestro::gst
