// Rights: whether this process runs as Administrator, and taking a registry
// key that belongs to the system for the Administrators group.
#pragma once

#include <string>

namespace quillon::system {

bool IsAdministrator();

// Makes the Administrators group the owner of HKLM\<key> and grants it full
// access to the key and its subkeys. On failure `error` says why.
bool TakeOwnership(const std::wstring& key, std::string& error);

}  // namespace quillon::system
