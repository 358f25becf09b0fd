// What the tests read back from the machine-wide places the library writes:
// text files (the log, the tools' output), the instance register and the
// slots' transfer mappings.
#pragma once

#include "diag/LogFolder.h"
#include "platform/MappedView.h"
#include "transfer/SharedLayout.h"
#include "transfer/WinUtils.h"

#include <windows.h>

#include <fstream>
#include <iterator>
#include <string>

namespace quillon::test {

inline const std::wstring kLogPath = GetLogFilePath().Data();

inline std::string ReadText(const std::wstring& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// The shared log file as it stands now, and its removal before a test.
inline std::string LogText() { return ReadText(kLogPath); }
inline void DeleteLog() { DeleteFileW(kLogPath.c_str()); }

// A shared mapping as a player opens it, or (`create`) as an effect makes it.
template <typename Block>
class SharedView {
 public:
  SharedView(const std::wstring& name, bool create) {
    view_.Map(UniqueHandle(create ? CreateFileMappingW(INVALID_HANDLE_VALUE, WinUtils::GetNullDaclSecurityAttributes(),
                                                       PAGE_READWRITE, 0, sizeof(Block), name.c_str())
                                  : OpenFileMappingW(FILE_MAP_ALL_ACCESS, FALSE, name.c_str())),
              sizeof(Block));
  }
  bool Open() const { return static_cast<bool>(view_); }
  Block* operator->() const { return reinterpret_cast<Block*>(view_.Get()); }

 private:
  MappedView view_;
};

// The instance register; not open when no effect registered.
struct RegisterView : SharedView<RegisterBlock> {
  explicit RegisterView(bool create = false) : SharedView(kRegisterMappingName, create) {}
};

// One slot's transfer mapping.
struct TransferView : SharedView<TransferBlock> {
  explicit TransferView(int32_t slot, bool create = false)
      : SharedView(WinUtils::PerInstanceName(kTransferMappingPrefix, slot), create) {}
};

inline std::wstring TransferMutexName(int32_t slot) { return WinUtils::PerInstanceName(kTransferMutexPrefix, slot); }

// The slot an endpoint's instance holds now, or -1.
inline int32_t SlotOf(const std::wstring& endpoint) {
  RegisterView reg;
  for (int32_t i = 0; reg.Open() && i < kMaxInstances; ++i) {
    if (reg->inUse[i] == 1 && endpoint == reg->endpointIds[i]) return i;
  }
  return -1;
}

}  // namespace quillon::test
