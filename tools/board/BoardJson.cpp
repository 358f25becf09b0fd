#include "board/BoardJson.h"

#include <algorithm>
#include <iterator>

#include <nlohmann/json.hpp>

namespace quillon::board {
namespace {

using nlohmann::json;

json ChordJson(const std::optional<tools::KeyChord>& chord) { return chord ? json(chord->Text()) : json(nullptr); }

// A hotkey member: absent, null or "" is none.
std::optional<tools::KeyChord> ReadChord(const json& object, const char* member) {
  const auto it = object.find(member);
  if (it == object.end() || it->is_null()) return std::nullopt;
  const std::string text = it->get<std::string>();
  if (text.empty()) return std::nullopt;
  tools::KeyChord chord;
  std::string error;
  if (!tools::ParseKeyChord(text, chord, error)) throw std::invalid_argument(std::string(member) + ": " + error);
  return chord;
}

template <typename T>
T Read(const json& object, const char* member, T fallback) {
  const auto it = object.find(member);
  return it == object.end() ? fallback : it->get<T>();
}

const char* PressAgainText(PressAgain p) { return p == PressAgain::Stop ? "stop" : "restart"; }

const char* const kButtonSizes[] = {"small", "medium", "large"};

}  // namespace

std::string ToJson(const Board& board) {
  json pages = json::array();
  for (const Page& page : board.Pages()) {
    json sounds = json::array();
    for (const Sound& sound : page.sounds) {
      json entry = {{"file", sound.file},
                    {"name", sound.name},
                    {"hotkey", ChordJson(sound.hotkey)},
                    {"volumeDb", sound.volumeDb}};
      if (sound.color) entry["color"] = ColorText(*sound.color);
      if (sound.startMs != 0) entry["startMs"] = sound.startMs;
      if (sound.endMs != 0) entry["endMs"] = sound.endMs;
      if (const auto& l = sound.loudness) {
        entry["loudness"] = {{"lufs", l->lufs ? json(*l->lufs) : json(nullptr)},
                             {"truePeak", l->truePeakDb ? json(*l->truePeakDb) : json(nullptr)},
                             {"size", l->size},
                             {"modified", l->modified}};
      }
      sounds.push_back(std::move(entry));
    }
    json entry = {{"name", page.name}, {"sounds", std::move(sounds)}};
    if (page.hotkeysOnlyWhenShown) entry["hotkeysOnlyWhenShown"] = true;
    pages.push_back(std::move(entry));
  }
  const Settings& s = board.GetSettings();
  const json settings = {
      {"microphone", s.microphone},
      {"overlap", s.overlap},
      {"pressAgain", PressAgainText(s.pressAgain)},
      {"stopAllHotkey", ChordJson(s.stopAllHotkey)},
      {"nextPageHotkey", ChordJson(s.nextPageHotkey)},
      {"previousPageHotkey", ChordJson(s.previousPageHotkey)},
      {"monitor", s.monitor},
      {"monitorDevice", s.monitorDevice},
      {"monitorVolumeDb", s.monitorVolumeDb},
      {"pushToTalkKey", ChordJson(s.pushToTalkKey)},
      {"pushToTalkTailMs", s.pushToTalkTailMs},
      {"keepInTray", s.keepInTray},
      {"buttonSize", kButtonSizes[static_cast<int>(s.buttonSize)]},
      {"evenLoudness", s.evenLoudness},
      {"loudnessTargetLufs", s.loudnessTargetLufs},
  };
  const json file = {{"version", kBoardFileVersion}, {"pages", std::move(pages)}, {"settings", settings}};
  return file.dump(2) + "\n";
}

std::optional<Board> FromJson(const std::string& text, std::string& error, std::vector<Mistake>* mistakes) {
  // A key that is no key is taken off when mistakes are put right.
  const auto readChord = [&](const json& object, const char* member, const std::string& where, uint32_t sound,
                             int page) -> std::optional<tools::KeyChord> {
    try {
      return ReadChord(object, member);
    } catch (const std::invalid_argument& e) {
      if (mistakes == nullptr) throw;
      mistakes->push_back({sound, page, where + e.what() + "; it was taken off", "hotkey taken off"});
      return std::nullopt;
    }
  };
  try {
    const json file = json::parse(text);
    if (!file.is_object()) throw std::invalid_argument("the file is not a JSON object");
    const int version = Read(file, "version", kBoardFileVersion);
    if (version > kBoardFileVersion) {
      throw std::invalid_argument("version " + std::to_string(version) + " is newer than this board reads");
    }
    std::vector<Page> pages;
    size_t sounds = 0;
    for (const json& p : file.at("pages")) {
      Page page{p.at("name").get<std::string>(), {}, Read(p, "hotkeysOnlyWhenShown", false)};
      for (const json& s : Read(p, "sounds", json::array())) {
        Sound sound;
        sound.file = s.at("file").get<std::string>();
        sound.name = Read(s, "name", Board::NameFromFile(sound.file));
        // (The sound's id is the count of sounds before it, plus one, as Board::From gives them.)
        sound.hotkey = readChord(s, "hotkey", "\"" + sound.name + "\": ", static_cast<uint32_t>(sounds + 1),
                                 static_cast<int>(pages.size()));
        ++sounds;
        sound.volumeDb = Read(s, "volumeDb", 0.0);
        // (Read signed: a negative number would wrap round to a huge part.)
        const int64_t startMs = Read(s, "startMs", int64_t{0}), endMs = Read(s, "endMs", int64_t{0});
        if (startMs < 0 || endMs < 0) {
          const std::string why = "startMs and endMs are milliseconds from the file's start, not below 0";
          if (mistakes == nullptr) throw std::invalid_argument(why);
          mistakes->push_back({static_cast<uint32_t>(sounds), static_cast<int>(pages.size()),
                               "\"" + sound.name + "\": " + why + "; it plays whole now", "plays whole"});
        } else {
          sound.startMs = static_cast<uint64_t>(startMs);
          sound.endMs = static_cast<uint64_t>(endMs);
        }
        // What was measured: a member that is no measurement is dropped, and the sound measured again.
        if (const auto it = s.find("loudness"); it != s.end() && it->is_object()) {
          try {
            const auto dbOrNone = [&](const char* member) -> std::optional<double> {
              const json& v = it->at(member);
              return v.is_null() ? std::nullopt : std::optional<double>(v.get<double>());
            };
            sound.loudness = SoundLoudness{dbOrNone("lufs"), dbOrNone("truePeak"), it->at("size").get<uint64_t>(),
                                           it->at("modified").get<int64_t>()};
          } catch (const json::exception&) {
            sound.loudness.reset();
          }
        }
        const std::string color = Read(s, "color", std::string());
        if (!color.empty()) {
          sound.color = ParseColor(color);
          const std::string why = "color: \"" + color + "\" is not #rrggbb";
          if (!sound.color && mistakes == nullptr) throw std::invalid_argument(why);
          if (!sound.color) {
            mistakes->push_back({static_cast<uint32_t>(sounds), static_cast<int>(pages.size()),
                                 "\"" + sound.name + "\": " + why + "; it was taken off", "colour taken off"});
          }
        }
        page.sounds.push_back(std::move(sound));
      }
      pages.push_back(std::move(page));
    }
    Settings settings;
    const json s = Read(file, "settings", json::object());
    settings.microphone = Read(s, "microphone", settings.microphone);
    settings.overlap = Read(s, "overlap", settings.overlap);
    const std::string pressAgain = Read(s, "pressAgain", std::string(PressAgainText(settings.pressAgain)));
    if (pressAgain != "restart" && pressAgain != "stop") {
      const std::string why = "pressAgain is \"restart\" or \"stop\", not \"" + pressAgain + "\"";
      if (mistakes == nullptr) throw std::invalid_argument(why);
      mistakes->push_back({0, -1, "settings: " + why + "; it is \"restart\" now", "settings"});
    }
    settings.pressAgain = pressAgain == "stop" ? PressAgain::Stop : PressAgain::Restart;
    settings.stopAllHotkey = readChord(s, "stopAllHotkey", "settings: ", 0, -1);
    // The page keys have defaults: absent is the default, null or "" is none.
    if (s.contains("nextPageHotkey")) settings.nextPageHotkey = readChord(s, "nextPageHotkey", "settings: ", 0, -1);
    if (s.contains("previousPageHotkey")) {
      settings.previousPageHotkey = readChord(s, "previousPageHotkey", "settings: ", 0, -1);
    }
    settings.monitor = Read(s, "monitor", settings.monitor);
    settings.monitorDevice = Read(s, "monitorDevice", settings.monitorDevice);
    settings.monitorVolumeDb = Read(s, "monitorVolumeDb", settings.monitorVolumeDb);
    settings.pushToTalkKey = readChord(s, "pushToTalkKey", "settings: ", 0, -1);
    settings.pushToTalkTailMs = Read(s, "pushToTalkTailMs", settings.pushToTalkTailMs);
    settings.keepInTray = Read(s, "keepInTray", settings.keepInTray);
    // A board from before evening loudness keeps sounding as it did.
    settings.evenLoudness = Read(s, "evenLoudness", false);
    settings.loudnessTargetLufs = Read(s, "loudnessTargetLufs", settings.loudnessTargetLufs);
    if (!(settings.loudnessTargetLufs >= kMinLoudnessTarget && settings.loudnessTargetLufs <= kMaxLoudnessTarget)) {
      const std::string why = "loudnessTargetLufs is from " + std::to_string(static_cast<int>(kMinLoudnessTarget)) +
                              " to " + std::to_string(static_cast<int>(kMaxLoudnessTarget));
      if (mistakes == nullptr) throw std::invalid_argument(why);
      mistakes->push_back({0, -1, "settings: " + why + "; it is -16 now", "settings"});
      settings.loudnessTargetLufs = -16.0;
    }
    const std::string size = Read(s, "buttonSize", std::string("medium"));
    const auto known = std::find(std::begin(kButtonSizes), std::end(kButtonSizes), size);
    if (known != std::end(kButtonSizes)) {
      settings.buttonSize = static_cast<ButtonSize>(known - std::begin(kButtonSizes));
    } else {
      const std::string why = "buttonSize is \"small\", \"medium\" or \"large\", not \"" + size + "\"";
      if (mistakes == nullptr) throw std::invalid_argument(why);
      mistakes->push_back({0, -1, "settings: " + why + "; it is \"medium\" now", "settings"});
    }
    if (pages.empty()) throw std::invalid_argument("the file has no pages");
    return Board::From(std::move(pages), settings, error, mistakes);
  } catch (const std::exception& e) {
    // The library's messages start with their own code ("[json.exception.parse_error.101] ").
    error = e.what();
    if (error.rfind("[json.exception.", 0) == 0 && error.find("] ") != std::string::npos) {
      error.erase(0, error.find("] ") + 2);
    }
    return std::nullopt;
  }
}

}  // namespace quillon::board
