// quillon set and quillon settings: the values the effect watches under
// HKLM\SOFTWARE\Marrowin\Quillon.
#include "common/ToolSupport.h"
#include "diag/Logger.h"
#include "platform/Registry.h"
#include "platform/RegistrySettings.h"
#include "quillon/Commands.h"
#include "quillon/Console.h"
#include "system/EffectSettings.h"
#include "system/Microphones.h"
#include "system/RegistryEdit.h"

#include <windows.h>

#include <cwctype>
#include <iterator>
#include <optional>
#include <string_view>
#include <vector>

namespace quillon::cli {

using system::Apply;
using system::Choose;
using system::Describe;
using system::EffectSettings;
using system::FriendlyName;
using system::HklmText;
using system::KnownMicrophones;
using system::ReadEffectSettings;
using system::Microphone;
using system::RegChange;
using system::RegValue;
using system::RunningMicrophones;
using system::SubKeys;
using tools::SystemText;
using tools::Utf8;

namespace {

// "trace, debug, info, warn, error or nolog"
std::string LevelTexts() {
  std::string list;
  const size_t count = std::size(kLogLevels);
  for (size_t i = 0; i < count; ++i) list += (i == 0 ? "" : i + 1 == count ? " or " : ", ") + Utf8(kLogLevels[i].text);
  return list;
}

// One setting of a `set` command line, checked: the value it writes and the line it prints.
struct Setting {
  std::wstring subKey;  // below the settings key; empty for the key itself
  const wchar_t* name;
  RegValue value;
  std::string done;
};

// Reads `name value` into `setting`; the problem for a usage line when the value is not one.
std::optional<std::string> ReadSetting(const std::string& name, const std::wstring& word, Setting& setting) {
  const std::string value = Utf8(word);
  if (name == "gain") {
    long long db = 0;
    if (!ParseWhole(word, 0, kMaxMicGainDb, db)) {
      return "gain " + value + ": give whole decibels from 0 to " + std::to_string(kMaxMicGainDb);
    }
    setting = {L"", kMicGainValue, RegValue::Dword(static_cast<DWORD>(db)), std::to_string(db) + " dB"};
  } else if (name == "block-voice") {
    if (value != "on" && value != "off") return "block-voice " + value + ": give on or off";
    setting = {L"", kBlockVoiceValue, RegValue::Dword(value == "on" ? 1 : 0), "block voice " + value};
  } else if (name == "log-level") {
    std::wstring level = word;
    for (wchar_t& c : level) c = static_cast<wchar_t>(std::towlower(c));
    bool known = false;
    for (const LogLevelName& levelName : kLogLevels) known = known || level == levelName.text;
    if (!known) return "log-level " + value + ": give " + LevelTexts();
    setting = {L"", kLogLevelValue, RegValue::Text(level), "log level " + Utf8(level)};
  } else {
    return name.empty() ? "set needs a setting" : "unknown setting " + name;
  }
  return std::nullopt;
}

}  // namespace

// `set NAME VALUE [NAME VALUE]...`: every pair is checked before anything is
// written, so that a mistake in one changes none.
int RunSet(const Arguments& args) {
  const std::vector<std::wstring>& words = args.positional;
  if (words.empty()) return UsageError("set needs a setting", "set");
  std::vector<Setting> settings;
  bool gain = false;
  for (size_t i = 0; i < words.size(); i += 2) {
    const std::string name = Utf8(words[i]);
    Setting setting;
    if (const auto problem = ReadSetting(name, i + 1 < words.size() ? words[i + 1] : L"", setting)) {
      return UsageError(*problem, "set");
    }
    for (const Setting& earlier : settings) {
      if (std::wstring_view(earlier.name) == setting.name) return UsageError(name + " is given twice", "set");
    }
    gain = gain || name == "gain";
    settings.push_back(std::move(setting));
  }
  if (args.Has("--mic") && !gain) return UsageError("--mic goes with set gain only", "set");

  Microphone mic;
  std::vector<RegChange> changes;
  for (Setting& setting : settings) {
    if (std::wstring_view(setting.name) == kMicGainValue) {
      std::string error;
      if (!Choose(KnownMicrophones(), args.Value("--mic"), mic, error)) {
        Fail("%s", error.c_str());
        return kExitFailed;
      }
      setting.subKey = MicGainSubkey(mic.endpointId);
      setting.done = "gain of " + Describe(mic) + " set to " + setting.done;
    }
    const std::wstring path = setting.subKey.empty() ? kSettingsKey : EndpointSettingsKey(setting.subKey);
    changes.push_back(RegChange::Set(path, setting.name, setting.value));
  }
  std::wstring failedKey;
  const LSTATUS status = Apply(changes, failedKey);
  if (status != ERROR_SUCCESS) {
    Fail("cannot write %s: %s%s", HklmText(failedKey).c_str(), SystemText(status).c_str(),
         status == ERROR_ACCESS_DENIED ? " (run it as Administrator)" : "");
    return kExitFailed;
  }
  for (const Setting& setting : settings) Print("%s\n", setting.done.c_str());
  return kExitDone;
}

int RunSettings(const Arguments& args) {
  if (!args.positional.empty()) return UsageError("settings takes no arguments", "settings");
  const std::wstring root = kSettingsPath;
  const EffectSettings common = ReadEffectSettings(L"");
  Print("block voice  %s%s\n", common.blockVoice ? "on" : "off", common.blockVoiceSet ? "" : " (default)");
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
    const EffectSettings effect = ReadEffectSettings(mic.endpointId);
    const std::string value = std::to_string(effect.gainDb) + " dB" + (effect.gainSet ? "" : " (default)");
    Print("gain         %-15s  %s\n", value.c_str(), Describe(mic).c_str());
  }
  return kExitDone;
}

}  // namespace quillon::cli
