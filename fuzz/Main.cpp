// Runs a fuzz target over the files given, and those in the folders given. Options are those of
// libFuzzer, and mean nothing here.
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

#include "fuzz/Fuzz.h"

namespace fs = std::filesystem;

static int Run(fs::path const& path) {
  if (fs::is_directory(path)) {
    int runs = 0;
    for (auto const& entry : fs::directory_iterator(path)) runs += Run(entry.path());
    return runs;
  }
  std::ifstream file(path, std::ios::binary);
  std::vector<char> const bytes{std::istreambuf_iterator<char>(file), {}};
  // A copy of exactly that size: reading beyond it is seen.
  std::vector<std::uint8_t> const input(bytes.begin(), bytes.end());
  std::fprintf(stderr, "%s\n", path.c_str());
  LLVMFuzzerTestOneInput(input.data(), input.size());
  return 1;
}

int main(int argc, char** argv) {
  int runs = 0;
  for (int i = 1; i < argc; ++i)
    if (argv[i][0] != '-') runs += Run(argv[i]);
  std::fprintf(stderr, "%d inputs, no finding\n", runs);
  return runs > 0 ? 0 : 1;
}
