// One open compressed digit file.
#pragma once

#include <string>

#include "digits/kcd_format.h"
#include "shell/file.h"
#include "shell/types.h"

namespace kelvane::DigitViewer {

class KCDFile {
public:
  KCDFile() = default;
  // Throws "Unable to open file." and the errors of read_kcd_header.
  explicit KCDFile(const std::wstring& path, FileSystem& files = posix_files());

  bool is_open() const { return file_.is_open(); }
  const std::wstring& path() const { return file_.path(); }
  const KCDHeader& header() const { return header_; }

  // "Error Reading File" when the body is shorter or longer than the header says.
  void check_size() const;

  // Body words [position, position + count). Throws "Read out of bounds. ..." beyond the header's count,
  // "Error Reading File" when the file ends before, "Invalid Digit: " and the digit's position in the
  // file for a word that is no 19 decimal digits.
  void read_words(u64 position, u64* words, u64 count) const;
  // Digits [position, position + count) of the file, as values (raw) or characters. At memory speed.
  void read_chars(u64 position, char* out, u64 count, bool raw) const;

private:
  File file_;
  KCDHeader header_;
};

} // namespace kelvane::DigitViewer
