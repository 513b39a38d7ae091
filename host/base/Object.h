// The root of every named host object, and objects with named parameters.
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

// An ordered list of text pairs. "Register" names the class alias to instantiate; "Name", "Mode"
// and "Owner" describe the new object; every other key is a property to set on it.
class KESTRO_API AttrSet {
 public:
  struct Pair {
    std::string key, value;
  };
  void Add(char const* key, char const* value) {  // null is the empty text
    _pairs.push_back({key != nullptr ? key : "", value != nullptr ? value : ""});
  }
  char const* Find(char const* key) const;  // the first value under the key, null if there is none
  std::vector<Pair> const& Pairs() const { return _pairs; }

 private:
  std::vector<Pair> _pairs;
};

// Memory of host objects comes from the ordinary allocator.
class KESTRO_API object_base {
 public:
  virtual ~object_base() = default;
};

class KESTRO_API object : public object_base {
 public:
  // The name is not copied: a literal, or text that outlives the object. Null is allowed.
  explicit object(char const* name) : _name(name) {}
  object(object const&) = delete;
  object& operator=(object const&) = delete;

  char const* Name() const { return _name != nullptr ? _name : ""; }

  // Applies the attributes of a new object. A plain object knows the describing keys only.
  [[nodiscard]] virtual bool Configure(AttrSet& attrs);
  // Prints the object for people.
  virtual void operator>>(ostream& os) const;

 private:
  char const* _name;
};

// Named parameters with run-time types. `Set` and `Get` are false for an unknown name or an
// impossible conversion, and change nothing then.
class KESTRO_API IParam {
 public:
  virtual ~IParam() = default;
  virtual bool Set(char const* name, void* value, std::type_info const* type) = 0;
  virtual bool Get(char const* name, void* value, std::type_info const* type) = 0;

  template <class T>
  bool Set(char const* name, T value) {
    return Set(name, const_cast<std::remove_const_t<T>*>(&value), &typeid(T));
  }
  // As Set, with the type spelt out: SetWithType<FuncIO>("func_error", [..]{..}).
  template <class T>
  bool SetWithType(char const* name, std::common_type_t<T> value) {
    return Set(name, &value, &typeid(T));
  }
  template <class T>
  bool Get(char const* name, T& value) {
    return Get(name, &value, &typeid(T));
  }
  template <class T>
  bool GetIntT(char const* name, T& value) {
    static_assert(std::is_integral_v<T>);
    return Get(name, value);
  }
};

// An object whose parameters are the properties that its class registered. Which thread may set a
// property is said by the class that has it.
class KESTRO_API Object : public object, public IParam {
 public:
  explicit Object(char const* name) : object(name) {}
  ~Object() override = default;

  using IParam::Get;
  using IParam::Set;
  bool Set(char const* name, void* value, std::type_info const* type) override;
  bool Get(char const* name, void* value, std::type_info const* type) override;

  // Sets every attribute that is not a describing one as text; false when one is refused.
  bool Configure(AttrSet& attrs) override;

  // The registered class that made this object; null for one made with `new`.
  IClass const* Class() const { return _class; }

  // An object of a registered class, by any look-up name; null when there is none. The caller
  // deletes it.
  [[nodiscard]] static object* New(char const* name);

  // Fills the attributes for IClass::New: the class alias, the extra pairs, and the describing
  // keys that are not null ("Owner" is the owner's name).
  static void AttrSetInit(AttrSet& attrs, std::initializer_list<KeyValuePair>* pairs,
                          char const* alias, char const* name, char const* mode, object* owner);

 private:
  friend class IClass;
  IClass const* _class = nullptr;
};

}  // namespace kestro::base
