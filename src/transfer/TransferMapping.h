// One slot's transfer mapping as the instance register holds it.
#pragma once

#include "transfer/SharedLayout.h"

#include <windows.h>

#include <cstdint>

namespace quillon {

struct TransferMapping {
  HANDLE mappingHandle = nullptr;
  uint8_t* view = nullptr;
  int32_t slot = -1;

  TransferBlock* Block() const { return reinterpret_cast<TransferBlock*>(view); }
};

}  // namespace quillon
