// Owning pointer to a COM interface: one reference, released once.
#pragma once

#include <unknwn.h>

#include <utility>

namespace quillon {

template <typename T>
class ComPtr {
 public:
  ComPtr() = default;
  ComPtr(const ComPtr& other) : p_(other.p_) {
    if (p_ != nullptr) p_->AddRef();
  }
  ComPtr(ComPtr&& other) noexcept : p_(std::exchange(other.p_, nullptr)) {}
  ComPtr& operator=(ComPtr other) noexcept {
    std::swap(p_, other.p_);
    return *this;
  }
  ~ComPtr() { Reset(); }

  // Takes over a reference the caller already holds.
  static ComPtr Adopt(T* p) {
    ComPtr result;
    result.p_ = p;
    return result;
  }

  T* Get() const { return p_; }
  T* operator->() const { return p_; }
  explicit operator bool() const { return p_ != nullptr; }

  void Reset() {
    if (p_ != nullptr) std::exchange(p_, nullptr)->Release();
  }
  // Releases what is held and hands out the slot for a call that fills it.
  T** Put() {
    Reset();
    return &p_;
  }
  void** PutVoid() { return reinterpret_cast<void**>(Put()); }

  // QueryInterface into another pointer type.
  template <typename U>
  HRESULT As(REFIID iid, ComPtr<U>& out) const {
    return p_ != nullptr ? p_->QueryInterface(iid, out.PutVoid()) : E_POINTER;
  }

 private:
  T* p_ = nullptr;
};

}  // namespace quillon
