// One value of a named parameter, and the conversions between the types that callers use.
#pragma once

#include <string>
#include <typeinfo>
#include <variant>

#include "base/Fraction.h"

namespace kestro::base {

// A number, text, fraction or byte pointer, taken from and given to variables of any related type.
//
// Numbers convert to every integer width, bool and whole fractions as long as the value survives;
// text converts to and from all of them ("unsigned char" is a number in text, "char" a character,
// the empty text the character 0; bool is "true"/"false", "1"/"0", "on"/"off", "yes"/"no").
// Pointers convert to nothing but themselves. What cannot be converted is `false`, and the
// destination stays as it was.
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
