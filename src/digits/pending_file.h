// A digit file on its way to the disk.
//
// The file grows under the name path + ".incomplete" and takes its own name when its writer is done:
// a file with the final name is always whole, and an older result of the same name stays until the
// new one replaces it. A failure leaves the incomplete file. A path that is a link or a device is
// written in place. Every error names the final path.
#pragma once

#include <string>

#include "shell/file.h"
#include "shell/types.h"

namespace kelvane::DigitViewer {

class PendingFile {
public:
  PendingFile() = default;
  // "Unable to create file."; an existing result that its owner has protected is refused.
  PendingFile(FileSystem& files, std::wstring path);

  bool is_open() const { return file_.is_open(); }
  bool in_place() const { return in_place_; }
  const std::wstring& path() const { return path_; }

  // "Error writing to file."; the file is then closed and keeps its incomplete name.
  void write(u64 offset, const void* data, u64 bytes);
  // The contents are on the medium, the file is closed, its name still the incomplete one.
  void finish();
  // Gives a finished file its name.
  void publish(FileSystem& files) const;
  // The same for a file that is known by its path only and was not written in place.
  static void publish(FileSystem& files, const std::wstring& path);

private:
  std::wstring path_;
  bool in_place_ = false;
  File file_;
};

} // namespace kelvane::DigitViewer
