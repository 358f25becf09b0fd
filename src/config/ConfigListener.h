// The configuration listener thread of a registered instance: keeps block
// voice, microphone gain and the log level in step with the registry while
// audio runs. It reads all three at start and again whenever a value below the
// program's key changes.
#pragma once

#include <windows.h>

#include <atomic>
#include <string>
#include <thread>

namespace quillon {

// The settings the listener writes and the real-time routine reads.
struct EffectSettings {
  std::atomic<bool> blockVoice{false};  // received sound replaces the microphone
  std::atomic<float> micGain{1.0f};     // linear gain of the microphone signal
};

class ConfigListener {
 public:
  ~ConfigListener() { Stop(); }

  // Starts the thread. `changedEvent` is the instance's configuration event;
  // it and `settings` must outlive the thread. Throws std::system_error when
  // no thread can be made.
  void Start(const std::wstring& instanceName, const std::wstring& endpointId, HANDLE changedEvent,
             EffectSettings& settings);
  // Asks the thread to end; Stop also wakes it and waits for it.
  void RequestStop() { listenerRunning = false; }
  bool Joinable() const { return thread.joinable(); }
  void Stop();

 private:
  void Run();
  void CheckConfigBlockVoice();
  void CheckConfigLogLevel();
  void CheckConfigMicAmp();

  std::wstring instanceName;
  std::wstring endpointId;
  HANDLE configChangedEvent = nullptr;
  EffectSettings* settings = nullptr;
  std::atomic<bool> listenerRunning{false};
  std::thread thread;
};

}  // namespace quillon
