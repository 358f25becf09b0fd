#include "board/MainWindow.h"

#include "board/BoardCommands.h"
#include "board/BoardJson.h"
#include "board/BoardResources.h"
#include "board/EffectDialog.h"
#include "board/PageNameDialog.h"
#include "board/SettingsDialog.h"
#include "board/SingleInstance.h"
#include "board/SoundDialog.h"
#include "board/PortableBoard.h"
#include "common/ToolSupport.h"

#include <commctrl.h>
#include <commdlg.h>
#include <shellapi.h>
#include <windowsx.h>

#include <algorithm>

namespace quillon::board {
namespace {

constexpr int kTabsId = 11, kStatusId = 12;

using tools::Utf8;
using tools::Wide;

HICON LoadBoardIcon(int size) {
  return static_cast<HICON>(
      LoadImageW(GetModuleHandleW(nullptr), MAKEINTRESOURCEW(IDI_BOARD), IMAGE_ICON, size, size, LR_SHARED));
}

}  // namespace

MainWindow::MainWindow(LoadedBoard loaded, std::wstring path)
    : board_(std::move(loaded.board)),
      path_(std::move(path)),
      saveBlocked_(loaded.state == LoadedBoard::State::Locked) {
  if (loaded.state == LoadedBoard::State::Damaged) {
    startProblem_ = Wide(loaded.problem) + L". It is kept as " + loaded.keptAs + L"; the board starts empty.";
  } else if (loaded.state == LoadedBoard::State::Locked) {
    startProblem_ = Wide(loaded.problem) + L". The board starts empty and saves nothing over it.";
  }
  if (!loaded.mistakes.empty()) startProblem_ = MarkMistakes(loaded.mistakes);
}

std::wstring MainWindow::MarkMistakes(const std::vector<Mistake>& mistakes) {
  soundMarks_.clear();
  renamedPages_.clear();
  for (const Mistake& mistake : mistakes) {
    if (mistake.sound != 0) {
      soundMarks_[mistake.sound] = Wide(mistake.mark);
    } else if (mistake.page >= 0 && static_cast<size_t>(mistake.page) < board_.Pages().size()) {
      renamedPages_.insert(board_.Pages()[static_cast<size_t>(mistake.page)].name);
    }
  }
  if (mistakes.empty()) return L"";
  // The first in a few words: where it is and what was done (the whole of it is long for the status bar).
  const Mistake& first = mistakes.front();
  const Sound* sound = board_.Find(first.sound);
  const std::wstring where =
      sound != nullptr ? L"\u201C" + Wide(sound->name) + L"\u201D: " + Wide(first.mark)
      : first.page >= 0 ? L"page \u201C" + Wide(board_.Pages()[static_cast<size_t>(first.page)].name) + L"\u201D " +
                              Wide(first.mark)
                        : Wide(first.what);
  const size_t count = mistakes.size();
  return L"The board file had " + std::to_wstring(count) + (count == 1 ? L" mistake" : L" mistakes") +
         L", put right and marked: " + where + L".";
}

bool MainWindow::Create(int show) {
  iconLarge_ = LoadBoardIcon(GetSystemMetrics(SM_CXICON));
  iconSmall_ = LoadBoardIcon(GetSystemMetrics(SM_CXSMICON));
  Register(kMainWindowClass, iconLarge_, iconSmall_);
  const HWND hwnd = CreateWindowExW(WS_EX_CONTROLPARENT | WS_EX_ACCEPTFILES, kMainWindowClass, L"Quillon Board",
                                    WS_OVERLAPPEDWINDOW | WS_CLIPCHILDREN, CW_USEDEFAULT, CW_USEDEFAULT, CW_USEDEFAULT,
                                    CW_USEDEFAULT, nullptr, MakeMenuBar(), GetModuleHandleW(nullptr), this);
  if (!hwnd) return false;
  // The first size comes from the font at the window's DPI: five columns of sounds.
  const int width = font_.CharWidth() * 18 * 5 + font_.Scale(90);
  const int height = font_.LineHeight() * 30;
  SetWindowPos(hwnd, nullptr, 0, 0, width, height, SWP_NOMOVE | SWP_NOZORDER);
  ShowWindow(hwnd, show);
  return true;
}

LRESULT MainWindow::HandleMessage(UINT message, WPARAM wParam, LPARAM lParam) {
  HWND hwnd = hwnd_;
  if (tray_) tray_->OnMessage(message);
  switch (message) {
    HANDLE_MSG(hwnd, WM_CREATE, OnCreate);
    HANDLE_MSG(hwnd, WM_SIZE, OnSize);
    HANDLE_MSG(hwnd, WM_COMMAND, OnCommand);
    HANDLE_MSG(hwnd, WM_HOTKEY, OnHotKey);
    HANDLE_MSG(hwnd, WM_DROPFILES, OnDropFiles);
    HANDLE_MSG(hwnd, WM_INITMENUPOPUP, OnInitMenuPopup);
    HANDLE_MSG(hwnd, WM_CLOSE, OnClose);
    HANDLE_MSG(hwnd, WM_DESTROY, OnDestroy);
    case WM_COPYDATA: return OnCopyData(hwnd, reinterpret_cast<HWND>(wParam), reinterpret_cast<PCOPYDATASTRUCT>(lParam));
    case WM_NOTIFY: return OnNotify(*reinterpret_cast<const NMHDR*>(lParam));
    case WM_CONTEXTMENU:
      OnContextMenu(reinterpret_cast<HWND>(wParam), GET_X_LPARAM(lParam), GET_Y_LPARAM(lParam));
      return 0;
    case WM_CTLCOLORSTATIC:
      // Labels and check boxes on the window's own background, not the dialog grey.
      SetBkColor(reinterpret_cast<HDC>(wParam), GetSysColor(COLOR_WINDOW));
      SetTextColor(reinterpret_cast<HDC>(wParam), GetSysColor(COLOR_WINDOWTEXT));
      return reinterpret_cast<LRESULT>(GetSysColorBrush(COLOR_WINDOW));
    case WM_DPICHANGED: OnDpiChanged(HIWORD(wParam), *reinterpret_cast<const RECT*>(lParam)); return 0;
    case WM_ACTIVATE:
      // The keyboard focus goes back to the control that had it (at first, the
      // focused sound, or the microphone list).
      if (LOWORD(wParam) == WA_INACTIVE) {
        lastFocus_ = GetFocus();
        return 0;
      }
      ShowMicrophones();  // a recorder may have started meanwhile
      CheckFiles();       // and files may have come or gone
      MeasureLoudness(true);  // or changed
      RestoreFocus();
      return 0;
    case WM_SETFOCUS: RestoreFocus(); return 0;
    case WM_NEXTDLGCTL:
      // IsDialogMessage sends this for a label's mnemonic (Alt+M): the focus
      // goes to the control after the label. Only dialogs handle it by default.
      SetFocus(LOWORD(lParam) ? reinterpret_cast<HWND>(wParam)
                              : GetNextDlgTabItem(hwnd_, GetFocus(), static_cast<BOOL>(wParam)));
      return 0;
    case kNewsMessage: OnPlayerNews(); return 0;
    case kTrayMessage: OnTray(LOWORD(lParam)); return 0;
    case kElevatedMessage: OnElevatedEnded(); return 0;
    case kFilesMessage: ShowSounds(); return 0;
    case kExportedMessage: OnExported(); return 0;
    case kScanMessage: OnScanNews(); return 0;
    case kLoudnessMessage: OnLoudnessNews(); return 0;
    case kSavedMessage: ShowSaveResult(saver_->Last()); return 0;
    default: break;
  }
  return DefWindowProcW(hwnd, message, wParam, lParam);
}

BOOL MainWindow::OnCreate(HWND hwnd, LPCREATESTRUCT) {
  font_.Make(GetDpiForWindow(hwnd));
  const HINSTANCE instance = GetModuleHandleW(nullptr);
  micRow_.Create(hwnd);
  search_.Create(hwnd);
  tabs_ = CreateWindowExW(0, WC_TABCONTROLW, L"Pages", WS_CHILD | WS_VISIBLE | WS_TABSTOP | WS_CLIPSIBLINGS, 0, 0, 0,
                          0, hwnd, reinterpret_cast<HMENU>(kTabsId), instance, nullptr);
  grid_.Create(hwnd, font_);
  grid_.SetSize(static_cast<int>(board_.GetSettings().buttonSize));
  SetWindowPos(grid_.Hwnd(), HWND_TOP, 0, 0, 0, 0, SWP_NOMOVE | SWP_NOSIZE);
  status_ = CreateWindowExW(0, STATUSCLASSNAMEW, L"", WS_CHILD | WS_VISIBLE | SBARS_SIZEGRIP, 0, 0, 0, 0, hwnd,
                            reinterpret_cast<HMENU>(kStatusId), instance, nullptr);
  ApplyFont(hwnd, font_.Normal());
  accelerators_ = MakeAccelerators();
  hotkeys_ = std::make_unique<GlobalHotkeys>(hwnd);
  saver_ = std::make_unique<BoardSaver>([hwnd] { PostMessageW(hwnd, kSavedMessage, 0, 0); });
  files_ = std::make_unique<FilePresence>([hwnd] { PostMessageW(hwnd, kFilesMessage, 0, 0); });
  // Half the cores measure (at least one, at most four): the rest stay the mix's and the user's.
  loudness_ = std::make_unique<LoudnessMeter>([hwnd] { PostMessageW(hwnd, kLoudnessMessage, 0, 0); },
                                              std::clamp(std::thread::hardware_concurrency() / 2, 1u, 4u));
  tray_ = std::make_unique<TrayIcon>(hwnd, kTrayMessage, iconSmall_, L"Quillon Board");
  player_ = std::make_unique<BoardPlayer>([hwnd] { PostMessageW(hwnd, kNewsMessage, 0, 0); });
  elevated_ = std::make_unique<ElevatedRun>(hwnd, kElevatedMessage);
  player_->Configure(board_.GetSettings());
  board_.SetListener([this](const Change& change) { OnBoardChanged(change); });
  ShowPages();
  ShowMicrophones();
  if (!startProblem_.empty()) SetStatus(startProblem_);
  return TRUE;
}

void MainWindow::MakeFonts(UINT dpi) {
  font_.Make(dpi);
  ApplyFont(hwnd_, font_.Normal());
  ShowSounds();
}

void MainWindow::OnDpiChanged(UINT dpi, const RECT& suggested) {
  SetWindowPos(hwnd_, nullptr, suggested.left, suggested.top, suggested.right - suggested.left,
               suggested.bottom - suggested.top, SWP_NOZORDER | SWP_NOACTIVATE);
  MakeFonts(dpi);
  Layout();
}

void MainWindow::OnSize(HWND, UINT, int, int) { Layout(); }

void MainWindow::Layout() {
  if (!status_) return;
  SendMessageW(status_, WM_SIZE, 0, 0);
  RECT client{}, statusRect{};
  GetClientRect(hwnd_, &client);
  GetWindowRect(status_, &statusRect);
  const int margin = font_.Scale(8);
  const int rowHeight = micRow_.Layout(font_, margin, margin, client.right - 2 * margin);
  const int searchHeight = search_.Layout(font_, margin, margin * 2 + rowHeight, client.right - 2 * margin);
  // The tab control is the row of page tabs only; the grid lies below it, so
  // that the two never overlap.
  const int top = margin * 3 + rowHeight + searchHeight;
  const int bottom = client.bottom - (statusRect.bottom - statusRect.top) - margin;
  RECT header{0, 0, client.right - 2 * margin, 0};
  TabCtrl_AdjustRect(tabs_, TRUE, &header);
  const int tabsHeight = -header.top;
  MoveWindow(tabs_, margin, top, client.right - 2 * margin, tabsHeight, TRUE);
  MoveWindow(grid_.Hwnd(), margin, top + tabsHeight, client.right - 2 * margin,
             std::max<int>(bottom - top - tabsHeight, rowHeight), TRUE);
}

void MainWindow::RestoreFocus() {
  if (lastFocus_ != nullptr && IsWindow(lastFocus_) && IsWindowVisible(lastFocus_) && IsChild(hwnd_, lastFocus_)) {
    SetFocus(lastFocus_);
  } else if (board_.Find(grid_.Focused()) != nullptr) {
    grid_.FocusSound(grid_.Focused());
  } else {
    SetFocus(micRow_.List());
  }
}

// A board that could not be saved says so before anything else, until it is saved.
void MainWindow::SetStatus(const std::wstring& text) {
  statusText_ = text;
  measuringText_.clear();  // news of its own end it
  ShowStatus();
}

void MainWindow::ShowStatus() {
  std::wstring shown = saveProblem_;
  for (const std::wstring* part : {&statusText_, &measuringText_}) {
    if (!part->empty()) shown += (shown.empty() ? L"" : L" ") + *part;
  }
  SetWindowTextW(status_, shown.c_str());
}

// ---- Showing the board ----------------------------------------------------------------

void MainWindow::ShowPages() {
  TabCtrl_DeleteAllItems(tabs_);
  const auto& pages = board_.Pages();
  for (size_t i = 0; i < pages.size(); ++i) {
    std::wstring name = Wide(pages[i].name) + (renamedPages_.count(pages[i].name) ? L" (renamed)" : L"");
    TCITEMW item{TCIF_TEXT};
    item.pszText = name.data();
    TabCtrl_InsertItem(tabs_, static_cast<int>(i), &item);
  }
  page_ = std::min(page_, pages.size() - 1);
  TabCtrl_SetCurSel(tabs_, static_cast<int>(page_));
  hotkeys_->Sync(board_, page_);
  ShowSounds();
  Layout();
}

void MainWindow::ShowSounds() {
  // While a search is typed, the sounds found (on the page, or on every page); else the page's.
  const bool searching = search_.Active();
  const std::vector<uint32_t> ids =
      board_.Matching(search_.Text(), searching && search_.AllPages() ? std::nullopt : std::optional<size_t>(page_));
  std::vector<SoundView> views;
  std::vector<std::wstring> unknown;
  for (const uint32_t id : ids) {
    const Sound& sound = *board_.Find(id);
    const FileState file = files_->StateOf(SoundPath(sound.file, path_));
    if (file == FileState::Unknown) unknown.push_back(SoundPath(sound.file, path_));
    SoundView view{sound.id, Wide(sound.name), sound.hotkey ? Wide(sound.hotkey->Text()) : L"", false};
    view.color = sound.color;
    const auto conflict = hotkeys_->Conflicts().find(HotkeyTarget::Sound(sound.id));
    const auto mark = soundMarks_.find(sound.id);
    if (file == FileState::Missing || file == FileState::Unreachable) {
      view.detail = file == FileState::Missing ? L"file missing" : L"unreachable";
      view.problem = true;
    } else if (conflict != hotkeys_->Conflicts().end()) {
      view.detail = view.detail + L" taken by another program";
      view.problem = true;
    } else if (mark != soundMarks_.end()) {
      view.detail = mark->second;
      view.problem = true;
    }
    views.push_back(std::move(view));
  }
  shown_ = ids;
  // Files not looked at yet are shown as there until the answer comes.
  if (!unknown.empty()) files_->Check(unknown);
  grid_.Show(views);
  // The status bar names the first hotkey another program holds.
  for (const auto& [target, why] : hotkeys_->Conflicts()) {
    const Sound* sound = target.sound != 0 ? board_.Find(target.sound) : nullptr;
    const Settings& settings = board_.GetSettings();
    const tools::KeyChord chord = sound                            ? *sound->hotkey
                                  : target.command == kNextPage     ? *settings.nextPageHotkey
                                  : target.command == kPreviousPage ? *settings.previousPageHotkey
                                                                    : *settings.stopAllHotkey;
    const std::wstring owner = sound                            ? L"\u201C" + Wide(sound->name) + L"\u201D"
                               : target.command == kNextPage     ? L"next page"
                               : target.command == kPreviousPage ? L"previous page"
                                                                 : L"stop everything";
    SetStatus(Wide(chord.Text()) + L" (" + owner + L") does not work: another program holds it (" + Wide(why) +
              L"). Choose another hotkey.");
    break;
  }
}

void MainWindow::ShowPage(size_t page) {
  page_ = std::min(page, board_.Pages().size() - 1);
  TabCtrl_SetCurSel(tabs_, static_cast<int>(page_));
  hotkeys_->Sync(board_, page_);  // a page's own hotkeys work while it is shown
  ShowSounds();
  // From a hotkey while the board is out of sight: the notification area says which page it is now.
  if (!IsWindowVisible(hwnd_) || IsIconic(hwnd_)) {
    const Page& shown = board_.Pages()[page_];
    tray_->Notify(L"Quillon Board", L"Page \u201C" + Wide(shown.name) + L"\u201D" +
                                        (shown.hotkeysOnlyWhenShown ? L": its hotkeys work now." : L"."));
  }
}

void MainWindow::CheckFiles() {
  std::vector<std::wstring> files;
  for (const Page& page : board_.Pages()) {
    for (const Sound& sound : page.sounds) files.push_back(SoundPath(sound.file, path_));
  }
  files_->Check(files);
}

void MainWindow::MeasureLoudness(bool all) {
  std::vector<LoudnessMeter::Ask> asks;
  for (const Page& page : board_.Pages()) {
    for (const Sound& sound : page.sounds) {
      if (all || !sound.loudness) {
        asks.push_back({sound.id, SoundPath(sound.file, path_), sound.startMs, sound.endMs, sound.loudness});
      }
    }
  }
  if (!asks.empty()) loudness_->Measure(asks);
}

void MainWindow::OnLoudnessNews() {
  board_.SetLoudness(loudness_->Take());
  const LoudnessMeter::Progress now = loudness_->Now();
  if (now.total == 0) return;  // nothing needed measuring (the files are as they were)
  measuringText_ = now.busy ? L"Measuring the sounds\u2019 loudness: " + std::to_wstring(now.measured) + L" of " +
                                  std::to_wstring(now.total) + L"\u2026"
                            : L"Measured the loudness of " + std::to_wstring(now.measured) +
                                  (now.measured == 1 ? L" sound." : L" sounds.");
  ShowStatus();
}

void MainWindow::ShowMicrophones() {
  micRow_.Show(Wide(board_.GetSettings().microphone));
  Layout();
  const MicChoice* mic = micRow_.Selected();
  // With none chosen, the list shows the first running one: the board plays into it, so it is the choice.
  if (mic != nullptr && board_.GetSettings().microphone.empty()) {
    Settings settings = board_.GetSettings();
    settings.microphone = Utf8(mic->id);
    board_.SetSettings(settings);
  }
  if (!startProblem_.empty()) return;
  if (!micRow_.Problem().empty()) {
    SetStatus(micRow_.Problem() + (micRow_.CanFix() ? L" Fix\u2026 fixes it as Administrator." : L""));
    return;
  }
  if (mic != nullptr && mic->state == MicChoice::State::Running) return;
  SetStatus(mic != nullptr        ? Explain(*mic)
            : micRow_.HasNone() ? L"Windows knows no microphone. Connect one, and it shows in the list."
                                : L"Choose the microphone to play into.");
}

// ---- The board changed -----------------------------------------------------------------

void MainWindow::OnBoardChanged(const Change& change) {
  Save();
  switch (change.kind) {
    case Change::Kind::Pages: ShowPages(); break;
    case Change::Kind::Sound:
      soundMarks_.erase(change.sound);  // changed by hand: what loading put right is no news
      [[fallthrough]];
    case Change::Kind::Sounds:
      hotkeys_->Sync(board_, page_);
      ShowSounds();
      MeasureLoudness(false);  // sounds added, or a part changed
      break;
    case Change::Kind::Loudness: break;  // saved; it shows in the sound's dialog
    case Change::Kind::Settings:
      grid_.SetSize(static_cast<int>(board_.GetSettings().buttonSize));
      hotkeys_->Sync(board_, page_);
      player_->Configure(board_.GetSettings());
      ShowSounds();
      break;
  }
}

void MainWindow::Save() {
  if (saveBlocked_) return;
  saver_->Save(path_, ToJson(board_));
}

void MainWindow::ShowSaveResult(const BoardSaver::Result& result) {
  const bool wasUnsaved = !saveProblem_.empty();
  saveProblem_ = result.saved ? L"" : L"The board was not saved: " + Wide(result.error) + L".";
  if (!result.saved) {
    SetStatus(L"");
  } else if (wasUnsaved) {
    SetStatus(L"The board is saved.");
  }
}

// Whether the window may go: the board is saved (what is being written is
// waited for), or the person agrees to lose what was not.
bool MainWindow::MayClose() {
  if (saveBlocked_) return true;
  if (!saveProblem_.empty()) Save();  // once more
  ShowSaveResult(saver_->Flush());
  if (saveProblem_.empty()) return true;
  return MessageBoxW(hwnd_, (saveProblem_ + L"\n\nClose anyway? The changes since the last save are lost.").c_str(),
                     L"Quillon Board", MB_YESNO | MB_ICONWARNING | MB_DEFBUTTON2) == IDYES;
}

// ---- Commands --------------------------------------------------------------------------

bool MainWindow::CanRun(UINT id) const {
  const bool soundFocused = board_.Find(grid_.Focused()) != nullptr;
  switch (id) {
    case kPlayFocused:
    case kEditSound:
    case kRemoveSound: return soundFocused;
    case kMoveLeft:
    case kMoveRight: return soundFocused && !search_.Active() && board_.Pages()[page_].sounds.size() > 1;
    case kRemovePage: return board_.Pages().size() > 1;
    case kAttach: return micRow_.CanAttach() && !elevated_->Running();
    case kEffect: return micRow_.CanChangeEffect() && !elevated_->Running();
    case kFix: return micRow_.CanFix() && !elevated_->Running();
    default: return true;
  }
}

void MainWindow::OnInitMenuPopup(HWND, HMENU menu, UINT, BOOL) {
  for (int i = 0; i < GetMenuItemCount(menu); ++i) {
    const UINT id = GetMenuItemID(menu, i);
    if (id != static_cast<UINT>(-1)) EnableMenuItem(menu, id, MF_BYCOMMAND | (CanRun(id) ? MF_ENABLED : MF_GRAYED));
  }
}

void MainWindow::OnCommand(HWND, int id, HWND, UINT code) {
  if (id == SearchRow::kBoxId || id == SearchRow::kAllPagesId) {
    OnSearch(id == SearchRow::kBoxId ? code : SearchRow::kChanged);
    return;
  }
  if (id == MicrophoneRow::kListId) {
    const MicChoice* mic = micRow_.Selected();
    if (code == CBN_SELCHANGE && mic != nullptr) {
      Settings settings = board_.GetSettings();
      settings.microphone = Utf8(mic->id);
      board_.SetSettings(settings);
      ShowMicrophones();
    }
    return;
  }
  const UINT command = static_cast<UINT>(id);
  if (!CanRun(command)) return;
  const uint32_t focused = grid_.Focused();
  switch (command) {
    case kAddSounds: AddSoundsDialog(); break;
    case kFind: search_.Focus(); break;
    case kOpenBoard: OpenBoardDialog(); break;
    case kExportBoard: ExportDialog(); break;
    case kAddPage: AddPage(); break;
    case kRenamePage: RenamePage(); break;
    case kRemovePage: RemovePage(); break;
    case kSettings: OpenSettings(); break;
    case kExit:
      if (MayClose()) DestroyWindow(hwnd_);
      break;
    case kPlayFocused: PlaySound(focused); break;
    case kEditSound: EditSound(focused); break;
    case kRemoveSound: RemoveSound(focused); break;
    case kMoveLeft: MoveSound(focused, -1); break;
    case kMoveRight: MoveSound(focused, +1); break;
    case kStopAll:
      player_->StopAll();
      SetStatus(L"Stopped everything.");
      break;
    case kAttach: Attach(); break;
    case kEffect: ChangeEffect(); break;
    case kFix: Fix(); break;
    case kShowBoard: ShowBoard(); break;
    case kNextPage:
    case kPreviousPage: {
      const size_t count = board_.Pages().size();
      ShowPage((page_ + (command == kNextPage ? 1 : count - 1)) % count);
      break;
    }
    default: break;
  }
}

void MainWindow::OnHotKey(HWND, int id, UINT, UINT) {
  const std::optional<HotkeyTarget> target = hotkeys_->TargetOf(id);
  if (!target) return;
  // A sound's hotkey plays it as its button does; another runs its command as the menu would.
  if (target->sound != 0) {
    PlaySound(target->sound);
  } else {
    SendMessageW(hwnd_, WM_COMMAND, MAKEWPARAM(target->command, 0), 0);
  }
}

LRESULT MainWindow::OnNotify(const NMHDR& header) {
  if (header.hwndFrom == grid_.Hwnd() && header.code == SoundGrid::kPressed) {
    PlaySound(reinterpret_cast<const SoundGrid::PressNotice&>(header).sound);
    return 0;
  }
  if (header.hwndFrom == tabs_ && header.code == TCN_SELCHANGE) {
    ShowPage(static_cast<size_t>(std::max(0, TabCtrl_GetCurSel(tabs_))));
  }
  return 0;
}

void MainWindow::OnSearch(UINT code) {
  if (code == SearchRow::kEscape) {
    search_.Clear();  // shows the page again (its change comes back here)
    grid_.FocusSound(grid_.Focused());
    return;
  }
  if (code == SearchRow::kEnter) {
    if (!search_.Active()) return;
    if (shown_.empty()) {
      SetStatus(L"No sound\u2019s name holds \u201C" + search_.Text() + L"\u201D.");
    } else {
      PlaySound(shown_.front());
    }
    return;
  }
  if (code != SearchRow::kChanged) return;
  ShowSounds();
  if (search_.Active()) {
    const size_t found = shown_.size();
    SetStatus(std::to_wstring(found) + (found == 1 ? L" sound" : L" sounds") + L" found for \u201C" + search_.Text() +
              L"\u201D" + (search_.AllPages() ? L" on all pages." : L" on this page.") +
              (found > 0 ? L" Enter plays the first; Esc ends the search." : L" Esc ends the search."));
  } else {
    SetStatus(L"");
  }
}

void MainWindow::PlaySound(uint32_t id) {
  const Sound* sound = board_.Find(id);
  if (!sound) return;
  // As last found (looking now could wait on a network); a file gone since is the player's to report.
  const FileState file = files_->StateOf(SoundPath(sound->file, path_));
  if (file == FileState::Missing || file == FileState::Unreachable) {
    SetStatus(L"\u201C" + Wide(sound->name) + L"\u201D cannot play: its file is " +
              (file == FileState::Missing ? L"missing (" : L"on a network place that does not answer (") +
              Wide(sound->file) + L").");
    return;
  }
  // A file written relative to the board file plays from beside it.
  Sound resolved = *sound;
  resolved.file = Utf8(SoundPath(sound->file, path_));
  player_->Press(resolved);
}

void MainWindow::OnPlayerNews() {
  for (const PlayerNews& news : player_->TakeNews()) {
    switch (news.kind) {
      case PlayerNews::Kind::Started:
      case PlayerNews::Kind::Progress:
        grid_.SetProgress(news.sound, news.total > 0 ? news.seconds / news.total : 0);
        break;
      case PlayerNews::Kind::Ended: grid_.SetProgress(news.sound, -1); break;
      case PlayerNews::Kind::Failed: {
        grid_.SetProgress(news.sound, -1);
        const Sound* sound = board_.Find(news.sound);
        SetStatus((news.sound == kPreviewSound ? L"The preview" : L"\u201C" + (sound ? Wide(sound->name) : L"") + L"\u201D") +
                  L" did not play: " + Wide(news.text) + L".");
        break;
      }
      case PlayerNews::Kind::Status: {
        std::wstring text = Wide(news.text);
        if (!text.empty()) text[0] = static_cast<wchar_t>(towupper(text[0]));
        SetStatus(text + L".");
        break;
      }
    }
  }
}

BOOL MainWindow::OnCopyData(HWND, HWND, PCOPYDATASTRUCT data) {
  const std::vector<std::wstring> texts = TextsOfCopyData(*data);
  if (data->dwData == kCopyDataPlay) {
    for (const std::wstring& name : texts) PlayNamed(name);
    return TRUE;
  }
  if (data->dwData != kCopyDataFiles) return FALSE;
  ShowBoard();
  if (!texts.empty()) AddFiles(texts);
  return TRUE;
}

void MainWindow::PlayNamed(const std::wstring& name) {
  for (const Page& page : board_.Pages()) {
    for (const Sound& sound : page.sounds) {
      if (_wcsicmp(Wide(sound.name).c_str(), name.c_str()) == 0) {
        PlaySound(sound.id);
        return;
      }
    }
  }
  SetStatus(L"No sound on the board is named \u201C" + name + L"\u201D.");
}

void MainWindow::AddPage() {
  PageNameDialog dialog(L"Add page", L"", false, [this](const std::string& name, bool only) {
    Refusal refused = board_.AddPage(name);
    // A new page has no keys yet: its flag is never refused.
    if (!refused && only) refused = board_.SetHotkeysOnlyWhenShown(board_.Pages().size() - 1, true);
    return refused;
  });
  if (dialog.Ask(hwnd_)) ShowPage(board_.Pages().size() - 1);
}

void MainWindow::RenamePage() {
  const size_t page = page_;
  const bool was = board_.Pages()[page].hotkeysOnlyWhenShown;
  PageNameDialog dialog(L"Page settings", Wide(board_.Pages()[page].name), was,
                        [this, page, was](const std::string& name, bool only) {
                          // The flag first: a refused rename then puts it back (back is always allowed).
                          if (Refusal refused = board_.SetHotkeysOnlyWhenShown(page, only)) return refused;
                          Refusal refused = board_.RenamePage(page, name);
                          if (refused) board_.SetHotkeysOnlyWhenShown(page, was);
                          return refused;
                        });
  dialog.Ask(hwnd_);
}

void MainWindow::RemovePage() {
  const Page& page = board_.Pages()[page_];
  if (!page.sounds.empty()) {
    const std::wstring question = L"Remove the page \u201C" + Wide(page.name) + L"\u201D and its " +
                                  std::to_wstring(page.sounds.size()) + L" sounds from the board?\n\n"
                                  L"The sound files stay where they are.";
    if (MessageBoxW(hwnd_, question.c_str(), L"Remove page", MB_OKCANCEL | MB_ICONQUESTION | MB_DEFBUTTON2) != IDOK) {
      return;
    }
  }
  board_.RemovePage(page_);
}

void MainWindow::EditSound(uint32_t id) {
  const Sound* sound = board_.Find(id);
  if (sound == nullptr) return;
  SoundDialog dialog(board_, id, SoundPath(sound->file, path_), [this](Sound edited) {
    edited.file = Utf8(SoundPath(edited.file, path_));
    player_->Preview(edited);
  });
  dialog.Edit(hwnd_);
  player_->StopPreview();
  grid_.FocusSound(id);
}

void MainWindow::RemoveSound(uint32_t id) {
  const Sound* sound = board_.Find(id);
  if (!sound) return;
  const std::wstring question = L"Remove \u201C" + Wide(sound->name) +
                                L"\u201D from the board?\n\nThe sound file stays where it is.";
  if (MessageBoxW(hwnd_, question.c_str(), L"Remove sound", MB_OKCANCEL | MB_ICONQUESTION | MB_DEFBUTTON2) == IDOK) {
    board_.RemoveSound(id);
  }
}

void MainWindow::MoveSound(uint32_t id, int by) {
  const auto& sounds = board_.Pages()[page_].sounds;
  const auto at = std::find_if(sounds.begin(), sounds.end(), [id](const Sound& s) { return s.id == id; });
  if (at == sounds.end()) return;
  const long index = (at - sounds.begin()) + by;
  if (index < 0 || index >= static_cast<long>(sounds.size())) return;
  board_.MoveSound(id, page_, static_cast<size_t>(index));
  grid_.FocusSound(id);
}

void MainWindow::Attach() {
  if (micRow_.Selected() == nullptr) return;
  const MicChoice mic = *micRow_.Selected();
  RunElevated(Elevated{Elevated::Kind::Attach, mic.id, mic.name, {}}, L"attach \"" + mic.guid + L"\"");
}

// Runs `quillon check --fix` for the microphone, as Administrator.
void MainWindow::Fix() {
  if (micRow_.Selected() == nullptr) return;
  const MicChoice mic = *micRow_.Selected();
  RunElevated(Elevated{Elevated::Kind::Fix, mic.id, mic.name, {}}, L"check --fix --no-record --mic \"" + mic.guid + L"\"");
}

void MainWindow::ChangeEffect() {
  if (micRow_.Selected() == nullptr) return;
  // Copies: the list is read again while the dialog is open (the window is
  // activated again when it closes).
  const MicChoice mic = *micRow_.Selected();
  const system::EffectSettings before = micRow_.Effect();
  EffectDialog dialog(mic.name, before);
  if (!dialog.Edit(hwnd_)) return;
  const std::wstring arguments = system::SetArguments(before, dialog.Chosen(), mic.id);
  if (arguments.empty()) return;
  RunElevated(Elevated{Elevated::Kind::Effect, mic.id, mic.name, dialog.Chosen()}, arguments);
}

void MainWindow::RunElevated(Elevated what, const std::wstring& arguments) {
  DWORD error = 0;
  const Elevated::Kind kind = what.kind;
  if (!elevated_->Start(arguments, error)) {
    SetStatus(error != ERROR_CANCELLED         ? L"Cannot run quillon.exe as Administrator: " + Wide(tools::SystemText(error))
              : kind == Elevated::Kind::Attach ? L"Attaching was cancelled."
              : kind == Elevated::Kind::Fix    ? L"Nothing was fixed: cancelled."
                                               : L"The effect's settings were not changed: cancelled.");
    return;
  }
  SetStatus(kind == Elevated::Kind::Attach ? L"Attaching Quillon to " + what.name + L"\u2026"
            : kind == Elevated::Kind::Fix  ? L"Fixing Quillon on " + what.name + L"\u2026"
                                           : L"Changing the effect's settings\u2026");
  pending_ = std::move(what);
}

void MainWindow::OnElevatedEnded() {
  const DWORD code = elevated_->Finish();
  ShowMicrophones();
  const Elevated& what = pending_;
  const std::wstring failed = L" (quillon.exe ended with code " + std::to_wstring(code) +
                              L"; an Administrator console shows why).";
  if (what.kind == Elevated::Kind::Attach) {
    const MicChoice* mic = micRow_.Selected();
    const bool attached = mic != nullptr && mic->id == what.id && mic->state != MicChoice::State::NotAttached;
    SetStatus(!attached                                  ? L"Quillon was not attached to " + what.name + failed
              : mic->state == MicChoice::State::Running ? L"Quillon is attached to " + what.name + L"."
                                                        : Explain(*mic));
    return;
  }
  if (what.kind == Elevated::Kind::Fix) {
    // What the check finds now, whatever the exit code says.
    SetStatus(!micRow_.Problem().empty() ? micRow_.Problem() + L" The fix did not help" + failed
                                         : L"Quillon is ready on " + what.name + L".");
    return;
  }
  // What the effect reads now, whatever the exit code says.
  const system::EffectSettings now = system::ReadEffectSettings(what.id);
  SetStatus(now.SameValues(what.effect) ? what.name + L": " + DescribeEffect(now) + L"."
                                        : L"The effect's settings were not changed" + failed);
}

void MainWindow::ShowBoard() {
  ShowWindow(hwnd_, IsIconic(hwnd_) ? SW_RESTORE : SW_SHOW);
  SetForegroundWindow(hwnd_);
}

void MainWindow::OpenSettings() {
  SettingsDialog dialog(board_);
  dialog.Edit(hwnd_);
}

void MainWindow::OnContextMenu(HWND target, int x, int y) {
  // The grid sends it for a sound's button (which has the focus), with where to open.
  if (target != grid_.Hwnd()) return;
  HMENU menu = MakeSoundMenu();
  OnInitMenuPopup(hwnd_, menu, 0, FALSE);
  TrackPopupMenu(menu, TPM_RIGHTBUTTON, x, y, 0, hwnd_, nullptr);
  DestroyMenu(menu);
}

void MainWindow::OnTray(UINT event) {
  if (event == NIN_SELECT || event == NIN_KEYSELECT || event == WM_LBUTTONDBLCLK) {
    ShowBoard();
  } else if (event == WM_CONTEXTMENU) {  // (a right click sends WM_RBUTTONUP before it)
    POINT at{};
    GetCursorPos(&at);
    HMENU menu = MakeTrayMenu();
    SetForegroundWindow(hwnd_);  // so that the menu closes when the user clicks elsewhere
    TrackPopupMenu(menu, TPM_RIGHTBUTTON, at.x, at.y, 0, hwnd_, nullptr);
    DestroyMenu(menu);
  }
}

void MainWindow::OnClose(HWND) {
  if (board_.GetSettings().keepInTray) {
    ShowWindow(hwnd_, SW_HIDE);
  } else if (MayClose()) {
    DestroyWindow(hwnd_);
  }
}

void MainWindow::OnDestroy(HWND) {
  if (exporting_.joinable()) exporting_.join();
  scan_.reset();
  player_->StopAll();
  player_.reset();
  hotkeys_.reset();
  files_.reset();
  loudness_.reset();
  saver_.reset();  // what is waiting is written
  tray_.reset();
  if (accelerators_) DestroyAcceleratorTable(accelerators_);
  accelerators_ = nullptr;
  PostQuitMessage(0);
}

}  // namespace quillon::board
