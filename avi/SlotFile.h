// Images in a file that power cuts leave readable on every file system.
#pragma once

#include <array>
#include <memory>
#include <string>
#include <vector>

#include "base/IO.h"

namespace kestro::avi {

// Keeps the last image that it was given. Two slots of a file whose blocks are all written
// beforehand take the images in turn, each with a generation number, its length and a checksum: a
// crash spoils at most the slot that is being written, and the other one holds the image before it.
// Nothing is renamed and no size changes: FAT does not store either with the data
// (docs/format.md draws the file). Blocks of 4 KiB that a slot holds already are not written again.
//
// An image that has outgrown its slot goes into a new file with slots twice as large, which is
// durable before the old one is removed. The two names take turns; after a crash both may exist,
// and the newer image counts.
//
//   SlotFile slots("OUT.avi.sync");
//   if (!slots.Store(data, size)) ...;   // Error() says why; the last image is still there
//   slots.Remove();                      // otherwise the file stays
//
// One thread at a time. Needs the host's base and nothing else.
class SlotFile {
 public:
  static constexpr char kEnding[] = ".sync";  // of the file next to a recording
  static constexpr unsigned kFirstSlot =
      256 * 1024;  // bytes: nearly four minutes of video with audio

  // Makes and removes files; tests have their own.
  class Folder {
   public:
    virtual ~Folder() = default;
    // A new file, in place of one of that name. Null, with errno, or what fails shows when it is
    // written.
    virtual std::unique_ptr<base::IO> Create(std::string const& path);
    // False, with errno, when a file of that name is left.
    virtual bool Remove(std::string const& path);
  };

  // The folder is null for the system's, or outlives the object.
  explicit SlotFile(std::string const& path, unsigned firstSlot = kFirstSlot,
                    Folder* folder = nullptr);

  // The image is durable when this returns true.
  bool Store(unsigned char const* data, unsigned size);
  bool Remove();  // the file, if there is one

  std::string const& Path() const { return _names[_current]; }
  std::string const& Error() const { return _error; }  // of the last failure, with the file's name

  struct Image {
    unsigned generation = 0;  // counted from 1; 0 for no image
    std::vector<unsigned char> bytes;
  };
  // The newest whole image of a file. False when it is no file of slots.
  static bool Read(base::IO& file, Image& image);
  // The names under which the file of a path may be found.
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
  unsigned _current = 0;            // name
  unsigned _next = 0;               // slot, never the one with the last image
  unsigned _generation = 0;
  std::array<std::vector<unsigned>, 2> _held;  // by slot: checksums of the image's blocks
  std::string _error;
};

// As zlib and Ethernet have it (polynomial 0xEDB88320); goes on from the sum of what precedes.
unsigned Crc32(void const* data, std::size_t size, unsigned sum = 0);

}  // namespace kestro::avi
