// The storage functions of a C program.
#pragma once

#include <memory>
#include <string>

#include "recorder/Storage.h"
#include "recorder/kestro_recorder.h"

namespace kestro::record {

class CStorage : public Storage {
 public:
  explicit CStorage(kestro_recorder_storage const& storage) : _storage(storage) {}

  std::unique_ptr<base::IO> Open(std::string const& path, char const* mode) override;
  bool Remove(std::string const& path) override;
  bool Exists(std::string const& path) override;
  base::uint64 Free(std::string const& path) override;
  bool List(std::string const& folder, std::vector<Entry>& entries) override;

 private:
  kestro_recorder_storage const _storage;
};

}  // namespace kestro::record
