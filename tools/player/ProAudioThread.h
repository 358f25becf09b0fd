// Puts the calling thread in the multimedia class scheduler's "Pro Audio"
// task for as long as the object lives, as Windows' own audio threads are:
// the scheduler then runs it ahead of ordinary threads (the decoders among
// them), so that a busy machine delays a mix last. The thread is first made
// time-critical within its process: where the scheduler is missing, refuses
// or is only a stand-in that changes nothing (as under Wine, where thread
// priorities become Linux nice values), that priority alone keeps it ahead.
// Both are undone when the object goes.
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
  int priorWas_ = THREAD_PRIORITY_ERROR_RETURN;  // the thread's priority before, to put back
};

}  // namespace quillon::player
