#include "quillon/CommandLine.h"

#include "common/ToolSupport.h"
#include "quillon/Console.h"

#include <cctype>
#include <cmath>
#include <cstdio>
#include <cwchar>

namespace quillon::cli {

using tools::Utf8;
using tools::Wide;

std::wstring Arguments::Value(const char* name) const {
  const auto it = options.find(name);
  return it == options.end() ? std::wstring() : it->second;
}

std::optional<Arguments> Parse(const std::vector<std::wstring>& words, size_t first,
                               const std::vector<OptionSpec>& known, std::string& error) {
  Arguments args;
  for (size_t i = first; i < words.size(); ++i) {
    const std::string word = Utf8(words[i]);
    if (word == "--help" || word == "-h") {
      args.options["--help"] = L"";
      continue;
    }
    // A negative number ("-6") is a value, not an option.
    const bool number = word.size() >= 2 && word[0] == '-' && (std::isdigit(static_cast<unsigned char>(word[1])) || word[1] == '.');
    if (word.size() < 2 || word[0] != '-' || word == "--" || number) {
      args.positional.push_back(words[i]);
      continue;
    }
    // "--name=value" and "--name value" are the same.
    const size_t equals = word.find('=');
    const std::string name = word.substr(0, equals);
    const OptionSpec* option = nullptr;
    for (const OptionSpec& s : known) {
      if (name == s.name) option = &s;
    }
    if (option == nullptr) {
      error = "unknown option " + name;
      return std::nullopt;
    }
    if (!option->takesValue) {
      if (equals != std::string::npos && !option->valueOptional) {
        error = name + " takes no value";
        return std::nullopt;
      }
      args.options[name] = equals != std::string::npos ? Wide(word.substr(equals + 1)) : L"";
    } else if (equals != std::string::npos) {
      args.options[name] = Wide(word.substr(equals + 1));
    } else if (i + 1 < words.size()) {
      args.options[name] = words[++i];
    } else {
      error = name + " needs a value";
      return std::nullopt;
    }
  }
  return args;
}

bool ParseWhole(const std::wstring& text, long long min, long long max, long long& value) {
  if (text.empty() || text.size() > 18) return false;
  wchar_t* end = nullptr;
  const long long v = std::wcstoll(text.c_str(), &end, 10);
  if (*end != L'\0' || v < min || v > max) return false;
  value = v;
  return true;
}

bool ParseDecimal(const std::wstring& text, double min, double max, double& value) {
  if (text.empty()) return false;
  wchar_t* end = nullptr;
  const double v = std::wcstod(text.c_str(), &end);
  if (*end != L'\0' || !(v >= min && v <= max)) return false;
  value = v;
  return true;
}

std::string Clock(double seconds) {
  const long long total = seconds > 0 ? static_cast<long long>(std::floor(seconds)) : 0;
  char text[32];
  if (total >= 3600) {
    std::snprintf(text, sizeof(text), "%lld:%02lld:%02lld", total / 3600, total / 60 % 60, total % 60);
  } else {
    std::snprintf(text, sizeof(text), "%lld:%02lld", total / 60, total % 60);
  }
  return text;
}

}  // namespace quillon::cli
