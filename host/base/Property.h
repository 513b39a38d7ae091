// Property descriptors: how a named parameter of a class is read and written.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <type_traits>
#include <typeinfo>
#include <utility>
#include <vector>

#include "base/Object.h"
#include "base/Value.h"

namespace kestro::base {

// One property of a class. Accepts every type of value that converts (see Value).
class KESTRO_API IProperty {
 public:
  IProperty(char const* name, std::type_info const& type, char const* help)
      : _name(name), _help(help), _type(type) {}
  virtual ~IProperty() = default;

  char const* Name() const { return _name; }
  char const* Help() const { return _help; }  // one line of help
  std::type_info const& Type() const { return _type; }

  virtual bool CanRead() const = 0;
  virtual bool CanWrite() const = 0;
  virtual bool Set(Object& object, void const* value, std::type_info const& type) const = 0;
  virtual bool Get(Object& object, void* value, std::type_info const& type) const = 0;

 private:
  char const* _name;
  char const* _help;
  std::type_info const& _type;
};

// A property of class C with values of type T, read and written by functions.
template <class C, class T>
class TProperty : public IProperty {
 public:
  using Reader = std::function<bool(C&, T&)>;
  using Writer = std::function<bool(C&, T const&)>;

  TProperty(char const* name, char const* help, Reader read, Writer write)
      : IProperty(name, typeid(T), help), _read(std::move(read)), _write(std::move(write)) {}

  bool CanRead() const override { return static_cast<bool>(_read); }
  bool CanWrite() const override { return static_cast<bool>(_write); }

  bool Set(Object& object, void const* value, std::type_info const& type) const override {
    auto* self = dynamic_cast<C*>(&object);
    if (self == nullptr || !_write) return false;
    if (type == typeid(T)) return _write(*self, *static_cast<T const*>(value));
    T converted{};
    return Convert(value, type, converted) && _write(*self, converted);
  }

  bool Get(Object& object, void* value, std::type_info const& type) const override {
    auto* self = dynamic_cast<C*>(&object);
    if (self == nullptr || !_read) return false;
    // If the types match, pass the variable itself: a pointer in it says where to copy to.
    if (type == typeid(T)) return _read(*self, *static_cast<T*>(value));
    T own{};
    if (!_read(*self, own)) return false;
    if constexpr (kObject)
      return type == typeid(Object*) && ((*static_cast<Object**>(value) = own), true);
    Value v;
    return v.From(&own, typeid(T)) && v.To(value, type);
  }

 private:
  // Applications see objects of a plug-in's classes only as Object.
  static constexpr bool kObject =
      std::is_pointer_v<T> && std::is_base_of_v<Object, std::remove_pointer_t<T>>;

  static bool Convert(void const* value, std::type_info const& type, T& out) {
    if constexpr (kObject) {
      if (type != typeid(Object*)) return false;
      Object* object = *static_cast<Object* const*>(value);
      out = dynamic_cast<T>(object);
      return object == nullptr || out != nullptr;
    } else {
      Value v;
      return v.From(value, type) && v.To(&out, typeid(T));
    }
  }

  Reader _read;
  Writer _write;
};

}  // namespace kestro::base
