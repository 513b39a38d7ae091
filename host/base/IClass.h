// The class registry: classes by alias, and objects made from them.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <typeindex>
#include <utility>
#include <vector>

#include "base/PropertyList.h"

namespace kestro::base {

// One registered class. Records live as long as the process.
//
// An alias is a class name and further names joined with "-". A look-up finds the exact alias, else
// the first registered class whose names contain the look-up's names in order, each matched once:
// "avi-muxer" finds "AviMuxer-avi-muxer". Matching is case-sensitive.
//
// Registering happens while modules load, on one thread; the rest may be called from any thread.
class KESTRO_API IClass {
 public:
  IClass(char const* alias, PropertyList properties);

  // Enters a class into the registry. A taken alias is refused with the line "class existed:", and
  // the first registration stays; null then.
  static IClass* Register(std::unique_ptr<IClass> record);
  // Completes the registration with the module record.
  void Init(char const* module, unsigned version, char const* vendor, char const* author);

  static IClass* Find(char const* alias, bool exact);
  static std::vector<IClass const*> All();  // in order of registration

  // An object of the class under the key "Register", made with the constructor arguments that
  // follow; null for an unknown alias, an object that is not an R, or arguments that the class has
  // no constructor for (the types must be exactly the registered ones). The attributes are not
  // applied yet: that is Configure. The caller owns the object.
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

  // Adds a constructor by its argument types.
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

// An object of a registered class, made and configured: IClass::New with nothing but the alias.
// Null as IClass::New, or when the object refuses its configuration.
template <class R, class... A>
[[nodiscard]] std::unique_ptr<R> Make(char const* alias, A... args) {
  AttrSet attrs;
  attrs.Add("Register", alias);
  std::unique_ptr<R> made(IClass::New<R>(attrs, args...));
  if (made != nullptr && !made->Configure(attrs)) made.reset();
  return made;
}

// Registers class T under an alias with its default constructor; null as IClass::Register.
template <class T>
struct TClass {
  static IClass* Register(char const* alias, PropertyList properties) {
    auto record = std::make_unique<IClass>(alias, std::move(properties));
    record->template Constructor<T>();
    return IClass::Register(std::move(record));
  }
};

}  // namespace kestro::base
