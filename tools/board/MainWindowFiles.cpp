// The main window's work with files: adding sounds (chosen, dropped, or
// given to a second start), which a scan on a thread of its own looks at
// first; and opening and exporting boards.
#include "board/MainWindow.h"

#include "board/FileDialogs.h"
#include "board/ScanProgressDialog.h"
#include "common/ToolSupport.h"

#include <shellapi.h>

#include <algorithm>

namespace quillon::board {
namespace {

// Adding more files than this asks first; more than the other shows the progress.
constexpr size_t kAskAbove = 500, kShowProgressAbove = 100;

using tools::Utf8;
using tools::Wide;

}  // namespace

void MainWindow::AddSoundsDialog() {
  std::wstring error;
  const std::vector<std::wstring> files = ChooseSoundFiles(hwnd_, error);
  if (!error.empty()) SetStatus(error);
  if (!files.empty()) AddFiles(files);
}

void MainWindow::AddFiles(const std::vector<std::wstring>& paths) {
  if (scan_) {
    SetStatus(L"Sounds are being added already; add these when that is done.");
    return;
  }
  // Listed and opened on the scan's thread; its news comes back as kScanMessage.
  scanPage_ = page_;
  scanAsked_ = false;
  scanFrom_ = paths.empty() ? L"" : paths.front();
  scan_ = std::make_unique<FolderScan>(paths, kAskAbove, [hwnd = hwnd_] { PostMessageW(hwnd, kScanMessage, 0, 0); });
}

void MainWindow::OnScanNews() {
  if (!scan_ || scanBusy_) return;  // (news that comes while a question or the progress is shown waits)
  const FolderScan::Progress now = scan_->Now();
  if (now.stage == FolderScan::Stage::Found && !scanAsked_) {
    scanAsked_ = true;
    scanBusy_ = true;
    const std::wstring question = L"Add the " + std::to_wstring(now.found) + L" files found in " + scanFrom_ +
                                  L"?\n\nEach is opened, and only those that play as sound are added.";
    const bool go = MessageBoxW(hwnd_, question.c_str(), L"Adding sounds", MB_YESNO | MB_ICONQUESTION) == IDYES;
    scanBusy_ = false;
    if (!scan_) return;  // the window was closed meanwhile (from the tray's menu): the scan went with it
    if (go) {
      scan_->Go();
    } else {
      scan_->Cancel();
    }
    return;
  }
  if (now.stage == FolderScan::Stage::Reading && now.found > kShowProgressAbove) {
    scanBusy_ = true;
    ScanProgressDialog(*scan_).Show(hwnd_);
    scanBusy_ = false;
    if (!scan_) return;  // the window was closed meanwhile
    // Done meanwhile (its news was held back), or cancelled and ending: its news comes.
    if (scan_->Now().stage != FolderScan::Stage::Done) return;
  } else if (scan_->Now().stage != FolderScan::Stage::Done) {
    return;
  }
  const ScanResult result = scan_->TakeResult();
  scan_.reset();
  if (result.cancelled) {
    SetStatus(L"Adding sounds was cancelled; none was added.");
    return;
  }
  std::vector<std::string> files;
  for (const std::wstring& file : result.sounds) files.push_back(Utf8(file));
  std::wstring skipped;
  if (result.notSound + result.unreadable > 0) {
    skipped = L" Skipped " + std::to_wstring(result.notSound + result.unreadable) + L": ";
    if (result.notSound > 0) skipped += std::to_wstring(result.notSound) + L" not sound files";
    if (result.notSound > 0 && result.unreadable > 0) skipped += L", ";
    if (result.unreadable > 0) {
      skipped += std::to_wstring(result.unreadable) + L" that do not open as sound (the first, " +
                 result.firstUnreadable + L": " + Wide(result.firstReason) + L")";
    }
    skipped += L".";
  }
  if (files.empty()) {
    SetStatus(L"No sound files were found there." + skipped);
    return;
  }
  const size_t page = std::min(scanPage_, board_.Pages().size() - 1);
  const std::vector<uint32_t> added = board_.AddSounds(page, files);
  SetStatus(L"Added " + std::to_wstring(added.size()) + (added.size() == 1 ? L" sound." : L" sounds.") + skipped);
  if (page == page_) grid_.FocusSound(added.front());
}

void MainWindow::OnDropFiles(HWND, HDROP drop) {
  std::vector<std::wstring> paths;
  const UINT count = DragQueryFileW(drop, 0xFFFFFFFF, nullptr, 0);
  for (UINT i = 0; i < count; ++i) {
    std::wstring path(DragQueryFileW(drop, i, nullptr, 0) + 1, L'\0');
    path.resize(DragQueryFileW(drop, i, path.data(), static_cast<UINT>(path.size())));
    paths.push_back(std::move(path));
  }
  DragFinish(drop);
  // A board file alone: the board it holds may be opened instead.
  if (paths.size() == 1 && paths[0].size() > 5 && _wcsicmp(paths[0].c_str() + paths[0].size() - 5, L".json") == 0) {
    const std::wstring question = L"Open the board in " + paths[0] +
                                  L"?\n\nThe board shown now stays saved where it is (" + path_ + L").";
    if (MessageBoxW(hwnd_, question.c_str(), L"Open board", MB_YESNO | MB_ICONQUESTION) == IDYES) OpenBoard(paths[0]);
    return;
  }
  AddFiles(paths);
}

void MainWindow::OpenBoard(const std::wstring& path) {
  if (!MayClose()) return;  // the board shown could not be saved, and the user keeps it
  LoadedBoard loaded = LoadBoard(path);
  if (loaded.state != LoadedBoard::State::Read) {
    SetStatus(L"The board in " + path + L" was not opened: " +
              (loaded.state == LoadedBoard::State::New ? L"there is no such file" : Wide(loaded.problem)) +
              (loaded.state == LoadedBoard::State::Damaged ? L" (it is kept as " + loaded.keptAs + L")" : L"") + L".");
    return;
  }
  player_->StopAll();
  board_ = std::move(loaded.board);
  board_.SetListener([this](const Change& change) { OnBoardChanged(change); });
  path_ = path;
  saveBlocked_ = false;
  saveProblem_.clear();
  startProblem_.clear();
  const std::wstring marked = MarkMistakes(loaded.mistakes);
  page_ = 0;
  search_.Clear();
  grid_.SetSize(static_cast<int>(board_.GetSettings().buttonSize));
  player_->Configure(board_.GetSettings());
  ShowPages();
  ShowMicrophones();
  CheckFiles();
  MeasureLoudness(true);
  SetStatus(marked.empty() ? L"Opened the board in " + path + L"." : marked);
}

void MainWindow::OpenBoardDialog() {
  std::wstring error;
  const std::wstring path = ChooseBoardFile(hwnd_, error);
  if (!error.empty()) SetStatus(error);
  if (!path.empty()) OpenBoard(path);
}

void MainWindow::ExportDialog() {
  if (exporting_.joinable()) {
    SetStatus(L"The board is being exported already.");
    return;
  }
  std::wstring error;
  const std::wstring chosen = ChooseFolder(hwnd_, L"Export the board to a folder", error);
  if (!error.empty()) SetStatus(error);
  if (chosen.empty()) return;
  // An empty folder takes the board; another gets a folder of its own inside.
  std::wstring folder = chosen;
  WIN32_FIND_DATAW found;
  const HANDLE find = FindFirstFileW((chosen + L"\\*").c_str(), &found);
  bool empty = true;
  if (find != INVALID_HANDLE_VALUE) {
    do {
      empty = empty && (wcscmp(found.cFileName, L".") == 0 || wcscmp(found.cFileName, L"..") == 0);
    } while (empty && FindNextFileW(find, &found));
    FindClose(find);
  }
  if (!empty) {
    folder = chosen + L"\\Quillon board";
    for (int n = 2; GetFileAttributesW(folder.c_str()) != INVALID_FILE_ATTRIBUTES; ++n) {
      folder = chosen + L"\\Quillon board (" + std::to_wstring(n) + L")";
    }
  }
  SetStatus(L"Exporting the board to " + folder + L"\u2026");
  // Copying the sounds can take a while: on a thread of its own, with a copy of the board.
  exporting_ = std::thread([this, board = board_, from = path_, folder, hwnd = hwnd_] {
    exported_ = ExportBoard(board, from, folder);
    PostMessageW(hwnd, kExportedMessage, 0, 0);
  });
}

void MainWindow::OnExported() {
  if (exporting_.joinable()) exporting_.join();
  const ExportResult& r = exported_;
  if (!r.error.empty()) {
    SetStatus(L"The board was not exported: " + Wide(r.error) + L".");
    return;
  }
  std::wstring text = L"Exported the board and " + std::to_wstring(r.copied) +
                      (r.copied == 1 ? L" sound file" : L" sound files") + L" to " + r.boardFile + L".";
  if (!r.missing.empty()) {
    text += L" Not in it, their files missing: ";
    for (size_t i = 0; i < r.missing.size(); ++i) text += (i ? L", " : L"") + Wide(r.missing[i]);
    text += L".";
  }
  SetStatus(text);
}

}  // namespace quillon::board
