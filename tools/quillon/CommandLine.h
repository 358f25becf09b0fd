// The words of one quillon command: its file or value arguments and its
// options, checked against the options the command knows.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace quillon::cli {

constexpr int kExitDone = 0;
constexpr int kExitFailed = 1;
constexpr int kExitUsage = 2;
constexpr int kExitInterrupted = 130;

struct OptionSpec {
  const char* name;  // "--mic"
  bool takesValue;
  bool valueOptional = false;  // a flag that may take a value as --name=VALUE
};

struct Arguments {
  std::vector<std::wstring> positional;
  std::map<std::string, std::wstring> options;  // "--mic" -> value; flags map to ""

  bool Has(const char* name) const { return options.count(name) != 0; }
  std::wstring Value(const char* name) const;
};

// Parses words[first...]; "--help"/"-h" is always known. On an unknown option
// or a missing value returns nothing and says why in `error`.
std::optional<Arguments> Parse(const std::vector<std::wstring>& words, size_t first,
                               const std::vector<OptionSpec>& known, std::string& error);

// Whole numbers and decimals within [min, max]; false for anything else,
// trailing characters included.
bool ParseWhole(const std::wstring& text, long long min, long long max, long long& value);
bool ParseDecimal(const std::wstring& text, double min, double max, double& value);

// A printed duration: "m:ss", or "h:mm:ss" from an hour on.
std::string Clock(double seconds);

}  // namespace quillon::cli
