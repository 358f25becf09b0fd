// One owning wrapper for every kind of Windows resource the library holds:
// a value, what "none" looks like, and the call that releases it. Each kind is
// a traits type; the wrapper closes a held value exactly once, on every path.
#pragma once

#include <windows.h>

#include <utility>

namespace quillon {

// Traits: `Type` (the held value), `Invalid()` (the value held when empty),
// `IsValid(v)` (whether `v` must be released) and `Close(v)`.
template <typename Traits>
class UniqueResource {
 public:
  using Type = typename Traits::Type;

  UniqueResource() = default;
  explicit UniqueResource(Type value) : value_(value) {}
  UniqueResource(const UniqueResource&) = delete;
  UniqueResource& operator=(const UniqueResource&) = delete;
  UniqueResource(UniqueResource&& other) noexcept : value_(other.Release()) {}
  UniqueResource& operator=(UniqueResource&& other) noexcept {
    if (this != &other) Reset(other.Release());
    return *this;
  }
  ~UniqueResource() { Reset(); }

  Type Get() const { return value_; }
  explicit operator bool() const { return Traits::IsValid(value_); }

  // Closes what is held and takes `value` over.
  void Reset(Type value = Traits::Invalid()) {
    if (Traits::IsValid(value_)) Traits::Close(value_);
    value_ = value;
  }
  // Closes what is held and hands out the slot for a call that fills it.
  Type* Put() {
    Reset();
    return &value_;
  }
  // Gives up ownership without closing.
  Type Release() { return std::exchange(value_, Traits::Invalid()); }

 private:
  Type value_ = Traits::Invalid();
};

// Kernel object handles. Kernel calls fail with null or with
// INVALID_HANDLE_VALUE (files): neither is a handle.
struct KernelHandleTraits {
  using Type = HANDLE;
  static Type Invalid() { return nullptr; }
  static bool IsValid(Type h) { return h != nullptr && h != INVALID_HANDLE_VALUE; }
  static void Close(Type h) { CloseHandle(h); }
};
using UniqueHandle = UniqueResource<KernelHandleTraits>;

// An open registry key.
struct RegistryKeyTraits {
  using Type = HKEY;
  static Type Invalid() { return nullptr; }
  static bool IsValid(Type k) { return k != nullptr; }
  static void Close(Type k) { RegCloseKey(k); }
};
using ScopedRegKey = UniqueResource<RegistryKeyTraits>;

// A block the system allocated for the caller with LocalAlloc.
struct LocalMemoryTraits {
  using Type = HLOCAL;
  static Type Invalid() { return nullptr; }
  static bool IsValid(Type p) { return p != nullptr; }
  static void Close(Type p) { LocalFree(p); }
};
using UniqueLocalMemory = UniqueResource<LocalMemoryTraits>;

// A security identifier from AllocateAndInitializeSid.
struct SidTraits {
  using Type = PSID;
  static Type Invalid() { return nullptr; }
  static bool IsValid(Type p) { return p != nullptr; }
  static void Close(Type p) { FreeSid(p); }
};
using UniqueSid = UniqueResource<SidTraits>;

// A mapped view of a file mapping.
struct ViewTraits {
  using Type = void*;
  static Type Invalid() { return nullptr; }
  static bool IsValid(Type p) { return p != nullptr; }
  static void Close(Type p) { UnmapViewOfFile(p); }
};
using UniqueView = UniqueResource<ViewTraits>;

// A library loaded with LoadLibrary.
struct ModuleTraits {
  using Type = HMODULE;
  static Type Invalid() { return nullptr; }
  static bool IsValid(Type m) { return m != nullptr; }
  static void Close(Type m) { FreeLibrary(m); }
};
using UniqueModule = UniqueResource<ModuleTraits>;

}  // namespace quillon
