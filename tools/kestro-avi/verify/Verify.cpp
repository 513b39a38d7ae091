#include "verify/Verify.h"

#include <algorithm>
#include <memory>

#include "cli/Errors.h"
#include "verify/DataCheck.h"
#include "verify/HeaderCheck.h"
#include "verify/TreeCheck.h"

namespace kestro::tool {

using base::Convert4;

// Returns null when the file is unusable.
static std::unique_ptr<avi::AviFile> Open(std::string const& path, Findings& findings) {
  try {
    auto avi = std::make_unique<avi::AviFile>(path);
    auto const movi = [](avi::Chunk const& chunk) { return chunk.type == Convert4("movi"); };
    if (std::any_of(avi->Tree().begin(), avi->Tree().end(), movi)) return avi;
    CheckTree(*avi, findings);
    findings.Add(found::kNoMovi, avi->Size(), "movi", "the end of the file");
  } catch (Error const& error) {
    if (error.Code() != kUnusable) throw;
    avi::RiffReader reader(path);
    avi::Chunk riff;
    if (!reader.Header(0, reader.Size(), riff) || riff.id != Convert4("RIFF"))
      findings.Add(found::kNotRiff, 0, "RIFF",
                   reader.Size() < 8 ? std::to_string(reader.Size()) + " bytes"
                                     : "\"" + avi::CodeText(riff.id) + "\"");
    else if (riff.type != Convert4("AVI "))
      findings.Add(found::kNotAvi, 8, "AVI", "\"" + avi::CodeText(riff.type) + "\"");
    else
      findings.Add(found::kNoStreams, 12, "hdrl with strl", "none");
  }
  return nullptr;
}

bool Verify(std::string const& path, bool deep, Findings& findings,
            std::function<void(int64)> const& advance) {
  auto const avi = Open(path, findings);
  if (avi == nullptr) return false;
  CheckTree(*avi, findings);
  auto streams = ReadStreams(*avi);
  DataCheck(*avi, streams, deep, findings, advance).Run();
  CheckHeaders(*avi, streams, findings);
  return true;
}

}  // namespace kestro::tool
