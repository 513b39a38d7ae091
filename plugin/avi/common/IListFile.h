// The temporary file that takes a track's index entries out of memory.
#pragma once

#include <vector>

#include "common/IndexChunks.h"

namespace kestro::plugin::avi {

// Spills a list of records and brings them back, in order:
//
//   IListFile file(&list, "C:/h264.0x1234", 4096);        // no file yet
//   if (file.ListIsFull()) file.WriteTmpFile();           // before each record is added
//   file.ReadTmpFile();                                   // the list holds every record again
//
// Several of them may share one list: once all have been read back, the list holds every record,
// though not in order. The file is made at the first spill and deleted with the object. No fault
// loses a record that is in memory.
class IListFile {
 public:
  // The list is not owned. The path is `base` and ".kestro"; `count` is for the log line.
  IListFile(std::vector<ChunkParam>* list, char const* base, unsigned count);
  virtual ~IListFile();
  IListFile(IListFile const&) = delete;
  IListFile& operator=(IListFile const&) = delete;

  [[nodiscard]] bool CreateTmpFile(char const* path);
  // One record before the list would have to grow.
  bool ListIsFull() const;
  // Moves the list's records to the file. False when they could not be stored: they are still in
  // the list then, and the file is as before.
  [[nodiscard]] bool WriteTmpFile();
  // Brings all spilled records back, in front of those in memory. False when there is no file, or
  // when spilled records could not be read; Lost() tells which.
  [[nodiscard]] bool ReadTmpFile();
  bool Lost() const { return _lost; }

 private:
  bool Append();
  std::size_t ReadRecords(std::size_t count);

  void* _file = nullptr;
  unsigned _capacity;
  bool _writing = true;  // until the records have been read back
  unsigned const _recordSize = sizeof(ChunkParam);
  std::vector<ChunkParam>* _list;
  char _name[128];
  std::size_t _spilled = 0;  // records in the file
  bool _lost = false;
};

}  // namespace kestro::plugin::avi
