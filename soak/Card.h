// A small file system in memory, with files that a recorder must leave alone.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "support/SmallCard.h"

namespace kestro::soak {

class Card {
 public:
  // Also creates files, links and folders whose names are close to those of a recorder's files.
  explicit Card(int mebibytes);

  // Another program takes the free space, or gives it back.
  void Fill();
  void Empty();
  std::string Changed() const;  // what of the foreign files is not as it was; empty if nothing
  std::uint64_t Free() const;
  // Numbers in the names cam-NUMBER.avi, in order.
  std::vector<std::uint64_t> Numbers() const;
  std::string const& Folder() const { return _folder; }

 private:
  std::string Snapshot() const;

  test::SmallCard const _card;
  std::string const _folder;  // with its slash
  std::vector<std::string> _foreign;
  std::string _before;
};

}  // namespace kestro::soak
