#include "Tags.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "Errors.h"

namespace kestro::tool {

// The head of a file is rewritten whole at its end.
static constexpr std::size_t kMaxStrd = 16 << 20;

static std::vector<char> Padded(std::vector<char> data) {
  data.resize((data.size() + 3) / 4 * 4);
  return data;
}

static std::vector<char> Padded(std::string const& text) {
  return Padded(std::vector<char>(text.begin(), text.end()));
}

static std::vector<char> ReadFile(std::string const& path) {
  std::error_code none;
  std::ifstream file(path, std::ios::binary);
  if (!file || std::filesystem::is_directory(path, none))
    throw Error(kIo, path + ": " + std::strerror(file ? EISDIR : errno));
  std::vector<char> data(kMaxStrd + 1);
  file.read(data.data(), static_cast<std::streamsize>(data.size()));
  if (file.bad()) throw Error(kIo, path + ": cannot be read");
  data.resize(static_cast<std::size_t>(file.gcount()));
  if (data.size() > kMaxStrd) throw Error(kUsage, path + ": too large for a strd chunk");
  return data;
}

template <class T>
void Tags::Set(char const* name, T value) {
  if (!_tags->Set(name, value))
    throw Error(kIo, std::string("the plug-in's tag set refuses ") + name);
}

Tags::Tags(TagOptions const& options, std::size_t tracks, std::size_t video)
    : _strdBuf(tracks), _strnBuf(tracks), _strdSize(tracks), _strnSize(tracks) {
  base::object* made = base::Object::New("AviVideoTags");
  _tags.reset(dynamic_cast<base::Object*>(made));
  if (!_tags) {
    delete made;
    throw Error(kIo, "the plug-in has no tag set");
  }
  auto track = [video](std::vector<char>& data, std::vector<void*>& buf,
                       std::vector<unsigned>& size) {
    if (data.empty()) return;
    buf.at(video) = data.data();
    size.at(video) = static_cast<unsigned>(data.size());
  };
  if (!options.strdFile.empty()) _strd = Padded(ReadFile(options.strdFile));
  _strn = Padded(options.strn);
  _isft = Padded(options.isft);
  track(_strd, _strdBuf, _strdSize);
  track(_strn, _strnBuf, _strnSize);
  Set("strdbuf", _strdBuf.data());
  Set("strdsize", _strdSize.data());
  Set("strnbuf", _strnBuf.data());
  Set("strnsize", _strnSize.data());
  if (!_isft.empty()) {
    Set("isftbuf", reinterpret_cast<unsigned char*>(_isft.data()));
    Set("isftsize", static_cast<unsigned>(_isft.size()));
  }
  Junk(options.junk);
}

void Tags::Junk(unsigned bytes) {
  _junk.resize((std::size_t{bytes} + 1) / 2 * 2);
  Set("junkbuf", _junk.empty() ? nullptr : reinterpret_cast<unsigned char*>(_junk.data()));
  Set("junksize", static_cast<unsigned>(_junk.size()));
}

void Tags::IndexFirst() { Set("idx1_first", static_cast<unsigned char>(1)); }

std::size_t Tags::Bytes() const {
  std::size_t bytes = _isft.empty() ? 0 : 12 + 8 + _isft.size();  // in a list
  for (auto const* data : {&_strd, &_strn})
    if (!data->empty()) bytes += 8 + data->size();
  return bytes;
}

}  // namespace kestro::tool
