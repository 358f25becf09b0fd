// What stands between an installed Quillon and a microphone that runs it:
// findings about its registration, its attachment to each microphone, the
// protected audio of older Windows, and whether the audio engine loaded it.
// Each finding that is a problem says what fixes it, and which of the fixes
// `quillon check --fix` can make.
#pragma once

#include "system/Endpoints.h"

#include <windows.h>

#include <string>
#include <vector>

namespace quillon::system {

// What --fix does about a finding; kByHand when it cannot.
enum class Remedy { kNone, kByHand, kRegister, kAttach, kReattach, kEnhancementsOn, kDefaultMode, kOriginalEffect,
                    kProtectedAudio, kRestartAudio };

struct Finding {
  std::string id;     // stable, for scripts: "not-registered", "enhancements-off", ...
  bool problem = false;
  std::string what;   // one line
  std::string headline;  // a few words of it, for a verdict in a status bar
  std::string fix;    // the command or the switch in Windows that fixes it; "" when fine
  Remedy remedy = Remedy::kNone;
};

// The registration of the effect and the DLL it names: `version` is the
// version that DLL must carry (that of the program that checks it).
std::vector<Finding> CheckRegistration(const std::string& version);

// Protected audio on a Windows of build `build`.
std::vector<Finding> CheckProtectedAudio(DWORD build);

// Whether Quillon is in the endpoint's stream effect slot, so that the audio
// engine loads it, and matches its backup.
std::vector<Finding> CheckAttachment(const Endpoint& endpoint);

bool AnyProblem(const std::vector<Finding>& findings);
// A problem that --fix can fix.
inline bool Fixable(const Finding& finding) {
  return finding.problem && finding.remedy != Remedy::kNone && finding.remedy != Remedy::kByHand;
}

struct MicrophoneCheck {
  Endpoint endpoint;
  std::vector<Finding> findings;
};

struct CheckReport {
  std::string version;
  DWORD build = 0;
  std::vector<Finding> machine;  // registration and protected audio
  std::vector<MicrophoneCheck> microphones;
};

// How long the check records from a microphone waiting for the effect.
constexpr DWORD kProbeMs = 3000;

// Every finding for the endpoints. With `record`, a microphone whose effect
// does not run is recorded from for up to kProbeMs to see the audio engine
// load it; without, only the register is looked at, and a microphone nothing
// records from is not a problem. The calling thread must have entered COM.
CheckReport CheckEffect(const std::vector<Endpoint>& endpoints, const std::string& version, DWORD build, bool record);
bool Passed(const CheckReport& report);
int CountProblems(const CheckReport& report, bool fixableOnly);
// One sentence for a person: where Quillon runs, or the first thing wrong.
std::string Verdict(const CheckReport& report);

}  // namespace quillon::system
