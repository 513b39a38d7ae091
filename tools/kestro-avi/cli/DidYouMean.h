// Suggests corrections for mistyped words.
#pragma once

#include <string>
#include <vector>

namespace kestro::tool {

// Returns "; did you mean 'record'?" for the candidate that starts with `word` or resembles it
// most, or an empty text if there is none.
std::string DidYouMean(std::string const& word, std::vector<std::string> const& candidates);

}  // namespace kestro::tool
