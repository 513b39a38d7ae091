#include "base/Console.h"

#include <cxxabi.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <mutex>

extern "C" {
int __root_path_offset = 0;
}

namespace kestro::base {

namespace {
std::mutex consoleMutex;
ostream* consoleTarget = nullptr;
}  // namespace

Console cout;

ostream& ostream::operator<<(void const* pointer) {
  char text[32];
  std::snprintf(text, sizeof text, "%p", pointer);
  return *this << text;
}

void Console::Write(char const* text, std::size_t size) {
  std::lock_guard lock(consoleMutex);
  if (consoleTarget != nullptr)
    consoleTarget->Write(text, size);
  else
    std::fwrite(text, 1, size, stdout);
}

ostream* Console::Redirect(ostream* target) {
  std::lock_guard lock(consoleMutex);
  std::swap(consoleTarget, target);
  return target;
}

std::string TypeName(std::type_info const& type) {
  int status = 0;
  std::unique_ptr<char, void (*)(void*)> name(
      abi::__cxa_demangle(type.name(), nullptr, nullptr, &status), std::free);
  return status == 0 ? name.get() : type.name();
}

void ErrorLine(char const* file, int line, char const* function, std::string_view text) {
  std::string_view path(file);
  path.remove_prefix(std::min<std::size_t>(std::max(__root_path_offset, 0), path.size()));
  auto const dot = path.rfind('.');
  if (dot != path.npos && path.find('/', dot) == path.npos) path = path.substr(0, dot);
  ErrorLineAt(std::string(path).c_str(), line, function, text);
}

void ErrorLineAt(char const* path, int line, char const* function, std::string_view text) {
  // A single write, so that the lines of several threads are not mixed.
  std::string whole;
  ostream_string(whole) << "\033[31m" << path << "/" << line << "/" << function << ":\t" << text
                        << "\n\033[0m";
  cout << whole;
}

void AssertFail(char const* condition, char const* file, int line, char const* function) {
  std::fflush(stdout);
  std::fprintf(stderr, "%s: %s:%d: %s: Assertion `%s' failed.\n", program_invocation_short_name,
               file, line, function, condition);
  std::abort();
}

}  // namespace kestro::base
