#include "base/Value.h"

#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <limits>
#include <type_traits>

namespace kestro::base {

namespace {

// The type in which Value stores a variable of type T.
template <class T>
struct Kept {
  using type = std::conditional_t<std::is_signed_v<T>, int64, uint64>;
};
template <>
struct Kept<bool> {
  using type = bool;
};
template <>
struct Kept<char> {
  using type = char;
};

template <class T>
struct Tag {
  using type = T;
};

// Calls visit(Tag<T>) for the integer type T that `type` describes.
template <class Visit, class... T>
bool ForInteger(std::type_info const& type, Visit visit, Tag<T>... tags) {
  bool result = false;
  (void)((type == typeid(T) && ((result = visit(tags)), true)) || ...);
  return result;
}

template <class Visit>
bool ForInteger(std::type_info const& type, Visit visit) {
  return ForInteger(type, visit, Tag<bool>(), Tag<char>(), Tag<signed char>(), Tag<unsigned char>(),
                    Tag<short>(), Tag<unsigned short>(), Tag<int>(), Tag<unsigned>(), Tag<long>(),
                    Tag<unsigned long>(), Tag<long long>(), Tag<unsigned long long>());
}

bool ParseInteger(std::string const& text, bool isSigned, int64& out, uint64& outUnsigned) {
  if (text.empty() || std::isspace(static_cast<unsigned char>(text[0]))) return false;
  int const base = text.find("0x") <= 1 ? 16 : 10;  // "010" is ten
  char* end = nullptr;
  errno = 0;
  if (isSigned) {
    out = std::strtoll(text.c_str(), &end, base);
  } else {
    if (text[0] == '-') return false;
    outUnsigned = std::strtoull(text.c_str(), &end, base);
  }
  return errno == 0 && end == text.c_str() + text.size() && end != text.c_str();
}

bool ParseBool(std::string const& text, bool& out) {
  for (char const* yes : {"true", "1", "on", "yes"})
    if (text == yes) return out = true;
  for (char const* no : {"false", "0", "off", "no"})
    if (text == no) {
      out = false;
      return true;
    }
  return false;
}

template <class T, class V>
bool Fits(V value) {
  if constexpr (std::is_signed_v<V>) {
    if (value < 0)
      return std::is_signed_v<T> && value >= static_cast<int64>(std::numeric_limits<T>::min());
  }
  return static_cast<uint64>(value) <= static_cast<uint64>(std::numeric_limits<T>::max());
}

}  // namespace

bool Value::From(void const* variable, std::type_info const& type) {
  if (type == typeid(Fraction)) {
    _value = *static_cast<Fraction const*>(variable);
  } else if (type == typeid(std::string)) {
    _value = *static_cast<std::string const*>(variable);
  } else if (type == typeid(char const*) || type == typeid(char*)) {
    char const* text = *static_cast<char const* const*>(variable);
    if (text == nullptr) return false;
    _value = std::string(text);
  } else if (type == typeid(unsigned char*) || type == typeid(unsigned char const*)) {
    _value = *static_cast<unsigned char const* const*>(variable);
  } else {
    return ForInteger(type, [&](auto tag) {
      using T = typename decltype(tag)::type;
      _value = static_cast<typename Kept<T>::type>(*static_cast<T const*>(variable));
      return true;
    });
  }
  return true;
}

bool Value::Integer(int64& out) const {
  if (auto* v = std::get_if<int64>(&_value)) return (out = *v), true;
  if (auto* v = std::get_if<bool>(&_value)) return (out = *v), true;
  if (auto* v = std::get_if<char>(&_value)) return (out = +*v), true;
  if (auto* v = std::get_if<uint64>(&_value))
    return *v <= static_cast<uint64>(INT64_MAX) && ((out = static_cast<int64>(*v)), true);
  if (auto* v = std::get_if<Fraction>(&_value)) {
    if (v->den == 0 || (v->den == -1 && v->num < -INT64_MAX) || v->num % v->den != 0) return false;
    return (out = v->num / v->den), true;
  }
  return false;
}

bool Value::Text(std::string& out) const {
  if (auto* v = std::get_if<std::string>(&_value)) return (out = *v), true;
  if (auto* v = std::get_if<Fraction>(&_value)) return (out = v->Text()), true;
  if (auto* v = std::get_if<bool>(&_value)) return (out = *v ? "true" : "false"), true;
  if (auto* v = std::get_if<int64>(&_value)) return (out = std::to_string(*v)), true;
  if (auto* v = std::get_if<uint64>(&_value)) return (out = std::to_string(*v)), true;
  if (auto* v = std::get_if<char>(&_value))
    return (out = *v == '\0' ? std::string() : std::string(1, *v)), true;
  return false;
}

template <class T>
static bool Parse(std::string const& text, T& out) {
  if constexpr (std::is_same_v<T, bool>) {
    return ParseBool(text, out);
  } else if constexpr (std::is_same_v<T, char>) {
    return text.size() <= 1 && ((out = text.empty() ? '\0' : text[0]), true);
  } else {
    int64 n = 0;
    uint64 u = 0;
    if (!ParseInteger(text, std::is_signed_v<T>, n, u)) return false;
    if constexpr (std::is_signed_v<T>) return Fits<T>(n) && ((out = static_cast<T>(n)), true);
    return Fits<T>(u) && ((out = static_cast<T>(u)), true);
  }
}

bool Value::To(void* variable, std::type_info const& type) const {
  if (type == typeid(std::string)) return Text(*static_cast<std::string*>(variable));
  if (type == typeid(unsigned char*) || type == typeid(unsigned char const*)) {
    auto* pointer = std::get_if<unsigned char const*>(&_value);
    return pointer != nullptr && ((*static_cast<unsigned char const**>(variable) = *pointer), true);
  }
  auto const* text = std::get_if<std::string>(&_value);
  if (type == typeid(Fraction)) {
    auto& out = *static_cast<Fraction*>(variable);
    if (auto* f = std::get_if<Fraction>(&_value)) return (out = *f), true;
    if (text != nullptr) return Fraction::Parse(text->c_str(), out);
    int64 n;
    return !std::holds_alternative<char>(_value) && Integer(n) && ((out = Fraction(n, 1)), true);
  }
  return ForInteger(type, [&](auto tag) {
    using T = typename decltype(tag)::type;
    T& out = *static_cast<T*>(variable);
    if (text != nullptr) return Parse(*text, out);
    if (auto* u = std::get_if<uint64>(&_value))
      return Fits<T>(*u) && ((out = static_cast<T>(*u)), true);
    int64 n;
    return Integer(n) && Fits<T>(n) && ((out = static_cast<T>(n)), true);
  });
}

}  // namespace kestro::base
