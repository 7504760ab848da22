// See kcd_reader.h.

#include "digits/kcd_reader.h"

#include <algorithm>
#include <cerrno>
#include <limits>

#include "shell/console.h"
#include "shell/exception.h"

namespace kelvane::DigitViewer {

namespace {

constexpr u64 EXTENSION_LENGTH = 4;
constexpr u64 MOST_NAMES = 100; // of missing files, printed one by one

bool ends_with(const std::wstring& text, const std::wstring& end) {
  return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

// The number in "<base><number>.kcd"; false for other names. A number has no leading zeros.
bool number_in(const std::wstring& name, const std::wstring& base, u64& id) {
  if (!ends_with(name, KCD_EXTENSION) || name.compare(0, base.size(), base) != 0) return false;
  if (name.size() <= base.size() + EXTENSION_LENGTH) return false;
  const std::wstring digits = name.substr(base.size(), name.size() - base.size() - EXTENSION_LENGTH);
  constexpr size_t LONGEST = 20;
  if (digits.size() > LONGEST || (digits.size() > 1 && digits[0] == L'0')) return false;
  u128 value = 0;
  for (const wchar_t c : digits) {
    if (c < L'0' || c > L'9') return false;
    value = value * 10 + static_cast<u128>(c - L'0');
  }
  if (value > std::numeric_limits<u64>::max()) return false;
  id = static_cast<u64>(value);
  return true;
}

// The file is there and readable, but its contents are wrong.
bool tells_corruption(s32 code) {
  return static_cast<u32>(code) >> 12 == 0x80001 || static_cast<u32>(code) >> 12 == 0x80002 ||
         code == ERROR_OUT_OF_RANGE;
}

} // namespace

KCDReader::KCDReader(std::wstring base_name, std::vector<std::wstring> folders, bool raw, FileSystem& files)
    : files_(files), base_name_(std::move(base_name)), folders_(std::move(folders)), raw_(raw) {
  if (folders_.empty()) folders_.emplace_back();
  open_first();
}

KCDReader::KCDReader(const std::wstring& path, bool raw, FileSystem& files) : files_(files), raw_(raw) {
  if (!ends_with(path, KCD_EXTENSION))
    throw km_exception(ERROR_INVALID_EXTENSION, nullptr, "Invalid Extension", path);
  const size_t slash = path.rfind(L'/');
  const size_t name = slash == std::wstring::npos ? 0 : slash + 1;
  folders_.push_back(path.substr(0, name));
  base_name_ = path.substr(name, path.size() - name - EXTENSION_LENGTH);

  KCDFile file(path, files_);
  const std::wstring number = std::to_wstring(file.header().id);
  if (ends_with(base_name_, number))
    base_name_.resize(base_name_.size() - number.size());
  else
    only_path_ = path, only_id_ = file.header().id;
  open_first();
}

std::wstring KCDReader::path_of(u64 id) const {
  if (!only_path_.empty() && id == only_id_) return only_path_;
  for (const std::wstring& folder : folders_) {
    std::wstring path = folder_prefix(folder) + base_name_ + std::to_wstring(id) + KCD_EXTENSION;
    if (files_.kind(path) != PathKind::NONE) return path;
  }
  return folder_prefix(folders_[0]) + base_name_ + std::to_wstring(id) + KCD_EXTENSION;
}

bool KCDReader::is_there(u64 id) const {
  return files_.kind(path_of(id)) != PathKind::NONE;
}

std::vector<u64> KCDReader::numbers() const {
  if (!only_path_.empty()) return {only_id_};
  std::vector<u64> ids;
  for (const std::wstring& folder : folders_) {
    std::vector<std::wstring> names;
    if (files_.list(folder, names) != 0) continue;
    u64 id = 0;
    for (const std::wstring& name : names)
      if (number_in(name, base_name_, id)) ids.push_back(id);
  }
  std::sort(ids.begin(), ids.end());
  ids.erase(std::unique(ids.begin(), ids.end()), ids.end());
  return ids;
}

void KCDReader::open_first() {
  u64 id = only_id_;
  if (!is_there(id)) {
    const std::vector<u64> ids = numbers();
    if (!ids.empty()) id = ids.front();
  }
  open(id);
  common_ = file_.header();
}

void KCDReader::open(u64 id) {
  if (file_.is_open() && file_.header().id == id) return;
  const std::wstring path = path_of(id);
  KCDFile file;
  try {
    file = KCDFile(path, files_);
  } catch (km_exception& e) {
    if (e.code > 0) e.text = "Unable to open file #" + std::to_string(id);
    throw;
  }
  const KCDHeader& h = file.header();
  const auto check = [&path](bool agrees, const char* text) {
    if (!agrees) throw km_exception(ERROR_FILES_DISAGREE, nullptr, text, path);
  };
  check(h.id == id, "Block id does not match.");
  if (common_.radix != 0) { // there is a first file to compare with
    check(h.version == common_.version, "File version does not match.");
    check(h.radix == common_.radix, "Radix does not match.");
    check(h.digits_per_word == common_.digits_per_word, "Digits per word does not match.");
    check(h.digits_per_file == common_.digits_per_file, "Digits per file does not match.");
    check(h.first_digits == common_.first_digits, "First digits do not match.");
    // Only files that are not full state the total; the others must lie within it.
    const bool within = total_ == 0 || h.start + h.digits <= total_;
    check(h.total_digits == 0 ? within : total_ == 0 || h.total_digits == total_,
          "Total digit does not match.");
  }
  file.check_size();
  if (h.total_digits != 0) {
    total_ = h.total_digits;
    stated_ = true;
  }
  file_ = std::move(file);
}

u64 KCDReader::find_length() {
  if (total_ != 0) return total_;
  const std::vector<u64> ids = numbers();
  u64 last = ids.empty() ? common_.id : ids.back();
  if (ids.empty())
    while (is_there(last + 1)) ++last;
  open(last); // states the total, or is full and the last
  return total_ = file_.header().start + file_.header().digits;
}

void KCDReader::print_info() {
  const std::vector<u64> ids = numbers();
  Console::print("Name:   ");
  Console::print(base_name_);
  Console::print("\n\n");
  Console::println_labeled("Radix:              ", static_cast<u64>(common_.radix), 'G');
  Console::println_labeled("First Digits:       ", common_.first_digits.c_str(), 'G');
  if (total_ == 0)
    Console::println_labeled("Total Digits:       ", "Unknown", 'Y');
  else
    Console::println_labeled("Total Digits:       ", total_, 'G');
  Console::println_labeled("Digits per File:    ", common_.digits_per_file, 'G');
  Console::println_labeled(
      "max_id_length:      ", std::to_string(ids.empty() ? common_.id : ids.back()).size(), 'G');
  Console::print("Search Paths:\n");
  for (const std::wstring& folder : folders_) {
    Console::print(folder.empty() ? std::wstring(L".") : folder);
    Console::print("\n");
  }
  Console::print("\n");
}

bool KCDReader::check_range(u64 start, u64 end) {
  if (start >= end) throw km_exception(ERROR_INVALID_PARAMETERS, "Invalid Parameters");
  const u64 B = common_.digits_per_file;
  const u64 stop = (end - 1) / B + 1; // number after the last file
  bool good = true;
  u64 named = 0;
  for (u64 id = start / B; id < stop; ++id) {
    try {
      open(id);
      continue;
    } catch (const km_exception& e) {
      good = false;
      if (tells_corruption(e.code)) {
        Console::print("Corrupt or inconsistent file:\n");
        Console::print(path_of(id));
        Console::print("\n");
        continue;
      }
    }
    if (total_ != 0 && end > total_) break;
    if (named == 0) Console::print("The following needed files are missing or inaccessible:\n");
    // A header may ask for more files than could ever be listed.
    if (++named > MOST_NAMES) {
      Console::print("...\n");
      break;
    }
    Console::print(path_of(id));
    Console::print("\n");
  }
  if (total_ != 0 && end > total_) {
    Console::print("This digit stream does not have enough digits.\n");
    return false;
  }
  return good;
}

void KCDReader::read(u64 position, char* out, u64 count) {
  const u64 most = total_ != 0 ? total_ : std::numeric_limits<u64>::max();
  if (position > most || count > most - position) throw km_exception(ERROR_OUT_OF_RANGE, "Out of range.");
  while (count > 0) {
    open(position / common_.digits_per_file);
    const KCDHeader& h = file_.header();
    const u64 at = position - h.start;
    // The last file may turn out to end, and to state the total, before what is wanted.
    if (at >= h.digits) throw km_exception(ERROR_OUT_OF_RANGE, "Out of range.");
    const u64 n = std::min(count, h.digits - at);
    file_.read_chars(at, out, n, raw_);
    position += n;
    out += n;
    count -= n;
  }
}

void KCDReader::reload() {
  if (stream_ == nullptr) stream_ = std::make_unique<char[]>(STREAM_BYTES);
  stream_start_ += stream_digits_;
  stream_digits_ = 0;
  while (stream_digits_ < STREAM_BYTES) {
    const u64 position = stream_start_ + stream_digits_;
    if (total_ != 0 && position >= total_) break;
    const u64 id = position / common_.digits_per_file;
    if (total_ == 0 && !is_there(id)) break;
    open(id);
    const KCDHeader& h = file_.header();
    const u64 at = position - h.start;
    if (at >= h.digits) break;
    const u64 n = std::min(STREAM_BYTES - stream_digits_, h.digits - at);
    file_.read_chars(at, stream_.get() + stream_digits_, n, raw_);
    stream_digits_ += n;
  }
  if (stream_digits_ == 0)
    throw km_exception(ERROR_OUT_OF_RANGE, "No more digits left: " + std::to_string(stream_start_));
}

std::unique_ptr<DigitReader> open_reader(const std::wstring& path, bool raw, FileSystem& files) {
  if (has_kcd_magic(File(files, path, OpenMode::READ))) return std::make_unique<KCDReader>(path, raw, files);
  return std::make_unique<TextReader>(path, raw, 0, files);
}

} // namespace kelvane::DigitViewer
