// The base class of all host objects, and objects with named parameters.
#pragma once

#include <initializer_list>
#include <string>
#include <type_traits>
#include <typeinfo>
#include <vector>

#include "base/Console.h"
#include "base/Types.h"

namespace kestro::base {

class IClass;
class PropertyList;

struct KeyValuePair {
  char const* key;
  char const* value;
};

// An ordered list of text pairs. "Register" is the alias of the class to create. "Name", "Mode" and
// "Owner" describe the new object. Every other key is a property to set on it.
class KESTRO_API AttrSet {
 public:
  struct Pair {
    std::string key, value;
  };
  void Add(char const* key, char const* value) {  // null counts as empty
    if (_pairs.empty()) _pairs.reserve(4);        // most have no more
    _pairs.push_back({key != nullptr ? key : "", value != nullptr ? value : ""});
  }
  char const* Find(char const* key) const;  // the first value of the key, or null
  std::vector<Pair> const& Pairs() const { return _pairs; }

 private:
  std::vector<Pair> _pairs;
};

// Host objects use the ordinary allocator.
class KESTRO_API object_base {
 public:
  virtual ~object_base() = default;
};

class KESTRO_API object : public object_base {
 public:
  // The name is not copied: pass a literal, text that outlives the object, or null.
  explicit object(char const* name) : _name(name) {}
  object(object const&) = delete;
  object& operator=(object const&) = delete;

  char const* Name() const { return _name != nullptr ? _name : ""; }

  // Applies the attributes of a new object. A plain object accepts only the describing keys.
  [[nodiscard]] virtual bool Configure(AttrSet& attrs);
  // Prints the object in readable form.
  virtual void operator>>(ostream& os) const;

 private:
  char const* _name;
};

// Named parameters with run-time types. `Set` and `Get` return false and change nothing if the name
// is unknown or the value cannot be converted.
class KESTRO_API IParam {
 public:
  virtual ~IParam() = default;
  virtual bool Set(char const* name, void* value, std::type_info const* type) = 0;
  virtual bool Get(char const* name, void* value, std::type_info const* type) = 0;

  template <class T>
  bool Set(char const* name, T value) {
    return Set(name, const_cast<std::remove_const_t<T>*>(&value), &typeid(T));
  }
  // Like Set, with an explicit type: SetWithType<FuncIO>("func_error", [..]{..}).
  template <class T>
  bool SetWithType(char const* name, std::common_type_t<T> value) {
    return Set(name, &value, &typeid(T));
  }
  template <class T>
  bool Get(char const* name, T& value) {
    return Get(name, &value, &typeid(T));
  }
  // Compatibility: plug-ins call it; nothing here does.
  template <class T>
  bool GetIntT(char const* name, T& value) {
    static_assert(std::is_integral_v<T>);
    return Get(name, value);
  }
};

// An object whose parameters are the properties registered for its class. Each class documents
// which thread may set a property.
class KESTRO_API Object : public object, public IParam {
 public:
  explicit Object(char const* name) : object(name) {}
  ~Object() override = default;

  using IParam::Get;
  using IParam::Set;
  bool Set(char const* name, void* value, std::type_info const* type) override;
  bool Get(char const* name, void* value, std::type_info const* type) override;

  // Sets every attribute, except the describing ones, from its text. False if one is refused.
  bool Configure(AttrSet& attrs) override;

  // The registered class that created this object; null if it was created with `new`.
  IClass const* Class() const { return _class; }

  // Creates an object of a registered class, found by any lookup name. Null if there is none. The
  // caller deletes it.
  [[nodiscard]] static object* New(char const* name);

  // Fills the attributes for IClass::New: the class alias, the extra pairs, and the describing keys
  // that are not null. "Owner" is set to the owner's name.
  static void AttrSetInit(AttrSet& attrs, std::initializer_list<KeyValuePair>* pairs,
                          char const* alias, char const* name, char const* mode, object* owner);

 private:
  friend class IClass;
  IClass const* _class = nullptr;
};

}  // namespace kestro::base
