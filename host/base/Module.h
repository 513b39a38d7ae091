// Plug-in modules: a shared object hands its registration function to the host while it loads.
#pragma once

#include <string>

#include "base/Types.h"

namespace kestro::base {

// Called by a module's static initialisers. The function is kept, and run with null once the whole
// module has been initialised. `order` sorts the functions of one module, lower first; `name` is
// for messages. Returns a handle for the module to keep.
KESTRO_API void* ReflectAdd(void (*function)(char const*), int order, char const* name);

// Runs the functions handed over and not yet run. LoadPlugin does it; an application that links a
// module directly calls it once.
KESTRO_API void ReflectRun();

// Loads a plug-in by path and registers its classes; loading the same one again does nothing.
// Modules are never unloaded. On failure `error`, unless null, says why.
[[nodiscard]] KESTRO_API bool LoadPlugin(char const* path, std::string* error = nullptr);

}  // namespace kestro::base
