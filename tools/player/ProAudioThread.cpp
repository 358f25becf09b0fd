#include "player/ProAudioThread.h"

namespace quillon::player {
namespace {

using JoinTask = HANDLE(WINAPI*)(LPCWSTR task, LPDWORD index);
using LeaveTask = BOOL(WINAPI*)(HANDLE task);

}  // namespace

ProAudioThread::ProAudioThread() : avrt_(LoadLibraryExW(L"avrt.dll", nullptr, LOAD_LIBRARY_SEARCH_SYSTEM32)) {
  const int prior = GetThreadPriority(GetCurrentThread());
  if (prior != THREAD_PRIORITY_ERROR_RETURN && SetThreadPriority(GetCurrentThread(), THREAD_PRIORITY_TIME_CRITICAL))
    priorWas_ = prior;
  if (!avrt_) return;
  const auto join = reinterpret_cast<JoinTask>(
      reinterpret_cast<void*>(GetProcAddress(avrt_.Get(), "AvSetMmThreadCharacteristicsW")));
  DWORD index = 0;
  if (join != nullptr) task_ = join(L"Pro Audio", &index);
}

ProAudioThread::~ProAudioThread() {
  if (task_ != nullptr) {
    const auto leave = reinterpret_cast<LeaveTask>(
        reinterpret_cast<void*>(GetProcAddress(avrt_.Get(), "AvRevertMmThreadCharacteristics")));
    if (leave != nullptr) leave(task_);
  }
  if (priorWas_ != THREAD_PRIORITY_ERROR_RETURN) SetThreadPriority(GetCurrentThread(), priorWas_);
}

}  // namespace quillon::player
