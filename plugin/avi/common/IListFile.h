// A temporary file for a track's index entries.
#pragma once

#include <vector>

#include "common/IndexChunks.h"

namespace kestro::plugin::avi {

// Moves the entries of a list to a file, and brings them back in order:
//
//   IListFile file(&list, "C:/h264.0x1234", 4096);        // no file yet
//   if (file.ListIsFull()) file.WriteTmpFile();           // before each entry is added
//   file.ReadTmpFile();                                   // the list has every entry again
//
// Several may share one list: once all have been read back, the list has every entry, though not in
// order. The first spill creates the file, the destructor deletes it. No fault loses an entry that
// is in memory.
class IListFile {
 public:
  // The list is not owned. The path is `base` and ".kestro"; `count` is for the log line.
  IListFile(std::vector<ChunkParam>* list, char const* base, unsigned count);
  virtual ~IListFile();
  IListFile(IListFile const&) = delete;
  IListFile& operator=(IListFile const&) = delete;

  [[nodiscard]] bool CreateTmpFile(char const* path);
  // True one entry before the list would have to grow.
  bool ListIsFull() const;
  // Moves the list's entries to the file. On failure returns false and leaves list and file as they
  // were.
  [[nodiscard]] bool WriteTmpFile();
  // Brings all spilled entries back, ahead of those in memory. Returns false when there is no file,
  // or when spilled entries could not be read: then Lost() is true.
  [[nodiscard]] bool ReadTmpFile();
  bool Lost() const { return _lost; }

 private:
  bool Append();
  std::size_t ReadEntries(std::size_t count);

  void* _file = nullptr;
  unsigned _capacity;
  bool _writing = true;  // until the entries have been read back
  unsigned const _entrySize = sizeof(ChunkParam);
  std::vector<ChunkParam>* _list;
  char _name[128];
  std::size_t _spilled = 0;  // entries in the file
  bool _lost = false;
};

}  // namespace kestro::plugin::avi
