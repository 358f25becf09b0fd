// Process-wide counters that decide whether the library may be unloaded:
// live objects (factories, aggregates, effects) and server locks.
#pragma once

#include <atomic>
#include <cstdint>

namespace quillon {

extern std::atomic<uint32_t> objectCount;
extern std::atomic<uint32_t> lockCount;

}  // namespace quillon
