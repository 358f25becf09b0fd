#include "common/KeyChord.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <iterator>

namespace quillon::tools {
namespace {

struct NamedKey {
  const char* name;
  UINT key;
};

// Keys whose name is not a single letter, digit or F-number.
constexpr NamedKey kNamedKeys[] = {
    {"Space", VK_SPACE},       {"Enter", VK_RETURN},     {"Tab", VK_TAB},          {"Esc", VK_ESCAPE},
    {"Backspace", VK_BACK},    {"Insert", VK_INSERT},    {"Delete", VK_DELETE},    {"Home", VK_HOME},
    {"End", VK_END},           {"PageUp", VK_PRIOR},     {"PageDown", VK_NEXT},    {"Left", VK_LEFT},
    {"Right", VK_RIGHT},       {"Up", VK_UP},            {"Down", VK_DOWN},        {"Pause", VK_PAUSE},
    {"CapsLock", VK_CAPITAL},  {"ScrollLock", VK_SCROLL}, {"NumLock", VK_NUMLOCK}, {"PrintScreen", VK_SNAPSHOT},
    {"NumAdd", VK_ADD},        {"NumSubtract", VK_SUBTRACT}, {"NumMultiply", VK_MULTIPLY},
    {"NumDivide", VK_DIVIDE},  {"NumDecimal", VK_DECIMAL}, {"Apps", VK_APPS},
    {"LCtrl", VK_LCONTROL},    {"RCtrl", VK_RCONTROL},   {"LShift", VK_LSHIFT},    {"RShift", VK_RSHIFT},
    {"LAlt", VK_LMENU},        {"RAlt", VK_RMENU},
};

bool Same(const std::string& a, const char* b) {
  const std::string other(b);
  return a.size() == other.size() && std::equal(a.begin(), a.end(), other.begin(), [](char x, char y) {
           return std::tolower(static_cast<unsigned char>(x)) == std::tolower(static_cast<unsigned char>(y));
         });
}

// The virtual key of one key's name, or 0.
UINT KeyOf(const std::string& name) {
  if (name.size() == 1 && std::isalnum(static_cast<unsigned char>(name[0]))) {
    return static_cast<UINT>(std::toupper(static_cast<unsigned char>(name[0])));
  }
  const auto number = [&](size_t from, int low, int high) {
    if (name.size() <= from || name.size() > from + 2) return -1;
    int n = 0;
    for (size_t i = from; i < name.size(); ++i) {
      if (!std::isdigit(static_cast<unsigned char>(name[i]))) return -1;
      n = n * 10 + (name[i] - '0');
    }
    return n >= low && n <= high ? n : -1;
  };
  if ((name[0] == 'F' || name[0] == 'f') && number(1, 1, 24) > 0) return VK_F1 + static_cast<UINT>(number(1, 1, 24)) - 1;
  if (name.size() == 4 && Same(name.substr(0, 3), "Num") && number(3, 0, 9) >= 0) {
    return VK_NUMPAD0 + static_cast<UINT>(number(3, 0, 9));
  }
  if (name.size() > 2 && (name.rfind("0x", 0) == 0 || name.rfind("0X", 0) == 0)) {
    char* end = nullptr;
    const unsigned long code = std::strtoul(name.c_str() + 2, &end, 16);
    return *end == '\0' && code > 0 && code < 0xFF ? static_cast<UINT>(code) : 0;
  }
  for (const NamedKey& k : kNamedKeys) {
    if (Same(name, k.name)) return k.key;
  }
  return 0;
}

}  // namespace

UINT KeyChord::HotkeyModifiers() const {
  return (ctrl ? MOD_CONTROL : 0) | (alt ? MOD_ALT : 0) | (shift ? MOD_SHIFT : 0) | (win ? MOD_WIN : 0);
}

std::string KeyChord::Text() const {
  std::string text = std::string(ctrl ? "Ctrl+" : "") + (alt ? "Alt+" : "") + (shift ? "Shift+" : "") +
                     (win ? "Win+" : "");
  if ((key >= '0' && key <= '9') || (key >= 'A' && key <= 'Z')) return text + static_cast<char>(key);
  if (key >= VK_F1 && key <= VK_F24) return text + "F" + std::to_string(key - VK_F1 + 1);
  if (key >= VK_NUMPAD0 && key <= VK_NUMPAD9) return text + "Num" + std::to_string(key - VK_NUMPAD0);
  if (key == VK_RETURN && extended) return text + "NumEnter";
  for (const NamedKey& k : kNamedKeys) {
    if (k.key == key) return text + k.name;
  }
  char code[8];
  std::snprintf(code, sizeof(code), "0x%02X", key);
  return text + code;
}

bool ParseKeyChord(const std::string& text, KeyChord& chord, std::string& error) {
  chord = {};
  size_t from = 0;
  while (true) {
    const size_t plus = text.find('+', from);
    const std::string part = text.substr(from, plus == std::string::npos ? std::string::npos : plus - from);
    if (plus == std::string::npos) {
      chord.extended = Same(part, "NumEnter");
      chord.key = chord.extended ? VK_RETURN : part.empty() ? 0 : KeyOf(part);
      if (chord.key == 0) {
        error = "\"" + text + "\" is not a key: " + (part.empty() ? "a key must follow the modifiers" :
                "\"" + part + "\" is unknown (use a letter, a digit, F1 to F24, Num0 to Num9, a name such as Space, or 0x hex)");
        return false;
      }
      return true;
    }
    if (Same(part, "Ctrl") || Same(part, "Control")) {
      chord.ctrl = true;
    } else if (Same(part, "Alt")) {
      chord.alt = true;
    } else if (Same(part, "Shift")) {
      chord.shift = true;
    } else if (Same(part, "Win")) {
      chord.win = true;
    } else {
      error = "\"" + text + "\" is not a key: \"" + part + "\" is not a modifier (Ctrl, Alt, Shift, Win)";
      return false;
    }
    from = plus + 1;
  }
}

}  // namespace quillon::tools
