// The properties of a class.
#pragma once

#include <memory>
#include <utility>
#include <vector>

#include "base/Property.h"

namespace kestro::base {

// The properties of a class in registration order, and those it inherits. It is built once and then
// shared.
//
//   PropertyList list;
//   list.Member<AviMuxer>("mode", &AviMuxer::_mode, "counts end-of-stream packets");
//   list.Setter<AviMuxer, char>("diskName", &AviMuxer::DiskNameSet, "drive of temporary files");
//   list.Inherit(IMuxer::Properties());
class KESTRO_API PropertyList {
 public:
  // Reads and writes a data member.
  template <class C, class T, class B>
  void Member(char const* name, T B::*member, char const* help) {
    Add<C, T>(
        name, help,
        [member](C& c, T& out) {
          out = c.*member;
          return true;
        },
        [member](C& c, T const& value) {
          c.*member = value;
          return true;
        });
  }
  // Writes through a member function that returns bool.
  template <class C, class T>
  void Setter(char const* name, bool (C::*set)(T), char const* help) {
    Add<C, T>(name, help, nullptr, [set](C& c, T const& value) { return (c.*set)(value); });
  }
  // Reads through a member function.
  template <class C, class T>
  void Getter(char const* name, T (C::*get)(), char const* help) {
    Add<C, T>(
        name, help,
        [get](C& c, T& out) {
          out = (c.*get)();
          return true;
        },
        nullptr);
  }
  template <class C, class T>
  void Add(char const* name, char const* help, typename TProperty<C, T>::Reader read,
           typename TProperty<C, T>::Writer write) {
    _own.push_back(
        std::make_shared<TProperty<C, T>>(name, help, std::move(read), std::move(write)));
  }
  void Inherit(PropertyList const& base);

  IProperty const* Find(char const* name) const;  // searches its own first; null if none
  std::vector<std::shared_ptr<IProperty const>> const& Own() const { return _own; }
  std::vector<std::shared_ptr<IProperty const>> const& Inherited() const { return _inherited; }

 private:
  std::vector<std::shared_ptr<IProperty const>> _own, _inherited;
};

}  // namespace kestro::base
