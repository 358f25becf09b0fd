// A named mutex created (or opened) and waited for around one use, released
// and closed on every path.
#pragma once

#include "platform/UniqueResource.h"
#include "platform/SharedSecurity.h"

namespace quillon {

class NamedMutexLock {
 public:
  NamedMutexLock(const wchar_t* name, DWORD timeoutMs)
      : mutex_(CreateMutexW(WinUtils::GetNullDaclSecurityAttributes(), FALSE, name)),
        wait_(WaitForSingleObject(mutex_.Get(), timeoutMs)) {}
  NamedMutexLock(const NamedMutexLock&) = delete;
  NamedMutexLock& operator=(const NamedMutexLock&) = delete;
  // Releasing a mutex that is not owned (after a time-out) simply fails.
  ~NamedMutexLock() {
    if (mutex_) ReleaseMutex(mutex_.Get());
  }

  // WAIT_OBJECT_0, WAIT_ABANDONED, WAIT_TIMEOUT or WAIT_FAILED (no mutex).
  DWORD WaitResult() const { return wait_; }

 private:
  UniqueHandle mutex_;
  DWORD wait_;
};

}  // namespace quillon
