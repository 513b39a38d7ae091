#include "base/Object.h"

#include <algorithm>
#include <cstring>

#include "base/IClass.h"

namespace kestro::base {

namespace {
bool Describes(std::string const& key) {
  return key == "Register" || key == "Name" || key == "Mode" || key == "Owner";
}
}  // namespace

char const* AttrSet::Find(char const* key) const {
  for (auto const& pair : _pairs)
    if (pair.key == key) return pair.value.c_str();
  return nullptr;
}

bool object::Configure(AttrSet& attrs) {
  auto const& pairs = attrs.Pairs();
  return std::all_of(pairs.begin(), pairs.end(), [](auto& pair) { return Describes(pair.key); });
}

void object::operator>>(ostream& os) const { os << Name() << "\n"; }

bool Object::Set(char const* name, void* value, std::type_info const* type) {
  IProperty const* property = _class != nullptr ? _class->Properties().Find(name) : nullptr;
  return property != nullptr && property->Set(*this, value, *type);
}

bool Object::Get(char const* name, void* value, std::type_info const* type) {
  IProperty const* property = _class != nullptr ? _class->Properties().Find(name) : nullptr;
  return property != nullptr && property->Get(*this, value, *type);
}

bool Object::Configure(AttrSet& attrs) {
  for (auto const& pair : attrs.Pairs())
    if (!Describes(pair.key) && !Set(pair.key.c_str(), pair.value)) return false;
  return true;
}

object* Object::New(char const* name) {
  if (name == nullptr) return nullptr;
  AttrSet attrs;
  attrs.Add("Register", name);
  return IClass::New(attrs);
}

void Object::AttrSetInit(AttrSet& attrs, std::initializer_list<KeyValuePair>* pairs,
                         char const* alias, char const* name, char const* mode, object* owner) {
  if (alias != nullptr) attrs.Add("Register", alias);
  if (name != nullptr) attrs.Add("Name", name);
  if (mode != nullptr) attrs.Add("Mode", mode);
  if (owner != nullptr) attrs.Add("Owner", owner->Name());
  if (pairs != nullptr)
    for (auto const& pair : *pairs) attrs.Add(pair.key, pair.value);
}

}  // namespace kestro::base
