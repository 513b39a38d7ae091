// Plug-in modules: shared objects that register a function with the host while they load.
#pragma once

#include <string>

#include "base/Types.h"

namespace kestro::base {

// Called by a module's static initialisers. The host keeps the function and calls it with null when
// the whole module is initialised. `order` sorts the functions of one module, lowest first; `name`
// is for messages. Returns a handle for the module to keep.
KESTRO_API void* ReflectAdd(void (*function)(char const*), int order, char const* name);

// Runs the registered functions that have not run yet. LoadPlugin does this; an application that
// links a module directly must call it once.
KESTRO_API void ReflectRun();

// Loads a plug-in by path and registers its classes. Loading the same plug-in again does nothing.
// Modules are never unloaded. On failure, `error` receives the reason, unless it is null.
[[nodiscard]] KESTRO_API bool LoadPlugin(char const* path, std::string* error = nullptr);

}  // namespace kestro::base
