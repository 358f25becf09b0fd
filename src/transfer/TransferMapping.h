// One slot's transfer mapping as the instance register holds it.
#pragma once

#include "platform/MappedView.h"
#include "transfer/SharedLayout.h"

namespace quillon {

struct TransferMapping {
  MappedView view;

  TransferBlock* Block() const { return reinterpret_cast<TransferBlock*>(view.Get()); }
};

}  // namespace quillon
