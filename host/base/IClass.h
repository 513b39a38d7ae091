// The class registry: finds classes by alias and creates their objects.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <typeindex>
#include <utility>
#include <vector>

#include "base/PropertyList.h"

namespace kestro::base {

// One registered class. Classes stay registered until the process ends.
//
// An alias is a class name followed by further names, joined with "-". A lookup finds the class
// with exactly that alias. If there is none, it finds the first registered class whose names
// contain the names of the lookup in the same order, each matched once: "avi-muxer" finds
// "AviMuxer-avi-muxer". Names are case-sensitive.
//
// Classes are registered while modules load, on one thread. All other functions may be called from
// any thread.
class KESTRO_API IClass {
 public:
  IClass(char const* alias, PropertyList properties);

  // Registers a class. If its alias is taken, this prints the line "class existed:", keeps the
  // first registration and returns null.
  static IClass* Register(std::unique_ptr<IClass> record);
  // Completes the registration with information about the module.
  void Init(char const* module, unsigned version, char const* vendor, char const* author);

  static IClass* Find(char const* alias, bool exact);
  static std::vector<IClass const*> All();  // in registration order

  // Creates an object of the class that the attribute "Register" names, with the constructor
  // arguments that follow. Returns null if the alias is unknown, if the object is not an R, or if
  // the class has no constructor with exactly these argument types. The attributes are not applied;
  // call Configure for that. The caller owns the object.
  [[nodiscard]] static object* New(AttrSet& attrs);
  template <class R, class... A>
  [[nodiscard]] static R* New(AttrSet& attrs, A... args) {
    object* made = nullptr;
    IClass const* record = Wanted(attrs);
    if (record != nullptr)
      if (auto const* make = record->Factory(typeid(void (*)(A...))))
        made = record->Adopt((*static_cast<std::function<object*(A...)> const*>(make))(args...));
    R* result = dynamic_cast<R*>(made);
    if (result == nullptr) delete made;
    return result;
  }

  // Registers the constructor with these argument types.
  template <class T, class... A>
  void Constructor() {
    _factories.emplace_back(typeid(void (*)(A...)), std::make_shared<std::function<object*(A...)>>(
                                                        [](A... args) { return new T(args...); }));
  }

  std::string const& Alias() const { return _alias; }
  PropertyList const& Properties() const { return _properties; }
  std::string const& Module() const { return _module; }
  unsigned Version() const { return _version; }
  std::string const& Vendor() const { return _vendor; }
  std::string const& Author() const { return _author; }

 private:
  static IClass const* Wanted(AttrSet const& attrs);
  void const* Factory(std::type_index constructor) const;
  object* Adopt(object* made) const;

  std::string _alias, _module, _vendor, _author;
  std::vector<std::string> _names;
  unsigned _version = 0;
  PropertyList _properties;
  std::vector<std::pair<std::type_index, std::shared_ptr<void const>>> _factories;
};

// Creates an object of a registered class and configures it; the alias is the only attribute.
// Returns null if IClass::New or Configure fails.
template <class R, class... A>
[[nodiscard]] std::unique_ptr<R> Make(char const* alias, A... args) {
  AttrSet attrs;
  attrs.Add("Register", alias);
  std::unique_ptr<R> made(IClass::New<R>(attrs, args...));
  if (made != nullptr && !made->Configure(attrs)) made.reset();
  return made;
}

// Registers class T with its default constructor. Returns null if IClass::Register does.
template <class T>
struct TClass {
  static IClass* Register(char const* alias, PropertyList properties) {
    auto record = std::make_unique<IClass>(alias, std::move(properties));
    record->template Constructor<T>();
    return IClass::Register(std::move(record));
  }
};

}  // namespace kestro::base
