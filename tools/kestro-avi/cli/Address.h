// Addresses of inputs, as messages may show them.
#pragma once

#include <string>

namespace kestro::tool {

// Replaces the secrets of an address with "***": "user:password@", and the values of parameters
// such as password=, token= or passphrase=. Returns all other text unchanged. Also for text that
// contains an address.
std::string Hidden(std::string text);

}  // namespace kestro::tool
