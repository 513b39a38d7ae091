#include "repair/GrowingFile.h"

#include <algorithm>
#include <utility>
#include <vector>

#include "cli/Errors.h"
#include "repair/Image.h"

namespace kestro::tool {

namespace {

// The head of the image, the data of the recording, and the index of the image.
class ImagedFile : public base::IO {
 public:
  ImagedFile(std::unique_ptr<base::IO> file, std::vector<unsigned char> image, int64 data,
             int64 index)
      : IO("ImagedFile"),
        _file(std::move(file)),
        _image(std::move(image)),
        _data(data),
        _index(index) {}

  int64 Size() override { return _index + static_cast<int64>(_image.size()) - _data; }
  int64 Tell() override { return _position; }
  bool Seek(int64 offset, int whence) override {
    return base::SeekTarget(*this, offset, whence, _position);
  }
  unsigned Write(void const*, unsigned) override { return 0; }
  unsigned Read(void* data, unsigned size) override {
    auto* const bytes = static_cast<unsigned char*>(data);
    unsigned done = 0;
    while (done < size && _position < Size()) {
      unsigned const part = ReadPart(bytes + done, size - done);
      if (part == kFailed) return done > 0 ? done : kFailed;
      if (part == 0) break;
      done += part;
      _position += part;
    }
    return done;
  }

 private:
  unsigned ReadPart(unsigned char* data, unsigned size) {
    bool const stored = _position >= _data && _position < _index;
    int64 const end = _position < _data ? _data : stored ? _index : Size();
    size = static_cast<unsigned>(std::min<int64>(size, end - _position));
    if (stored) return _file->Seek(_position, kBegin) ? _file->Read(data, size) : kFailed;
    int64 const at = _position < _data ? _position : _position - _index + _data;
    std::copy_n(_image.begin() + at, size, data);
    return size;
  }

  std::unique_ptr<base::IO> const _file;
  std::vector<unsigned char> const _image;
  int64 const _data, _index;  // where the data begins and ends
  int64 _position = 0;
};

}  // namespace

std::unique_ptr<base::IO> OpenGrowing(std::string const& path) {
  auto file = avi::OpenFile(path);
  std::string const side = Image::Find(path);
  if (side.empty()) return file;
  Image image(side);
  int64 end = image.Headers().data;
  image.ForEachEntry([&end](avi::IndexEntry const& entry) {
    end = std::max(end, entry.offset + 8 + entry.size + entry.size % 2);
  });
  auto bytes = image.Bytes();
  int64 const data = image.Headers().data;
  if (static_cast<int64>(bytes.size()) < data) throw Error(kUnusable, side + ": is cut off");
  return std::make_unique<ImagedFile>(std::move(file), std::move(bytes), data, end);
}

}  // namespace kestro::tool
