// Result of an operating-system utility: an HRESULT (0 = success) and the
// source line at which it arose, kept for diagnostics. Callers test only the code.
#pragma once

#include <cstdint>

namespace quillon {

struct LineResult {
  int32_t code = 0;
  uint32_t line = 0;
  bool Ok() const { return code == 0; }
};

}  // namespace quillon
