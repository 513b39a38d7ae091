// What has been measured, as files.
#pragma once

#include <string>
#include <vector>

#include "Bench.h"

namespace kestro::bench {

// {"schema":1,"results":[{"name","value","unit","spread","ratios":{baseline: number},
// "baselines":{baseline: {"value","spread"}}}]}; a spread is a fraction, 0 when it is not known.
void WriteJson(std::string const& path, std::vector<Result> const& results);

// results.json, results.md (a table) and results.svg (a chart of the ratios), in a folder that is
// made when it is not there.
void WriteReport(std::string const& folder, std::vector<Result> const& results);

}  // namespace kestro::bench
