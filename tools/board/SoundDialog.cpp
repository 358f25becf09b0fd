#include "board/SoundDialog.h"

#include "board/BoardResources.h"
#include "common/ToolSupport.h"

#include <commctrl.h>

#include <cwchar>

namespace quillon::board {

std::optional<tools::KeyChord> HotkeyOf(HWND control) {
  const LRESULT value = SendMessageW(control, HKM_GETHOTKEY, 0, 0);
  const UINT key = LOBYTE(LOWORD(value)), modifiers = HIBYTE(LOWORD(value));
  if (key == 0) return std::nullopt;
  tools::KeyChord chord;
  chord.key = key;
  chord.ctrl = modifiers & HOTKEYF_CONTROL;
  chord.alt = modifiers & HOTKEYF_ALT;
  chord.shift = modifiers & HOTKEYF_SHIFT;
  return chord;
}

void ShowHotkey(HWND control, const std::optional<tools::KeyChord>& chord) {
  WORD value = 0;
  if (chord) {
    const UINT modifiers = (chord->ctrl ? HOTKEYF_CONTROL : 0) | (chord->alt ? HOTKEYF_ALT : 0) |
                           (chord->shift ? HOTKEYF_SHIFT : 0);
    value = MAKEWORD(chord->key, modifiers);
  }
  SendMessageW(control, HKM_SETHOTKEY, value, 0);
}

namespace {

std::wstring Db(const wchar_t* format, double value) {
  wchar_t text[48];
  std::swprintf(text, 48, format, value);
  return text;
}

// What was measured of the sound, and what evening its loudness out does to it.
std::wstring LoudnessText(const Sound& sound, const Settings& settings) {
  if (!sound.loudness) return L"Loudness: not measured yet.";
  const SoundLoudness& l = *sound.loudness;
  std::wstring text = l.lufs ? L"Loudness " + Db(L"%.1f LUFS", *l.lufs) : L"No loudness (shorter than 400 ms, or silent)";
  if (l.truePeakDb) text += L", true peak " + Db(L"%.1f dBTP", *l.truePeakDb);
  text += L". ";
  const std::optional<audio::LoudnessGain> even = EvenLoudnessGain(sound, settings);
  if (!even) return text + L"Even loudness is off: it plays at its volume.";
  const std::wstring target = Db(L"%g LUFS", settings.loudnessTargetLufs);
  switch (even->from) {
    case audio::LoudnessGain::From::Loudness: return text + L"Even loudness: " + Db(L"%+.1f dB", even->db) + L" brings it to " + target + L".";
    case audio::LoudnessGain::From::PeakCeiling:
      return text + L"Even loudness: " + Db(L"%+.1f dB", even->db) + L", short of " + target +
             L", keeps its true peak at -1 dBTP.";
    case audio::LoudnessGain::From::Peak:
      return text + L"Even loudness: " + Db(L"%+.1f dB", even->db) + L" brings its true peak to -1 dBTP.";
    case audio::LoudnessGain::From::None: break;
  }
  return text + L"Even loudness leaves it as it is.";
}

}  // namespace

bool SoundDialog::Edit(HWND owner) { return Run(owner, IDD_SOUND); }

BOOL SoundDialog::OnInit() {
  const Sound* sound = board_.Find(sound_);
  if (!sound) {
    EndDialog(hwnd_, IDCANCEL);
    return TRUE;
  }
  SetDlgItemTextW(hwnd_, IDC_SOUND_NAME, tools::Wide(sound->name).c_str());
  SetDlgItemTextW(hwnd_, IDC_SOUND_FILE, tools::Wide(sound->file).c_str());
  ShowHotkey(GetDlgItem(hwnd_, IDC_SOUND_HOTKEY), sound->hotkey);
  wchar_t volume[32];
  std::swprintf(volume, 32, L"%g", sound->volumeDb);
  SetDlgItemTextW(hwnd_, IDC_SOUND_VOLUME, volume);
  // None, then the palette; a colour of the file that is not in it is kept as "Other".
  const HWND colors = GetDlgItem(hwnd_, IDC_SOUND_COLOR);
  SendMessageW(colors, CB_ADDSTRING, 0, reinterpret_cast<LPARAM>(L"None"));
  int selected = 0;
  for (size_t i = 0; i < Palette().size(); ++i) {
    SendMessageW(colors, CB_ADDSTRING, 0, reinterpret_cast<LPARAM>(tools::Wide(Palette()[i].name).c_str()));
    if (sound->color == Palette()[i].rgb) selected = static_cast<int>(i) + 1;
  }
  if (sound->color && selected == 0) {
    const std::wstring other = L"Other (" + tools::Wide(ColorText(*sound->color)) + L")";
    selected = static_cast<int>(SendMessageW(colors, CB_ADDSTRING, 0, reinterpret_cast<LPARAM>(other.c_str())));
  }
  SendMessageW(colors, CB_SETCURSEL, static_cast<WPARAM>(selected), 0);
  // The part played: empty is the file's start, and its end.
  if (sound->startMs != 0) SetDlgItemTextW(hwnd_, IDC_SOUND_START, std::to_wstring(sound->startMs).c_str());
  if (sound->endMs != 0) SetDlgItemTextW(hwnd_, IDC_SOUND_END, std::to_wstring(sound->endMs).c_str());
  // The waveform where the template keeps its place, next in the tab order after End.
  RECT place{};
  GetWindowRect(GetDlgItem(hwnd_, IDC_SOUND_WAVE_PLACE), &place);
  MapWindowPoints(nullptr, hwnd_, reinterpret_cast<POINT*>(&place), 2);
  wave_.Create(hwnd_, place, IDC_SOUND_WAVE, file_);
  wave_.SetPart(sound->startMs, sound->endMs);
  SetDlgItemTextW(hwnd_, IDC_SOUND_LOUDNESS, LoudnessText(*sound, board_.GetSettings()).c_str());
  SetWindowPos(wave_.Hwnd(), GetDlgItem(hwnd_, IDC_SOUND_END), 0, 0, 0, 0, SWP_NOMOVE | SWP_NOSIZE | SWP_NOACTIVATE);
  return TRUE;
}

BOOL SoundDialog::OnCommand(int id, int code) {
  if (id == IDC_SOUND_NO_HOTKEY && code == BN_CLICKED) {
    ShowHotkey(GetDlgItem(hwnd_, IDC_SOUND_HOTKEY), std::nullopt);
    return TRUE;
  }
  if (id == IDC_SOUND_PREVIEW && code == BN_CLICKED) {
    const Sound* sound = board_.Find(sound_);
    Sound edited = sound ? *sound : Sound{};
    if (sound && ReadFields(edited.volumeDb, edited.startMs, edited.endMs)) {
      // Measured over another part: heard without evening until it is measured again.
      if (edited.startMs != sound->startMs || edited.endMs != sound->endMs) edited.loudness.reset();
      preview_(edited);
    }
    return TRUE;
  }
  if (syncing_) return FALSE;
  syncing_ = true;
  if (id == IDC_SOUND_WAVE && static_cast<UINT>(code) == WaveformView::kMoved) {
    // A marker moved: the fields say where (empty: the file's start, or its end).
    SetDlgItemTextW(hwnd_, IDC_SOUND_START, wave_.StartMs() == 0 ? L"" : std::to_wstring(wave_.StartMs()).c_str());
    SetDlgItemTextW(hwnd_, IDC_SOUND_END, wave_.EndMs() == 0 ? L"" : std::to_wstring(wave_.EndMs()).c_str());
  } else if ((id == IDC_SOUND_START || id == IDC_SOUND_END) && code == EN_CHANGE) {
    // A number typed: the markers follow (what is not a number yet is left to OK).
    wave_.SetPart(std::wcstoull(ItemText(IDC_SOUND_START).c_str(), nullptr, 10),
                  std::wcstoull(ItemText(IDC_SOUND_END).c_str(), nullptr, 10));
  }
  syncing_ = false;
  return FALSE;
}

bool SoundDialog::ReadFields(double& volume, uint64_t& startMs, uint64_t& endMs) {
  const std::wstring volumeText = ItemText(IDC_SOUND_VOLUME);
  wchar_t* end = nullptr;
  volume = std::wcstod(volumeText.c_str(), &end);
  if (volumeText.empty() || *end != L'\0') {
    Refuse(L"The volume is a number of dB, such as -6 or 3.", IDC_SOUND_VOLUME);
    return false;
  }
  for (const auto& [field, value] : {std::pair{IDC_SOUND_START, &startMs}, std::pair{IDC_SOUND_END, &endMs}}) {
    const std::wstring text = ItemText(field);
    wchar_t* rest = nullptr;
    *value = text.empty() ? 0 : std::wcstoull(text.c_str(), &rest, 10);
    if (!text.empty() && *rest != L'\0') {
      Refuse(L"The start and the end are whole milliseconds from the file's start, or empty.", field);
      return false;
    }
  }
  return true;
}

bool SoundDialog::OnOk() {
  double volume = 0;
  uint64_t startMs = 0, endMs = 0;
  if (!ReadFields(volume, startMs, endMs)) return false;
  // Each change is checked by the board before any is made.
  Board trial = board_;
  trial.SetListener({});
  const std::optional<tools::KeyChord> hotkey = HotkeyOf(GetDlgItem(hwnd_, IDC_SOUND_HOTKEY));
  const std::string name = tools::Utf8(ItemText(IDC_SOUND_NAME));
  const struct {
    Refusal refused;
    int field;
  } checks[] = {
      {trial.RenameSound(sound_, name), IDC_SOUND_NAME},
      {trial.SetHotkey(sound_, hotkey), IDC_SOUND_HOTKEY},
      {trial.SetVolume(sound_, volume), IDC_SOUND_VOLUME},
      {trial.SetTrim(sound_, startMs, endMs), IDC_SOUND_END},
  };
  for (const auto& check : checks) {
    if (check.refused) {
      Refuse(tools::Wide(*check.refused), check.field);
      return false;
    }
  }
  board_.RenameSound(sound_, name);
  board_.SetHotkey(sound_, hotkey);
  board_.SetVolume(sound_, volume);
  board_.SetTrim(sound_, startMs, endMs);
  const LRESULT chosen = SendDlgItemMessageW(hwnd_, IDC_SOUND_COLOR, CB_GETCURSEL, 0, 0);
  if (chosen == 0) {
    board_.SetColor(sound_, std::nullopt);
  } else if (chosen > 0 && static_cast<size_t>(chosen) <= Palette().size()) {
    board_.SetColor(sound_, Palette()[static_cast<size_t>(chosen) - 1].rgb);
  }  // ("Other" keeps the file's colour)
  return true;
}

}  // namespace quillon::board
