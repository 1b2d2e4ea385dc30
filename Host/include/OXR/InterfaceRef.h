// An owning reference to a reference-counted interface.
#pragma once

#include <cstddef>
#include <type_traits>
#include <utility>

#include "OXR/Unknown.h"

namespace OXR {

// Holds one reference to the interface it points at: copying adds a reference, destruction and Reset
// release it. Constructing from a raw pointer adds a reference, as for any pointer borrowed from
// elsewhere; a pointer that already carries the reference for this holder (a new Allocated<T>, the result
// of QueryInterface) is taken over with Attach:
//
//   InterfaceRef<IFrame> frame;
//   frame.Attach(Allocated<Frame>::Create(...));
template <class T>
class InterfaceRef {
 public:
  InterfaceRef() noexcept = default;
  InterfaceRef(std::nullptr_t) noexcept {}
  explicit InterfaceRef(T* p) noexcept : p_(p) {
    if (p_) p_->AddRef();
  }
  InterfaceRef(const InterfaceRef& other) noexcept : InterfaceRef(other.p_) {}
  InterfaceRef(InterfaceRef&& other) noexcept : p_(other.Detach()) {}
  template <class U, class = std::enable_if_t<std::is_convertible<U*, T*>::value>>
  InterfaceRef(const InterfaceRef<U>& other) noexcept : InterfaceRef(static_cast<T*>(other.Get())) {}
  template <class U, class = std::enable_if_t<std::is_convertible<U*, T*>::value>>
  InterfaceRef(InterfaceRef<U>&& other) noexcept : p_(other.Detach()) {}
  ~InterfaceRef() { Reset(); }

  InterfaceRef& operator=(const InterfaceRef& other) noexcept {
    InterfaceRef(other).Swap(*this);
    return *this;
  }
  InterfaceRef& operator=(InterfaceRef&& other) noexcept {
    InterfaceRef(std::move(other)).Swap(*this);
    return *this;
  }

  T* Get() const noexcept { return p_; }
  T* operator->() const noexcept { return p_; }
  T& operator*() const noexcept { return *p_; }
  explicit operator bool() const noexcept { return p_ != nullptr; }

  void Reset() noexcept {
    T* old = p_;
    p_ = nullptr;
    if (old) old->Release();
  }
  // Takes over `p` and the reference it carries (no AddRef); releases what was held before.
  void Attach(T* p) noexcept {
    T* old = p_;
    p_ = p;
    if (old) old->Release();
  }
  // Gives up the pointer and its reference to the caller.
  T* Detach() noexcept {
    T* p = p_;
    p_ = nullptr;
    return p;
  }
  void Swap(InterfaceRef& other) noexcept { std::swap(p_, other.p_); }

  // Replaces the held reference with the interface `iid` of `source`. False, and empty, when `source` is
  // empty or does not have that interface.
  template <class U>
  bool QueryFrom(const InterfaceRef<U>& source, const zelcore::utility::Guid& iid) {
    void* out = nullptr;
    if (!source || source->QueryInterface(iid, &out) != kResultOK || out == nullptr) {
      Reset();
      return false;
    }
    Attach(static_cast<T*>(out));
    return true;
  }

 private:
  T* p_ = nullptr;
};

// The interface I (identified by I::kIID) of `source`; empty when `source` is empty or does not have it.
template <class I, class U>
InterfaceRef<I> Query(const InterfaceRef<U>& source) {
  InterfaceRef<I> found;
  found.QueryFrom(source, I::kIID);
  return found;
}

template <class T, class U>
bool operator==(const InterfaceRef<T>& a, const InterfaceRef<U>& b) noexcept {
  return a.Get() == b.Get();
}
template <class T, class U>
bool operator!=(const InterfaceRef<T>& a, const InterfaceRef<U>& b) noexcept {
  return a.Get() != b.Get();
}
template <class T>
bool operator==(const InterfaceRef<T>& a, std::nullptr_t) noexcept {
  return !a;
}
template <class T>
bool operator!=(const InterfaceRef<T>& a, std::nullptr_t) noexcept {
  return static_cast<bool>(a);
}

}  // namespace OXR
