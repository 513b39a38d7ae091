#include "media/TextEncoding.h"

#include <iconv.h>

#include <algorithm>
#include <cerrno>

#include "cli/Errors.h"

namespace kestro::tool {

namespace {

class Converter {
 public:
  explicit Converter(std::string const& from) : _state(iconv_open("UTF-8", from.c_str())) {}
  ~Converter() {
    if (Known()) iconv_close(_state);
  }
  Converter(Converter const&) = delete;
  Converter& operator=(Converter const&) = delete;

  bool Known() const { return _state != reinterpret_cast<iconv_t>(-1); }
  // Returns false for text that is not in the encoding. `to` then has what comes before.
  bool Convert(std::string const& from, std::string& to) {
    char* in = const_cast<char*>(from.data());  // iconv does not write to it
    std::size_t left = from.size();
    while (left > 0) {
      char part[4096];
      char* out = part;
      std::size_t room = sizeof part;
      std::size_t const done = iconv(_state, &in, &left, &out, &room);
      int const problem = errno;
      to.append(part, out);
      if (done == static_cast<std::size_t>(-1) && problem != E2BIG) return false;
    }
    return true;
  }

 private:
  iconv_t _state;
};

}  // namespace

bool IsEncoding(std::string const& name) { return Converter(name).Known(); }

bool IsUtf8(std::string const& text) {
  std::string same;
  return Converter("UTF-8").Convert(text, same);
}

std::string ToUtf8(std::string text, std::string encoding, std::string const& path) {
  bool const named = !encoding.empty();
  if (!named) encoding = "UTF-8";
  constexpr struct {
    char const *mark, *encoding;
  } kMarks[] = {{"\xEF\xBB\xBF", "UTF-8"}, {"\xFF\xFE", "UTF-16LE"}, {"\xFE\xFF", "UTF-16BE"}};
  for (auto const& [mark, marked] : kMarks) {
    std::string const bytes = mark;
    if (text.compare(0, bytes.size(), bytes) != 0) continue;
    text.erase(0, bytes.size());
    encoding = marked;
    break;
  }
  std::string converted;
  bool valid = Converter(encoding).Convert(text, converted);
  // UTF-16 looks like UTF-8 with zeros.
  if (auto const zero = converted.find('\0'); zero != converted.npos) {
    converted.resize(zero);
    valid = false;
  }
  if (valid) return converted;
  auto const line = 1 + std::count(converted.begin(), converted.end(), '\n');
  throw Error(kUnusable, path + ", line " + std::to_string(line) + ": not " + encoding +
                             (named ? "" : " (--text-encoding sets the encoding)"));
}

}  // namespace kestro::tool
