// quillon register and unregister: the Quillon.dll beside quillon.exe with the
// audio engine and COM, as the setup package does it; and restart-audio, with
// which the setup has the audio service load a new Quillon.dll.
#include "common/ToolSupport.h"
#include "quillon/Commands.h"
#include "quillon/Console.h"
#include "system/Administrator.h"
#include "system/Attachment.h"
#include "system/AudioService.h"
#include "system/QuillonServer.h"

namespace quillon::cli {

using system::Apply;
using system::CallRegistration;
using system::CheckQuillonDll;
using system::ComClassChanges;
using system::ComClassKey;
using system::Endpoint;
using system::Flow;
using system::HasQuillon;
using system::HklmText;
using system::IsAdministrator;
using system::QuillonDllPath;
using system::ReadEndpoints;
using system::RegChange;
using tools::SystemText;
using tools::Utf8;

int RunRegister(const Arguments& args) {
  if (!args.positional.empty()) return UsageError("register takes no arguments", "register");
  if (!IsAdministrator()) {
    Fail("register changes the settings of Windows: run it as Administrator");
    return kExitFailed;
  }
  const std::wstring dll = QuillonDllPath();
  std::string error;
  if (!system::RegisterServer(dll, error)) {
    Fail("%s", error.c_str());
    return kExitFailed;
  }
  Print("registered %s\n", Utf8(dll).c_str());
  return kExitDone;
}

int RunUnregister(const Arguments& args) {
  if (!args.positional.empty()) return UsageError("unregister takes no arguments", "unregister");
  if (!IsAdministrator()) {
    Fail("unregister changes the settings of Windows: run it as Administrator");
    return kExitFailed;
  }
  for (const Endpoint& endpoint : ReadEndpoints(Flow::kCapture)) {
    if (HasQuillon(endpoint)) {
      Fail("Quillon is still attached to %s; detach it first (quillon detach --all)", endpoint.Describe().c_str());
      return kExitFailed;
    }
  }
  const std::wstring dll = QuillonDllPath();
  std::string error;
  std::wstring failedKey;
  if (!CallRegistration(dll, false, error)) {
    Fail("%s", error.c_str());
    return kExitFailed;
  }
  if (const LSTATUS status = Apply({RegChange::DeleteTree(ComClassKey())}, failedKey)) {
    Fail("cannot delete %s: %s", HklmText(failedKey).c_str(), SystemText(status).c_str());
    return kExitFailed;
  }
  Print("unregistered %s\n", Utf8(dll).c_str());
  return kExitDone;
}

int RunRestartAudio(const Arguments& args) {
  if (!args.positional.empty()) return UsageError("restart-audio takes no arguments", "restart-audio");
  const system::ServiceRestart restart = system::RestartAudioService();
  if (!restart.ok) {
    Fail("%s", restart.message.c_str());
    return kExitFailed;
  }
  Print("%s\n", restart.message.c_str());
  return kExitDone;
}

}  // namespace quillon::cli
