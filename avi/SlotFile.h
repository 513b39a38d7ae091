// Stores images so that the last one survives a power cut on any file system.
#pragma once

#include <array>
#include <memory>
#include <string>
#include <vector>

#include "base/IO.h"

namespace kestro::avi {

// Stores images alternately in two slots of one file, each with a generation number, its length and
// a checksum. A crash damages at most the slot that is being written; the other one holds the
// previous image. All blocks of the file are written when it is created, and it is never renamed or
// resized, because FAT does not store name and size together with the data (docs/format.md shows
// the layout). Blocks of 4 KiB that have not changed are not written again.
//
// When an image does not fit a slot, it goes into a new file with larger slots, which is durable
// before the old file is removed. The files use two names alternately; after a crash both may
// exist, and the newer image is valid.
//
//   SlotFile slots("OUT.avi.sync");
//   if (!slots.Store(data, size)) ...;   // see Error(); the previous image is still there
//   slots.Remove();                      // otherwise the file stays
//
// Not thread-safe. Uses only the host's base library.
class SlotFile {
 public:
  static constexpr char kEnding[] = ".sync";          // appended to the name of a recording
  static constexpr unsigned kFirstSlot = 256 * 1024;  // bytes: about 4 minutes of video with audio

  // Creates and removes files; tests derive from it.
  class Folder {
   public:
    virtual ~Folder() = default;
    // Creates or replaces a file. Returns null and sets errno on failure, or reports the failure
    // when the file is written.
    virtual std::unique_ptr<base::IO> Create(std::string const& path);
    // Returns false and sets errno when the file still exists afterwards.
    virtual bool Remove(std::string const& path);
  };

  // `folder` must outlive the object; null: the system's files.
  explicit SlotFile(std::string const& path, unsigned firstSlot = kFirstSlot,
                    Folder* folder = nullptr);

  // The image is durable when this returns true.
  [[nodiscard]] bool Store(unsigned char const* data, unsigned size);
  bool Remove();  // removes the file, if there is one

  std::string const& Path() const { return _names[_current]; }
  std::string const& Error() const { return _error; }  // of the last failure; names the file

  struct Image {
    unsigned generation = 0;  // from 1 on; 0 for no image
    std::vector<unsigned char> bytes;
  };
  struct Place {
    unsigned generation = 0;  // as in Image
    base::int64 at = 0;       // offset of the image
    unsigned size = 0;
  };
  // Finds the newest intact image. False when the file has no slots.
  static bool Find(base::IO& file, Place& place);
  // Reads it, too.
  static bool Read(base::IO& file, Image& image);
  // The names that the file for a path may have.
  static std::array<std::string, 2> Names(std::string const& path) { return {path, path + "2"}; }

 private:
  bool WriteSlot(base::IO& file, unsigned slot, unsigned char const* data, unsigned size);
  bool Create(base::IO& file, unsigned char const* data, unsigned size);
  bool Grow(unsigned char const* data, unsigned size);
  bool Fail(std::string const& path, int error);

  std::array<std::string, 2> const _names;
  Folder _system;
  Folder& _folder;
  std::unique_ptr<base::IO> _file;  // null before the first image
  unsigned _slotSize;               // bytes
  unsigned _current = 0;            // index of the current name
  unsigned _next = 0;               // the slot to write: not the one with the last image
  unsigned _generation = 0;
  std::array<std::vector<unsigned>, 2> _held;  // by slot: checksums of its blocks
  std::string _error;
};

// The CRC-32 of zlib and Ethernet (polynomial 0xEDB88320). `sum`: the checksum of the bytes before.
unsigned Crc32(void const* data, std::size_t size, unsigned sum = 0);

}  // namespace kestro::avi
