// Attaching Quillon to a capture endpoint and restoring it: the backup of the
// endpoint's effect values kept under HKLM\SOFTWARE\Marrowin\Quillon\<GUID>,
// and the registry changes that attach and detach make, built as lists.
#pragma once

#include "system/Endpoints.h"
#include "system/RegistryEdit.h"

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace quillon::system {

// What an endpoint's FxProperties held before Quillon was attached.
struct Backup {
  bool hadFxKey = false;
  std::map<std::wstring, RegValue> values;  // the values that existed, as they were
  std::vector<std::wstring> missing;        // the names that did not exist
  std::wstring slot;                        // the value Quillon was put into
};

// HKLM\SOFTWARE\Marrowin\Quillon\<GUID>: where the effect reads Original-Apo.
std::wstring SettingsKeyOf(const Endpoint& endpoint);
std::wstring BackupKeyOf(const Endpoint& endpoint);

std::optional<Backup> ReadBackup(const Endpoint& endpoint);
// The endpoint's values as they are now, to be kept.
Backup TakeBackup(const Endpoint& endpoint);

// The slot Quillon goes into: the stream effect when the endpoint uses stream,
// mode or endpoint effects (Windows then ignores the older values), the
// pre-mix effect of the older scheme when it has only that, and the stream
// effect when it has no effect at all.
const wchar_t* SlotFor(const Endpoint& endpoint);
// The class id the slot held before, which Quillon runs first; never Quillon's.
std::optional<std::wstring> OriginalEffect(const Endpoint& endpoint, const wchar_t* slot);
bool HoldsQuillon(const Endpoint& endpoint, const std::wstring& slot);
// Quillon in any effect slot.
bool HasQuillon(const Endpoint& endpoint);
// The first composite effect list the endpoint has, or null.
const FxValueName* CompositeList(const Endpoint& endpoint);

// Saves `backup`, names the original effect, puts Quillon into the slot, adds
// the default processing mode when the endpoint has none, and turns effects on.
std::vector<RegChange> AttachChanges(const Endpoint& endpoint, const Backup& backup);
// Puts the endpoint's FxProperties back exactly as `backup` holds them.
std::vector<RegChange> RestoreChanges(const Endpoint& endpoint, const Backup& backup);
// Restores, then deletes Original-Apo and the backup.
std::vector<RegChange> DetachChanges(const Endpoint& endpoint, const Backup& backup);

// The backup as a .reg file that restores the values when imported
// (UTF-16 with a byte order mark, as regedit writes them).
std::wstring RegFileText(const Endpoint& endpoint, const Backup& backup);
// %ProgramData%\Marrowin\Quillon\backup\<GUID>.reg
std::wstring RegFilePath(const Endpoint& endpoint);
bool WriteRegFile(const std::wstring& path, const std::wstring& text, std::string& error);

}  // namespace quillon::system
