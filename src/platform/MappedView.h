// A file mapping and one view of it; the view is unmapped and the mapping
// closed exactly once, on every path.
#pragma once

#include "platform/UniqueResource.h"

#include <cstddef>
#include <cstdint>
#include <utility>

namespace quillon {

class MappedView {
 public:
  // Takes `mapping` over and maps `size` bytes of it; false (and nothing held)
  // when there is no mapping or the view cannot be made.
  bool Map(UniqueHandle mapping, size_t size) {
    Reset();
    if (!mapping) return false;
    view_.Reset(MapViewOfFile(mapping.Get(), FILE_MAP_ALL_ACCESS, 0, 0, size));
    if (view_) mapping_ = std::move(mapping);
    return static_cast<bool>(view_);
  }

  // The view goes before the mapping it belongs to.
  void Reset() {
    view_.Reset();
    mapping_.Reset();
  }

  uint8_t* Get() const { return static_cast<uint8_t*>(view_.Get()); }
  explicit operator bool() const { return static_cast<bool>(view_); }

 private:
  UniqueHandle mapping_;
  UniqueView view_;
};

}  // namespace quillon
