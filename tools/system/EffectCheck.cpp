#include "system/EffectCheck.h"

#include "common/ToolSupport.h"
#include "platform/RegistrySettings.h"
#include "system/Attachment.h"
#include "system/EffectProbe.h"
#include "system/Microphones.h"
#include "system/ProtectedAudio.h"
#include "system/QuillonServer.h"
#include "system/ServiceAccess.h"

namespace quillon::system {

using tools::Utf8;

namespace {

// Each problem in a few words.
const char* HeadlineOf(const std::string& id) {
  static const std::pair<const char*, const char*> kHeadlines[] = {
      {"not-registered", "Quillon is not registered"},
      {"not-registered-with-engine", "the audio engine does not know Quillon"},
      {"threading-model", "Quillon's COM class has the wrong threading model"},
      {"dll-missing", "the registered Quillon.dll is missing"},
      {"dll-machine", "Quillon.dll is built for another machine"},
      {"dll-version", "the registered Quillon.dll is another version"},
      {"dll-access", "the audio engine's account may not load Quillon.dll"},
      {"protected-audio", "this Windows loads only signed effects"},
      {"inactive", "the microphone is not active"},
      {"composite", "its driver's effect list takes Quillon's place"},
      {"not-attached", "Quillon is not attached to it"},
      {"replaced", "a driver update replaced Quillon"},
      {"no-backup", "Quillon is attached without a backup"},
      {"backup-differs", "the effect run before Quillon is not the one backed up"},
      {"no-default-mode", "the default processing mode is missing"},
      {"enhancements-off", "audio enhancements are turned off"},
      {"not-loaded", "the audio engine did not load Quillon"},
  };
  for (const auto& [known, headline] : kHeadlines) {
    if (id == known) return headline;
  }
  return "";
}

Finding Fine(const char* id, std::string what) { return {id, false, std::move(what), "", "", Remedy::kNone}; }
Finding Problem(const char* id, std::string what, std::string fix, Remedy remedy) {
  return {id, true, std::move(what), HeadlineOf(id), std::move(fix), remedy};
}

std::wstring Expanded(const std::wstring& path) {
  wchar_t expanded[MAX_PATH * 4];
  const DWORD length = ExpandEnvironmentStringsW(path.c_str(), expanded, MAX_PATH * 4);
  return length == 0 || length > MAX_PATH * 4 ? path : std::wstring(expanded);
}

const char* LabelOf(const std::wstring& slot) {
  for (const FxValueName& value : FxValueNames()) {
    if (slot == value.name) return value.label;
  }
  return "effect";
}

// How a command names the endpoint: its name when it has one, else its GUID.
std::string Named(const Endpoint& endpoint) { return "\"" + Utf8(endpoint.name.empty() ? endpoint.guid : endpoint.name) + "\""; }

bool DwordIsSet(const RegValue* value) {
  return value != nullptr && value->data.size() == 4 && *reinterpret_cast<const DWORD*>(value->data.data()) != 0;
}

bool HasDefaultMode(const RegValue* modes) {
  if (modes == nullptr) return false;
  for (const std::wstring& mode : modes->AsMultiText()) {
    if (SameClassId(mode, fx::kDefaultMode)) return true;
  }
  return false;
}

}  // namespace

std::vector<Finding> CheckRegistration(const std::string& version) {
  constexpr const char* kRegister = "quillon register (as Administrator)";
  std::vector<Finding> findings;
  const Registration registration = ReadRegistration();
  if (!registration.comClass || registration.server.empty()) {
    findings.push_back(Problem("not-registered",
                               "Quillon is not registered as a COM class (" + HklmText(ComClassKey()) +
                                   "\\InprocServer32 in the 64-bit view names no file)",
                               kRegister, Remedy::kRegister));
    return findings;
  }
  if (!registration.engine) {
    findings.push_back(Problem("not-registered-with-engine",
                               "the audio engine does not know Quillon: " + HklmText(EngineClassKey()) + " is missing",
                               kRegister, Remedy::kRegister));
  }
  if (Lowercase(registration.threadingModel) != L"both") {
    findings.push_back(Problem("threading-model",
                               "its COM class has ThreadingModel \"" + Utf8(registration.threadingModel) +
                                   "\"; the audio engine needs \"Both\"",
                               kRegister, Remedy::kRegister));
  }
  const std::wstring dll = Expanded(registration.server);
  const std::string shown = Utf8(dll);
  if (GetFileAttributesW(dll.c_str()) == INVALID_FILE_ATTRIBUTES) {
    findings.push_back(Problem("dll-missing", "the registered Quillon.dll does not exist: " + shown,
                               "install Quillon again, or run quillon register from the folder it is installed in",
                               Remedy::kRegister));
    return findings;
  }
  const USHORT machine = FileMachine(dll), native = NativeMachine();
  if (machine != native) {
    findings.push_back(Problem("dll-machine",
                               shown + (machine == 0 ? " is not a Windows DLL" : " is built for " + MachineName(machine)) +
                                   ", but this Windows runs " + MachineName(native) +
                                   " effects: its audio engine never loads it",
                               "install the " + MachineName(native) + " build of Quillon", Remedy::kRegister));
  }
  const std::string fileVersion = FileVersionText(dll);
  if (fileVersion != version) {
    findings.push_back(Problem("dll-version",
                               shown + " is version " + (fileVersion.empty() ? "unknown" : fileVersion) +
                                   ", not " + version + " as this quillon.exe",
                               "quillon register (as Administrator) registers the Quillon.dll beside this quillon.exe",
                               Remedy::kRegister));
  }
  const std::wstring folder = dll.substr(0, dll.find_last_of(L"\\/"));
  for (const std::wstring& path : {dll, folder}) {
    std::string why;
    if (!LocalServiceMayRun(path, why)) {
      findings.push_back(Problem("dll-access", Utf8(path) + ": " + why,
                                 "icacls \"" + Utf8(path) + "\" /grant *S-1-5-19:RX (and remove what denies it), "
                                 "or install Quillon into Program Files again",
                                 Remedy::kByHand));
      break;
    }
  }
  if (findings.empty()) {
    findings.push_back(Fine("registered", "Quillon is registered: " + shown + " (" + MachineName(machine) + ", " +
                                              fileVersion + "), which the audio engine's account may load"));
  }
  return findings;
}

std::vector<Finding> CheckProtectedAudio(DWORD build) {
  if (!NeedsProtectedAudioOff(build)) return {};
  const std::string windows = "Windows build " + std::to_string(build);
  if (ProtectedAudioIsOff()) {
    return {Fine("protected-audio", "protected audio is off (DisableProtectedAudioDG), as " + windows +
                                        " needs for an effect that is not signed by Microsoft")};
  }
  return {Problem("protected-audio",
                  windows + " loads only effects signed by Microsoft while protected audio is on "
                            "(DisableProtectedAudioDG is not 1 in " + HklmText(ProtectedAudioKey()) + ")",
                  "quillon attach turns it off, and so does quillon check --fix (as Administrator)",
                  Remedy::kProtectedAudio)};
}

std::vector<Finding> CheckAttachment(const Endpoint& endpoint) {
  std::vector<Finding> findings;
  if ((endpoint.state & 0xF) != 1) {
    findings.push_back(Problem("inactive", "the microphone is " + StateText(endpoint.state) +
                                               ": Windows runs no effect for it",
                               "plug it in, or enable it in the Sound settings of Windows", Remedy::kByHand));
    return findings;
  }
  if (const FxValueName* composite = CompositeList(endpoint)) {
    findings.push_back(Problem("composite",
                               std::string("its driver gives ") + composite->label + " (" + Utf8(composite->name) +
                                   "), which Windows runs in place of the stream effect slot, so it may never load Quillon",
                               "no automatic fix: update or roll back the audio driver; quillon detach puts back what "
                               "was there",
                               Remedy::kByHand));
  }
  const std::optional<Backup> backup = ReadBackup(endpoint);
  const std::wstring slot = backup ? backup->slot : std::wstring(SlotFor(endpoint));
  if (!HasQuillon(endpoint)) {
    if (!backup) {
      findings.push_back(Problem("not-attached", "Quillon is not attached to this microphone",
                                 "quillon attach " + Named(endpoint) + " (as Administrator)", Remedy::kAttach));
      return findings;
    }
    const RegValue* now = endpoint.Fx(slot.c_str());
    findings.push_back(Problem("replaced",
                               std::string("a driver update replaced Quillon: the ") + LabelOf(slot) + " holds " +
                                   (now && now->AsText() ? Utf8(*now->AsText()) : std::string("nothing")) + " now",
                               "quillon reattach (as Administrator)", Remedy::kReattach));
    return findings;
  }
  if (!backup) {
    findings.push_back(Problem("no-backup",
                               "Quillon is attached without a backup: detach cannot give the microphone its own "
                               "effect back",
                               "restore the effect by hand or from a .reg file, then quillon attach", Remedy::kByHand));
    return findings;
  }
  if (!HoldsQuillon(endpoint, slot)) {
    findings.push_back(Problem("backup-differs",
                               std::string("Quillon is not in the ") + LabelOf(slot) + ", which its backup names",
                               "quillon detach " + Named(endpoint) + ", then quillon attach " + Named(endpoint),
                               Remedy::kByHand));
    return findings;
  }
  const auto saved = backup->values.find(slot);
  const std::optional<std::wstring> before = saved == backup->values.end() ? std::nullopt : saved->second.AsText();
  const std::optional<RegValue> original = ReadValue(SettingsKeyOf(endpoint), kOriginalApoValue);
  const std::optional<std::wstring> runsFirst = original ? original->AsText() : std::nullopt;
  const bool agrees = before && !before->empty() ? runsFirst && SameClassId(*runsFirst, *before) : !original;
  if (!agrees) {
    findings.push_back(Problem("backup-differs",
                               "Quillon runs " + (runsFirst ? Utf8(*runsFirst) : std::string("no effect")) +
                                   " first, but the backup says the slot held " +
                                   (before && !before->empty() ? Utf8(*before) : std::string("none")),
                               "quillon check --fix (as Administrator)", Remedy::kOriginalEffect));
  } else {
    findings.push_back(Fine("attached", std::string("Quillon is attached in the ") + LabelOf(slot) + "; " +
                                            (before && !before->empty() ? "its own effect " + Utf8(*before) + " runs first"
                                                                        : "it had no effect of its own") +
                                            "; the backup agrees"));
  }
  if (slot == fx::kStream && !HasDefaultMode(endpoint.Fx(fx::kStreamModes))) {
    findings.push_back(Problem("no-default-mode",
                               "the stream effect's processing modes (" + Utf8(fx::kStreamModes) +
                                   ") lack the default mode, so Windows does not run Quillon on ordinary recordings",
                               "quillon check --fix (as Administrator)", Remedy::kDefaultMode));
  }
  if (DwordIsSet(endpoint.Fx(fx::kEffectsOff))) {
    findings.push_back(Problem("enhancements-off",
                               "audio enhancements are turned off for this microphone, so Windows runs none of its "
                               "effects",
                               "Sound settings > the microphone > Properties > Advanced: tick \"Enable audio "
                               "enhancements\" (or quillon check --fix as Administrator)",
                               Remedy::kEnhancementsOn));
  }
  return findings;
}

namespace {

// The effect instance the audio engine registered for the endpoint, or why
// none appeared, with the likeliest causes among the findings before it.
Finding RunningFinding(const Endpoint& endpoint, const EffectProbe& probe, const std::vector<const Finding*>& earlier) {
  if (probe.found) {
    return Fine("running", "the audio engine loaded Quillon for this microphone (instance " +
                               std::to_string(probe.instance.slot) + ", " + DescribeFormat(probe.instance.format) + ")");
  }
  const std::string& streamError = probe.streamError;
  std::string causes;
  for (const Finding* finding : earlier) {
    if (finding->problem) causes += (causes.empty() ? "" : "; ") + finding->what;
  }
  const bool unexplained = causes.empty();
  if (unexplained) {
    causes = HasQuillon(endpoint) ? "the audio service has not loaded its effects again since Quillon was attached "
                                    "(quillon restart-audio, as Administrator)"
                                  : "Quillon is not attached to it";
  }
  return Problem("not-loaded",
                 "the audio engine did not load Quillon for this microphone" +
                     (streamError.empty() ? std::string(" within 3 s of recording") : " (" + streamError + ")"),
                 "likeliest causes: " + causes +
                     ". Programs that record from the microphone in exclusive mode or as a raw stream bypass "
                     "effects.",
                 unexplained && HasQuillon(endpoint) ? Remedy::kRestartAudio : Remedy::kNone);
}

std::string MicNames(const CheckReport& report) {
  std::string names;
  for (size_t i = 0; i < report.microphones.size(); ++i) {
    const Endpoint& endpoint = report.microphones[i].endpoint;
    names += (i == 0 ? "" : i + 1 == report.microphones.size() ? " and " : ", ") +
             Utf8(endpoint.name.empty() ? endpoint.guid : endpoint.name);
  }
  return names;
}

}  // namespace

CheckReport CheckEffect(const std::vector<Endpoint>& endpoints, const std::string& version, DWORD build, bool record) {
  CheckReport report;
  report.version = version;
  report.build = build;
  report.machine = CheckRegistration(version);
  for (Finding& finding : CheckProtectedAudio(build)) report.machine.push_back(std::move(finding));
  for (const Endpoint& endpoint : endpoints) {
    MicrophoneCheck check{endpoint, CheckAttachment(endpoint)};
    // Where Quillon is not attached, or the microphone does not run, nothing can load it.
    if (!HasQuillon(endpoint) || (endpoint.state & 0xF) != 1) {
      report.microphones.push_back(std::move(check));
      continue;
    }
    const EffectProbe probe = ProbeEffect(endpoint, record ? kProbeMs : 0);
    if (!record && !probe.found) {
      check.findings.push_back(Fine("idle", "no program records from this microphone now"));
    } else {
      std::vector<const Finding*> earlier;
      for (const Finding& finding : report.machine) earlier.push_back(&finding);
      for (const Finding& finding : check.findings) earlier.push_back(&finding);
      check.findings.push_back(RunningFinding(endpoint, probe, earlier));
    }
    report.microphones.push_back(std::move(check));
  }
  return report;
}

bool Passed(const CheckReport& report) {
  if (AnyProblem(report.machine) || report.microphones.empty()) return false;
  for (const MicrophoneCheck& check : report.microphones) {
    if (AnyProblem(check.findings)) return false;
  }
  return true;
}

int CountProblems(const CheckReport& report, bool fixableOnly) {
  int count = 0;
  auto add = [&](const std::vector<Finding>& findings) {
    for (const Finding& finding : findings) count += fixableOnly ? Fixable(finding) : finding.problem;
  };
  add(report.machine);
  for (const MicrophoneCheck& check : report.microphones) add(check.findings);
  return count;
}

std::string Verdict(const CheckReport& report) {
  if (report.microphones.empty()) return "Quillon has no microphone to run on: Windows shows none that is active.";
  if (Passed(report)) return "Quillon is ready on " + MicNames(report) + ".";
  int problems = 0;
  const Finding* first = nullptr;
  for (const Finding& finding : report.machine) {
    problems += finding.problem;
    if (finding.problem && first == nullptr) first = &finding;
  }
  for (const MicrophoneCheck& check : report.microphones) {
    for (const Finding& finding : check.findings) {
      problems += finding.problem;
      if (finding.problem && first == nullptr) first = &finding;
    }
  }
  return "Quillon does not run on " + MicNames(report) + ": " + first->headline +
         (problems > 1 ? " (and " + std::to_string(problems - 1) + " more)." : ".");
}

bool AnyProblem(const std::vector<Finding>& findings) {
  for (const Finding& finding : findings) {
    if (finding.problem) return true;
  }
  return false;
}

}  // namespace quillon::system
