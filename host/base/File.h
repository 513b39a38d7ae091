// Operating system files, and a byte stream over a file.
#pragma once

#include <string>

#include "base/IO.h"

namespace kestro::base {

// Static functions on opaque handles. Interrupted calls and partial transfers are retried. Fewer
// bytes than requested are transferred only at the end of the file, or if the rest failed. Offsets
// are 64-bit.
//
// Paths: "X:/name" is in the folder mounted for drive letter X, and fails to open if none is
// mounted. ":/name" is in the temporary folder. Everything else is a system path.
//
// Modes: "rb" reads. "r+b" reads and writes an existing file. "wb" reads and writes, and creates or
// empties the file. "rwbc" reads and writes a new file: an existing file is removed first, and
// programs that have it open keep its content.
class KESTRO_API File {
 public:
  enum Position { kBegin = 0, kCurrent = 1, kEnd = 2 };

  [[nodiscard]] static void* Open(char const* path,
                                  char const* mode);  // null on failure; see errno
  static bool Close(void* file);
  static unsigned Read(void* file, void* data, unsigned size);         // like IO::Read
  static unsigned Write(void* file, void const* data, unsigned size);  // like IO::Write
  static bool Seek(void* file, int64 offset, Position whence);
  static int64 Tell(void* file);
  static int64 Size(void* file);  // -1 on failure
  static bool Truncate(void* file, int64 size);
  // Nothing is buffered here: written data survives a crash of the process even without Flush. Sync
  // makes the data, the size and, for a new file, the name durable, so that they also survive a
  // crash of the machine. On FAT, Sync calls syncfs and then fdatasync. syncfs also writes what
  // other programs have written to the same file system, and Linux reports its errors only since
  // 5.8. On other file systems, Sync calls fdatasync and, for a new file, syncs its folder.
  // SyncData is enough, and cheaper on FAT, if the size has not changed since the last Sync.
  static bool Flush(void* file);
  [[nodiscard]] static bool Sync(void* file);
  [[nodiscard]] static bool SyncData(void* file);
  static int Handle(void* file);
  static bool Delete(char const* path);
  // Renames a file and makes the new name durable. A file that already has the new name is
  // replaced. Call Sync on the file first. Whenever the machine crashes, the new name belongs to
  // the old or the new file, complete; but on FAT, a crash before Rename returns may leave an empty
  // file with that name. On failure, errno holds the reason; the file may have its new name
  // already, but not durably.
  [[nodiscard]] static bool Rename(char const* from, char const* to);

  // Mounts a folder for a drive letter; null unmounts it. Applies to all threads.
  static void Mount(char letter, char const* folder);
  // Sets the temporary folder. Null restores the default: TMPDIR, or /tmp.
  static void TemporaryFolder(char const* folder);
};

// A byte stream over a file. Written data survives a crash of the process. Flush makes it durable
// like File::Sync, so that it also survives a crash of the machine and a power cut. If Flush fails,
// the data may be lost, even if a later Flush succeeds.
class KESTRO_API FileIO : public IO {
 public:
  // Opens the file. On failure, Opened() is false and Error() holds the reason.
  FileIO(char const* path, char const* mode);
  ~FileIO() override;

  bool Opened() const { return _file != nullptr; }
  [[nodiscard]] bool Close();  // false if the system reports a late error

  int64 Size() override;
  int64 Tell() override { return _position; }
  bool Seek(int64 offset, int whence) override;
  unsigned Read(void* data, unsigned size) override;
  unsigned Write(void const* data, unsigned size) override;
  bool Flush() override;
  bool FlushData() override;  // like File::SyncData
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
