#include "board/ElevatedRun.h"

#include "common/ToolSupport.h"

#include <shellapi.h>

namespace quillon::board {

bool ElevatedRun::Start(const std::wstring& arguments, DWORD& error) {
  if (Running()) {
    error = ERROR_BUSY;
    return false;
  }
  wait_.Reset();
  process_.Reset();
  const std::wstring program = tools::PathBesideThisProgram(L"quillon.exe");
  SHELLEXECUTEINFOW run{sizeof(run)};
  run.fMask = SEE_MASK_NOCLOSEPROCESS | SEE_MASK_NOASYNC | SEE_MASK_FLAG_NO_UI;
  run.hwnd = window_;
  run.lpVerb = L"runas";
  run.lpFile = program.c_str();
  run.lpParameters = arguments.c_str();
  run.nShow = SW_HIDE;
  if (!ShellExecuteExW(&run)) {
    error = GetLastError();
    return false;
  }
  process_.Reset(run.hProcess);
  if (!process_ || !RegisterWaitForSingleObject(wait_.Put(), process_.Get(), &ElevatedRun::Ended, this, INFINITE,
                                                WT_EXECUTEONLYONCE)) {
    error = process_ ? GetLastError() : ERROR_INVALID_HANDLE;
    wait_.Release();  // nothing was registered
    process_.Reset();
    return false;
  }
  return true;
}

bool ElevatedRun::Running() const {
  return process_ && WaitForSingleObject(process_.Get(), 0) == WAIT_TIMEOUT;
}

DWORD ElevatedRun::Finish() {
  DWORD code = STILL_ACTIVE;
  if (process_) GetExitCodeProcess(process_.Get(), &code);
  wait_.Reset();
  process_.Reset();
  return code;
}

void CALLBACK ElevatedRun::Ended(void* context, BOOLEAN) {
  auto* self = static_cast<ElevatedRun*>(context);
  PostMessageW(self->window_, self->message_, 0, 0);
}

}  // namespace quillon::board
