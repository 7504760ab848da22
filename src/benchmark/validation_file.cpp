// See validation_file.h.

#include "benchmark/validation_file.h"

#include <algorithm>
#include <array>
#include <cinttypes>
#include <cstdio>

#include "arithmetic/words/residue.h"
#include "control/report.h"
#include "shell/exception.h"
#include "shell/settings.h"
#include "shell/version.h"

namespace kelvane {

namespace {

constexpr u64 LAST_DIGITS = 50;
constexpr char TITLE[] = "Kelvane Benchmark Validation File\n";
constexpr char CHECKSUM_LABEL[] = "Checksum:  ";

// The version of the format: that of the program which introduced it. It changes only with the format.
using FormatVersion = std::array<unsigned, 3>;
constexpr FormatVersion FORMAT = {0, 6, 1};

std::string version_line(const FormatVersion& v) {
  char line[64];
  std::snprintf(line, sizeof line, "Version %u.%u.%u Validation\n", v[0], v[1], v[2]);
  return line;
}

// Processor names come from outside.
std::string printable(std::string text) {
  for (char& c : text)
    if ((c < ' ' || c > '~') && c != '\n') c = '?';
  return text;
}

// The line that begins at `from`, without what a transfer as text may have put at its end.
std::string line_at(const std::string& text, size_t from) {
  constexpr size_t LONGEST = 64; // characters looked at
  const std::string line = text.substr(from, std::min(text.find('\n', from) - from, LONGEST));
  return line.substr(0, line.find('\r'));
}

// Reads "Version a.b.c Validation", nothing else in the line.
bool read_version(const std::string& line, FormatVersion& version) {
  // At most six digits a part: no part overflows. What was read must give the same line again.
  if (std::sscanf(line.c_str(), "Version %6u.%6u.%6u Validation", &version[0], &version[1], &version[2]) != 3)
    return false;
  return line + "\n" == version_line(version);
}

} // namespace

std::string last_digits(const FinishResult& result) {
  const std::string& tail = result.tail_digits;
  return tail.substr(tail.size() - std::min<size_t>(tail.size(), LAST_DIGITS));
}

std::string clocks_text(const ClockCheck& clocks) {
  char text[128];
  std::snprintf(text, sizeof text, "CLOCK_MONOTONIC %.3f seconds, CLOCK_REALTIME %.3f seconds",
                clocks.monotonic_seconds(), clocks.day_seconds());
  return std::string(text) + (clocks.agree() ? ": they agree" : CLOCKS_DISAGREE);
}

std::string text_checksum(const std::string& text) {
  // Any two numbers will do that are not special: here from the digits of Pi after its first 100.
  constexpr u64 POINTS[] = {821480865132823066, 470938446095505822};
  constexpr size_t BYTES = 7; // below 2^56, so that different bytes are different residues
  std::string checksum;
  for (const u64 point : POINTS) {
    u64 value = 1;
    for (size_t i = 0; i < text.size(); i += BYTES) {
      u64 coefficient = 0;
      for (size_t k = i; k < std::min(i + BYTES, text.size()); k++)
        coefficient = coefficient << 8 | static_cast<u8>(text[k]);
      value = residue::add(residue::mul(value, point), coefficient);
    }
    value = residue::add(residue::mul(value, point), text.size());
    char digits[20];
    std::snprintf(digits, sizeof digits, "%016" PRIx64, value);
    checksum += digits;
  }
  return checksum;
}

std::string with_checksum(const std::string& text) {
  return text + CHECKSUM_LABEL + text_checksum(text) + "\n";
}

std::string validation_text(const ValidationInput& input) {
  const FinishResult& result = input.record.result;
  std::string text = TITLE + version_line(FORMAT) + "\n";
  text += system_lines(input.system) + "\n" + settings_lines(input.settings, input.record) + "\n";
  text += std::string("Benchmark Result:    ") + verdict_text(input.verdict) + "\n";
  text += "Clocks:              " + clocks_text(input.clocks) + "\n";
  if (!input.clocks.agree()) text += "The times of this run cannot be trusted.\n";
  text += "\n" + time_lines(input.record) + "\n" + digit_lines(result) + "\n";
  return with_checksum(printable(text));
}

std::wstring validation_path(const ComputeSettings& settings, std::time_t start, FileSystem& files) {
  std::tm tm{};
  localtime_r(&start, &tm);
  char stamp[32];
  std::strftime(stamp, sizeof stamp, "%Y%m%d-%H%M%S", &tm);
  const std::wstring name =
      in_folder(settings.output_path, path_to_wide("Pi - " + std::to_string(settings.decimal_digits) + " - " +
                                                   stamp + " - Validation"));
  std::wstring path = name + L".txt";
  for (int n = 2; files.kind(path) != PathKind::NONE; n++)
    path = name + L" (" + std::to_wstring(n) + L").txt";
  return path;
}

FileVerdict examine(const std::string& text) {
  FormatVersion version;
  const std::string first = line_at(text, 0);
  const size_t newline = text.find('\n');
  const std::string second = newline == std::string::npos ? "" : line_at(text, newline + 1);
  const bool titled = first + "\n" == TITLE;
  if (!read_version(first, version) && !read_version(second, version))
    return titled ? FileVerdict::ALTERED : FileVerdict::NO_VALIDATION_FILE;
  if (version < FORMAT) return FileVerdict::TOO_OLD;
  if (version > FORMAT) return FileVerdict::TOO_NEW;
  const size_t end = text.rfind(CHECKSUM_LABEL);
  if (!titled || end == std::string::npos || text.size() > LONGEST_VALIDATION_FILE)
    return FileVerdict::ALTERED;
  const std::string body = text.substr(0, end);
  return with_checksum(body) == text && printable(body) == body ? FileVerdict::VALID : FileVerdict::ALTERED;
}

std::string value_of(const std::string& text, const std::string& label) {
  const size_t at = text.find("\n" + label);
  if (at == std::string::npos) return {};
  const size_t from = at + 1 + label.size();
  return text.substr(from, text.find('\n', from) - from);
}

} // namespace kelvane
