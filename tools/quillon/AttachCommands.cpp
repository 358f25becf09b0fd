// quillon attach, detach and reattach: put Quillon into microphones' effect
// chains with a backup of what was there, and restore it. Every check is made
// for every named microphone before anything is written; --dry-run prints the
// changes instead of making them.
#include "common/ToolSupport.h"
#include "platform/UniqueResource.h"
#include "quillon/Commands.h"
#include "quillon/Console.h"
#include "quillon/MicrophoneChoice.h"
#include "system/Administrator.h"
#include "system/Attachment.h"
#include "system/AudioService.h"
#include "system/DefaultMicrophone.h"
#include "system/ProtectedAudio.h"
#include "system/QuillonServer.h"

#include <windows.h>

namespace quillon::cli {

using system::Apply;
using system::AttachChanges;
using system::Backup;
using system::CallRegistration;
using system::CheckQuillonDll;
using system::ComClassChanges;
using system::CompositeList;
using system::DefaultMicrophoneGuid;
using system::Describe;
using system::DetachChanges;
using system::Endpoint;
using system::Flow;
using system::FxValueName;
using system::HasQuillon;
using system::HklmText;
using system::HoldsQuillon;
using system::IsAdministrator;
using system::Names;
using system::OriginalEffect;
using system::QuillonDllPath;
using system::ReadBackup;
using system::ReadEndpoints;
using system::RegChange;
using system::RegFilePath;
using system::RegFileText;
using system::RestartAudioService;
using system::RestoreChanges;
using system::ServiceRestart;
using system::TakeBackup;
using system::TakeOwnership;
using system::WriteRegFile;
using tools::SystemText;
using tools::Utf8;

namespace {

struct Target {
  Endpoint endpoint;
  Backup backup;
};

// The endpoints a command names: by name, every one `all` accepts, or the default microphone.
bool Select(const Arguments& args, const char* command, bool (*all)(const Endpoint&), std::vector<Endpoint>& chosen,
            int& exitCode) {
  const bool byAll = args.Has("--all"), byDefault = args.Has("--default");
  if (args.positional.empty() == !(byAll || byDefault) || (byAll && byDefault)) {
    exitCode = UsageError("name the microphones, or give --all", command);
    return false;
  }
  const std::vector<Endpoint> captures = ReadEndpoints(Flow::kCapture);
  std::vector<std::wstring> names = args.positional;
  if (byDefault) {
    std::string error;
    const std::wstring guid = DefaultMicrophoneGuid(error);
    if (guid.empty()) {
      Fail("%s", error.c_str());
      exitCode = kExitFailed;
      return false;
    }
    names = {guid};
  }
  for (const std::wstring& name : names) {
    std::string error;
    const Endpoint* endpoint = ResolveMicrophone(captures, name, error);
    if (endpoint == nullptr) {
      Fail("%s", error.c_str());
      exitCode = kExitFailed;
      return false;
    }
    bool twice = false;
    for (const Endpoint& earlier : chosen) twice = twice || earlier.guid == endpoint->guid;
    if (!twice) chosen.push_back(*endpoint);
  }
  if (byAll) {
    for (const Endpoint& endpoint : captures) {
      if (all(endpoint)) chosen.push_back(endpoint);
    }
  }
  return true;
}

bool RequireAdministrator(const Arguments& args, const char* command) {
  if (args.Has("--dry-run") || IsAdministrator()) return true;
  Fail("%s changes the audio settings of Windows: run it as Administrator (or see the changes with --dry-run)",
       command);
  return false;
}

bool CheckDll() {
  std::string error;
  if (CheckQuillonDll(QuillonDllPath(), error)) return true;
  Fail("%s", error.c_str());
  return false;
}

// Whether this process may change the endpoint's effects. A key that belongs
// to the system is given to the Administrators group with --take-ownership.
bool CheckWriteAccess(const Arguments& args, const Endpoint& endpoint) {
  if (args.Has("--dry-run")) return true;
  ScopedRegKey key;
  const bool fx = endpoint.hasFxKey;
  LSTATUS status = RegOpenKeyExW(HKEY_LOCAL_MACHINE, (fx ? endpoint.FxKey() : endpoint.Key()).c_str(), 0,
                                 (fx ? KEY_SET_VALUE : KEY_CREATE_SUB_KEY) | KEY_WOW64_64KEY, key.Put());
  if (status == ERROR_ACCESS_DENIED && args.Has("--take-ownership")) {
    std::string error;
    if (!TakeOwnership(endpoint.Key(), error)) {
      Fail("%s", error.c_str());
      return false;
    }
    Print("took %s for the Administrators group and granted them full access\n", HklmText(endpoint.Key()).c_str());
    return true;
  }
  if (status == ERROR_ACCESS_DENIED) {
    Fail("%s belongs to the system and cannot be changed; --take-ownership gives it to the Administrators group "
         "and grants them full access",
         HklmText(fx ? endpoint.FxKey() : endpoint.Key()).c_str());
    return false;
  }
  return true;
}

void PrintChanges(const std::vector<RegChange>& changes) {
  for (const RegChange& change : changes) Print("  %s\n", Describe(change).c_str());
}

// Applies the changes; on a failure undoes them and says why.
bool ApplyOrUndo(const std::vector<RegChange>& changes, const std::vector<RegChange>& undo, const Endpoint& endpoint) {
  std::wstring failedKey;
  const LSTATUS status = Apply(changes, failedKey);
  if (status == ERROR_SUCCESS) return true;
  std::wstring ignored;
  Apply(undo, ignored);
  Fail("%s: cannot write %s: %s%s; nothing was changed", endpoint.Describe().c_str(), HklmText(failedKey).c_str(),
       SystemText(status).c_str(),
       status == ERROR_ACCESS_DENIED ? " (--take-ownership gives the key to the Administrators group)" : "");
  return false;
}

// Registers the Quillon.dll beside quillon.exe with the audio engine and COM.
bool Register(bool dryRun) {
  const std::wstring dll = QuillonDllPath();
  const std::vector<RegChange> changes = ComClassChanges(dll);
  if (dryRun) {
    Print("register %s (DllRegisterServer) and its COM class:\n", Utf8(dll).c_str());
    PrintChanges(changes);
    return true;
  }
  std::string error;
  if (!system::RegisterServer(dll, error)) {
    Fail("%s", error.c_str());
    return false;
  }
  return true;
}

int Finish(const Arguments& args, bool changed) {
  if (args.Has("--dry-run")) {
    if (changed) Print("then restart the audio service\ndry run: nothing was written\n");
    return kExitDone;
  }
  if (!changed) return kExitDone;
  if (args.Has("--no-restart")) {
    Print("restart the audio service (or Windows) for the change to take effect\n");
    return kExitDone;
  }
  const ServiceRestart restart = RestartAudioService();
  if (!restart.ok) {
    Fail("%s", restart.message.c_str());
    return kExitFailed;
  }
  Print("%s\n", restart.message.c_str());
  return kExitDone;
}

// On a Windows that loads only signed effects unless told otherwise, tells it
// otherwise, noting that Quillon did.
bool TurnOffProtectedAudioWhereNeeded(bool dryRun) {
  const DWORD build = system::WindowsBuild();
  if (!system::NeedsProtectedAudioOff(build) || system::ProtectedAudioIsOff()) return true;
  const std::vector<RegChange> changes = system::TurnOffProtectedAudio();
  if (dryRun) {
    Print("turn off protected audio, which Windows build %lu has on:\n", static_cast<unsigned long>(build));
    PrintChanges(changes);
    return true;
  }
  std::wstring failedKey;
  if (const LSTATUS status = Apply(changes, failedKey)) {
    std::wstring ignored;
    Apply(system::RestoreProtectedAudio(), ignored);
    Fail("cannot turn off protected audio: cannot write %s: %s", HklmText(failedKey).c_str(),
         SystemText(status).c_str());
    return false;
  }
  Print("turned off protected audio (DisableProtectedAudioDG): Windows build %lu loads no effect Microsoft did not "
        "sign without it\n",
        static_cast<unsigned long>(build));
  return true;
}

// Attaches to every target; the first failure stops, undone.
bool AttachAll(const Arguments& args, const std::vector<Target>& targets) {
  const bool dryRun = args.Has("--dry-run");
  if (!Register(dryRun) || !TurnOffProtectedAudioWhereNeeded(dryRun)) return false;
  for (const Target& target : targets) {
    const Endpoint& endpoint = target.endpoint;
    const std::vector<RegChange> changes = AttachChanges(endpoint, target.backup);
    const std::wstring regFile = RegFilePath(endpoint);
    if (dryRun) {
      Print("attach to %s:\n  write %s\n", endpoint.Describe().c_str(), Utf8(regFile).c_str());
      PrintChanges(changes);
      continue;
    }
    std::string error;
    if (!WriteRegFile(regFile, RegFileText(endpoint, target.backup), error)) {
      Fail("%s", error.c_str());
      return false;
    }
    if (!ApplyOrUndo(changes, DetachChanges(endpoint, target.backup), endpoint)) {
      DeleteFileW(regFile.c_str());
      return false;
    }
    const std::optional<std::wstring> original = OriginalEffect(endpoint, target.backup.slot.c_str());
    Print("attached to %s; %s; backup in %s\n", endpoint.Describe().c_str(),
          original ? ("its own effect " + Utf8(*original) + " runs first").c_str() : "it had no effect of its own",
          Utf8(regFile).c_str());
  }
  return true;
}

// Once no microphone has Quillon, protected audio goes back on if Quillon turned it off.
bool RestoreProtectedAudioWhenUnused() {
  for (const Endpoint& endpoint : ReadEndpoints(Flow::kCapture)) {
    if (HasQuillon(endpoint) || ReadBackup(endpoint)) return true;
  }
  const std::vector<RegChange> changes = system::RestoreProtectedAudio();
  if (changes.empty()) return true;
  std::wstring failedKey;
  if (const LSTATUS status = Apply(changes, failedKey)) {
    Fail("cannot turn protected audio back on: cannot write %s: %s", HklmText(failedKey).c_str(),
         SystemText(status).c_str());
    return false;
  }
  Print("turned protected audio back on, as it was before Quillon\n");
  return true;
}

bool IsActive(const Endpoint& endpoint) { return (endpoint.state & 0xF) == 1; }
bool HasBackup(const Endpoint& endpoint) { return ReadBackup(endpoint).has_value(); }

}  // namespace

int RunAttach(const Arguments& args) {
  std::vector<Endpoint> chosen;
  int exitCode = kExitDone;
  if (!Select(args, "attach", IsActive, chosen, exitCode)) return exitCode;
  if (!RequireAdministrator(args, "attach") || !CheckDll()) return kExitFailed;
  if (chosen.empty()) {
    Fail("no microphone is active");
    return kExitFailed;
  }
  std::vector<Target> targets;
  bool refused = false;
  for (const Endpoint& endpoint : chosen) {
    const std::string name = endpoint.Describe();
    const FxValueName* composite = CompositeList(endpoint);
    if ((endpoint.state & 0xF) == 4) {
      Fail("%s is not present", name.c_str());
      refused = true;
    } else if (HasQuillon(endpoint) && HasBackup(endpoint)) {
      Print("%s: already attached\n", name.c_str());
    } else if (HasQuillon(endpoint)) {
      Fail("%s: Quillon is attached without a backup, so its own effect is unknown; restore the effect by hand "
           "or from a .reg file",
           name.c_str());
      refused = true;
    } else if (composite != nullptr && !args.Has("--force")) {
      Fail("%s has %s (%s), whose order of processing is not known; --force attaches anyway", name.c_str(),
           composite->label, Utf8(composite->name).c_str());
      refused = true;
    } else {
      targets.push_back({endpoint, TakeBackup(endpoint)});
    }
  }
  if (refused) return kExitFailed;
  for (const Target& target : targets) {
    if (!CheckWriteAccess(args, target.endpoint)) return kExitFailed;
  }
  if (!targets.empty() && !AttachAll(args, targets)) return kExitFailed;
  return Finish(args, !targets.empty());
}

int RunDetach(const Arguments& args) {
  std::vector<Endpoint> chosen;
  int exitCode = kExitDone;
  if (!Select(args, "detach", HasBackup, chosen, exitCode)) return exitCode;
  if (!RequireAdministrator(args, "detach")) return kExitFailed;
  if (chosen.empty()) {
    Print("no microphone has a backup; nothing to restore\n");
    return args.Has("--dry-run") || RestoreProtectedAudioWhenUnused() ? kExitDone : kExitFailed;
  }
  std::vector<Target> targets;
  for (const Endpoint& endpoint : chosen) {
    const std::optional<Backup> backup = ReadBackup(endpoint);
    if (!backup) {
      Fail("%s: no backup; nothing to restore", endpoint.Describe().c_str());
      return kExitFailed;
    }
    targets.push_back({endpoint, *backup});
  }
  for (const Target& target : targets) {
    if (!CheckWriteAccess(args, target.endpoint)) return kExitFailed;
  }
  for (const Target& target : targets) {
    const Endpoint& endpoint = target.endpoint;
    const std::vector<RegChange> changes = DetachChanges(endpoint, target.backup);
    const std::wstring regFile = RegFilePath(endpoint);
    if (args.Has("--dry-run")) {
      Print("detach from %s:\n", endpoint.Describe().c_str());
      PrintChanges(changes);
      Print("  delete %s\n", Utf8(regFile).c_str());
      continue;
    }
    if (!ApplyOrUndo(changes, RestoreChanges(endpoint, TakeBackup(endpoint)), endpoint)) return kExitFailed;
    DeleteFileW(regFile.c_str());
    Print("restored the effects of %s\n", endpoint.Describe().c_str());
  }
  if (!args.Has("--dry-run") && !RestoreProtectedAudioWhenUnused()) return kExitFailed;
  return Finish(args, true);
}

int RunReattach(const Arguments& args) {
  if (!args.positional.empty()) return UsageError("reattach takes no microphones: it looks at every one", "reattach");
  if (!RequireAdministrator(args, "reattach") || !CheckDll()) return kExitFailed;
  std::vector<Target> targets;
  bool refused = false;
  for (const Endpoint& endpoint : ReadEndpoints(Flow::kCapture)) {
    const std::optional<Backup> backup = ReadBackup(endpoint);
    if (!backup || HoldsQuillon(endpoint, backup->slot)) continue;
    const FxValueName* composite = CompositeList(endpoint);
    if (composite != nullptr && !args.Has("--force")) {
      Fail("%s has %s (%s) now, whose order of processing is not known; --force attaches anyway",
           endpoint.Describe().c_str(), composite->label, Utf8(composite->name).c_str());
      refused = true;
      continue;
    }
    Print("%s: its effects were rewritten; attaching again\n", endpoint.Describe().c_str());
    targets.push_back({endpoint, TakeBackup(endpoint)});
  }
  if (refused) return kExitFailed;
  if (targets.empty()) {
    Print("every microphone with a backup still has Quillon; nothing to do\n");
    return kExitDone;
  }
  for (const Target& target : targets) {
    if (!CheckWriteAccess(args, target.endpoint)) return kExitFailed;
  }
  if (!AttachAll(args, targets)) return kExitFailed;
  return Finish(args, true);
}

}  // namespace quillon::cli
