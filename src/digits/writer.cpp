// The text writer and the writer factory. See writer.h.

#include "digits/writer.h"

#include <algorithm>
#include <cstring>
#include <exception>
#include <utility>

#include "digits/conversions.h"
#include "shell/exception.h"

namespace kelvane::DigitViewer {

namespace {

constexpr const wchar_t* INCOMPLETE = L".incomplete";

} // namespace

TextWriter::TextWriter(std::wstring path, const std::string& first_digits, bool raw, int radix, char* staging,
                       u64 staging_bytes, FileSystem& files)
    : files_(files), path_(std::move(path)), in_place_(false), radix_(raw ? radix : 0), staging_(staging),
      staging_bytes_(staging == nullptr ? 0 : staging_bytes),
      exceptions_at_start_(std::uncaught_exceptions()) {
  if (raw) CVN::digits_per_word(radix);
  const size_t point = first_digits.find('.');
  if (!first_digits.empty() && point == std::string::npos)
    throw km_exception(ERROR_INVALID_PARAMETERS, "No decimal place was found.");

  const PathKind kind = files_.kind(path_);
  in_place_ = kind == PathKind::OTHER || kind == PathKind::FOLDER;
  // A finished file that its owner has protected must not be replaced: opening it tells.
  if (kind == PathKind::REGULAR) File(files_, path_, OpenMode::UPDATE).close();
  try {
    file_ = File(files_, in_place_ ? path_ : path_ + INCOMPLETE, OpenMode::CREATE);
  } catch (km_exception& e) {
    e.wtext = path_;
    throw;
  }
  file_.report_as(path_);
  if (!first_digits.empty()) put(first_digits.data(), point + 1);
}

TextWriter::~TextWriter() {
  // Unwinding means that the digits stopped early: the incomplete file keeps its name.
  if (!file_.is_open() || std::uncaught_exceptions() > exceptions_at_start_) return;
  try {
    close();
  } catch (const km_exception&) {
    // Only close() itself can report; the incomplete file stays.
  }
}

void TextWriter::put(const char* text, u64 count) {
  if (count == 0) return;
  try {
    file_.write(position_, text, count);
  } catch (const km_exception&) {
    file_ = File(); // what has been written stays, under the incomplete name
    throw;
  }
  position_ += count;
}

void TextWriter::flush() {
  put(staging_, std::exchange(staged_, 0));
}

void TextWriter::write(const char* digits, u64 count) {
  if (!file_.is_open()) throw km_exception(ERROR_OBJECT_STATE, "This file is already closed.");
  if (staging_bytes_ == 0 && radix_ == 0) return put(digits, count);
  constexpr u64 SMALL = 16384; // a step of conversion when the caller lends no buffer
  char small[SMALL];
  const bool staged = staging_bytes_ != 0;
  while (count != 0) {
    if (staged && staged_ == staging_bytes_) flush();
    char* const to = staged ? staging_ + staged_ : small;
    const u64 n = std::min(count, staged ? staging_bytes_ - staged_ : SMALL);
    if (radix_ != 0)
      CVN::raw_to_str(to, digits, n, radix_);
    else
      std::memcpy(to, digits, n);
    if (staged)
      staged_ += n;
    else
      put(small, n);
    digits += n;
    count -= n;
  }
}

void TextWriter::close() {
  if (!file_.is_open()) return;
  flush();
  // Contents before name, name before success: after a power failure the file is whole or not there.
  File file = std::move(file_); // a failure below leaves the writer closed
  file.sync();
  file.close();
  if (in_place_) return;
  rename_file(files_, path_ + INCOMPLETE, path_);
  sync_folder(files_, folder_of(path_));
}

std::wstring text_path(const OutputSettings& settings, int radix) {
  if (radix != 10 && radix != 16) fatal("Invalid Base");
  const char* const infix = radix == 10 ? " - Dec - " : " - Hex - ";
  return folder_prefix(settings.folder) +
         path_to_wide(settings.first_name + infix + settings.second_name + ".txt");
}

std::unique_ptr<DigitWriter> make_writer(const OutputSettings& settings, int radix,
                                         const std::string& first_digits, char* staging, u64 staging_bytes,
                                         FileSystem& files) {
  std::wstring path = text_path(settings, radix);
  if (settings.digits_per_file != 0)
    throw km_exception(ERROR_INVALID_PARAMETERS, "Compressed digit files are not built yet.");
  return std::make_unique<TextWriter>(std::move(path), first_digits, true, radix, staging, staging_bytes,
                                      files);
}

} // namespace kelvane::DigitViewer
