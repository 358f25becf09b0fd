// Owns one kernel object handle and closes it exactly once.
#pragma once

#include <windows.h>

#include <utility>

namespace quillon {

class UniqueHandle {
 public:
  UniqueHandle() = default;
  explicit UniqueHandle(HANDLE handle) : handle_(handle) {}
  UniqueHandle(const UniqueHandle&) = delete;
  UniqueHandle& operator=(const UniqueHandle&) = delete;
  UniqueHandle(UniqueHandle&& other) noexcept : handle_(std::exchange(other.handle_, nullptr)) {}
  UniqueHandle& operator=(UniqueHandle&& other) noexcept {
    if (this != &other) Reset(std::exchange(other.handle_, nullptr));
    return *this;
  }
  ~UniqueHandle() { Reset(); }

  HANDLE Get() const { return handle_; }
  // Kernel calls fail with null or with INVALID_HANDLE_VALUE (files): neither is a handle.
  explicit operator bool() const { return handle_ != nullptr && handle_ != INVALID_HANDLE_VALUE; }
  void Reset(HANDLE handle = nullptr) {
    if (*this) CloseHandle(handle_);
    handle_ = handle;
  }

 private:
  HANDLE handle_ = nullptr;
};

}  // namespace quillon
