// Registers a class of this module.
#pragma once

#include <utility>

#include "base/IClass.h"

namespace kestro::plugin::avi {

template <class T>
void RegisterClass(char const* name, char const* alias, base::PropertyList properties,
                   char const* author) {
  auto* record = base::TClass<T>::Register(name != nullptr ? name : alias, std::move(properties));
  if (record != nullptr) record->Init("pluginavi", 0x10001, "Orvane", author);
}

}  // namespace kestro::plugin::avi
