// Text output of the host: streams with <<, the console `cout`, error lines and hard assertions.
#pragma once

#include <string>
#include <string_view>
#include <type_traits>
#include <typeinfo>

#include "base/Types.h"

// Leading characters of a compiled-in source path that error lines leave out, so that they show
// paths relative to the source root. The build already maps paths, so it starts at 0; an
// application whose plug-ins are compiled with absolute paths sets it.
extern "C" KESTRO_API int __root_path_offset;

namespace kestro::base {

// A text sink. Not synchronised, unless a subclass says so.
class KESTRO_API ostream {
 public:
  virtual ~ostream() = default;
  virtual void Write(char const* text, std::size_t size) = 0;

  ostream& operator<<(std::string_view text) {
    Write(text.data(), text.size());
    return *this;
  }
  ostream& operator<<(char const* text) {
    return *this << std::string_view(text ? text : "(null)");
  }
  ostream& operator<<(char c) { return *this << std::string_view(&c, 1); }
  ostream& operator<<(void const* pointer);  // as %p prints it
  template <class T, std::enable_if_t<std::is_integral_v<T>, int> = 0>
  ostream& operator<<(T value) {
    return *this << std::to_string(value);
  }
};

// Appends to a string that the caller owns and that outlives the stream.
class KESTRO_API ostream_string : public ostream {
 public:
  explicit ostream_string(std::string& text) : _text(text) {}
  void Write(char const* text, std::size_t size) override { _text.append(text, size); }

 private:
  std::string& _text;
};

// The console: standard output (through stdio, so that it keeps its order with printf), unless
// redirected. One Write is one piece of output: those of several threads do not mix.
class KESTRO_API Console : public ostream {
 public:
  void Write(char const* text, std::size_t size) override;
  // Sends everything to `target` from now on, null for standard output; returns the one before.
  ostream* Redirect(ostream* target);
};

extern KESTRO_API Console cout;

// Collects what the console gets during the object's life.
class KESTRO_API ConsoleCapture {
 public:
  ConsoleCapture() : _stream(_text), _before(cout.Redirect(&_stream)) {}
  ~ConsoleCapture() { cout.Redirect(_before); }
  ConsoleCapture(ConsoleCapture const&) = delete;
  ConsoleCapture& operator=(ConsoleCapture const&) = delete;
  std::string const& Text() const { return _text; }

 private:
  std::string _text;
  ostream_string _stream;
  ostream* _before;
};

// The readable name of a type, such as "unsigned int" or "kestro::base::Fraction".
KESTRO_API std::string TypeName(std::type_info const& type);

// The generic pointer printer: the pointee's dynamic type and "(unknow)", or the pointer's type and
// "(nullptr)". It does not look into the pointee.
template <class T>
ostream& operator>>(T* pointer, ostream& os) {
  if (pointer == nullptr) return os << TypeName(typeid(T*)) << "(nullptr)";
  return os << TypeName(typeid(*pointer)) << "(unknow)";
}

// Writes one red line to the console: path/line/function:<tab>text. `file` is a compiled-in source
// path; the line shows it less __root_path_offset characters and without its extension.
KESTRO_API void ErrorLine(char const* file, int line, char const* function,
                          std::string_view text = {});
// The same for a path that is printed as it stands.
KESTRO_API void ErrorLineAt(char const* path, int line, char const* function,
                            std::string_view text = {});

// Prints the standard assertion text to standard error and aborts, in every build type.
[[noreturn]] KESTRO_API void AssertFail(char const* condition, char const* file, int line,
                                        char const* function);

}  // namespace kestro::base

#define KESTRO_ERROR(text) ::kestro::base::ErrorLine(__FILE__, __LINE__, __func__, text)
// For code that does part of another file's or function's work: applications know its lines by the
// path and the function given here.
#define KESTRO_ERROR_AT(path, function, text) \
  ::kestro::base::ErrorLineAt(path, __LINE__, function, text)

#define KESTRO_ASSERT(condition) KESTRO_ASSERT_IN(__PRETTY_FUNCTION__, condition)
// The same for code that does part of another function's work.
#define KESTRO_ASSERT_IN(function, condition) \
  ((condition) ? static_cast<void>(0)         \
               : ::kestro::base::AssertFail(#condition, __FILE__, __LINE__, function))
