// Intrusive reference counting.
#pragma once

#include <atomic>
#include <utility>

#include "base/Types.h"

namespace kestro::base {

// An object that deletes itself when its last reference is released. It starts with one reference,
// which belongs to its creator. Hold and Release may be called from any thread.
class KESTRO_API Reference {
 public:
  void Hold() const { _count.fetch_add(1, std::memory_order_relaxed); }
  void Release() const {
    if (_count.fetch_sub(1, std::memory_order_acq_rel) == 1) Free();
  }
  int Count() const { return _count.load(std::memory_order_relaxed); }

  Reference(Reference const&) = delete;
  Reference& operator=(Reference const&) = delete;

 protected:
  Reference() = default;
  virtual ~Reference() = default;

 private:
  void Free() const;

  mutable std::atomic<int> _count{1};
};

// Holds a reference, in a scope or as a member.
template <class T>
class Ref {
 public:
  Ref() = default;
  static Ref Take(T* p) {  // takes over the caller's reference
    Ref r;
    r._p = p;
    return r;
  }
  static Ref Share(T* p) {  // adds a reference
    if (p != nullptr) p->Hold();
    return Take(p);
  }
  Ref(Ref const& o) : Ref(Share(o._p)) {}
  Ref(Ref&& o) noexcept : _p(o.Detach()) {}
  Ref& operator=(Ref o) noexcept {
    std::swap(_p, o._p);
    return *this;
  }
  ~Ref() {
    if (_p != nullptr) _p->Release();
  }
  // Gives the reference to the caller, who must release it.
  [[nodiscard]] T* Detach() { return std::exchange(_p, nullptr); }
  T* get() const { return _p; }
  T& operator*() const { return *_p; }
  T* operator->() const { return _p; }
  explicit operator bool() const { return _p != nullptr; }

 private:
  T* _p = nullptr;
};

}  // namespace kestro::base
