// The board: pages of sounds, each with a name, a file, a hotkey and a volume,
// and the settings of how they play. Plain C++ that knows no window: the
// window shows it and sends it edits, and hears of every change through the
// listener. Its rules hold after every edit: a page name is never empty nor
// taken twice, a hotkey is used once on the whole board (the stop-everything
// hotkey included), a volume stays within its range, and there is always a
// page. An edit that would break a rule changes nothing and says why.
#pragma once

#include "audio/Loudness.h"
#include "common/KeyChord.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace quillon::board {

constexpr double kMinVolumeDb = -60.0;
constexpr double kMaxVolumeDb = 12.0;

// A sound's loudness as measured (over the part that plays), and the file it
// was measured from: its size and last-write time (FILETIME ticks, UTC). A
// file whose size or time differs is measured again.
struct SoundLoudness {
  std::optional<double> lufs;        // none: shorter than 400 ms, or silent
  std::optional<double> truePeakDb;  // none: silent throughout
  uint64_t size = 0;
  int64_t modified = 0;
  bool operator==(const SoundLoudness& o) const {
    return lufs == o.lufs && truePeakDb == o.truePeakDb && size == o.size && modified == o.modified;
  }
};

// A sound on the board. `id` names it while the board runs (it is not saved).
struct Sound {
  uint32_t id = 0;
  std::string file;  // UTF-8, as the user chose it
  std::string name;
  std::optional<tools::KeyChord> hotkey;
  double volumeDb = 0.0;
  std::optional<uint32_t> color;  // 0xRRGGBB its button is drawn in, or none
  // The part of the file played, in ms from its start: from `startMs` to
  // `endMs` (0: its end).
  uint64_t startMs = 0, endMs = 0;
  std::optional<SoundLoudness> loudness;  // none until measured
};

// The colours a sound's dialog offers, by name.
struct NamedColor {
  const char* name;
  uint32_t rgb;  // 0xRRGGBB
};
const std::vector<NamedColor>& Palette();
// "#rrggbb"
std::string ColorText(uint32_t rgb);
// The colour of a "#rrggbb" text (either case), or nothing.
std::optional<uint32_t> ParseColor(const std::string& text);

struct Page {
  std::string name;
  std::vector<Sound> sounds;
  // Its sounds' hotkeys work only while it is the page shown; then another
  // such page may use the same keys.
  bool hotkeysOnlyWhenShown = false;
};

// How large the sound buttons are drawn.
enum class ButtonSize { Small, Medium, Large };

// Ctrl+Alt+PageDown and Ctrl+Alt+PageUp.
tools::KeyChord DefaultNextPageHotkey();
tools::KeyChord DefaultPreviousPageHotkey();

// What pressing a sound that is already playing does.
enum class PressAgain { Restart, Stop };

struct Settings {
  std::string microphone;  // the endpoint id; empty: the first one the effect runs on
  bool overlap = true;     // false: a new sound stops the others
  PressAgain pressAgain = PressAgain::Restart;
  std::optional<tools::KeyChord> stopAllHotkey;
  // Show the next or the previous page, also while another program has the focus.
  std::optional<tools::KeyChord> nextPageHotkey = DefaultNextPageHotkey();
  std::optional<tools::KeyChord> previousPageHotkey = DefaultPreviousPageHotkey();
  bool monitor = false;  // hear what you play
  std::string monitorDevice;  // a playback device's id or name; empty: the default one
  double monitorVolumeDb = -6.0;
  std::optional<tools::KeyChord> pushToTalkKey;
  uint32_t pushToTalkTailMs = 300;
  bool keepInTray = true;  // closing the window keeps the board running
  ButtonSize buttonSize = ButtonSize::Medium;
  // Each sound is played at the target loudness (its true peak kept at or
  // under -1 dBTP), its own volume on top.
  bool evenLoudness = true;
  double loudnessTargetLufs = -16.0;
};

constexpr double kMinLoudnessTarget = -40.0;
constexpr double kMaxLoudnessTarget = -5.0;

// The gain that evens the sound's loudness out as the settings say (none when
// that is off or it is not measured yet), before its own volume.
std::optional<audio::LoudnessGain> EvenLoudnessGain(const Sound& sound, const Settings& settings);
// The gain the sound plays at, dB: its own volume and its evened loudness.
double PlayGainDb(const Sound& sound, const Settings& settings);


// What an edit changed, for the listener: the pages (their list or names),
// one sound, several sounds at once, or the settings.
struct Change {
  // Loudness: measurements came in (nothing the user did).
  enum class Kind { Pages, Sound, Sounds, Settings, Loudness } kind;
  uint32_t sound = 0;  // for Kind::Sound
};

// The result of an edit: empty when it was made, else why it was refused.
using Refusal = std::optional<std::string>;

// A mistake in a board file that loading put right, and where: a sound (its
// id), a page (its index), or the settings (neither).
struct Mistake {
  uint32_t sound = 0;
  int page = -1;
  std::string what;  // what was wrong and what it is now, one line
  std::string mark;  // a few words for where it is shown: "hotkey taken off", "renamed"
};

class Board {
 public:
  // A board with one page, "Sounds".
  Board();
  // A board made of these pages and settings, if they keep the rules;
  // otherwise nullopt and `error` names the first rule they break. Given
  // `mistakes`, what breaks a rule is put right instead and listed there: a
  // repeated or empty page name gets a name of its own, a sound without a
  // name its file's, a volume out of range the nearest in it, a hotkey that
  // cannot be (taken, or pressed by push-to-talk) is taken off, and so is a
  // push-to-talk or stop-everything key that clashes.
  static std::optional<Board> From(std::vector<Page> pages, Settings settings, std::string& error,
                                   std::vector<Mistake>* mistakes = nullptr);

  void SetListener(std::function<void(const Change&)> listener) { listener_ = std::move(listener); }

  const std::vector<Page>& Pages() const { return pages_; }
  const Settings& GetSettings() const { return settings_; }
  const Sound* Find(uint32_t id) const;
  // The page that holds the sound, or -1.
  int PageOf(uint32_t id) const;
  // The sounds whose name holds `text`, letter case aside (as the user's
  // language compares letters), in board order: on `page`, or on every page.
  std::vector<uint32_t> Matching(const std::wstring& text, std::optional<size_t> page) const;
  // The sound or the stop-everything hotkey that uses this chord, as a text
  // for a message ("“Airhorn”", "stop everything"), or "".
  std::string UserOf(const tools::KeyChord& chord) const;

  Refusal AddPage(const std::string& name);
  Refusal RenamePage(size_t page, const std::string& name);
  // Removes the page and its sounds; the last page stays.
  Refusal RemovePage(size_t page);
  // Whether the page's hotkeys work only while it is shown. Turning it off
  // is refused while another page uses one of its keys.
  Refusal SetHotkeysOnlyWhenShown(size_t page, bool only);

  // Adds a sound for each file at the end of the page, named after the file.
  // Returns their ids.
  std::vector<uint32_t> AddSounds(size_t page, const std::vector<std::string>& files);
  Refusal RenameSound(uint32_t id, const std::string& name);
  Refusal SetHotkey(uint32_t id, const std::optional<tools::KeyChord>& hotkey);
  Refusal SetVolume(uint32_t id, double volumeDb);
  Refusal SetColor(uint32_t id, std::optional<uint32_t> color);
  // Plays only the file's part from `startMs` to `endMs` (0: its end); the
  // end must come after the start.
  Refusal SetTrim(uint32_t id, uint64_t startMs, uint64_t endMs);
  Refusal RemoveSound(uint32_t id);
  // Keeps what was measured of these sounds (a sound's part changed
  // meanwhile is left alone: `startMs` and `endMs` are the part measured).
  struct Measured {
    uint32_t sound;
    uint64_t startMs, endMs;
    SoundLoudness loudness;
  };
  void SetLoudness(const std::vector<Measured>& measured);
  // Moves the sound to `index` of `page` (clamped to the page's end).
  Refusal MoveSound(uint32_t id, size_t page, size_t index);

  Refusal SetSettings(const Settings& settings);

  // A sound's name made from its file: the file name without its folder and extension.
  static std::string NameFromFile(const std::string& file);

 private:
  Sound* FindMutable(uint32_t id);
  Refusal CheckPageName(const std::string& name, std::optional<size_t> except) const;
  // Why the chord cannot go to the sound `id` on `page` (-1: the page it is
  // on), or to a key of the settings (id 0). A key is unique among the
  // board-wide keys (the settings' and those of pages whose hotkeys always
  // work) and among each page's own.
  Refusal CheckHotkey(const std::optional<tools::KeyChord>& chord, uint32_t id, int page = -1) const;
  void Changed(Change change) const;

  std::vector<Page> pages_;
  Settings settings_;
  uint32_t nextId_ = 1;
  std::function<void(const Change&)> listener_;
};

}  // namespace quillon::board
