// What the tests read back from the machine-wide places the library writes:
// text files (the log, the tools' output), the instance register and the
// slots' transfer mappings.
#pragma once

#include "platform/MappedView.h"
#include "transfer/SharedLayout.h"

#include <windows.h>

#include <fstream>
#include <sstream>
#include <string>

namespace quillon::test {

inline const wchar_t* const kLogPath = L"C:\\ProgramData\\Marrowin\\Brisvale\\Quillon.log";

inline std::string ReadText(const std::wstring& path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream text;
  text << in.rdbuf();
  return text.str();
}

// The shared log file as it stands now, and its removal before a test.
inline std::string LogText() { return ReadText(kLogPath); }
inline void DeleteLog() { DeleteFileW(kLogPath); }

// The instance register as a player sees it; not open when no effect registered.
class RegisterView {
 public:
  RegisterView() {
    view_.Map(UniqueHandle(OpenFileMappingW(FILE_MAP_ALL_ACCESS, FALSE, kRegisterMappingName)),
              sizeof(RegisterBlock));
  }
  bool Open() const { return static_cast<bool>(view_); }
  const RegisterBlock* operator->() const { return reinterpret_cast<const RegisterBlock*>(view_.Get()); }

 private:
  MappedView view_;
};

// The slot an endpoint's instance holds now, or -1.
inline int32_t SlotOf(const std::wstring& endpoint) {
  RegisterView reg;
  for (int32_t i = 0; reg.Open() && i < kMaxInstances; ++i) {
    if (reg->inUse[i] == 1 && endpoint == reg->endpointIds[i]) return i;
  }
  return -1;
}

// One slot's transfer mapping as a player sees it.
class TransferView {
 public:
  explicit TransferView(int32_t slot) {
    const std::wstring name = kTransferMappingPrefix + std::to_wstring(slot);
    view_.Map(UniqueHandle(OpenFileMappingW(FILE_MAP_ALL_ACCESS, FALSE, name.c_str())), sizeof(TransferBlock));
  }
  bool Open() const { return static_cast<bool>(view_); }
  TransferBlock* operator->() const { return reinterpret_cast<TransferBlock*>(view_.Get()); }

 private:
  MappedView view_;
};

}  // namespace quillon::test
