// The value of a named parameter, and conversions between the types that callers use.
#pragma once

#include <string>
#include <typeinfo>
#include <variant>

#include "base/Fraction.h"

namespace kestro::base {

// A number, text, fraction or byte pointer, read from and written to variables of any related type.
//
// Numbers convert to every integer width, bool and whole fractions if the value fits. Text converts
// to and from all of these: "unsigned char" is a number in text, "char" is a character (empty text
// is character 0), and bool is "true"/"false", "1"/"0", "on"/"off" or "yes"/"no". Pointers convert
// only to pointers. A failed conversion returns false and leaves the destination unchanged.
class KESTRO_API Value {
 public:
  bool From(void const* variable, std::type_info const& type);
  bool To(void* variable, std::type_info const& type) const;

  bool IsPointer() const { return std::holds_alternative<unsigned char const*>(_value); }

 private:
  bool Integer(int64& out) const;
  bool Text(std::string& out) const;

  std::variant<int64, uint64, char, bool, Fraction, std::string, unsigned char const*> _value;
};

}  // namespace kestro::base
