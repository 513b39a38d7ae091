// Writes the results to files.
#pragma once

#include <string>
#include <vector>

#include "Bench.h"

namespace kestro::bench {

// {"schema":1,"results":[{"name","value","unit","spread","ratios":{baseline: number},
// "baselines":{baseline: {"value","spread"}}}]}; a spread is a fraction, 0 when unknown.
void WriteJson(std::string const& path, std::vector<Result> const& results);

// Writes results.json, results.md (a table) and results.svg (a chart of the ratios) to a folder,
// which is created if necessary.
void WriteReport(std::string const& folder, std::vector<Result> const& results);

}  // namespace kestro::bench
