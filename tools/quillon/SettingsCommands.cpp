// quillon set and quillon settings: the values the effect watches under
// HKLM\SOFTWARE\Marrowin\Quillon.
#include "common/ToolSupport.h"
#include "diag/Logger.h"
#include "platform/Registry.h"
#include "platform/RegistrySettings.h"
#include "quillon/Commands.h"
#include "quillon/Console.h"
#include "system/Microphones.h"
#include "system/RegistryEdit.h"

#include <windows.h>

#include <algorithm>
#include <cwctype>
#include <iterator>

namespace quillon::cli {

using system::Apply;
using system::Choose;
using system::Describe;
using system::FriendlyName;
using system::HklmText;
using system::KnownMicrophones;
using system::Microphone;
using system::RegChange;
using system::RegValue;
using system::RunningMicrophones;
using system::SubKeys;
using tools::SystemText;
using tools::Utf8;

namespace {

// Writes one value below the settings key; one line on failure.
bool WriteValue(const std::wstring& subKey, const wchar_t* name, const RegValue& value) {
  const std::wstring path = subKey.empty() ? kSettingsKey : EndpointSettingsKey(subKey);
  std::wstring failedKey;
  const LSTATUS status = Apply({RegChange::Set(path, name, value)}, failedKey);
  if (status != ERROR_SUCCESS) {
    Fail("cannot write %s\\%s: %s%s", HklmText(path).c_str(), Utf8(name).c_str(), SystemText(status).c_str(),
         status == ERROR_ACCESS_DENIED ? " (run it as Administrator)" : "");
    return false;
  }
  return true;
}

int SetGain(const Arguments& args) {
  long long db = 0;
  if (args.positional.size() != 2 || !ParseWhole(args.positional[1], 0, kMaxMicGainDb, db)) {
    const std::string given = args.positional.size() > 1 ? Utf8(args.positional[1]) : "";
    return UsageError("gain " + given + ": give whole decibels from 0 to " + std::to_string(kMaxMicGainDb), "set");
  }
  Microphone mic;
  std::string error;
  if (!Choose(KnownMicrophones(), args.Value("--mic"), mic, error)) {
    Fail("%s", error.c_str());
    return kExitFailed;
  }
  if (!WriteValue(MicGainSubkey(mic.endpointId), kMicGainValue, RegValue::Dword(static_cast<DWORD>(db)))) return kExitFailed;
  Print("gain of %s set to %lld dB\n", Describe(mic).c_str(), db);
  return kExitDone;
}

int SetBlockVoice(const Arguments& args) {
  const std::string value = args.positional.size() == 2 ? Utf8(args.positional[1]) : "";
  if (value != "on" && value != "off") return UsageError("block-voice " + value + ": give on or off", "set");
  if (!WriteValue(L"", kBlockVoiceValue, RegValue::Dword(value == "on" ? 1 : 0))) return kExitFailed;
  Print("block voice %s\n", value.c_str());
  return kExitDone;
}

// "trace, debug, info, warn, error or nolog"
std::string LevelTexts() {
  std::string list;
  const size_t count = std::size(kLogLevels);
  for (size_t i = 0; i < count; ++i) list += (i == 0 ? "" : i + 1 == count ? " or " : ", ") + Utf8(kLogLevels[i].text);
  return list;
}

int SetLogLevel(const Arguments& args) {
  std::wstring level = args.positional.size() == 2 ? args.positional[1] : L"";
  for (wchar_t& c : level) c = static_cast<wchar_t>(std::towlower(c));
  bool known = false;
  for (const LogLevelName& name : kLogLevels) known = known || level == name.text;
  if (!known) return UsageError("log-level " + Utf8(level) + ": give " + LevelTexts(), "set");
  if (!WriteValue(L"", kLogLevelValue, RegValue::Text(level))) return kExitFailed;
  Print("log level %s\n", Utf8(level).c_str());
  return kExitDone;
}

}  // namespace

int RunSet(const Arguments& args) {
  const std::string what = args.positional.empty() ? "" : Utf8(args.positional[0]);
  if (args.Has("--mic") && what != "gain") return UsageError("--mic goes with set gain only", "set");
  if (what == "gain") return SetGain(args);
  if (what == "block-voice") return SetBlockVoice(args);
  if (what == "log-level") return SetLogLevel(args);
  return UsageError(what.empty() ? "set needs a setting" : "unknown setting " + what, "set");
}

int RunSettings(const Arguments& args) {
  if (!args.positional.empty()) return UsageError("settings takes no arguments", "settings");
  const std::wstring root = kSettingsPath;
  uint32_t blockVoice = 0;
  const bool blockSet = ReadRegistryDword(root + kBlockVoiceValue, blockVoice).Ok();
  Print("block voice  %s%s\n", blockSet && blockVoice != 0 ? "on" : "off", blockSet ? "" : " (default)");
  std::wstring level;
  const bool levelSet = ReadRegistryString(root + kLogLevelValue, level).Ok();
  // The effect reads any other word as info.
  std::string shown = levelSet ? "info" : "error";
  for (const LogLevelName& name : kLogLevels) {
    if (levelSet && _wcsicmp(level.c_str(), name.text) == 0) shown = Utf8(name.text);
  }
  Print("log level    %s%s\n", shown.c_str(), levelSet ? "" : " (default)");
  // Each microphone with a gain value, and each running one without.
  std::vector<Microphone> mics;
  const std::wstring suffix = kMicGainKeySuffix;
  for (const std::wstring& sub : SubKeys(kSettingsKey)) {
    if (sub.size() > suffix.size() && sub.compare(sub.size() - suffix.size(), suffix.size(), suffix) == 0) {
      const std::wstring endpointId = sub.substr(0, sub.size() - suffix.size());
      mics.push_back({endpointId, FriendlyName(endpointId)});
    }
  }
  for (const Microphone& running : RunningMicrophones()) {
    bool listed = false;
    for (const Microphone& m : mics) listed = listed || _wcsicmp(m.endpointId.c_str(), running.endpointId.c_str()) == 0;
    if (!listed) mics.push_back(running);
  }
  for (const Microphone& mic : mics) {
    uint32_t db = 0;
    const bool set = ReadRegistryDword(MicGainPath(mic.endpointId), db).Ok();
    const std::string value = std::to_string(std::min(db, kMaxMicGainDb)) + " dB" + (set ? "" : " (default)");
    Print("gain         %-15s  %s\n", value.c_str(), Describe(mic).c_str());
  }
  return kExitDone;
}

}  // namespace quillon::cli
