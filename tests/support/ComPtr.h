// A small owning pointer for COM interfaces in tests.
#pragma once

#include <unknwn.h>

#include <utility>

namespace quillon::test {

template <typename T>
class ComPtr {
 public:
  ComPtr() = default;
  ComPtr(const ComPtr& other) : p_(other.p_) {
    if (p_) p_->AddRef();
  }
  ComPtr& operator=(ComPtr other) {
    std::swap(p_, other.p_);
    return *this;
  }
  ~ComPtr() {
    if (p_) p_->Release();
  }
  // Takes over a reference the caller already holds.
  static ComPtr Adopt(T* p) {
    ComPtr result;
    result.p_ = p;
    return result;
  }
  T* Get() const { return p_; }
  T* operator->() const { return p_; }
  T** Put() {
    *this = ComPtr();
    return &p_;
  }
  void** PutVoid() { return reinterpret_cast<void**>(Put()); }
  explicit operator bool() const { return p_ != nullptr; }

 private:
  T* p_ = nullptr;
};

}  // namespace quillon::test
