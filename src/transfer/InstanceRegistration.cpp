// Registration of a locked effect instance with the player application.
#include "effect/Quillon.h"

namespace quillon {

void Quillon::RegisterApoInstanceInMemMapping(const UNCOMPRESSEDAUDIOFORMAT& /*outputFormat*/) {
  // The machine-wide instance register and the sound receiver are not part of
  // the library yet: the instance stays unregistered (instanceIndex -1), which
  // makes the real-time routine pass the capture stream through unchanged.
}

void Quillon::UnregisterApoInstanceInMemMapping() {
  // Sound left over from this lock period is not played in the next one.
  pendingSamples.Reset();
  chunkBuffer.reset();
  chunkSize.store(0, std::memory_order_release);
  chunkPos = 0;
  chunkActive = false;
}

}  // namespace quillon
