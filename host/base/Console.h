// Text output of the host: streams with <<, the console `cout`, error lines and assertions.
#pragma once

#include <string>
#include <string_view>
#include <type_traits>
#include <typeinfo>

#include "base/Types.h"

// Number of leading characters of a compiled-in source path that error lines leave out, so that
// they show paths relative to the source root. It starts at 0 because the build already maps paths.
// An application whose plug-ins are compiled with absolute paths sets it.
extern "C" KESTRO_API int __root_path_offset;

namespace kestro::base {

// A text sink. Not thread-safe, unless a subclass documents that it is.
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
  ostream& operator<<(void const* pointer);  // formatted like %p
  template <class T, std::enable_if_t<std::is_integral_v<T>, int> = 0>
  ostream& operator<<(T value) {
    return *this << std::to_string(value);
  }
};

// Appends to a string, which the caller owns and which must outlive the stream.
class KESTRO_API ostream_string : public ostream {
 public:
  explicit ostream_string(std::string& text) : _text(text) {}
  void Write(char const* text, std::size_t size) override { _text.append(text, size); }

 private:
  std::string& _text;
};

// The console. Unless redirected, it writes to standard output through stdio, which keeps the order
// with printf. The text of one Write is never mixed with that of another thread.
class KESTRO_API Console : public ostream {
 public:
  void Write(char const* text, std::size_t size) override;
  // Sends all further output to `target`, or to standard output if it is null. Returns the previous
  // target.
  ostream* Redirect(ostream* target);
};

extern KESTRO_API Console cout;

// Captures console output for as long as the object exists.
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

// Returns the readable name of a type, such as "unsigned int" or "kestro::base::Fraction".
KESTRO_API std::string TypeName(std::type_info const& type);

// Prints any pointer: the dynamic type of the object followed by "(unknow)", or for null the
// pointer's type followed by "(nullptr)". It does not print the object itself.
template <class T>
ostream& operator>>(T* pointer, ostream& os) {
  if (pointer == nullptr) return os << TypeName(typeid(T*)) << "(nullptr)";
  return os << TypeName(typeid(*pointer)) << "(unknow)";
}

// Writes one red line to the console: path/line/function:<tab>text. `file` is a compiled-in source
// path. The line shows it without its first __root_path_offset characters and without its
// extension.
KESTRO_API void ErrorLine(char const* file, int line, char const* function,
                          std::string_view text = {});
// The same, but prints the path as given.
KESTRO_API void ErrorLineAt(char const* path, int line, char const* function,
                            std::string_view text = {});

// Prints the standard assertion message to standard error and aborts, in every build type.
[[noreturn]] KESTRO_API void AssertFail(char const* condition, char const* file, int line,
                                        char const* function);

}  // namespace kestro::base

#define KESTRO_ERROR(text) ::kestro::base::ErrorLine(__FILE__, __LINE__, __func__, text)
// For code that does part of the work of another file or function. Applications recognise its error
// lines by the path and function given here.
#define KESTRO_ERROR_AT(path, function, text) \
  ::kestro::base::ErrorLineAt(path, __LINE__, function, text)

#define KESTRO_ASSERT(condition) KESTRO_ASSERT_IN(__PRETTY_FUNCTION__, condition)
// The same for code that does part of another function's work.
#define KESTRO_ASSERT_IN(function, condition) \
  ((condition) ? static_cast<void>(0)         \
               : ::kestro::base::AssertFail(#condition, __FILE__, __LINE__, function))
