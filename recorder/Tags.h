// The optional chunks in the file header.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "base/Object.h"
#include "recorder/RecorderOptions.h"

namespace kestro::record {

// A tag set of the plug-in and the memory that it points to. Must outlive the muxer that uses it.
// Values are padded with zeros, because readers expect chunks of even length.
class Tags {
 public:
  // `isft`: used instead of that of the options. `tracks`: number of tracks; `video`: the track
  // that strd and strn belong to. Throws Refusal.
  Tags(TagOptions const& options, std::string const& isft, std::size_t tracks, std::size_t video);

  base::Object* Get() const { return _tags.get(); }
  // The chunks' contents, by track; empty for no chunk.
  std::vector<char> const& Strd(std::size_t track) const { return _strd.data[track]; }
  std::vector<char> const& Strn(std::size_t track) const { return _strn.data[track]; }
  std::vector<char> const& Isft() const { return _isft; }
  std::size_t JunkBytes() const { return _junk.size(); }
  void Junk(std::vector<char> data);
  void IndexFirst();

 private:
  template <class T>
  void Set(char const* name, T value);

  std::unique_ptr<base::Object> _tags;
  // By track: contents, and the arrays that the tag set takes.
  struct OfTracks {
    std::vector<std::vector<char>> data;
    std::vector<void*> buf;
    std::vector<unsigned> size;
  };
  static OfTracks ByTrack(std::vector<std::vector<char>> data, std::size_t tracks);

  OfTracks _strd, _strn;
  std::vector<char> _isft, _junk;
};

}  // namespace kestro::record
