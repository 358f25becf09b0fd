// Owns a file mapping and one view of it; unmaps the view and closes the
// mapping exactly once, on every path.
#pragma once

#include "platform/UniqueHandle.h"

#include <windows.h>

#include <cstddef>
#include <cstdint>
#include <utility>

namespace quillon {

class MappedView {
 public:
  MappedView() = default;
  MappedView(const MappedView&) = delete;
  MappedView& operator=(const MappedView&) = delete;
  ~MappedView() { Reset(); }

  // Takes `mapping` over and maps `size` bytes of it; false (and nothing held)
  // when there is no mapping or the view cannot be made.
  bool Map(UniqueHandle mapping, size_t size) {
    Reset();
    if (!mapping) return false;
    view_ = static_cast<uint8_t*>(MapViewOfFile(mapping.Get(), FILE_MAP_ALL_ACCESS, 0, 0, size));
    if (view_ != nullptr) mapping_ = std::move(mapping);
    return view_ != nullptr;
  }

  void Reset() {
    if (view_ != nullptr) UnmapViewOfFile(view_);
    view_ = nullptr;
    mapping_.Reset();
  }

  uint8_t* Get() const { return view_; }
  explicit operator bool() const { return view_ != nullptr; }

 private:
  UniqueHandle mapping_;
  uint8_t* view_ = nullptr;
};

}  // namespace quillon
