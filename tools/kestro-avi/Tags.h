// The optional chunks of a recording's head.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "base/Object.h"

namespace kestro::tool {

struct TagOptions {
  std::string strdFile, strn, isft;  // empty for none
  unsigned junk = 0;                 // bytes

  bool NeedVideo() const { return !strdFile.empty() || !strn.empty(); }
};

// A tag set of the plug-in with the memory that it points to. It outlives the muxer that it is set
// on. Values are padded with zeros: readers expect chunks of even length.
class Tags {
 public:
  // `tracks`: their number; `video`: the one that strd and strn belong to. Throws Error.
  Tags(TagOptions const& options, std::size_t tracks, std::size_t video);

  base::Object* Get() const { return _tags.get(); }
  // Of the chunks in a file's head, JUNK left out.
  std::size_t Bytes() const;
  std::size_t JunkBytes() const { return _junk.size(); }
  void Junk(unsigned bytes);
  void IndexFirst();

 private:
  template <class T>
  void Set(char const* name, T value);

  std::unique_ptr<base::Object> _tags;
  std::vector<char> _strd, _strn, _isft, _junk;
  std::vector<void*> _strdBuf, _strnBuf;  // by track
  std::vector<unsigned> _strdSize, _strnSize;
};

}  // namespace kestro::tool
