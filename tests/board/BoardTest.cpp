// The board's model without a window: its rules, what it tells its listener,
// the board file's text both ways, and the file on disk (saved whole, damaged
// files kept aside).
#include "board/Board.h"
#include "board/BoardFile.h"
#include "board/BoardJson.h"
#include "support/SharedFiles.h"

#include <gtest/gtest.h>

#include <windows.h>

#include <fstream>

namespace quillon::board {
namespace {

tools::KeyChord Chord(const char* text) {
  tools::KeyChord chord;
  std::string error;
  EXPECT_TRUE(tools::ParseKeyChord(text, chord, error)) << error;
  return chord;
}

// A board of two pages, with a hotkey on the first sound and stop-everything on Ctrl+Alt+0.
struct TwoPages : ::testing::Test {
  void SetUp() override {
    ASSERT_FALSE(board.AddPage("Memes"));
    ids = board.AddSounds(0, {"C:\\sounds\\Air horn.wav", "D:/x/drum roll.final.mp3", "noextension"});
    ASSERT_FALSE(board.SetHotkey(ids[0], Chord("Ctrl+Alt+1")));
    Settings s;
    s.stopAllHotkey = Chord("Ctrl+Alt+0");
    ASSERT_FALSE(board.SetSettings(s));
    board.SetListener([this](const Change& c) { changes.push_back(c); });
  }
  Board board;
  std::vector<uint32_t> ids;
  std::vector<Change> changes;
};

TEST_F(TwoPages, SoundsAreNamedAfterTheirFiles) {
  EXPECT_EQ("Air horn", board.Find(ids[0])->name);
  EXPECT_EQ("drum roll.final", board.Find(ids[1])->name);
  EXPECT_EQ("noextension", board.Find(ids[2])->name);
}

// Each edit that breaks a rule is refused with a reason and changes nothing.
TEST_F(TwoPages, EditsThatBreakARuleChangeNothing) {
  const std::string before = ToJson(board);
  const struct {
    const char* name;
    std::function<Refusal(Board&)> edit;
    const char* reason;
  } cases[] = {
      {"empty page name", [](Board& b) { return b.AddPage("  "); }, "cannot be empty"},
      {"page name taken", [](Board& b) { return b.AddPage("memes"); }, "there is a page \"Memes\" already"},
      {"rename onto another page", [](Board& b) { return b.RenamePage(0, "MEMES"); }, "already"},
      {"last page", [](Board& b) { b.RemovePage(1); return b.RemovePage(0); }, "at least one page"},
      {"hotkey of another sound", [&](Board& b) { return b.SetHotkey(ids[1], Chord("Ctrl+Alt+1")); },
       "Ctrl+Alt+1 already plays \u201CAir horn\u201D"},
      {"stop-everything hotkey", [&](Board& b) { return b.SetHotkey(ids[1], Chord("ctrl+alt+0")); },
       "Ctrl+Alt+0 already stops everything"},
      {"stop-everything on a sound's", [](Board& b) {
         Settings s = b.GetSettings();
         s.stopAllHotkey = Chord("Alt+Ctrl+1");
         return b.SetSettings(s);
       }, "stop everything: Ctrl+Alt+1 already plays"},
      {"push-to-talk on a sound's hotkey", [](Board& b) {
         Settings s = b.GetSettings();
         s.pushToTalkKey = Chord("Ctrl+Alt+1");
         return b.SetSettings(s);
       }, "push-to-talk: Ctrl+Alt+1 is the hotkey that plays \u201CAir horn\u201D"},
      {"push-to-talk part of a sound's hotkey", [](Board& b) {
         Settings s = b.GetSettings();
         s.pushToTalkKey = Chord("Alt+1");
         return b.SetSettings(s);
       }, "push-to-talk: Alt+1 is part of Ctrl+Alt+1, the hotkey that plays \u201CAir horn\u201D"},
      {"push-to-talk part of stop everything", [](Board& b) {
         Settings s = b.GetSettings();
         s.pushToTalkKey = Chord("0");
         return b.SetSettings(s);
       }, "push-to-talk: 0 is part of Ctrl+Alt+0, the hotkey that stops everything"},
      {"hotkey that push-to-talk presses", [&](Board& b) {
         Settings s = b.GetSettings();
         s.pushToTalkKey = Chord("F13");
         EXPECT_FALSE(b.SetSettings(s));
         return b.SetHotkey(ids[1], Chord("Shift+F13"));
       }, "Shift+F13 would be pressed by push-to-talk (F13) while a sound plays"},
      {"too loud", [&](Board& b) { return b.SetVolume(ids[0], 12.5); }, "from -60 to +12 dB"},
      {"a trim that ends before it starts", [&](Board& b) { return b.SetTrim(ids[0], 1500, 1500); },
       "the end (1500 ms) is not after the start (1500 ms)"},
      {"too quiet", [&](Board& b) { return b.SetVolume(ids[0], -61); }, "from -60 to +12 dB"},
      {"empty sound name", [&](Board& b) { return b.RenameSound(ids[0], ""); }, "cannot be empty"},
      {"no such sound", [](Board& b) { return b.RemoveSound(999); }, "no such sound"},
      {"no such page", [&](Board& b) { return b.MoveSound(ids[0], 2, 0); }, "no such page"},
  };
  for (const auto& c : cases) {
    Board copy = board;
    copy.SetListener([](const Change&) {});
    const Refusal refused = c.edit(copy);
    ASSERT_TRUE(refused) << c.name;
    EXPECT_NE(std::string::npos, refused->find(c.reason)) << c.name << ": " << *refused;
    // Two cases make an allowed edit before the refused one.
    const std::string name = c.name;
    if (name != "last page" && name != "hotkey that push-to-talk presses") EXPECT_EQ(before, ToJson(copy)) << c.name;
  }
  EXPECT_TRUE(changes.empty());
}

// Pages whose hotkeys work only while shown may share keys with each other,
// never with a board-wide key (the settings', or a page's whose hotkeys
// always work) nor within one page. Each row makes one edit on a board of
// three pages: "A" and "B" only while shown, "All" always; A's sound has
// Ctrl+Alt+5, All's Ctrl+Alt+6.
TEST(PageHotkeys, KeysAreUniqueAmongBoardWideKeysAndWithinEachPage) {
  const struct {
    const char* name;
    std::function<Refusal(Board&, const std::vector<uint32_t>&)> edit;
    const char* refusal;  // null: allowed
  } rows[] = {
      {"the same key on another such page", [](Board& b, auto& ids) { return b.SetHotkey(ids[2], Chord("Ctrl+Alt+5")); },
       nullptr},
      {"the same key twice on one such page",
       [](Board& b, auto& ids) { return b.SetHotkey(ids[1], Chord("Ctrl+Alt+5")); },
       "Ctrl+Alt+5 already plays \u201Ca1\u201D"},
      {"a board-wide page's key on such a page",
       [](Board& b, auto& ids) { return b.SetHotkey(ids[2], Chord("Ctrl+Alt+6")); },
       "Ctrl+Alt+6 already plays \u201Call\u201D on page \u201CAll\u201D"},
      {"such a page's key on a board-wide page",
       [](Board& b, auto& ids) { return b.SetHotkey(ids[4], Chord("Ctrl+Alt+5")); },
       "Ctrl+Alt+5 already plays \u201Ca1\u201D on page \u201CA\u201D"},
      {"the next-page key on a sound", [](Board& b, auto& ids) { return b.SetHotkey(ids[2], Chord("Ctrl+Alt+PageDown")); },
       "Ctrl+Alt+PageDown already shows the next page"},
      {"the previous-page key on stop everything", [](Board& b, auto&) {
         Settings s = b.GetSettings();
         s.stopAllHotkey = Chord("Ctrl+Alt+PageUp");
         return b.SetSettings(s);
       }, "previous page: Ctrl+Alt+PageUp already stops everything"},
      {"a page key on such a page's sound", [](Board& b, auto&) {
         Settings s = b.GetSettings();
         s.nextPageHotkey = Chord("Ctrl+Alt+5");
         return b.SetSettings(s);
       }, "next page: Ctrl+Alt+5 already plays"},
      {"turning it off while another such page shares a key", [](Board& b, auto& ids) {
         EXPECT_FALSE(b.SetHotkey(ids[2], Chord("Ctrl+Alt+5")));
         return b.SetHotkeysOnlyWhenShown(0, false);
       }, "page \u201CA\u201D: Ctrl+Alt+5 already plays \u201Cb1\u201D on page \u201CB\u201D"},
      {"turning it off with keys of its own", [](Board& b, auto&) { return b.SetHotkeysOnlyWhenShown(0, false); },
       nullptr},
      {"moving a sound onto a page where its key is taken", [](Board& b, auto& ids) {
         EXPECT_FALSE(b.SetHotkey(ids[2], Chord("Ctrl+Alt+5")));
         return b.MoveSound(ids[0], 1, 0);
       }, "Ctrl+Alt+5 already plays \u201Cb1\u201D"},
      {"moving a sound onto such a page where its key is free", [](Board& b, auto& ids) { return b.MoveSound(ids[0], 1, 0); },
       nullptr},
  };
  for (const auto& row : rows) {
    Board board;
    ASSERT_FALSE(board.RenamePage(0, "A"));
    ASSERT_FALSE(board.AddPage("B"));
    ASSERT_FALSE(board.AddPage("All"));
    ASSERT_FALSE(board.SetHotkeysOnlyWhenShown(0, true));
    ASSERT_FALSE(board.SetHotkeysOnlyWhenShown(1, true));
    std::vector<uint32_t> ids = board.AddSounds(0, {"a1.wav", "a2.wav"});
    for (uint32_t id : board.AddSounds(1, {"b1.wav", "b2.wav"})) ids.push_back(id);
    ids.push_back(board.AddSounds(2, {"all.wav"}).front());
    ASSERT_FALSE(board.SetHotkey(ids[0], Chord("Ctrl+Alt+5")));
    ASSERT_FALSE(board.SetHotkey(ids[4], Chord("Ctrl+Alt+6")));
    const Refusal refused = row.edit(board, ids);
    if (row.refusal == nullptr) {
      EXPECT_FALSE(refused) << row.name << ": " << refused.value_or("");
    } else {
      ASSERT_TRUE(refused) << row.name;
      EXPECT_NE(std::string::npos, refused->find(row.refusal)) << row.name << ": " << *refused;
    }
  }
}

// The page flag and the page keys go into the board file and come back; a
// page key written as null is none, one left out is the default. A file
// from before the page keys, whose sound has Ctrl+Alt+PageDown, keeps it:
// the next-page key gives way, and that is named.
TEST(PageHotkeys, GoIntoTheFileAndComeBack) {
  Board board;
  ASSERT_FALSE(board.AddPage("B"));
  ASSERT_FALSE(board.SetHotkeysOnlyWhenShown(1, true));
  Settings s = board.GetSettings();
  s.previousPageHotkey.reset();
  s.nextPageHotkey = Chord("Ctrl+Shift+N");
  ASSERT_FALSE(board.SetSettings(s));
  std::string error;
  const std::optional<Board> read = FromJson(ToJson(board), error);
  ASSERT_TRUE(read) << error;
  EXPECT_FALSE(read->Pages()[0].hotkeysOnlyWhenShown);
  EXPECT_TRUE(read->Pages()[1].hotkeysOnlyWhenShown);
  EXPECT_EQ("Ctrl+Shift+N", read->GetSettings().nextPageHotkey->Text());
  EXPECT_FALSE(read->GetSettings().previousPageHotkey);

  const std::string old = R"({"pages": [{"name": "Sounds", "sounds": [{"file": "x.wav", "hotkey": "Ctrl+Alt+PageDown"}]}]})";
  const std::optional<Board> defaults = FromJson(R"({"pages": [{"name": "Sounds"}]})", error);
  ASSERT_TRUE(defaults) << error;
  EXPECT_EQ("Ctrl+Alt+PageDown", defaults->GetSettings().nextPageHotkey->Text());
  EXPECT_EQ("Ctrl+Alt+PageUp", defaults->GetSettings().previousPageHotkey->Text());
  std::vector<Mistake> mistakes;
  const std::optional<Board> kept = FromJson(old, error, &mistakes);
  ASSERT_TRUE(kept) << error;
  EXPECT_EQ("Ctrl+Alt+PageDown", kept->Pages()[0].sounds[0].hotkey->Text());
  EXPECT_FALSE(kept->GetSettings().nextPageHotkey);
  EXPECT_EQ("Ctrl+Alt+PageUp", kept->GetSettings().previousPageHotkey->Text());
  ASSERT_EQ(1u, mistakes.size());
  EXPECT_NE(std::string::npos, mistakes[0].what.find("the next-page hotkey was taken off")) << mistakes[0].what;
}

TEST_F(TwoPages, EachEditTellsTheListenerOnce) {
  EXPECT_FALSE(board.SetHotkey(ids[1], Chord("Ctrl+Alt+2")));
  EXPECT_FALSE(board.SetHotkey(ids[0], std::nullopt));  // frees Ctrl+Alt+1...
  EXPECT_FALSE(board.SetHotkey(ids[2], Chord("Ctrl+Alt+1")));  // ...for another sound
  EXPECT_FALSE(board.SetVolume(ids[2], -6));
  EXPECT_FALSE(board.RenameSound(ids[2], "Boo"));
  EXPECT_FALSE(board.MoveSound(ids[2], 1, 5));
  EXPECT_FALSE(board.RenamePage(1, "Other"));
  EXPECT_FALSE(board.RemoveSound(ids[1]));
  ASSERT_EQ(8u, changes.size());
  EXPECT_EQ(Change::Kind::Sound, changes[0].kind);
  EXPECT_EQ(ids[1], changes[0].sound);
  EXPECT_EQ(Change::Kind::Sounds, changes[5].kind);
  EXPECT_EQ(Change::Kind::Pages, changes[6].kind);
  EXPECT_EQ("\u201CBoo\u201D", board.UserOf(Chord("Ctrl+Alt+1")));
  EXPECT_EQ(1, board.PageOf(ids[2]));
  EXPECT_EQ(1u, board.Pages()[0].sounds.size());
  EXPECT_EQ(-6.0, board.Find(ids[2])->volumeDb);
}

TEST_F(TwoPages, MoveKeepsTheOrderOfTheOthers) {
  ASSERT_FALSE(board.MoveSound(ids[2], 0, 0));
  ASSERT_FALSE(board.MoveSound(ids[0], 0, 1));
  const auto& sounds = board.Pages()[0].sounds;
  ASSERT_EQ(3u, sounds.size());
  EXPECT_EQ(ids[2], sounds[0].id);
  EXPECT_EQ(ids[0], sounds[1].id);
  EXPECT_EQ(ids[1], sounds[2].id);
}

TEST_F(TwoPages, TextRoundTripsAndKeepsEverySetting) {
  Settings s = board.GetSettings();
  s.microphone = "{0.0.1.00000000}.{mic}";
  s.overlap = false;
  s.pressAgain = PressAgain::Stop;
  s.monitor = true;
  s.monitorDevice = "Speakers";
  s.monitorVolumeDb = -12.5;
  s.pushToTalkKey = Chord("V");
  s.pushToTalkTailMs = 450;
  s.keepInTray = false;
  ASSERT_FALSE(board.SetSettings(s));
  ASSERT_FALSE(board.RenameSound(ids[1], "Ünïcødé ☺"));
  const std::string text = ToJson(board);
  std::string error;
  const std::optional<Board> read = FromJson(text, error);
  ASSERT_TRUE(read) << error;
  EXPECT_EQ(text, ToJson(*read));
  EXPECT_NE(std::string::npos, text.find("\"hotkey\": \"Ctrl+Alt+1\"")) << text;
}

// Files that are not a board: each is refused with a line that says where.
TEST(BoardText, DamagedTextIsRefusedWithItsReason) {
  const struct {
    const char* text;
    const char* reason;
  } cases[] = {
      {"", "parse error"},
      {"{\"pages\": [ {\"name\": \"A\", \"sounds\": [ ] } ", "parse error"},
      {"[1, 2]", "not a JSON object"},
      {"{}", "'pages' not found"},
      {"{\"version\": 2, \"pages\": []}", "version 2 is newer"},
      {"{\"pages\": [ {\"name\": 5} ]}", "must be string"},
      {"{\"pages\": [ {\"name\": \"\"} ]}", "cannot be empty"},
      {"{\"pages\": [ {\"name\": \"A\"}, {\"name\": \"a\"} ]}", "already"},
      {"{\"pages\": [ {\"name\": \"A\", \"sounds\": [ {\"name\": \"x\"} ]} ]}", "'file' not found"},
      {"{\"pages\": [ {\"name\": \"A\", \"sounds\": [ {\"file\": \"a.wav\", \"hotkey\": \"Ctrl+Nope\"} ]} ]}",
       "hotkey: \"Ctrl+Nope\" is not a key"},
      {"{\"pages\": [ {\"name\": \"A\", \"sounds\": [ {\"file\": \"a.wav\", \"hotkey\": \"F5\"},"
       " {\"file\": \"b.wav\", \"hotkey\": \"f5\"} ]} ]}",
       "F5 already plays"},
      {"{\"pages\": [ {\"name\": \"A\", \"sounds\": [ {\"file\": \"a.wav\", \"volumeDb\": 40} ]} ]}", "+12 dB"},
      {"{\"pages\": [], \"settings\": {\"pressAgain\": \"pause\"}}", "\"restart\" or \"stop\""},
  };
  for (const auto& c : cases) {
    std::string error;
    EXPECT_FALSE(FromJson(c.text, error)) << c.text;
    EXPECT_NE(std::string::npos, error.find(c.reason)) << c.text << "\n -> " << error;
    EXPECT_EQ(std::string::npos, error.find("[json.exception")) << error;
  }
}

TEST(BoardText, MissingMembersTakeTheirDefaults) {
  std::string error;
  const std::optional<Board> read = FromJson("{\"pages\": [ {\"name\": \"A\", \"sounds\": "
                                             "[ {\"file\": \"C:\\\\a\\\\Bell.ogg\"} ]} ], \"future\": 1}",
                                             error);
  ASSERT_TRUE(read) << error;
  const Sound& sound = read->Pages()[0].sounds[0];
  EXPECT_EQ("Bell", sound.name);
  EXPECT_FALSE(sound.hotkey);
  EXPECT_EQ(0.0, sound.volumeDb);
  EXPECT_TRUE(read->GetSettings().overlap);
  EXPECT_EQ(300u, read->GetSettings().pushToTalkTailMs);
}

// ---- The file on disk ----------------------------------------------------------------
class BoardOnDisk : public ::testing::Test {
 protected:
  void SetUp() override {
    wchar_t temp[MAX_PATH];
    GetTempPathW(MAX_PATH, temp);
    folder_ = std::wstring(temp) + L"quillon-board-test-" + std::to_wstring(GetCurrentProcessId());
    path_ = folder_ + L"\\sub\\board.json";
  }
  void TearDown() override {
    WIN32_FIND_DATAW found;
    const std::wstring sub = folder_ + L"\\sub\\";
    HANDLE find = FindFirstFileW((sub + L"*").c_str(), &found);
    if (find != INVALID_HANDLE_VALUE) {
      do DeleteFileW((sub + found.cFileName).c_str());
      while (FindNextFileW(find, &found));
      FindClose(find);
    }
    RemoveDirectoryW(sub.c_str());
    RemoveDirectoryW(folder_.c_str());
  }
  void Write(const std::string& text) {
    CreateDirectoryW(folder_.c_str(), nullptr);
    CreateDirectoryW((folder_ + L"\\sub").c_str(), nullptr);
    std::ofstream(path_, std::ios::binary) << text;
  }
  std::wstring folder_, path_;
};

TEST_F(BoardOnDisk, SavedInAFolderMadeForItAndReadBack) {
  EXPECT_EQ(LoadedBoard::State::New, LoadBoard(path_).state);
  Board board;
  board.AddSounds(0, {"a.wav"});
  std::string error;
  ASSERT_TRUE(SaveBoard(board, path_, error)) << error;
  EXPECT_EQ(ToJson(board), test::ReadText(path_));
  EXPECT_EQ(INVALID_FILE_ATTRIBUTES, GetFileAttributesW((path_ + L".saving").c_str()));
  const LoadedBoard loaded = LoadBoard(path_);
  EXPECT_EQ(LoadedBoard::State::Read, loaded.state);
  EXPECT_EQ(ToJson(board), ToJson(loaded.board));
}

// A file with a mistake the board can show is loaded, put right, with the
// mistake listed where it is; a file without pages is still set aside.
struct Mistaken {
  const char* name;
  const char* text;
  uint32_t sound;    // the sound marked, or 0
  int page;          // the page marked, or -1
  const char* what;  // a part of the mistake's words
  const char* mark;
  const char* after;  // a part of the board's text once put right
};

void PrintTo(const Mistaken& c, std::ostream* out) { *out << c.name; }

class MistakenFile : public BoardOnDisk, public ::testing::WithParamInterface<Mistaken> {};

TEST_P(MistakenFile, IsLoadedPutRightAndMarked) {
  const Mistaken& c = GetParam();
  Write(c.text);
  const LoadedBoard loaded = LoadBoard(path_);
  ASSERT_EQ(LoadedBoard::State::Read, loaded.state) << loaded.problem;
  ASSERT_EQ(1u, loaded.mistakes.size());
  const Mistake& mistake = loaded.mistakes.front();
  EXPECT_EQ(c.sound, mistake.sound);
  EXPECT_EQ(c.page, mistake.page);
  EXPECT_NE(std::string::npos, mistake.what.find(c.what)) << mistake.what;
  EXPECT_EQ(c.mark, mistake.mark);
  const std::string text = ToJson(loaded.board);
  EXPECT_NE(std::string::npos, text.find(c.after)) << text;
  // What was put right reads back without a mistake.
  std::vector<Mistake> again;
  std::string error;
  ASSERT_TRUE(FromJson(text, error, &again)) << error;
  EXPECT_TRUE(again.empty());
}

INSTANTIATE_TEST_SUITE_P(Table, MistakenFile, ::testing::Values(
    Mistaken{"RepeatedHotkey",
             R"j({"pages": [ {"name": "A", "sounds": [ {"file": "a.wav", "hotkey": "F5"}, {"file": "b.wav", "hotkey": "f5"} ]} ]})j",
             2, 0, "\"b\": F5 already plays \u201Ca\u201D; its hotkey was taken off", "hotkey taken off",
             R"j("file": "b.wav",
          "hotkey": null)j"},
    Mistaken{"RepeatedPageName", R"j({"pages": [ {"name": "A"}, {"name": "a"} ]})j", 0, 1,
             "page 2: there is a page \"A\" already; it is \"a (2)\" now", "renamed", R"j("name": "a (2)")j"},
    Mistaken{"EmptyPageName", R"j({"pages": [ {"name": " "} ]})j", 0, 0, "it is \"Page 1\" now", "renamed",
             R"j("name": "Page 1")j"},
    Mistaken{"VolumeOutOfRange", R"j({"pages": [ {"name": "A", "sounds": [ {"file": "a.wav", "volumeDb": 40} ]} ]})j", 1,
             0, "a volume is from -60 to +12 dB; its volume is 12 dB now", "volume set to 12 dB",
             R"j("volumeDb": 12.0)j"},
    Mistaken{"NoKey", R"j({"pages": [ {"name": "A", "sounds": [ {"file": "a.wav", "hotkey": "Ctrl+Nope"} ]} ]})j", 1, 0,
             "\"a\": hotkey: \"Ctrl+Nope\" is not a key", "hotkey taken off", R"j("hotkey": null)j"},
    Mistaken{"UnknownPressAgain", R"j({"pages": [ {"name": "A"} ], "settings": {"pressAgain": "pause"}})j", 0, -1,
             "settings: pressAgain is \"restart\" or \"stop\", not \"pause\"", "settings",
             R"j("pressAgain": "restart")j"},
    Mistaken{"NoColour", R"j({"pages": [ {"name": "A", "sounds": [ {"file": "a.wav", "color": "teal"} ]} ]})j", 1, 0,
             "\"a\": color: \"teal\" is not #rrggbb; it was taken off", "colour taken off", R"j("volumeDb": 0.0
        })j"},
    Mistaken{"TrimEndBeforeStart",
             R"j({"pages": [ {"name": "A", "sounds": [ {"file": "a.wav", "startMs": 900, "endMs": 400} ]} ]})j", 1, 0,
             "the end (400 ms) is not after the start (900 ms); it plays whole now", "plays whole",
             R"j("volumeDb": 0.0
        })j"},
    Mistaken{"TrimBelowZero",
             R"j({"pages": [ {"name": "A", "sounds": [ {"file": "a.wav", "startMs": -5, "endMs": 400} ]} ]})j", 1, 0,
             "\"a\": startMs and endMs are milliseconds from the file's start, not below 0; it plays whole now",
             "plays whole", R"j("volumeDb": 0.0
        })j"},
    Mistaken{"LoudnessTargetOutOfRange", R"j({"pages": [ {"name": "A"} ], "settings": {"loudnessTargetLufs": 3}})j", 0,
             -1, "settings: loudnessTargetLufs is from -40 to -5; it is -16 now", "settings",
             R"j("loudnessTargetLufs": -16.0)j"},
    Mistaken{"UnknownButtonSize", R"j({"pages": [ {"name": "A"} ], "settings": {"buttonSize": "huge"}})j", 0, -1,
             "settings: buttonSize is \"small\", \"medium\" or \"large\", not \"huge\"", "settings",
             R"j("buttonSize": "medium")j"},
    Mistaken{"StopAllTakenByASound",
             R"j({"pages": [ {"name": "A", "sounds": [ {"file": "a.wav", "hotkey": "F7"} ]} ], "settings": {"stopAllHotkey": "F7"}})j",
             0, -1, "the stop-everything hotkey was taken off", "settings", R"j("stopAllHotkey": null)j"}),
    [](const ::testing::TestParamInfo<Mistaken>& info) { return std::string(info.param.name); });

// A sound's part goes to the file as startMs and endMs and comes back; a
// whole sound writes neither.
TEST(BoardText, TheTrimGoesAndComesBack) {
  Board board;
  const std::vector<uint32_t> ids = board.AddSounds(0, {"a.wav", "b.wav", "c.wav"});
  ASSERT_FALSE(board.SetTrim(ids[0], 250, 1750));
  ASSERT_FALSE(board.SetTrim(ids[1], 400, 0));
  const std::string text = ToJson(board);
  EXPECT_EQ(std::string::npos, text.find("\"endMs\": 0")) << text;
  std::string error;
  const std::optional<Board> read = FromJson(text, error);
  ASSERT_TRUE(read) << error;
  const auto& sounds = read->Pages()[0].sounds;
  EXPECT_EQ(250u, sounds[0].startMs);
  EXPECT_EQ(1750u, sounds[0].endMs);
  EXPECT_EQ(400u, sounds[1].startMs);
  EXPECT_EQ(0u, sounds[1].endMs);
  EXPECT_EQ(0u, sounds[2].startMs);
  EXPECT_EQ(0u, sounds[2].endMs);
}

// What was measured goes to the file with the file's stamp and comes back; a
// sound too short for a loudness keeps "lufs": null; a measurement that is
// not one is dropped (the sound is measured again), and a board from before
// evening out keeps it off.
TEST(BoardText, TheLoudnessGoesAndComesBack) {
  Board board;
  const std::vector<uint32_t> ids = board.AddSounds(0, {"a.wav", "b.wav", "c.wav"});
  board.SetLoudness({{ids[0], 0, 0, {-23.5, -3.25, 1234, 133000000000000000}},
                     {ids[1], 0, 0, {std::nullopt, -9.0, 99, 1}}});
  const std::string text = ToJson(board);
  EXPECT_NE(std::string::npos, text.find("\"lufs\": null")) << text;
  std::string error;
  const std::optional<Board> read = FromJson(text, error);
  ASSERT_TRUE(read) << error;
  EXPECT_EQ(text, ToJson(*read));
  const auto& sounds = read->Pages()[0].sounds;
  ASSERT_TRUE(sounds[0].loudness);
  EXPECT_EQ((board::SoundLoudness{-23.5, -3.25, 1234, 133000000000000000}), *sounds[0].loudness);
  EXPECT_FALSE(sounds[2].loudness);
  EXPECT_TRUE(read->GetSettings().evenLoudness);

  const std::optional<Board> old = FromJson(
      R"j({"pages": [ {"name": "A", "sounds": [ {"file": "a.wav", "loudness": {"lufs": "loud", "size": 1}} ]} ]})j",
      error);
  ASSERT_TRUE(old) << error;
  EXPECT_FALSE(old->Pages()[0].sounds[0].loudness);
  EXPECT_FALSE(old->GetSettings().evenLoudness);
  EXPECT_EQ(-16.0, old->GetSettings().loudnessTargetLufs);
}

// A measurement belongs to the part measured: changing the part drops it,
// and one that comes in for a part no longer played is not kept.
TEST(BoardLoudnessModel, AMeasurementIsOfThePartThatPlays) {
  Board board;
  const uint32_t id = board.AddSounds(0, {"a.wav"}).front();
  int told = 0;
  board.SetListener([&](const Change& change) { told += change.kind == Change::Kind::Loudness; });
  board.SetLoudness({{id, 0, 0, {-20.0, -2.0, 10, 20}}});
  EXPECT_EQ(1, told);
  board.SetLoudness({{id, 0, 0, {-20.0, -2.0, 10, 20}}});
  EXPECT_EQ(1, told) << "the same measurement again is no change";
  ASSERT_FALSE(board.SetTrim(id, 100, 900));
  EXPECT_FALSE(board.Find(id)->loudness);
  board.SetLoudness({{id, 0, 0, {-20.0, -2.0, 10, 20}}});
  EXPECT_FALSE(board.Find(id)->loudness) << "measured over the whole file, which no longer plays";
  board.SetLoudness({{id, 100, 900, {-18.0, -4.0, 10, 20}}});
  ASSERT_TRUE(board.Find(id)->loudness);
  EXPECT_EQ(-18.0, board.Find(id)->loudness->lufs);
}

// The gain a sound plays at: its volume, plus what evens it out by the rule
// its measurement calls for, or nothing when evening out is off.
struct PlayGainRow {
  const char* name;
  std::optional<double> lufs, truePeak;
  bool even;
  double expected;  // dB, with a volume of -2
};

class PlayGain : public ::testing::TestWithParam<PlayGainRow> {};

TEST_P(PlayGain, IsTheVolumeAndTheEvening) {
  const PlayGainRow& row = GetParam();
  Sound sound;
  sound.volumeDb = -2.0;
  if (row.lufs || row.truePeak) sound.loudness = board::SoundLoudness{row.lufs, row.truePeak, 1, 1};
  Settings settings;
  settings.evenLoudness = row.even;
  settings.loudnessTargetLufs = -16.0;
  EXPECT_NEAR(row.expected, board::PlayGainDb(sound, settings), 1e-9);
}

INSTANTIATE_TEST_SUITE_P(
    Rules, PlayGain,
    ::testing::Values(PlayGainRow{"Off", -30.0, -10.0, false, -2.0}, PlayGainRow{"NotMeasured", {}, {}, true, -2.0},
                      PlayGainRow{"ToTheTarget", -30.0, -20.0, true, 12.0},
                      PlayGainRow{"Softened", -6.0, -0.5, true, -12.0},
                      PlayGainRow{"HeldByItsPeak", -30.0, -4.0, true, 1.0},
                      PlayGainRow{"TooShortPeakToCeiling", {}, -7.0, true, 4.0},
                      PlayGainRow{"SilentLeftAlone", {}, -80.0, true, -2.0}),
    [](const auto& info) { return std::string(info.param.name); });

// A sound's colour goes to the file as #rrggbb and comes back, in either case;
// one that is none is not written.
TEST(BoardText, ColoursGoAndComeBack) {
  Board board;
  const std::vector<uint32_t> ids = board.AddSounds(0, {"a.wav", "b.wav"});
  ASSERT_FALSE(board.SetColor(ids[0], Palette()[5].rgb));
  const std::string text = ToJson(board);
  EXPECT_NE(std::string::npos, text.find("\"color\": \"#00897b\"")) << text;
  EXPECT_EQ(1u, std::count(text.begin(), text.end(), '#')) << text;
  std::string error;
  const std::optional<Board> read = FromJson(text, error);
  ASSERT_TRUE(read) << error;
  EXPECT_EQ(Palette()[5].rgb, read->Pages()[0].sounds[0].color);
  EXPECT_FALSE(read->Pages()[0].sounds[1].color);
  EXPECT_EQ(0xABCDEFu, ParseColor("#AbCdEf"));
  for (const char* bad : {"#abcde", "abcdef1", "#abcdeg", "", "#1234567"}) EXPECT_FALSE(ParseColor(bad)) << bad;
  EXPECT_EQ(12u, Palette().size());
}

TEST(BoardText, TheButtonSizeGoesAndComesBack) {
  for (const ButtonSize size : {ButtonSize::Small, ButtonSize::Medium, ButtonSize::Large}) {
    Board board;
    Settings settings = board.GetSettings();
    settings.buttonSize = size;
    ASSERT_FALSE(board.SetSettings(settings));
    std::string error;
    const std::optional<Board> read = FromJson(ToJson(board), error);
    ASSERT_TRUE(read) << error;
    EXPECT_EQ(size, read->GetSettings().buttonSize);
  }
}

TEST_F(BoardOnDisk, AFileWithoutPagesIsSetAside) {
  Write("{\"pages\": []}");
  const LoadedBoard loaded = LoadBoard(path_);
  ASSERT_EQ(LoadedBoard::State::Damaged, loaded.state);
  EXPECT_NE(std::string::npos, loaded.problem.find("the file has no pages")) << loaded.problem;
  EXPECT_TRUE(loaded.mistakes.empty());
}

TEST_F(BoardOnDisk, DamagedFileIsKeptAsideByteForByte) {
  const std::string damaged = "{\"pages\": [ {\"name\": \"Mine\", \"sounds\": [";
  Write(damaged);
  const LoadedBoard loaded = LoadBoard(path_);
  ASSERT_EQ(LoadedBoard::State::Damaged, loaded.state) << loaded.problem;
  EXPECT_NE(std::string::npos, loaded.problem.find("is not a board that can be read (parse error")) << loaded.problem;
  EXPECT_EQ(0u, loaded.keptAs.rfind(path_ + L".damaged-", 0));
  EXPECT_EQ(damaged, test::ReadText(loaded.keptAs));
  EXPECT_EQ(INVALID_FILE_ATTRIBUTES, GetFileAttributesW(path_.c_str()));
  EXPECT_EQ(1u, loaded.board.Pages().size());
  // Damaged again within the same second: the first one kept is not written over.
  Write("no board");
  const LoadedBoard again = LoadBoard(path_);
  ASSERT_EQ(LoadedBoard::State::Damaged, again.state);
  EXPECT_NE(loaded.keptAs, again.keptAs);
  EXPECT_EQ(damaged, test::ReadText(loaded.keptAs));
}

TEST_F(BoardOnDisk, UnreadableFileIsNeitherMovedNorWrittenOver) {
  Write("{\"pages\": []}");
  HANDLE held = CreateFileW(path_.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr);
  ASSERT_NE(INVALID_HANDLE_VALUE, held);
  const LoadedBoard loaded = LoadBoard(path_);
  CloseHandle(held);
  EXPECT_EQ(LoadedBoard::State::Locked, loaded.state);
  EXPECT_NE(std::string::npos, loaded.problem.find("cannot read")) << loaded.problem;
  EXPECT_EQ("{\"pages\": []}", test::ReadText(path_));
}

}  // namespace
}  // namespace quillon::board
