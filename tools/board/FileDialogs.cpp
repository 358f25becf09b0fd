#include "board/FileDialogs.h"

#include "common/ToolSupport.h"
#include "platform/ComPtr.h"

#include <shobjidl.h>

#include <iterator>

namespace quillon::board {
namespace {

struct Ask {
  const wchar_t* title;
  const wchar_t* okLabel;
  FILEOPENDIALOGOPTIONS options;
  const COMDLG_FILTERSPEC* types;
  UINT typeCount;
};

std::vector<std::wstring> Show(HWND owner, const Ask& ask, std::wstring& error) {
  std::vector<std::wstring> paths;
  ComPtr<IFileOpenDialog> dialog;
  HRESULT hr = CoCreateInstance(CLSID_FileOpenDialog, nullptr, CLSCTX_INPROC_SERVER, IID_IFileOpenDialog,
                                dialog.PutVoid());
  if (FAILED(hr)) {
    error = L"The file dialog cannot be shown: " + tools::Wide(tools::SystemText(static_cast<DWORD>(hr)));
    return paths;
  }
  FILEOPENDIALOGOPTIONS options = 0;
  dialog->GetOptions(&options);
  dialog->SetOptions(options | ask.options | FOS_FORCEFILESYSTEM);
  if (ask.typeCount > 0) dialog->SetFileTypes(ask.typeCount, ask.types);
  dialog->SetTitle(ask.title);
  dialog->SetOkButtonLabel(ask.okLabel);
  hr = dialog->Show(owner);
  if (hr == HRESULT_FROM_WIN32(ERROR_CANCELLED)) return paths;
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
      paths.emplace_back(path);
      CoTaskMemFree(path);
    }
  }
  if (FAILED(hr)) {
    error = L"What was chosen cannot be read: " + tools::Wide(tools::SystemText(static_cast<DWORD>(hr)));
    paths.clear();
  }
  return paths;
}

}  // namespace

std::vector<std::wstring> ChooseSoundFiles(HWND owner, std::wstring& error) {
  static const COMDLG_FILTERSPEC kTypes[] = {
      {L"Sound files", L"*.wav;*.flac;*.mp3;*.ogg;*.oga;*.opus;*.aif;*.aiff;*.au;*.caf;*.w64"},
      {L"All files", L"*.*"},
  };
  return Show(owner, {L"Add sounds", L"Add", FOS_ALLOWMULTISELECT | FOS_FILEMUSTEXIST, kTypes, std::size(kTypes)},
              error);
}

std::wstring ChooseBoardFile(HWND owner, std::wstring& error) {
  static const COMDLG_FILTERSPEC kTypes[] = {{L"Boards", L"*.json"}, {L"All files", L"*.*"}};
  const auto paths = Show(owner, {L"Open a board", L"Open", FOS_FILEMUSTEXIST, kTypes, std::size(kTypes)}, error);
  return paths.empty() ? L"" : paths.front();
}

std::wstring ChooseFolder(HWND owner, const wchar_t* title, std::wstring& error) {
  const auto paths = Show(owner, {title, L"Choose", FOS_PICKFOLDERS, nullptr, 0}, error);
  return paths.empty() ? L"" : paths.front();
}

}  // namespace quillon::board
