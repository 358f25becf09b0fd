// quillon check: whether Quillon runs on the microphones it is attached to
// (or on the one named), each finding with what fixes it; --fix makes the
// fixes it can, as one change that is undone whole if a step fails, restarts
// the audio service and checks again.
#include "common/ComApartment.h"
#include "common/ToolSupport.h"
#include "platform/RegistrySettings.h"
#include "platform/UniqueResource.h"
#include "quillon/Commands.h"
#include "quillon/Console.h"
#include "quillon/MicrophoneChoice.h"
#include "system/Administrator.h"
#include "system/Attachment.h"
#include "system/AudioService.h"
#include "system/EffectCheck.h"
#include "system/ProtectedAudio.h"
#include "system/QuillonServer.h"

#include <nlohmann/json.hpp>

#include <cstdarg>
#include <cstdio>
#include <functional>
#include <map>
#include <optional>

namespace quillon::cli {

using system::CheckReport;
using system::Endpoint;
using system::Finding;
using system::Flow;
using system::MicrophoneCheck;
using system::RegChange;
using system::Remedy;
using tools::Utf8;

namespace {

// The microphones to check: the one named; else every active one Quillon is
// attached to or has a backup of; else every active one.
bool Select(const Arguments& args, std::vector<Endpoint>& chosen) {
  const std::vector<Endpoint> captures = system::ReadEndpoints(Flow::kCapture);
  if (args.Has("--mic")) {
    std::string error;
    const Endpoint* endpoint = ResolveMicrophone(captures, args.Value("--mic"), error);
    if (endpoint == nullptr) {
      Fail("%s", error.c_str());
      return false;
    }
    chosen.push_back(*endpoint);
    return true;
  }
  std::vector<Endpoint> active;
  for (const Endpoint& endpoint : captures) {
    if ((endpoint.state & 0xF) != 1) continue;
    active.push_back(endpoint);
    if (system::HasQuillon(endpoint) || system::ReadBackup(endpoint)) chosen.push_back(endpoint);
  }
  if (chosen.empty()) chosen = active;
  return true;
}

std::string Line(const char* format, ...) __attribute__((format(printf, 1, 2)));
std::string Line(const char* format, ...) {
  char buffer[4096];
  va_list args;
  va_start(args, format);
  std::vsnprintf(buffer, sizeof(buffer), format, args);
  va_end(args);
  return buffer;
}

std::string FindingsText(const std::vector<Finding>& findings) {
  std::string text;
  for (const Finding& finding : findings) {
    text += Line("  %-8s %s\n", finding.problem ? "PROBLEM" : "ok", finding.what.c_str());
    if (!finding.fix.empty()) text += Line("  %-8s fix: %s\n", "", finding.fix.c_str());
  }
  return text;
}

std::string ReportText(const CheckReport& report) {
  std::string text = Line("Quillon %s on Windows build %lu (%s)\n\nQuillon.dll\n", report.version.c_str(),
                          static_cast<unsigned long>(report.build),
                          system::MachineName(system::NativeMachine()).c_str());
  text += FindingsText(report.machine);
  for (const MicrophoneCheck& check : report.microphones) {
    text += "\n" + check.endpoint.Describe() + "\n" + FindingsText(check.findings);
  }
  text += "\n" + system::Verdict(report) + "\n";
  const int fixable = system::CountProblems(report, true), problems = system::CountProblems(report, false);
  if (fixable > 0) {
    text += "quillon check --fix (as Administrator) fixes " +
            (fixable == problems ? std::string(problems == 1 ? "it" : "them all")
                                 : Line("%d of the %d problems", fixable, problems)) +
            ".\n";
  }
  return text;
}

void PrintReport(const CheckReport& report) { Print("%s", ReportText(report).c_str()); }

// The report as a text file of its own (UTF-16 with a byte order mark and
// CR LF line ends, as Notepad and the setup read it).
bool WriteReport(const std::wstring& path, const CheckReport& report) {
  std::wstring text = L"\xFEFF";
  for (wchar_t c : tools::Wide(ReportText(report))) {
    if (c == L'\n') text += L'\r';
    text += c;
  }
  UniqueHandle file(CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
  DWORD written = 0;
  const DWORD size = static_cast<DWORD>(text.size() * sizeof(wchar_t));
  if (!file || !WriteFile(file.Get(), text.data(), size, &written, nullptr) || written != size) {
    Fail("cannot write %s: %s", Utf8(path).c_str(), tools::SystemText(GetLastError()).c_str());
    return false;
  }
  return true;
}

nlohmann::json FindingsJson(const std::vector<Finding>& findings) {
  nlohmann::json list = nlohmann::json::array();
  for (const Finding& finding : findings) {
    list.push_back({{"id", finding.id},
                    {"problem", finding.problem},
                    {"what", finding.what},
                    {"headline", finding.headline},
                    {"fix", finding.fix},
                    {"fixable", system::Fixable(finding)}});
  }
  return list;
}

void PrintJson(const CheckReport& report) {
  nlohmann::json microphones = nlohmann::json::array();
  for (const MicrophoneCheck& check : report.microphones) {
    microphones.push_back({{"id", Utf8(check.endpoint.Id())},
                           {"guid", Utf8(check.endpoint.guid)},
                           {"name", Utf8(check.endpoint.name)},
                           {"findings", FindingsJson(check.findings)}});
  }
  const nlohmann::json json = {{"version", report.version},
                               {"windowsBuild", report.build},
                               {"passed", system::Passed(report)},
                               {"verdict", system::Verdict(report)},
                               {"quillon", FindingsJson(report.machine)},
                               {"microphones", microphones}};
  Print("%s\n", json.dump(2).c_str());
}

// One step of a fix: what it is called when it fails, and the doing.
struct FixStep {
  std::string name;
  std::function<bool(std::string& error)> run;
};

bool ApplyStep(const std::vector<RegChange>& changes, std::string& error) {
  std::wstring failedKey;
  if (const LSTATUS status = system::Apply(changes, failedKey)) {
    error = "cannot write " + system::HklmText(failedKey) + ": " + tools::SystemText(status);
    return false;
  }
  return true;
}

// A file's bytes, or nothing when it does not exist.
std::optional<std::string> ReadBytes(const std::wstring& path) {
  UniqueHandle file(CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr));
  if (!file) return std::nullopt;
  std::string bytes(GetFileSize(file.Get(), nullptr), '\0');
  DWORD read = 0;
  if (!ReadFile(file.Get(), bytes.data(), static_cast<DWORD>(bytes.size()), &read, nullptr)) return std::nullopt;
  bytes.resize(read);
  return bytes;
}

void WriteBytes(const std::wstring& path, const std::string& bytes) {
  UniqueHandle file(CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
  DWORD written = 0;
  if (file) WriteFile(file.Get(), bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr);
}

// What a fix may change, as it was: put back whole when a step fails.
class FixUndo {
 public:
  void Keep(const std::wstring& key) { snapshots_.push_back(system::Snapshot(key)); }
  void KeepFile(const std::wstring& path) { files_.emplace(path, ReadBytes(path)); }
  void Restore() const {
    std::wstring ignored;
    system::Apply(system::UndoChanges(snapshots_), ignored);
    for (const auto& [path, bytes] : files_) {
      if (bytes) {
        WriteBytes(path, *bytes);
      } else {
        DeleteFileW(path.c_str());
      }
    }
  }

 private:
  std::vector<system::KeySnapshot> snapshots_;
  std::map<std::wstring, std::optional<std::string>> files_;
};

// The steps that make the fixable findings' fixes, and what they may change.
std::vector<FixStep> PlanFix(const CheckReport& report, FixUndo& undo) {
  std::vector<FixStep> steps;
  bool restart = false, protectedAudio = false;
  for (const Finding& finding : report.machine) {
    protectedAudio = protectedAudio || (finding.problem && finding.remedy == Remedy::kProtectedAudio);
    if (finding.problem && finding.remedy == Remedy::kRegister && steps.empty()) {
      const std::wstring dll = system::QuillonDllPath();
      undo.Keep(system::EngineClassKey());
      undo.Keep(system::ComClassKey());
      undo.Keep(system::ComClassKey() + L"\\InprocServer32");
      steps.push_back({"register " + Utf8(dll), [dll](std::string& error) { return system::RegisterServer(dll, error); }});
    }
  }
  for (const MicrophoneCheck& check : report.microphones) {
    // Read again: the findings are of the endpoint as it was at the check.
    for (const Endpoint& endpoint : system::ReadEndpoints(Flow::kCapture)) {
      if (endpoint.guid != check.endpoint.guid) continue;
      const std::string name = endpoint.Describe();
      undo.Keep(endpoint.FxKey());
      undo.Keep(system::SettingsKeyOf(endpoint));
      undo.Keep(system::BackupKeyOf(endpoint));
      for (const Finding& finding : check.findings) {
        if (!system::Fixable(finding)) continue;
        restart = true;
        const std::wstring fxKey = endpoint.FxKey();
        switch (finding.remedy) {
          case Remedy::kAttach:
          case Remedy::kReattach: {
            const std::wstring regFile = system::RegFilePath(endpoint);
            undo.KeepFile(regFile);
            steps.push_back({"attach to " + name, [endpoint, regFile](std::string& error) {
                               const system::Backup backup = system::TakeBackup(endpoint);
                               return system::WriteRegFile(regFile, system::RegFileText(endpoint, backup), error) &&
                                      ApplyStep(system::AttachChanges(endpoint, backup), error);
                             }});
            break;
          }
          case Remedy::kEnhancementsOn:
            steps.push_back({"turn audio enhancements on for " + name, [fxKey](std::string& error) {
                               return ApplyStep({RegChange::Delete(fxKey, system::fx::kEffectsOff)}, error);
                             }});
            break;
          case Remedy::kDefaultMode: {
            const system::RegValue* modes = endpoint.Fx(system::fx::kStreamModes);
            std::vector<std::wstring> list = modes ? modes->AsMultiText() : std::vector<std::wstring>();
            list.push_back(system::fx::kDefaultMode);
            steps.push_back({"add the default processing mode for " + name, [fxKey, list](std::string& error) {
                               return ApplyStep({RegChange::Set(fxKey, system::fx::kStreamModes,
                                                                system::RegValue::MultiText(list))},
                                                error);
                             }});
            break;
          }
          case Remedy::kOriginalEffect: {
            const std::optional<system::Backup> backup = system::ReadBackup(endpoint);
            const std::optional<std::wstring> original =
                backup ? system::OriginalEffect(Endpoint{endpoint.flow, endpoint.guid, {}, 0, true, backup->values},
                                                backup->slot.c_str())
                       : std::nullopt;
            const std::wstring key = system::SettingsKeyOf(endpoint);
            steps.push_back({"run the effect the backup names first on " + name, [key, original](std::string& error) {
                               return ApplyStep({original ? RegChange::Set(key, kOriginalApoValue,
                                                                           system::RegValue::Text(*original))
                                                          : RegChange::Delete(key, kOriginalApoValue)},
                                                error);
                             }});
            break;
          }
          default: break;
        }
      }
    }
  }
  if (protectedAudio) {
    undo.Keep(system::ProtectedAudioKey());
    undo.Keep(kSettingsKey);
    steps.push_back({"turn off protected audio (DisableProtectedAudioDG)",
                     [](std::string& error) { return ApplyStep(system::TurnOffProtectedAudio(), error); }});
  }
  if (restart || !steps.empty()) {
    steps.push_back({"restart the audio service", [](std::string& error) {
                       const system::ServiceRestart restart = system::RestartAudioService();
                       if (!restart.ok) error = restart.message;
                       return restart.ok;
                     }});
  }
  return steps;
}

int Fix(const CheckReport& report) {
  FixUndo undo;
  const std::vector<FixStep> steps = PlanFix(report, undo);
  if (steps.empty()) {
    Print("nothing for --fix to do\n");
    return kExitDone;
  }
  if (!system::IsAdministrator()) {
    Fail("check --fix changes the audio settings of Windows: run it as Administrator");
    return kExitFailed;
  }
  for (const FixStep& step : steps) {
    std::string error;
    if (!step.run(error)) {
      undo.Restore();
      Fail("fixing failed at \"%s\": %s; everything is as it was before", step.name.c_str(), error.c_str());
      return kExitFailed;
    }
    Print("fixed: %s\n", step.name.c_str());
  }
  Print("\nchecking again\n\n");
  return kExitDone;
}

}  // namespace

int RunCheck(const Arguments& args) {
  if (!args.positional.empty()) return UsageError("check takes no arguments but its options", "check");
  const tools::ComApartment com;
  std::vector<Endpoint> chosen;
  if (!Select(args, chosen)) return kExitFailed;
  const std::string version = QUILLON_VERSION_TEXT;
  const bool record = !args.Has("--no-record");
  CheckReport report = system::CheckEffect(chosen, version, system::WindowsBuild(), record);
  if (args.Has("--fix") && !system::Passed(report)) {
    if (!args.Has("--json")) PrintReport(report);
    if (const int exit = Fix(report); exit != kExitDone) return exit;
    std::vector<Endpoint> again;
    for (const Endpoint& endpoint : system::ReadEndpoints(Flow::kCapture)) {
      for (const Endpoint& checked : chosen) {
        if (endpoint.guid == checked.guid) again.push_back(endpoint);
      }
    }
    report = system::CheckEffect(again, version, system::WindowsBuild(), record);
  }
  if (args.Has("--json")) {
    PrintJson(report);
  } else {
    PrintReport(report);
  }
  if (args.Has("--report") && !WriteReport(args.Value("--report"), report)) return kExitFailed;
  return system::Passed(report) ? kExitDone : kExitFailed;
}

}  // namespace quillon::cli
