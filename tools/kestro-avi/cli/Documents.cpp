#include "cli/Documents.h"

#include <algorithm>

#include "cli/Address.h"
#include "cli/Answer.h"
#include "cli/Console.h"
#include "cli/Errors.h"

namespace kestro::tool {

std::string DocumentText(Json const& json) {
  return json.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}

std::string LineText(Json const& json) {
  return json.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n";
}

int ForEachFile(std::vector<std::string> const& files,
                std::function<int(std::string const& path, Json& array)> const& process) {
  int worst = kOk;
  Json array = Json::array();
  for (std::string const& path : files) {
    try {
      worst = std::max(worst, process(path, array));
    } catch (Error const& error) {
      std::string const text = Hidden(error.what());
      Report(text);
      array.push_back(
          {{"file", Hidden(path)}, {"error", {{"code", error.Code()}, {"text", text}}}});
      worst = std::max<int>(worst, error.Code());
    }
    if (worst == kInterrupted) break;
  }
  SetAnswer({{"files", std::move(array)}});
  return worst;
}

}  // namespace kestro::tool
