// Making and reading the header. See kcd_format.h.

#include "digits/kcd_format.h"

#include <algorithm>
#include <cstring>
#include <limits>

#include "digits/conversions.h"
#include "shell/exception.h"

namespace kelvane::DigitViewer {

namespace {

constexpr const char* END_HEADER = "EndHeader";
constexpr const char* GAP = "\r\n\r\n"; // between the entries
constexpr u64 LONGEST_HEADER = u64{1} << 20;

[[noreturn]] void fail(const File& file, s32 code, std::string text) {
  throw km_exception(code, nullptr, std::move(text), file.path());
}

// The bytes of a file from its start, up to the longest header.
class HeaderBytes {
public:
  explicit HeaderBytes(const File& file) : file_(file) {}

  u64 position() const { return position_; }
  // The next byte, or -1 at the end of the file.
  int next() {
    if (position_ == LONGEST_HEADER) fail(file_, ERROR_READING_FILE, "Invalid File Format");
    if (position_ == loaded_) {
      const u64 n = file_.read(loaded_, buffer_, sizeof buffer_);
      if (n == 0) return -1;
      loaded_ += n;
      start_ = position_;
    }
    return static_cast<unsigned char>(buffer_[position_++ - start_]);
  }
  // The next line without its end; false when the file ends first, what there was of it then in `line`.
  bool line(std::string& line) {
    line.clear();
    for (int c = next(); c != '\n'; c = next()) {
      if (c < 0) return false;
      line += static_cast<char>(c);
    }
    if (!line.empty() && line.back() == '\r') line.pop_back();
    return true;
  }

private:
  const File& file_;
  char buffer_[4096];
  u64 position_ = 0, start_ = 0, loaded_ = 0;
};

// Modulo 2^64 and without a look at the characters: nonsense comes out as nonsense, and whoever uses a value
// checks its range.
u64 number(const std::string& text) {
  u64 value = 0;
  for (const char c : text) value = value * 10 + static_cast<u64>(static_cast<unsigned char>(c) - '0');
  return value;
}

constexpr u64 saturated(u128 x) {
  constexpr u64 MOST = std::numeric_limits<u64>::max();
  return x > MOST ? MOST : static_cast<u64>(x);
}

// The digits that the file holds, from the sizes in the header.
void place(const File& file, KCDHeader& h) {
  if (h.digits_per_file < LEAST_DIGITS_PER_FILE) fail(file, ERROR_READING_FILE, "Invalid Digits per File");
  const u64 total = h.total_digits;
  if (total != 0) h.digits_per_file = std::min(h.digits_per_file, total);
  const u128 start = static_cast<u128>(h.digits_per_file) * h.id, end = start + h.digits_per_file;
  // A file of unknown total may hold a full block, as long as its digits can be numbered.
  const u64 limit = total != 0 ? total : std::numeric_limits<u64>::max();
  if (limit <= start)
    fail(file, ERROR_OUT_OF_RANGE,
         "This file is out of range.\nStart:        " + std::to_string(saturated(start)) +
             "\nEnd:          " + std::to_string(saturated(end)) +
             "\nTotal Digits: " + std::to_string(total) + "\n");
  h.start = static_cast<u64>(start);
  h.digits = std::min(saturated(end), limit) - h.start;
}

} // namespace

std::string kcd_header_text(KCDHeader& header) {
  std::string text = std::string(KCD_MAGIC) + GAP;
  const auto entry = [&text](const char* key, const std::string& value) {
    text += std::string(key) + "\t" + value + GAP;
  };
  entry("FileVersion:", KCD_VERSION);
  entry("Base:", std::to_string(header.radix));
  entry("FirstDigits:", header.first_digits);
  entry("TotalDigits:", std::string(TOTAL_DIGITS_WIDTH, '0'));
  header.total_position = text.size() - std::strlen(GAP) - TOTAL_DIGITS_WIDTH;
  entry("Blocksize:", std::to_string(header.digits_per_file));
  entry("BlockID:", std::to_string(header.id));
  text += END_HEADER;
  text += GAP;
  text += '\0';
  header.length = text.size();
  return text;
}

KCDHeader read_kcd_header(const File& file) {
  HeaderBytes bytes(file);
  std::string line;
  if (!bytes.line(line) || line != KCD_MAGIC) fail(file, ERROR_READING_FILE, "Invalid File Format");

  KCDHeader header;
  u64 radix = 0;
  for (;;) {
    if (!bytes.line(line)) fail(file, ERROR_READING_FILE, "Error Reading File");
    if (line == END_HEADER) break;
    const size_t tab = line.find('\t');
    if (tab == std::string::npos) continue; // an empty line, or nothing that is known
    const std::string key = line.substr(0, tab), value = line.substr(tab + 1);
    if (key == "FileVersion:") header.version = value;
    if (key == "Base:") radix = number(value);
    if (key == "FirstDigits:") header.first_digits = value;
    if (key == "TotalDigits:") header.total_digits = number(value);
    if (key == "Blocksize:") header.digits_per_file = number(value);
    if (key == "BlockID:") header.id = number(value);
  }
  // The byte that ends the header comes after the empty line.
  for (int c = bytes.next(); c != 0; c = bytes.next()) {
    if (c < 0) fail(file, ERROR_READING_FILE, "Error Reading File");
    if (c != '\r' && c != '\n') fail(file, ERROR_READING_FILE, "Invalid File Format");
  }
  header.length = bytes.position();

  if (header.version.empty()) fail(file, ERROR_READING_FILE, "No version # found.");
  if (header.version != "1.0.0" && header.version != KCD_VERSION)
    fail(file, ERROR_READING_FILE,
         "This .kcd file is of a later format version.\n"
         "This version of the digit viewer is unable to view this file.");
  place(file, header);
  if (radix != 10 && radix != 16) fail(file, ERROR_UNSUPPORTED_RADIX, "Unsupported Radix");
  header.radix = static_cast<int>(radix);
  header.digits_per_word = CVN::digits_per_word(header.radix);
  header.words = kcd_words(header.digits, header.digits_per_word);
  return header;
}

bool has_kcd_magic(const File& file) {
  const u64 length = std::strlen(KCD_MAGIC);
  char start[32] = {};
  return file.read(0, start, length) == length && std::memcmp(start, KCD_MAGIC, length) == 0;
}

} // namespace kelvane::DigitViewer
