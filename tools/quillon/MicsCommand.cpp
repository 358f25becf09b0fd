// quillon mics: every capture endpoint Windows keeps, with its effects and
// whether Quillon is attached to it.
#include "common/ToolSupport.h"
#include "platform/RegistrySettings.h"
#include "quillon/Commands.h"
#include "quillon/Console.h"
#include "system/Attachment.h"

namespace quillon::cli {

using system::Backup;
using system::Endpoint;
using system::Flow;
using system::FxValueName;
using system::FxValueNames;
using system::HasQuillon;
using system::HoldsQuillon;
using system::ReadBackup;
using system::ReadEndpoints;
using system::ReadValue;
using system::RegValue;
using system::SameClassId;
using system::SettingsKeyOf;
using system::StateText;
using tools::Utf8;

namespace {

std::string Shown(const RegValue& value) {
  if (const std::optional<std::wstring> text = value.AsText()) {
    return SameClassId(*text, kQuillonClsidText) ? Utf8(*text) + " (Quillon)" : Utf8(*text);
  }
  std::string joined;
  for (const std::wstring& text : value.AsMultiText()) joined += (joined.empty() ? "" : ", ") + Utf8(text);
  if (!joined.empty()) return joined;
  if (value.type == REG_DWORD && value.data.size() == 4) {
    return std::to_string(*reinterpret_cast<const DWORD*>(value.data.data()));
  }
  return std::to_string(value.data.size()) + " bytes";
}

std::string QuillonState(const Endpoint& endpoint) {
  const std::optional<Backup> backup = ReadBackup(endpoint);
  if (!HasQuillon(endpoint)) {
    return backup ? "not attached, but a backup exists: its effects were rewritten (quillon reattach)"
                  : "not attached";
  }
  if (!backup) return "attached without a backup (detach cannot restore it)";
  if (!HoldsQuillon(endpoint, backup->slot)) return "attached, but not in the slot its backup names";
  // The effect runs first what Original-Apo names: it must be what the slot held.
  const auto saved = backup->values.find(backup->slot);
  const std::optional<std::wstring> before =
      saved == backup->values.end() ? std::nullopt : saved->second.AsText();
  const std::optional<RegValue> original = ReadValue(SettingsKeyOf(endpoint), kOriginalApoValue);
  const bool agrees = before ? original && original->AsText() && SameClassId(*original->AsText(), *before) : !original;
  return agrees ? "attached; the backup agrees" : "attached, but Original-Apo differs from the backup";
}

}  // namespace

int RunMics(const Arguments& args) {
  if (!args.positional.empty()) return UsageError("mics takes no arguments", "mics");
  const std::vector<Endpoint> endpoints = ReadEndpoints(Flow::kCapture);
  if (endpoints.empty()) {
    Print("Windows shows no microphones\n");
    return kExitDone;
  }
  for (const Endpoint& endpoint : endpoints) {
    Print("%s\n", endpoint.name.empty() ? "(no name)" : Utf8(endpoint.name).c_str());
    Print("  GUID      %s\n", Utf8(endpoint.guid).c_str());
    Print("  state     %s\n", StateText(endpoint.state).c_str());
    bool any = false;
    for (const FxValueName& value : FxValueNames()) {
      const RegValue* found = endpoint.Fx(value.name);
      if (found == nullptr || value.name == std::wstring(system::fx::kEffectsOff)) continue;
      Print("  %-9s %s: %s\n", any ? "" : "effects", value.label, Shown(*found).c_str());
      any = true;
    }
    if (!any) Print("  effects   none\n");
    const RegValue* off = endpoint.Fx(system::fx::kEffectsOff);
    if (off != nullptr && off->data.size() == 4 && *reinterpret_cast<const DWORD*>(off->data.data()) != 0) {
      Print("            all effects are turned off\n");
    }
    Print("  Quillon   %s\n\n", QuillonState(endpoint).c_str());
  }
  return kExitDone;
}

}  // namespace quillon::cli
