#include "soak/Card.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>

namespace fs = std::filesystem;

namespace kestro::soak {

Card::Card(int mebibytes) : _card(mebibytes), _folder(_card / "") {
  for (char const* name : {"cam-1.avi", "cam-00001.AVI", "cam-00001.avi.txt", "xcam-00001.avi",
                           "cam-000001.avi", "holiday.avi", "cam-00001.jpg"}) {
    std::ofstream(_folder + name) << name << " is not the recorder's";
    _foreign.emplace_back(name);
  }
  fs::create_directory(_folder + "cam-00000.avi");
  fs::create_symlink("holiday.avi", _folder + "cam-00002.avi");
  fs::create_hard_link(_folder + "holiday.avi", _folder + "cam-00003.avi");
  for (char const* name : {"cam-00002.avi", "cam-00003.avi"}) _foreign.emplace_back(name);
  _before = Snapshot();
}

void Card::Fill() {
  constexpr int kMost_MiB = 24;  // or it would take what the recorder frees
  int const file = open((_folder + "ballast").c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0666);
  std::string const zeros(1 << 20, '\0');
  for (int i = 0; i < kMost_MiB && write(file, zeros.data(), zeros.size()) > 0;) ++i;
  close(file);
}

void Card::Empty() { fs::remove(_folder + "ballast"); }

std::string Card::Snapshot() const {
  std::string all;
  for (std::string const& name : _foreign) {
    std::ifstream file(_folder + name, std::ios::binary);
    all += name + (fs::is_symlink(_folder + name) ? " (link): " : ": ");
    all.append(std::istreambuf_iterator<char>(file), {});
  }
  return all + (fs::is_directory(_folder + "cam-00000.avi") ? "a folder" : "no folder");
}

std::string Card::Changed() const {
  std::string const now = Snapshot();
  return now == _before ? "" : "\"" + now + "\" instead of \"" + _before + "\"";
}

std::uint64_t Card::Free() const { return fs::space(_folder).available; }

std::vector<std::uint64_t> Card::Numbers() const {
  std::vector<std::uint64_t> numbers;
  for (auto const& entry : fs::directory_iterator(_folder)) {
    std::string const name = entry.path().filename();
    bool const foreign = std::find(_foreign.begin(), _foreign.end(), name) != _foreign.end();
    if (foreign || !entry.is_regular_file() || entry.path().extension() != ".avi") continue;
    numbers.push_back(std::strtoull(name.c_str() + 4, nullptr, 10));
  }
  std::sort(numbers.begin(), numbers.end());
  return numbers;
}

}  // namespace kestro::soak
