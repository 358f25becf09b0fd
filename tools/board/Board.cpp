#include "board/Board.h"

#include "common/ToolSupport.h"

#include <windows.h>

#include <algorithm>
#include <cctype>
#include <cstdio>

namespace quillon::board {
namespace {

bool Blank(const std::string& text) {
  return std::all_of(text.begin(), text.end(), [](char c) { return std::isspace(static_cast<unsigned char>(c)); });
}

bool SameName(const std::string& a, const std::string& b) {
  return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) {
           return std::tolower(static_cast<unsigned char>(x)) == std::tolower(static_cast<unsigned char>(y));
         });
}

// A sound id no sound has: a chord checked for a sound not yet on the board.
constexpr uint32_t kNewSound = 0xFFFFFFFF;

Refusal CheckTrim(uint64_t startMs, uint64_t endMs) {
  if (endMs == 0 || endMs > startMs) return std::nullopt;
  return "the end (" + std::to_string(endMs) + " ms) is not after the start (" + std::to_string(startMs) + " ms)";
}

Refusal CheckVolume(double volumeDb) {
  if (volumeDb >= kMinVolumeDb && volumeDb <= kMaxVolumeDb) return std::nullopt;
  return "a volume is from " + std::to_string(static_cast<int>(kMinVolumeDb)) + " to +" +
         std::to_string(static_cast<int>(kMaxVolumeDb)) + " dB";
}

}  // namespace

tools::KeyChord DefaultNextPageHotkey() {
  tools::KeyChord chord;
  chord.ctrl = chord.alt = true;
  chord.key = VK_NEXT;
  chord.extended = true;
  return chord;
}

tools::KeyChord DefaultPreviousPageHotkey() {
  tools::KeyChord chord = DefaultNextPageHotkey();
  chord.key = VK_PRIOR;
  return chord;
}

Board::Board() { pages_.push_back(Page{"Sounds", {}}); }

std::optional<Board> Board::From(std::vector<Page> pages, Settings settings, std::string& error,
                                 std::vector<Mistake>* mistakes) {
  Board board;
  board.pages_.clear();
  // The sounds' keys come first: a page key of the settings that clashes with one gives way below.
  board.settings_.nextPageHotkey.reset();
  board.settings_.previousPageHotkey.reset();
  // Each page and sound goes through the same checks as an edit would.
  for (Page& page : pages) {
    const int index = static_cast<int>(board.pages_.size());
    if (Refusal refused = board.CheckPageName(page.name, std::nullopt)) {
      if (mistakes == nullptr) {
        error = *refused;
        return std::nullopt;
      }
      const std::string base = Blank(page.name) ? "Page " + std::to_string(index + 1) : page.name;
      std::string name = base;
      for (int n = 2; board.CheckPageName(name, std::nullopt); ++n) name = base + " (" + std::to_string(n) + ")";
      mistakes->push_back(
          {0, index, "page " + std::to_string(index + 1) + ": " + *refused + "; it is \"" + name + "\" now", "renamed"});
      page.name = name;
    }
    board.pages_.push_back(Page{page.name, {}, page.hotkeysOnlyWhenShown});
    for (Sound& sound : page.sounds) {
      const uint32_t id = board.nextId_;
      std::vector<std::pair<std::string, std::string>> putRight;  // what, mark
      if (Blank(sound.name)) {
        if (mistakes == nullptr) {
          error = "\"" + sound.name + "\": a sound's name is empty";
          return std::nullopt;
        }
        sound.name = NameFromFile(sound.file);
        putRight.push_back({"its name was empty; it is named after its file", "named after its file"});
      }
      if (Refusal refused = CheckTrim(sound.startMs, sound.endMs)) {
        if (mistakes == nullptr) {
          error = "\"" + sound.name + "\": " + *refused;
          return std::nullopt;
        }
        sound.startMs = sound.endMs = 0;
        putRight.push_back({*refused + "; it plays whole now", "plays whole"});
      }
      if (Refusal refused = CheckVolume(sound.volumeDb)) {
        if (mistakes == nullptr) {
          error = "\"" + sound.name + "\": " + *refused;
          return std::nullopt;
        }
        sound.volumeDb = std::clamp(sound.volumeDb, kMinVolumeDb, kMaxVolumeDb);
        const std::string volume = std::to_string(static_cast<int>(sound.volumeDb)) + " dB";
        putRight.push_back({*refused + "; its volume is " + volume + " now", "volume set to " + volume});
      }
      if (Refusal refused = board.CheckHotkey(sound.hotkey, kNewSound, index)) {
        if (mistakes == nullptr) {
          error = "\"" + sound.name + "\": " + *refused;
          return std::nullopt;
        }
        sound.hotkey.reset();
        putRight.push_back({*refused + "; its hotkey was taken off", "hotkey taken off"});
      }
      for (const auto& [what, mark] : putRight) mistakes->push_back({id, index, "\"" + sound.name + "\": " + what, mark});
      sound.id = board.nextId_++;
      board.pages_.back().sounds.push_back(std::move(sound));
    }
  }
  if (board.pages_.empty()) board.pages_.push_back(Page{"Sounds", {}});
  Refusal refused = board.SetSettings(settings);
  // A key of the settings that clashes goes, push-to-talk first.
  using Key = std::optional<tools::KeyChord> Settings::*;
  const std::pair<Key, const char*> keys[] = {{&Settings::pushToTalkKey, "the push-to-talk key"},
                                              {&Settings::stopAllHotkey, "the stop-everything hotkey"},
                                              {&Settings::nextPageHotkey, "the next-page hotkey"},
                                              {&Settings::previousPageHotkey, "the previous-page hotkey"}};
  for (const auto& [key, what] : keys) {
    if (!refused || mistakes == nullptr) break;
    if (!(settings.*key)) continue;
    mistakes->push_back({0, -1, "settings: " + *refused + "; " + what + " was taken off", "settings"});
    (settings.*key).reset();
    refused = board.SetSettings(settings);
  }
  if (refused) {
    error = *refused;
    return std::nullopt;
  }
  return board;
}

std::vector<uint32_t> Board::Matching(const std::wstring& text, std::optional<size_t> page) const {
  std::vector<uint32_t> found;
  for (size_t p = 0; p < pages_.size(); ++p) {
    if (page && *page != p) continue;
    for (const Sound& sound : pages_[p].sounds) {
      const std::wstring name = tools::Wide(sound.name);
      if (text.empty() ||
          FindNLSStringEx(LOCALE_NAME_USER_DEFAULT, FIND_FROMSTART | LINGUISTIC_IGNORECASE, name.c_str(),
                          static_cast<int>(name.size()), text.c_str(), static_cast<int>(text.size()), nullptr, nullptr,
                          nullptr, 0) >= 0) {
        found.push_back(sound.id);
      }
    }
  }
  return found;
}

const Sound* Board::Find(uint32_t id) const {
  for (const Page& page : pages_) {
    for (const Sound& sound : page.sounds) {
      if (sound.id == id) return &sound;
    }
  }
  return nullptr;
}

Sound* Board::FindMutable(uint32_t id) { return const_cast<Sound*>(Find(id)); }

int Board::PageOf(uint32_t id) const {
  for (size_t p = 0; p < pages_.size(); ++p) {
    for (const Sound& sound : pages_[p].sounds) {
      if (sound.id == id) return static_cast<int>(p);
    }
  }
  return -1;
}

std::string Board::UserOf(const tools::KeyChord& chord) const {
  if (settings_.stopAllHotkey == chord) return "stop everything";
  if (settings_.nextPageHotkey == chord) return "next page";
  if (settings_.previousPageHotkey == chord) return "previous page";
  for (const Page& page : pages_) {
    for (const Sound& sound : page.sounds) {
      if (sound.hotkey == chord) return "\u201C" + sound.name + "\u201D";
    }
  }
  return "";
}

Refusal Board::CheckPageName(const std::string& name, std::optional<size_t> except) const {
  if (Blank(name)) return "a page's name cannot be empty";
  for (size_t p = 0; p < pages_.size(); ++p) {
    if (p != except && SameName(pages_[p].name, name)) return "there is a page \"" + pages_[p].name + "\" already";
  }
  return std::nullopt;
}

namespace {

// Whether two chords are one hotkey to Windows, which tells no keypad Enter from Enter.
bool SameHotkey(const std::optional<tools::KeyChord>& a, const tools::KeyChord& b) {
  return a && a->key == b.key && a->HotkeyModifiers() == b.HotkeyModifiers();
}

// Whether holding the push-to-talk key `ptt` can set off `hotkey`: the same
// key, with no modifier the hotkey lacks (a person's own modifier does the rest).
bool PushToTalkSetsOff(const tools::KeyChord& ptt, const tools::KeyChord& hotkey) {
  return ptt.key == hotkey.key && (!ptt.ctrl || hotkey.ctrl) && (!ptt.alt || hotkey.alt) &&
         (!ptt.shift || hotkey.shift) && (!ptt.win || hotkey.win);
}

}  // namespace

Refusal Board::CheckHotkey(const std::optional<tools::KeyChord>& chord, uint32_t id, int page) const {
  if (!chord) return std::nullopt;
  if (chord->key == 0) return "a hotkey needs a key";
  if (id != 0) {
    const std::pair<const std::optional<tools::KeyChord>*, const char*> board[] = {
        {&settings_.stopAllHotkey, " already stops everything"},
        {&settings_.nextPageHotkey, " already shows the next page"},
        {&settings_.previousPageHotkey, " already shows the previous page"}};
    for (const auto& [key, what] : board) {
      if (SameHotkey(*key, *chord)) return chord->Text() + what;
    }
  }
  // (The settings' keys are checked against push-to-talk with the settings they come in.)
  if (id != 0 && settings_.pushToTalkKey && PushToTalkSetsOff(*settings_.pushToTalkKey, *chord)) {
    return chord->Text() + " would be pressed by push-to-talk (" + settings_.pushToTalkKey->Text() +
           ") while a sound plays";
  }
  if (id != 0 && page < 0) page = PageOf(id);
  const bool onlyWhenShown = id != 0 && page >= 0 && static_cast<size_t>(page) < pages_.size() &&
                             pages_[static_cast<size_t>(page)].hotkeysOnlyWhenShown;
  for (size_t p = 0; p < pages_.size(); ++p) {
    // Two pages whose hotkeys work only while shown never have their keys at once.
    if (onlyWhenShown && pages_[p].hotkeysOnlyWhenShown && static_cast<int>(p) != page) continue;
    for (const Sound& sound : pages_[p].sounds) {
      if (sound.id != id && SameHotkey(sound.hotkey, *chord)) {
        return chord->Text() + " already plays \u201C" + sound.name + "\u201D" +
               (static_cast<int>(p) != page ? " on page \u201C" + pages_[p].name + "\u201D" : "");
      }
    }
  }
  return std::nullopt;
}

Refusal Board::SetHotkeysOnlyWhenShown(size_t page, bool only) {
  if (page >= pages_.size()) return "no such page";
  if (pages_[page].hotkeysOnlyWhenShown == only) return std::nullopt;
  pages_[page].hotkeysOnlyWhenShown = only;
  // Its keys become board-wide again: each must be free on every page.
  for (const Sound& sound : pages_[page].sounds) {
    if (Refusal refused = CheckHotkey(sound.hotkey, sound.id, static_cast<int>(page))) {
      pages_[page].hotkeysOnlyWhenShown = !only;
      return "page \u201C" + pages_[page].name + "\u201D: " + *refused;
    }
  }
  Changed({Change::Kind::Pages});
  return std::nullopt;
}

void Board::Changed(Change change) const {
  if (listener_) listener_(change);
}

Refusal Board::AddPage(const std::string& name) {
  if (Refusal refused = CheckPageName(name, std::nullopt)) return refused;
  pages_.push_back(Page{name, {}});
  Changed({Change::Kind::Pages});
  return std::nullopt;
}

Refusal Board::RenamePage(size_t page, const std::string& name) {
  if (page >= pages_.size()) return "no such page";
  if (Refusal refused = CheckPageName(name, page)) return refused;
  pages_[page].name = name;
  Changed({Change::Kind::Pages});
  return std::nullopt;
}

Refusal Board::RemovePage(size_t page) {
  if (page >= pages_.size()) return "no such page";
  if (pages_.size() == 1) return "the board keeps at least one page";
  pages_.erase(pages_.begin() + static_cast<std::ptrdiff_t>(page));
  Changed({Change::Kind::Pages});
  return std::nullopt;
}

std::vector<uint32_t> Board::AddSounds(size_t page, const std::vector<std::string>& files) {
  std::vector<uint32_t> ids;
  if (page >= pages_.size() || files.empty()) return ids;
  for (const std::string& file : files) {
    Sound sound;
    sound.id = nextId_++;
    sound.file = file;
    sound.name = NameFromFile(file);
    ids.push_back(sound.id);
    pages_[page].sounds.push_back(std::move(sound));
  }
  Changed({Change::Kind::Sounds});
  return ids;
}

Refusal Board::RenameSound(uint32_t id, const std::string& name) {
  Sound* sound = FindMutable(id);
  if (!sound) return "no such sound";
  if (Blank(name)) return "a sound's name cannot be empty";
  sound->name = name;
  Changed({Change::Kind::Sound, id});
  return std::nullopt;
}

Refusal Board::SetHotkey(uint32_t id, const std::optional<tools::KeyChord>& hotkey) {
  Sound* sound = FindMutable(id);
  if (!sound) return "no such sound";
  if (Refusal refused = CheckHotkey(hotkey, id)) return refused;
  sound->hotkey = hotkey;
  Changed({Change::Kind::Sound, id});
  return std::nullopt;
}

Refusal Board::SetTrim(uint32_t id, uint64_t startMs, uint64_t endMs) {
  Sound* sound = FindMutable(id);
  if (!sound) return "no such sound";
  if (Refusal refused = CheckTrim(startMs, endMs)) return refused;
  if (sound->startMs == startMs && sound->endMs == endMs) return std::nullopt;
  sound->startMs = startMs;
  sound->endMs = endMs;
  sound->loudness.reset();  // measured over the part that plays: measured again
  Changed({Change::Kind::Sound, id});
  return std::nullopt;
}

Refusal Board::SetVolume(uint32_t id, double volumeDb) {
  Sound* sound = FindMutable(id);
  if (!sound) return "no such sound";
  if (Refusal refused = CheckVolume(volumeDb)) return refused;
  sound->volumeDb = volumeDb;
  Changed({Change::Kind::Sound, id});
  return std::nullopt;
}

Refusal Board::SetColor(uint32_t id, std::optional<uint32_t> color) {
  Sound* sound = FindMutable(id);
  if (!sound) return "no such sound";
  if (color && *color > 0xFFFFFF) return "a colour is #rrggbb";
  sound->color = color;
  Changed({Change::Kind::Sound, id});
  return std::nullopt;
}

void Board::SetLoudness(const std::vector<Measured>& measured) {
  bool changed = false;
  for (const Measured& m : measured) {
    Sound* sound = FindMutable(m.sound);
    if (!sound || sound->startMs != m.startMs || sound->endMs != m.endMs || sound->loudness == m.loudness) continue;
    sound->loudness = m.loudness;
    changed = true;
  }
  if (changed) Changed({Change::Kind::Loudness});
}

std::optional<audio::LoudnessGain> EvenLoudnessGain(const Sound& sound, const Settings& settings) {
  if (!settings.evenLoudness || !sound.loudness) return std::nullopt;
  audio::Loudness measured;
  measured.lufs = sound.loudness->lufs;
  measured.truePeakDb = sound.loudness->truePeakDb;
  return audio::GainFor(measured, settings.loudnessTargetLufs);
}

double PlayGainDb(const Sound& sound, const Settings& settings) {
  const std::optional<audio::LoudnessGain> even = EvenLoudnessGain(sound, settings);
  return sound.volumeDb + (even ? even->db : 0.0);
}

const std::vector<NamedColor>& Palette() {
  // Twelve that tell apart well, light and dark.
  static const std::vector<NamedColor> colors = {
      {"Red", 0xE53935},    {"Orange", 0xFB8C00}, {"Yellow", 0xFDD835}, {"Lime", 0xC0CA33},
      {"Green", 0x43A047},  {"Teal", 0x00897B},   {"Sky", 0x4FC3F7},    {"Blue", 0x1E88E5},
      {"Indigo", 0x3949AB}, {"Purple", 0x8E24AA}, {"Pink", 0xF06292},   {"Grey", 0x757575},
  };
  return colors;
}

std::string ColorText(uint32_t rgb) {
  char text[8];
  std::snprintf(text, sizeof(text), "#%06x", static_cast<unsigned>(rgb & 0xFFFFFF));
  return text;
}

std::optional<uint32_t> ParseColor(const std::string& text) {
  if (text.size() != 7 || text[0] != '#') return std::nullopt;
  uint32_t rgb = 0;
  for (size_t i = 1; i < 7; ++i) {
    const char c = static_cast<char>(std::tolower(static_cast<unsigned char>(text[i])));
    const int digit = c >= '0' && c <= '9' ? c - '0' : c >= 'a' && c <= 'f' ? c - 'a' + 10 : -1;
    if (digit < 0) return std::nullopt;
    rgb = rgb * 16 + static_cast<uint32_t>(digit);
  }
  return rgb;
}

Refusal Board::RemoveSound(uint32_t id) {
  const int page = PageOf(id);
  if (page < 0) return "no such sound";
  auto& sounds = pages_[static_cast<size_t>(page)].sounds;
  sounds.erase(std::find_if(sounds.begin(), sounds.end(), [id](const Sound& s) { return s.id == id; }));
  Changed({Change::Kind::Sounds});
  return std::nullopt;
}

Refusal Board::MoveSound(uint32_t id, size_t page, size_t index) {
  const int from = PageOf(id);
  if (from < 0) return "no such sound";
  if (page >= pages_.size()) return "no such page";
  auto& source = pages_[static_cast<size_t>(from)].sounds;
  const auto at = std::find_if(source.begin(), source.end(), [id](const Sound& s) { return s.id == id; });
  if (static_cast<size_t>(from) != page) {
    if (Refusal refused = CheckHotkey(at->hotkey, id, static_cast<int>(page))) return refused;
  }
  Sound sound = std::move(*at);
  source.erase(at);
  auto& target = pages_[page].sounds;
  target.insert(target.begin() + static_cast<std::ptrdiff_t>(std::min(index, target.size())), std::move(sound));
  Changed({Change::Kind::Sounds});
  return std::nullopt;
}

Refusal Board::SetSettings(const Settings& settings) {
  struct BoardKey {
    const std::optional<tools::KeyChord>* key;
    const char* name;
    const char* does;
  };
  const BoardKey keys[] = {{&settings.stopAllHotkey, "stop everything", "stops everything"},
                           {&settings.nextPageHotkey, "next page", "shows the next page"},
                           {&settings.previousPageHotkey, "previous page", "shows the previous page"}};
  for (size_t k = 0; k < std::size(keys); ++k) {
    if (Refusal refused = CheckHotkey(*keys[k].key, 0)) return std::string(keys[k].name) + ": " + *refused;
    for (size_t other = 0; other < k; ++other) {
      if (*keys[k].key && SameHotkey(*keys[other].key, **keys[k].key)) {
        return std::string(keys[k].name) + ": " + (*keys[k].key)->Text() + " already " + keys[other].does;
      }
    }
  }
  if (settings.pushToTalkKey && settings.pushToTalkKey->key == 0) return "push-to-talk needs a key";
  // Push-to-talk is pressed while a sound plays: it must not press a hotkey of the board's.
  if (const auto& ptt = settings.pushToTalkKey) {
    const auto refuse = [&](const tools::KeyChord& hotkey, const std::string& whose) -> Refusal {
      if (!PushToTalkSetsOff(*ptt, hotkey)) return std::nullopt;
      return "push-to-talk: " + ptt->Text() + (*ptt == hotkey ? " is " : " is part of " + hotkey.Text() + ", ") +
             "the hotkey that " + whose;
    };
    for (const BoardKey& k : keys) {
      if (!*k.key) continue;
      if (Refusal refused = refuse(**k.key, k.does)) return refused;
    }
    for (const Page& page : pages_) {
      for (const Sound& sound : page.sounds) {
        if (!sound.hotkey) continue;
        if (Refusal refused = refuse(*sound.hotkey, "plays \u201C" + sound.name + "\u201D")) return refused;
      }
    }
  }
  if (Refusal refused = CheckVolume(settings.monitorVolumeDb)) return "hear what you play: " + *refused;
  if (settings.pushToTalkTailMs > 10000) return "the push-to-talk tail is at most 10000 ms";
  if (!(settings.loudnessTargetLufs >= kMinLoudnessTarget && settings.loudnessTargetLufs <= kMaxLoudnessTarget)) {
    return "even loudness: the target is from " + std::to_string(static_cast<int>(kMinLoudnessTarget)) + " to " +
           std::to_string(static_cast<int>(kMaxLoudnessTarget)) + " LUFS";
  }
  settings_ = settings;
  Changed({Change::Kind::Settings});
  return std::nullopt;
}

std::string Board::NameFromFile(const std::string& file) {
  const size_t slash = file.find_last_of("\\/");
  std::string name = slash == std::string::npos ? file : file.substr(slash + 1);
  const size_t dot = name.rfind('.');
  if (dot != std::string::npos && dot > 0) name.erase(dot);
  return name.empty() ? file : name;
}

}  // namespace quillon::board
