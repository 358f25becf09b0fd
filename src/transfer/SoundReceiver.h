// The sound receiver thread of a registered instance: each time the real-time
// routine has taken a chunk, it looks at the slot's transfer mapping under the
// transfer mutex and moves a waiting block into the received sound's queue.
#pragma once

#include "transfer/InstanceRegistration.h"
#include "transfer/ReceivedSound.h"

#include <atomic>
#include <thread>

namespace quillon {

class SoundReceiver {
 public:
  ~SoundReceiver() { Stop(); }

  // Starts the thread for `registration`, feeding `sound`; both must outlive
  // it. Throws std::system_error when no thread can be made.
  void Start(const InstanceRegistration& registration, ReceivedSound& sound);
  // Asks the thread to end and wakes it.
  void RequestStop();
  bool Joinable() const { return thread.joinable(); }
  // Waits for the thread to end.
  void Join();
  void Stop() {
    RequestStop();
    Join();
  }

 private:
  void Run();
  void ReceiveOnce(const std::wstring& mutexName);

  const InstanceRegistration* registration = nullptr;
  ReceivedSound* sound = nullptr;
  std::atomic<bool> receiverRunning{false};
  std::thread thread;
};

}  // namespace quillon
