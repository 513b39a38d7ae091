// Suggestions for mistyped words.
#pragma once

#include <string>
#include <vector>

namespace kestro::tool {

// "; did you mean 'record'?" for the candidate that `word` begins or resembles most, or nothing.
std::string DidYouMean(std::string const& word, std::vector<std::string> const& candidates);

}  // namespace kestro::tool
