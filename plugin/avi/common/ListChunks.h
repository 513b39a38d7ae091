// The lists of an AVI file, and its root.
#pragma once

#include "common/IList.h"

namespace kestro::plugin::avi {

// A chunk that holds a four-character type and other chunks.
class ListChunk : public IList {
 public:
  void fill(IO& io) override;
  void parse(IO& io) override;

 protected:
  ListChunk(char const* id, char const* type) : IList(id), _type(base::Convert4(type)) {}

 private:
  unsigned const _type;
};

struct criff : ListChunk {
  criff() : ListChunk("RIFF", "AVI ") {}
};
struct chdrl : ListChunk {
  chdrl() : ListChunk("LIST", "hdrl") {}
};
struct cstrl : ListChunk {
  cstrl() : ListChunk("LIST", "strl") {}
};
struct cinfo : ListChunk {
  cinfo() : ListChunk("LIST", "INFO") {}
};

// The data chunks inside are written by the streams and never parsed into nodes.
struct cmovi : ListChunk {
  cmovi() : ListChunk("LIST", "movi") {}
  void parse(IO& io) override;

  int64 dataPos = 0;  // of a parsed list: the position of its "movi"
};

// The whole stream: writes nothing of its own.
struct croot : IList {
  croot() : IList("root") {}
  void fill(IO&) override {}
  void parse(IO& io) override { _size = io.Size(); }
};

}  // namespace kestro::plugin::avi
