#include "cli/Answer.h"

#include <cerrno>
#include <cstring>
#include <mutex>

#include "cli/Console.h"
#include "cli/Errors.h"

namespace kestro::tool {

namespace {

char const* const kNames[] = {"note", "warning", "error"};  // as Level

struct Answer {
  std::mutex mutex;
  JsonOption::Form form = JsonOption::kNone;
  Json keys = Json::object();
  Json messages = Json::array();  // of a document
  int lost = 0;                   // why lines are lost: errno
};

Answer& TheAnswer() {
  static Answer answer;
  return answer;
}

Json ToJson(Level level, Notice const& notice) {
  char const* const name = kNames[static_cast<int>(level)];
  Json json{{"event", notice.event != nullptr ? notice.event : name}};
  if (notice.event != nullptr) json["severity"] = name;
  for (Notice::Field const& field : notice.fields)
    json[field.key] = field.isText ? Json(field.text) : Json(field.number);
  json["text"] = notice.text;
  return json;
}

}  // namespace

Option JsonOption::AddTo(Options& options, Form form) {
  return options
      .Flag("--json", _chosen,
            form == kLines ? "Write JSON, one object per line" : "Write a JSON document")
      .OnParse([form] { TheAnswer().form = form; });
}

void ReportNotice(Level level, Notice const& notice) {
  Report(std::string(kNames[static_cast<int>(level)]) + ": " + notice.text);
  if (!notice.reported) WriteEvent(level, notice);
  Answer& answer = TheAnswer();
  std::lock_guard lock(answer.mutex);
  if (answer.form == JsonOption::kDocument) answer.messages.push_back(ToJson(level, notice));
}

void WriteEvent(Level level, Notice const& notice) { WriteEvent(ToJson(level, notice)); }

void WriteEvent(Json const& event) {
  Answer& answer = TheAnswer();
  std::lock_guard lock(answer.mutex);
  if (answer.form != JsonOption::kLines || answer.lost != 0) return;
  if (!TryWriteData(LineText(event))) answer.lost = errno;
}

void SetAnswer(Json keys) { TheAnswer().keys = std::move(keys); }

void CancelAnswer() { TheAnswer().form = JsonOption::kNone; }

static int FinishLines(Answer& answer, int code, std::string const& why) {
  if (!why.empty()) WriteEvent({{"event", "error"}, {"code", code}, {"text", why}});
  Json end{{"event", "end"}, {"code", code}};
  end.update(answer.keys);
  WriteEvent(end);
  if (answer.lost == 0) return code;
  Report(std::string("warning: standard output: ") + std::strerror(answer.lost) +
         "; events are missing there");
  return code == kOk ? int{kFindings} : code;
}

int FinishAnswer(int code, std::string const& why) {
  Answer& answer = TheAnswer();
  if (answer.form == JsonOption::kNone) return code;
  if (answer.form == JsonOption::kLines) return FinishLines(answer, code, why);
  Json document{{"schema", 1}};
  document.update(answer.keys);
  document["code"] = code;
  document["messages"] = answer.messages;
  if (!why.empty()) document["error"] = {{"code", code}, {"text", why}};
  WriteData(DocumentText(document));
  return code;
}

}  // namespace kestro::tool
