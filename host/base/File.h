// Files of the operating system, and the byte stream over one.
#pragma once

#include <string>

#include "base/IO.h"

namespace kestro::base {

// Static functions on opaque handles. Interruptions and partial transfers are handled below: fewer
// bytes than asked for are moved at the end of the file, or where the rest failed. Offsets are
// 64-bit.
//
// Paths: "X:/name" lies in the folder mounted for the drive letter X, and fails to open when none
// is; ":/name" lies in the temporary folder; everything else is the system's path.
//
// Modes: "rb" reads; "r+b" reads and writes an existing file; "wb" also creates or empties it;
// "rwbc" reads and writes a file that is new: one that stood there is removed first, and keeps its
// content for whoever has it open.
class KESTRO_API File {
 public:
  enum Position { kBegin = 0, kCurrent = 1, kEnd = 2 };

  [[nodiscard]] static void* Open(char const* path,
                                  char const* mode);  // null on failure, errno tells why
  static bool Close(void* file);
  static unsigned Read(void* file, void* data, unsigned size);         // as IO::Read
  static unsigned Write(void* file, void const* data, unsigned size);  // as IO::Write
  static bool Seek(void* file, int64 offset, Position whence);
  static int64 Tell(void* file);
  static int64 Size(void* file);  // -1 on failure
  static bool Truncate(void* file, int64 size);
  // Nothing is buffered here: after Write the data survives the process. Sync makes data, size and,
  // of a new file, name durable: they then survive the machine. On FAT that takes syncfs, which
  // writes what others have written to the same file system, too (and whose errors Linux reports
  // from 5.8 on), followed by fdatasync; elsewhere fdatasync. SyncData is enough, and cheaper on
  // FAT, while the size is that of the last Sync.
  static bool Flush(void* file);
  [[nodiscard]] static bool Sync(void* file);
  [[nodiscard]] static bool SyncData(void* file);
  static int Handle(void* file);
  static bool Delete(char const* path);
  // Renames a file, in place of one that has the new name, and makes the new name durable. The file
  // itself is made durable first, by Sync. Whenever the machine crashes, one of the two files has
  // the name, whole; but on FAT a crash before this returns may leave it to an empty file. On
  // failure errno tells why; the file may have its new name then, but not durably.
  [[nodiscard]] static bool Rename(char const* from, char const* to);

  // Mounts a folder for a drive letter, null unmounts. Of all threads.
  static void Mount(char letter, char const* folder);
  // The temporary folder; TMPDIR or /tmp unless set.
  static void TemporaryFolder(char const* folder);
};

// A byte stream over a file. What was written survives a crash of the process; Flush makes it
// durable, as File::Sync does: it then survives a crash of the machine and a power cut. A failed
// Flush may have lost what it should have stored: a later one that succeeds proves nothing about
// it.
class KESTRO_API FileIO : public IO {
 public:
  // Opens; Opened() tells whether it worked, Error() why not.
  FileIO(char const* path, char const* mode);
  ~FileIO() override;

  bool Opened() const { return _file != nullptr; }
  [[nodiscard]] bool Close();  // false when the system reports a late error

  int64 Size() override;
  int64 Tell() override { return _position; }
  bool Seek(int64 offset, int whence) override;
  unsigned Read(void* data, unsigned size) override;
  unsigned Write(void const* data, unsigned size) override;
  bool Flush() override;
  bool FlushData() override;  // as File::SyncData
  int Handle() override;
  bool Truncate(int64 size) override;
  int Error() override { return _error; }

 private:
  bool Note(bool ok);

  void* _file;
  int64 _position = 0;
  int _error = 0;
};

}  // namespace kestro::base
