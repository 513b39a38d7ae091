#include "base/Module.h"

#include <dlfcn.h>

#include <algorithm>
#include <mutex>
#include <vector>

namespace kestro::base {

namespace {

struct Registration {
  void (*function)(char const*);
  int order;
  char const* name;
};

std::mutex loading;  // held while a module loads and its initialisers run
std::mutex pendingMutex;

std::vector<Registration*>& Pending() {
  static auto* pending = new std::vector<Registration*>;
  return *pending;
}

}  // namespace

void* ReflectAdd(void (*function)(char const*), int order, char const* name) {
  if (function == nullptr) return nullptr;
  std::lock_guard lock(pendingMutex);
  return Pending().emplace_back(new Registration{function, order, name});
}

void ReflectRun() {
  std::vector<Registration*> due;
  {
    std::lock_guard lock(pendingMutex);
    due.swap(Pending());
  }
  std::stable_sort(due.begin(), due.end(), [](auto* a, auto* b) { return a->order < b->order; });
  for (auto* registration : due) registration->function(nullptr);
}

bool LoadPlugin(char const* path, std::string* error) {
  std::lock_guard lock(loading);
  // Without a name, dlopen would open the program itself.
  bool const named = path != nullptr && *path != '\0';
  if (named && dlopen(path, RTLD_NOW | RTLD_LOCAL) != nullptr) {
    ReflectRun();
    return true;
  }
  char const* why = named ? dlerror() : "no path";
  if (error != nullptr) *error = why != nullptr ? why : "cannot be loaded";
  return false;
}

}  // namespace kestro::base
