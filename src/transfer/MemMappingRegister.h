// This process's view of the machine-wide register of running effect
// instances, and the transfer mappings of the slots it claimed.
#pragma once

#include "diag/LineResult.h"
#include "transfer/SharedLayout.h"
#include "transfer/TransferMapping.h"

#include <string>

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

  // Claims the lowest free slot for `endpointId`, creates its transfer mapping
  // and copies the stream's `format` into it before the slot is marked in
  // use, so that a player never sees a slot in use without a format. Code 1
  // when the register is missing or full.
  LineResult RegisterApo(const std::wstring& endpointId, const UNCOMPRESSEDAUDIOFORMAT& format);

  int32_t Slot() const { return slot; }
  TransferMapping* Control() { return transfer.view ? &transfer : nullptr; }

 private:
  RegisterBlock* Register() const { return reinterpret_cast<RegisterBlock*>(view.Get()); }

  MappedView view;
  TransferMapping transfer;
  int32_t slot = -1;
};

}  // namespace quillon
