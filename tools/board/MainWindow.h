// The board's main window: the microphone to play into, a tab for each page,
// the page's grid of sounds, and a status bar that says what happens and what
// is wrong, in words a user can act on. It shows the board and sends it the
// user's edits; it hears of changes through the board's listener, then saves
// the board and re-registers the hotkeys. Sounds play through the
// BoardPlayer, whose news arrives as kNewsMessage. Its work with files
// (adding sounds, opening and exporting boards) is in MainWindowFiles.cpp.
#pragma once

#include "board/Board.h"
#include "board/BoardFile.h"
#include "board/BoardPlayer.h"
#include "board/BoardSaver.h"
#include "board/ElevatedRun.h"
#include "board/FilePresence.h"
#include "board/FolderScan.h"
#include "board/GlobalHotkeys.h"
#include "board/LoudnessMeter.h"
#include "board/MicrophoneRow.h"
#include "board/PortableBoard.h"
#include "board/SearchRow.h"
#include "board/SoundGrid.h"
#include "board/TrayIcon.h"
#include "board/UiFont.h"
#include "board/WindowClass.h"

#include <shellapi.h>

#include <map>
#include <memory>
#include <set>
#include <string>
#include <thread>
#include <vector>

namespace quillon::board {

class MainWindow : public WindowClass<MainWindow> {
 public:
  // The board was loaded from `path` as `loaded` says; the window keeps it.
  MainWindow(LoadedBoard loaded, std::wstring path);
  MainWindow(const MainWindow&) = delete;
  MainWindow& operator=(const MainWindow&) = delete;

  bool Create(int show);
  HACCEL Accelerators() const { return accelerators_; }
  // Adds sound files (and the sound files in folders) to the page shown,
  // once a scan on a thread of its own has found which of them open as sound.
  void AddFiles(const std::vector<std::wstring>& paths);

  LRESULT HandleMessage(UINT message, WPARAM wParam, LPARAM lParam);

 private:
  // The window's own messages, posted by its threads.
  static constexpr UINT kNewsMessage = WM_APP + 1;      // the player has news
  static constexpr UINT kTrayMessage = WM_APP + 2;      // the notification area's icon
  static constexpr UINT kElevatedMessage = WM_APP + 3;  // quillon.exe, run as Administrator, ended
  static constexpr UINT kFilesMessage = WM_APP + 4;     // what is known of the sounds' files changed
  static constexpr UINT kExportedMessage = WM_APP + 5;  // the export's thread ended
  static constexpr UINT kScanMessage = WM_APP + 6;      // adding sounds: the scan has news
  static constexpr UINT kLoudnessMessage = WM_APP + 7;  // the loudness meter has news
  static constexpr UINT kSavedMessage = WM_APP + 8;     // the board file was written, or not

  // Messages.
  BOOL OnCreate(HWND hwnd, LPCREATESTRUCT create);
  void OnSize(HWND hwnd, UINT state, int cx, int cy);
  void OnCommand(HWND hwnd, int id, HWND control, UINT code);
  LRESULT OnNotify(const NMHDR& header);
  void OnHotKey(HWND hwnd, int id, UINT modifiers, UINT key);
  void OnDropFiles(HWND hwnd, HDROP drop);
  BOOL OnCopyData(HWND hwnd, HWND from, PCOPYDATASTRUCT data);
  void OnContextMenu(HWND target, int x, int y);
  void OnInitMenuPopup(HWND hwnd, HMENU menu, UINT item, BOOL system);
  void OnClose(HWND hwnd);
  void OnDestroy(HWND hwnd);
  void OnDpiChanged(UINT dpi, const RECT& suggested);
  void OnTray(UINT event);
  void OnPlayerNews();
  void OnElevatedEnded();
  // The search box changed (or Enter or Esc was pressed in it, or All pages clicked).
  void OnSearch(UINT code);

  // Commands.
  void PlaySound(uint32_t id);
  // The first sound of this name (case does not matter), from a second start's --play.
  void PlayNamed(const std::wstring& name);
  void AddSoundsDialog();
  void AddPage();
  void RenamePage();
  void RemovePage();
  void EditSound(uint32_t id);
  void RemoveSound(uint32_t id);
  void MoveSound(uint32_t id, int by);
  void Attach();
  bool MayClose();
  void Fix();
  // The chosen microphone's gain and block voice, through their dialog.
  void ChangeEffect();
  void ShowBoard();
  void OpenSettings();
  // Opens the board in `path` in place of the one shown (which stays saved where it is).
  void OpenBoard(const std::wstring& path);
  void OpenBoardDialog();
  // Exports the board to a folder chosen, on the export's thread.
  void ExportDialog();
  void OnExported();
  void OnScanNews();
  // Marks what loading put right; returns the status bar's words for it ("" when nothing).
  std::wstring MarkMistakes(const std::vector<Mistake>& mistakes);

  // What quillon.exe runs as Administrator for, to say how it went when it ends.
  struct Elevated {
    enum class Kind { Attach, Effect, Fix } kind = Kind::Attach;
    std::wstring id, name;          // the microphone
    system::EffectSettings effect;  // asked for, for Kind::Effect
  };
  void RunElevated(Elevated what, const std::wstring& arguments);

  // Whether a command can run now: the one place that decides it.
  bool CanRun(UINT id) const;
  void OnBoardChanged(const Change& change);
  // Hands the board to the saver's thread; its result comes as kSavedMessage.
  void Save();
  void ShowSaveResult(const BoardSaver::Result& result);
  // Shows the pages, the sounds of the page shown and their hotkeys' state.
  void ShowPages();
  void ShowSounds();
  // Shows the page (its tab, its sounds, its own hotkeys).
  void ShowPage(size_t page);
  void ShowMicrophones();
  // Looks at every sound's file again, on the file thread.
  void CheckFiles();
  // Asks the meter for the loudness of the sounds not measured yet, or (all)
  // of every sound, whose file may have changed.
  void MeasureLoudness(bool all);
  void OnLoudnessNews();
  void Layout();
  void MakeFonts(UINT dpi);
  void SetStatus(const std::wstring& text);
  // The status bar's words, and after them what the loudness meter does.
  void ShowStatus();
  // Gives the keyboard focus back to the control that had it last.
  void RestoreFocus();

  Board board_;
  std::wstring path_;
  bool saveBlocked_;  // the file on disk could not be read: never written over
  std::wstring saveProblem_;  // why the last save failed, shown until one succeeds
  std::wstring startProblem_;
  // What loading the file put right: marked on the sound's button or the page's tab.
  std::map<uint32_t, std::wstring> soundMarks_;
  std::set<std::string> renamedPages_;
  UiFont font_;
  SoundGrid grid_;
  MicrophoneRow micRow_;
  SearchRow search_;
  std::vector<uint32_t> shown_;  // the sounds the grid shows, in order
  HWND tabs_ = nullptr, status_ = nullptr;
  HACCEL accelerators_ = nullptr;
  HICON iconLarge_ = nullptr, iconSmall_ = nullptr;
  size_t page_ = 0;  // the page shown, where new sounds go
  HWND lastFocus_ = nullptr;  // the control that had the focus when the window was deactivated
  std::unique_ptr<GlobalHotkeys> hotkeys_;
  std::unique_ptr<FilePresence> files_;
  std::unique_ptr<LoudnessMeter> loudness_;
  std::unique_ptr<BoardSaver> saver_;
  std::wstring statusText_;     // what the status bar says
  std::wstring measuringText_;  // and after it, the meter's progress or its last count
  std::unique_ptr<TrayIcon> tray_;
  std::unique_ptr<BoardPlayer> player_;
  std::unique_ptr<ElevatedRun> elevated_;
  Elevated pending_;
  std::thread exporting_;
  std::unique_ptr<FolderScan> scan_;  // adding sounds, while it runs
  size_t scanPage_ = 0;               // where they go
  std::wstring scanFrom_;
  bool scanAsked_ = false, scanBusy_ = false;
  ExportResult exported_;  // written by the export's thread before it posts its message
};

}  // namespace quillon::board
