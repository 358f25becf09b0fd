#include "board/SoundFilesDialog.h"

#include "common/ToolSupport.h"
#include "platform/ComPtr.h"

#include <shobjidl.h>

namespace quillon::board {

std::vector<std::wstring> ChooseSoundFiles(HWND owner, std::wstring& error) {
  std::vector<std::wstring> files;
  ComPtr<IFileOpenDialog> dialog;
  HRESULT hr = CoCreateInstance(CLSID_FileOpenDialog, nullptr, CLSCTX_INPROC_SERVER, IID_IFileOpenDialog,
                                dialog.PutVoid());
  if (FAILED(hr)) {
    error = L"The file dialog cannot be shown: " + tools::Wide(tools::SystemText(static_cast<DWORD>(hr)));
    return files;
  }
  static const COMDLG_FILTERSPEC kTypes[] = {
      {L"Sound files", L"*.wav;*.flac;*.mp3;*.ogg;*.oga;*.opus;*.aif;*.aiff;*.au;*.caf;*.w64"},
      {L"All files", L"*.*"},
  };
  FILEOPENDIALOGOPTIONS options = 0;
  dialog->GetOptions(&options);
  dialog->SetOptions(options | FOS_ALLOWMULTISELECT | FOS_FILEMUSTEXIST | FOS_FORCEFILESYSTEM);
  dialog->SetFileTypes(static_cast<UINT>(std::size(kTypes)), kTypes);
  dialog->SetTitle(L"Add sounds");
  dialog->SetOkButtonLabel(L"Add");
  hr = dialog->Show(owner);
  if (hr == HRESULT_FROM_WIN32(ERROR_CANCELLED)) return files;
  ComPtr<IShellItemArray> chosen;
  if (SUCCEEDED(hr)) hr = dialog->GetResults(chosen.Put());
  DWORD count = 0;
  if (SUCCEEDED(hr)) hr = chosen->GetCount(&count);
  for (DWORD i = 0; SUCCEEDED(hr) && i < count; ++i) {
    ComPtr<IShellItem> item;
    hr = chosen->GetItemAt(i, item.Put());
    PWSTR path = nullptr;
    if (SUCCEEDED(hr)) hr = item->GetDisplayName(SIGDN_FILESYSPATH, &path);
    if (SUCCEEDED(hr)) {
      files.emplace_back(path);
      CoTaskMemFree(path);
    }
  }
  if (FAILED(hr)) {
    error = L"The files chosen cannot be read: " + tools::Wide(tools::SystemText(static_cast<DWORD>(hr)));
    files.clear();
  }
  return files;
}

}  // namespace quillon::board
