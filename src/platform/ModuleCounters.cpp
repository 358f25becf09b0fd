#include "platform/ModuleCounters.h"

namespace quillon {

std::atomic<uint32_t> objectCount{0};
std::atomic<uint32_t> lockCount{0};

}  // namespace quillon
