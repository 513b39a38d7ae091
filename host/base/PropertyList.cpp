#include "base/PropertyList.h"

#include <string_view>

namespace kestro::base {

void PropertyList::Inherit(PropertyList const& base) {
  _inherited.insert(_inherited.end(), base._own.begin(), base._own.end());
  _inherited.insert(_inherited.end(), base._inherited.begin(), base._inherited.end());
}

IProperty const* PropertyList::Find(char const* name) const {
  if (name == nullptr) return nullptr;
  for (auto const* list : {&_own, &_inherited})
    for (auto const& property : *list)
      if (std::string_view(property->Name()) == name) return property.get();
  return nullptr;
}

}  // namespace kestro::base
