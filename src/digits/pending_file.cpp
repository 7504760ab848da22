// See pending_file.h.

#include "digits/pending_file.h"

#include <utility>

#include "shell/exception.h"

namespace kelvane::DigitViewer {

namespace {

constexpr const wchar_t* INCOMPLETE = L".incomplete";

} // namespace

PendingFile::PendingFile(FileSystem& files, std::wstring path) : path_(std::move(path)) {
  const PathKind kind = files.kind(path_);
  in_place_ = kind == PathKind::OTHER || kind == PathKind::FOLDER;
  // A finished file that its owner has protected must not be replaced: opening it tells.
  if (kind == PathKind::REGULAR) File(files, path_, OpenMode::UPDATE).close();
  try {
    file_ = File(files, in_place_ ? path_ : path_ + INCOMPLETE, OpenMode::CREATE);
  } catch (km_exception& e) {
    e.wtext = path_;
    throw;
  }
  file_.report_as(path_);
}

void PendingFile::write(u64 offset, const void* data, u64 bytes) {
  try {
    file_.write(offset, data, bytes);
  } catch (const km_exception&) {
    file_ = File(); // what has been written stays
    throw;
  }
}

void PendingFile::finish() {
  // Contents before name, name before success: after a power failure the file is whole or not there.
  File file = std::move(file_); // a failure below leaves the file closed
  file.sync();
  file.close();
}

void PendingFile::publish(FileSystem& files) const {
  if (!in_place_) publish(files, path_);
}

void PendingFile::publish(FileSystem& files, const std::wstring& path) {
  rename_file(files, path + INCOMPLETE, path);
}

} // namespace kelvane::DigitViewer
