#include "media/NumberedFiles.h"

#include "avi/NumberedName.h"

namespace kestro::tool {

void NumberedFiles::Write(std::size_t track, avi::Piece const& piece) {
  if (piece.size == 0) return;
  StreamFile file(avi::NumberedName(_pattern, ++_written.files));
  file.Write(track, piece);
  _written.bytes += file.Finish().bytes;
}

}  // namespace kestro::tool
