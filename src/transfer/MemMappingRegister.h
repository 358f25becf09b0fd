// This process's view of the machine-wide register of running effect
// instances, and the transfer mappings of the slots it claimed.
#pragma once

#include "diag/LineResult.h"
#include "transfer/SharedLayout.h"
#include "transfer/TransferMapping.h"

#include <memory>
#include <string>
#include <vector>

namespace quillon {

class MemMappingRegister {
 public:
  // Opens or creates the register mapping under its mutex; on failure `view`
  // stays null and every registration is refused.
  MemMappingRegister();
  // Frees the claimed slot and closes every mapping.
  ~MemMappingRegister();
  MemMappingRegister(const MemMappingRegister&) = delete;
  MemMappingRegister& operator=(const MemMappingRegister&) = delete;

  // Claims the lowest free slot for `endpointId` and creates its transfer
  // mapping. Code 1 when the register is missing or full.
  LineResult RegisterApo(const std::wstring& endpointId);

  int32_t Slot() const { return slot; }
  TransferMapping* Control() const { return control; }

 private:
  RegisterBlock* Register() const { return reinterpret_cast<RegisterBlock*>(view); }

  HANDLE mappingHandle = nullptr;
  uint8_t* view = nullptr;
  std::vector<std::unique_ptr<TransferMapping>> transferMappings;
  int32_t slot = -1;
  TransferMapping* control = nullptr;
};

}  // namespace quillon
