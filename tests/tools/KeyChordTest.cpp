// Keys as text: what the parser reads, and that the printer's text reads back
// as the same chord.
#include "common/KeyChord.h"

#include <gtest/gtest.h>

namespace quillon::tools {
namespace {

TEST(KeyChordText, ReadsAndPrintsBackTheSameChord) {
  const struct {
    const char* text;
    const char* printed;  // what the chord prints as
    UINT key;
    UINT modifiers;
  } cases[] = {
      {"V", "V", 'V', 0},
      {"ctrl+alt+1", "Ctrl+Alt+1", '1', MOD_CONTROL | MOD_ALT},
      {"Shift+Control+t", "Ctrl+Shift+T", 'T', MOD_CONTROL | MOD_SHIFT},
      {"Win+F24", "Win+F24", VK_F24, MOD_WIN},
      {"Alt+Num5", "Alt+Num5", VK_NUMPAD5, MOD_ALT},
      {"ctrl+pageup", "Ctrl+PageUp", VK_PRIOR, MOD_CONTROL},
      {"Space", "Space", VK_SPACE, 0},
      {"0x7c", "F13", VK_F13, 0},
      {"0xBA", "0xBA", VK_OEM_1, 0},
      {"RCtrl", "RCtrl", VK_RCONTROL, 0},
      {"Ctrl+NumEnter", "Ctrl+NumEnter", VK_RETURN, MOD_CONTROL},
      {"Enter", "Enter", VK_RETURN, 0},
  };
  for (const auto& c : cases) {
    KeyChord chord;
    std::string error;
    ASSERT_TRUE(ParseKeyChord(c.text, chord, error)) << c.text << ": " << error;
    EXPECT_EQ(c.key, chord.key) << c.text;
    EXPECT_EQ(c.modifiers, chord.HotkeyModifiers()) << c.text;
    EXPECT_EQ(c.printed, chord.Text()) << c.text;
    KeyChord again;
    ASSERT_TRUE(ParseKeyChord(chord.Text(), again, error)) << chord.Text();
    EXPECT_EQ(chord, again) << c.text;
  }
  // The keypad's Enter is a chord of its own, not Enter.
  KeyChord enter, numEnter;
  std::string error;
  ASSERT_TRUE(ParseKeyChord("Enter", enter, error));
  ASSERT_TRUE(ParseKeyChord("NumEnter", numEnter, error));
  EXPECT_NE(enter, numEnter);
}

TEST(KeyChordText, NamesWhatIsNotAKey) {
  const struct {
    const char* text;
    const char* error;
  } cases[] = {
      {"", "a key must follow the modifiers"},
      {"Ctrl+", "a key must follow the modifiers"},
      {"Ctrl+F25", "\"F25\" is unknown"},
      {"Hyper+A", "\"Hyper\" is not a modifier"},
      {"0x00", "\"0x00\" is unknown"},
      {"Num10", "\"Num10\" is unknown"},
  };
  for (const auto& c : cases) {
    KeyChord chord;
    std::string error;
    EXPECT_FALSE(ParseKeyChord(c.text, chord, error)) << c.text;
    EXPECT_NE(std::string::npos, error.find(c.error)) << c.text << ": " << error;
  }
}

}  // namespace
}  // namespace quillon::tools
