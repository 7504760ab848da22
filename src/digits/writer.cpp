// The text writer and the writer factory. See writer.h.

#include "digits/writer.h"

#include <algorithm>
#include <cstring>
#include <exception>
#include <utility>

#include "digits/conversions.h"
#include "digits/kcd_writer.h"
#include "shell/exception.h"

namespace kelvane::DigitViewer {

TextWriter::TextWriter(std::wstring path, const std::string& first_digits, bool raw, int radix, char* staging,
                       u64 staging_bytes, FileSystem& files)
    : files_(files), radix_(raw ? radix : 0), staging_(staging),
      staging_bytes_(staging == nullptr ? 0 : staging_bytes),
      exceptions_at_start_(std::uncaught_exceptions()) {
  if (raw) CVN::digits_per_word(radix);
  const size_t point = first_digits.find('.');
  if (!first_digits.empty() && point == std::string::npos)
    throw km_exception(ERROR_INVALID_PARAMETERS, "No decimal place was found.");
  file_ = PendingFile(files_, std::move(path));
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
  file_.write(position_, text, count);
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
  file_.finish();
  file_.publish(files_);
  if (!file_.in_place()) sync_folder(files_, folder_of(file_.path()));
}

std::wstring base_name(const OutputSettings& settings, int radix) {
  if (radix != 10 && radix != 16) fatal("Invalid Base");
  const char* const infix = radix == 10 ? " - Dec - " : " - Hex - ";
  return path_to_wide(settings.first_name + infix + settings.second_name);
}

namespace {

std::wstring text_path(const OutputSettings& settings, int radix) {
  return folder_prefix(settings.folder) + base_name(settings, radix) + L".txt";
}

} // namespace

std::wstring output_name(const OutputSettings& settings, int radix, u64 digits) {
  if (settings.digits_per_file == 0) return text_path(settings, radix);
  std::wstring name = kcd_path(settings.folder, base_name(settings, radix), 0);
  if (digits > settings.digits_per_file)
    name += L" to " + std::to_wstring((digits - 1) / settings.digits_per_file) + KCD_EXTENSION;
  return name;
}

std::unique_ptr<DigitWriter> make_writer(const OutputSettings& settings, int radix,
                                         const std::string& first_digits, char* staging, u64 staging_bytes,
                                         FileSystem& files) {
  if (settings.digits_per_file == 0)
    return std::make_unique<TextWriter>(text_path(settings, radix), first_digits, true, radix, staging,
                                        staging_bytes, files);
  return std::make_unique<KCDWriter>(settings.folder, base_name(settings, radix), first_digits,
                                     settings.digits_per_file, 0, radix, staging_bytes, staging, nullptr,
                                     files);
}

} // namespace kelvane::DigitViewer
