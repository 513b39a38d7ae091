#include "base/IClass.h"

#include <algorithm>
#include <deque>
#include <mutex>
#include <string_view>

namespace kestro::base {

namespace {

struct Registry {
  std::mutex mutex;
  std::deque<std::unique_ptr<IClass>> classes;
};

Registry& TheRegistry() {
  // Never destroyed: static destructors that run late may still look up classes.
  static auto* registry = new Registry;
  return *registry;
}

std::vector<std::string> Split(char const* alias) {
  std::vector<std::string> names(1);
  for (; *alias != '\0'; ++alias)
    if (*alias == '-')
      names.emplace_back();
    else
      names.back() += *alias;
  return names;
}

// Whether `names` contains the names of the alias `wanted` in order, each matched once.
bool InOrder(std::string_view wanted, std::vector<std::string> const& names) {
  for (auto at = names.begin();; ++at) {
    auto const end = wanted.find('-');
    at = std::find(at, names.end(), wanted.substr(0, end));
    if (at == names.end()) return false;
    if (end == std::string_view::npos) return true;
    wanted.remove_prefix(end + 1);
  }
}

}  // namespace

IClass::IClass(char const* alias, PropertyList properties)
    : _alias(alias), _names(Split(alias)), _properties(std::move(properties)) {}

IClass* IClass::Register(std::unique_ptr<IClass> record) {
  if (Find(record->_alias.c_str(), true) != nullptr) {
    ErrorLineAt("base/reflect/TClass", 74, "Register", "cl,class existed:" + record->_alias);
    return nullptr;
  }
  auto& registry = TheRegistry();
  std::lock_guard lock(registry.mutex);
  return registry.classes.emplace_back(std::move(record)).get();
}

void IClass::Init(char const* module, unsigned version, char const* vendor, char const* author) {
  _module = module;
  _version = version;
  _vendor = vendor;
  _author = author;
}

IClass* IClass::Find(char const* alias, bool exact) {
  if (alias == nullptr || *alias == '\0') return nullptr;
  auto& registry = TheRegistry();
  std::lock_guard lock(registry.mutex);
  for (auto const& record : registry.classes)
    if (record->_alias == alias) return record.get();
  if (exact) return nullptr;
  for (auto const& record : registry.classes)
    if (InOrder(alias, record->_names)) return record.get();
  return nullptr;
}

std::vector<IClass const*> IClass::All() {
  auto& registry = TheRegistry();
  std::lock_guard lock(registry.mutex);
  std::vector<IClass const*> all;
  for (auto const& record : registry.classes) all.push_back(record.get());
  return all;
}

object* IClass::New(AttrSet& attrs) { return New<object>(attrs); }

IClass const* IClass::Wanted(AttrSet const& attrs) { return Find(attrs.Find("Register"), false); }

void const* IClass::Factory(std::type_index constructor) const {
  for (auto const& factory : _factories)
    if (factory.first == constructor) return factory.second.get();
  return nullptr;
}

object* IClass::Adopt(object* made) const {
  if (auto* reflected = dynamic_cast<Object*>(made)) reflected->_class = this;
  return made;
}

}  // namespace kestro::base
