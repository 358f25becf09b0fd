// Puts the calling thread in the multimedia class scheduler's "Pro Audio"
// task for as long as the object lives, as Windows' own audio threads are:
// the scheduler then runs it ahead of ordinary threads (the decoders among
// them), so that a busy machine delays a mix last. Where the scheduler is
// missing or refuses, the thread runs on at its own priority.
#pragma once

#include "platform/UniqueResource.h"

#include <windows.h>

namespace quillon::player {

class ProAudioThread {
 public:
  ProAudioThread();
  ~ProAudioThread();
  ProAudioThread(const ProAudioThread&) = delete;
  ProAudioThread& operator=(const ProAudioThread&) = delete;

 private:
  UniqueModule avrt_;  // avrt.dll, loaded here: the toolchain has no import library for it
  HANDLE task_ = nullptr;
};

}  // namespace quillon::player
