// Command lines of NAME=VALUE.
#pragma once

#include <cstdlib>
#include <map>
#include <string>

namespace kestro::rig {

class Options {
 public:
  Options(int argc, char** argv) {
    for (int i = 1; i < argc; ++i) {
      std::string const text = argv[i];
      _values[text.substr(0, text.find('='))] = text.substr(text.find('=') + 1);
    }
  }
  bool Has(char const* name) const { return _values.count(name) != 0; }
  std::string Text(char const* name, char const* otherwise = "") const {
    return Has(name) ? _values.at(name) : otherwise;
  }
  double Number(char const* name, double otherwise) const {
    return Has(name) ? std::atof(_values.at(name).c_str()) : otherwise;
  }
  int Count(char const* name, double otherwise) const {
    return static_cast<int>(Number(name, otherwise));
  }

 private:
  std::map<std::string, std::string> _values;
};

}  // namespace kestro::rig
