// Reads the watched settings at start and after every change notification.
#include "config/ConfigListener.h"

#include "diag/ErrorDescription.h"
#include "diag/Logger.h"
#include "platform/Registry.h"
#include "platform/RegistrySettings.h"

#include <algorithm>
#include <cmath>

namespace quillon {
namespace {

constexpr const wchar_t* kFunction = L"Quillon::ConfigChangeListenerTask";
const std::wstring kWatchedPath = kSettingsPath;

RegResult OpenWatchedKey(ScopedRegKey& key) {
  return OpenRegistryKey(ParseRegistryPath(kWatchedPath), KEY_NOTIFY, true, key);
}

}  // namespace

void ConfigListener::Start(const std::wstring& name, const std::wstring& endpoint, HANDLE changedEvent,
                           EffectSettings& target) {
  instanceName = name;
  endpointId = endpoint;
  configChangedEvent = changedEvent;
  settings = &target;
  listenerRunning = true;
  thread = std::thread(&ConfigListener::Run, this);
}

void ConfigListener::Stop() {
  listenerRunning = false;
  // Without its event the listener's first wait fails and it ends by itself,
  // so it is joined either way: no thread outlives the unlock.
  if (configChangedEvent != nullptr) SetEvent(configChangedEvent);
  if (thread.joinable()) thread.join();
}

void ConfigListener::Run() {
  const wchar_t* name = instanceName.c_str();
  QLOG_LINE(LOG_TRACE, 536, kFunction, L"%s: Config change listener thread started", name);
  ScopedRegKey key;
  uint32_t failedLine = 0;
  if (!OpenWatchedKey(key).Ok()) {
    failedLine = 541;
  } else {
    // The first wait returns at once, so the settings are read immediately.
    SetEvent(configChangedEvent);
    while (listenerRunning) {
      const DWORD wait = WaitForSingleObject(configChangedEvent, INFINITE);
      if (!listenerRunning) break;
      if (wait == WAIT_OBJECT_0) {
        key.Reset();
        if (!OpenWatchedKey(key).Ok()) {
          failedLine = 558;
          break;
        }
        // Registering the notification resets the event; only value changes are reported.
        RegNotifyChangeKeyValue(key.Get(), TRUE, REG_NOTIFY_CHANGE_LAST_SET, configChangedEvent, TRUE);
        CheckConfigBlockVoice();
        CheckConfigLogLevel();
        CheckConfigMicAmp();
      } else if (wait != WAIT_TIMEOUT) {
        QLOG_LINE(LOG_ERROR, 569, kFunction, L"%s: Config change listener thread wait failed [Code=%x: %s]", name,
                  wait, GetErrorDescription(wait).c_str());
        listenerRunning = false;
        break;
      }
    }
  }
  if (failedLine != 0) {
    QLOG_LINE(LOG_ERROR, failedLine, kFunction,
              L"%s: Finishing config change listener thread, because registry key %s is not accessible", name,
              kWatchedPath.c_str());
    listenerRunning = false;
    return;
  }
  QLOG_LINE(LOG_TRACE, 575, kFunction, L"%s: Config change listener thread finished", name);
}

void ConfigListener::CheckConfigBlockVoice() {
  uint32_t value = 0;
  const bool on = ReadRegistryDword(kWatchedPath + kBlockVoiceValue, value).Ok() && value != 0;
  if (on != settings->blockVoice) {
    settings->blockVoice = on;
    QLOG_LINE(LOG_TRACE, 588, L"Quillon::CheckConfigBlockVoice", L"Changed filter block voice to %s",
              on ? L"on" : L"off");
  }
}

void ConfigListener::CheckConfigLogLevel() {
  std::wstring text;
  const int32_t level = ReadRegistryString(kWatchedPath + kLogLevelValue, text).Ok() ? ParseLogLevel(text.c_str())
                                                                                   : LOG_ERROR;
  Logger& logger = Logger::Instance();
  if (level != logger.Level()) {
    logger.SetLevel(level);
    // Logged at ERROR so that the change is written even when the new level is ERROR.
    QLOG_LINE(LOG_ERROR, 604, L"Quillon::CheckConfigLogLevel", L"Changed log level to %s", kLogLevels[level].label);
  }
}

void ConfigListener::CheckConfigMicAmp() {
  float gain = 1.0f;
  uint32_t decibels = 0;
  if (ReadRegistryDword(MicGainPath(endpointId), decibels).Ok()) {
    gain = static_cast<float>(std::pow(10.0, std::min(decibels, kMaxMicGainDb) / 20.0));
  }
  if (gain != settings->micGain) {
    settings->micGain = gain;
    QLOG_LINE(LOG_TRACE, 622, L"Quillon::CheckConfigMicAmp", L"Changed mic amp to %.2f", static_cast<double>(gain));
  }
}

}  // namespace quillon
