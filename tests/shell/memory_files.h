// A file system in memory that can be made full, slow to give, faulty and forgetful.
#pragma once

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <limits>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "shell/file.h"

namespace kelvane::test {

class MemoryFiles final : public FileSystem {
public:
  struct Node {
    std::vector<char> data;   // what a reader sees
    std::vector<char> synced; // what survives a crash
  };

  u64 capacity = std::numeric_limits<u64>::max();     // bytes that all files together may hold
  u64 max_transfer = std::numeric_limits<u64>::max(); // longest single transfer
  bool write_nothing = false;                         // writes report 0 bytes moved
  // The operation named `fail_on` fails with `fail_error` after `fail_after` successes, `fail_times` times.
  std::string fail_on;
  int fail_error = EIO;
  int fail_after = 0;
  int fail_times = 0;
  u64 writes = 0;

  bool exists(const std::wstring& path) const { return names_.count(path) != 0; }
  std::string text(const std::wstring& path) const {
    const auto& data = names_.at(path)->data;
    return {data.begin(), data.end()};
  }
  std::map<std::wstring, std::string> contents() const {
    std::map<std::wstring, std::string> all;
    for (const auto& [name, node] : names_) all[name] = {node->data.begin(), node->data.end()};
    return all;
  }
  void put(const std::wstring& path, const std::string& text) {
    auto node = std::make_shared<Node>();
    node->data.assign(text.begin(), text.end());
    node->synced = node->data;
    names_[path] = lasting_names_[path] = node;
  }
  // Power failure: names come back as of the last sync_folder, contents as of their last sync.
  void crash() {
    names_ = lasting_names_;
    for (auto& [name, node] : names_) node->data = node->synced;
  }

  s32 open(std::unique_ptr<FileHandle>& out, const std::wstring& path, OpenMode mode, bool) override {
    if (fails("open")) return -fail_error;
    const bool creates = mode == OpenMode::CREATE || mode == OpenMode::CREATE_NEW;
    if (mode == OpenMode::CREATE_NEW && exists(path)) return -EEXIST;
    if (!creates && !exists(path)) return -ENOENT;
    if (!exists(path)) names_[path] = std::make_shared<Node>();
    if (creates) names_[path]->data.clear();
    out = std::make_unique<Handle>(*this, names_[path]);
    return 0;
  }
  s32 remove(const std::wstring& path) override { return names_.erase(path) == 1 ? 0 : -ENOENT; }
  s32 rename(const std::wstring& from, const std::wstring& to) override {
    if (fails("rename")) return -fail_error;
    if (!exists(from)) return -ENOENT;
    names_[to] = names_[from];
    names_.erase(from);
    return 0;
  }
  s32 sync_folder(const std::wstring&) override {
    if (fails("sync_folder")) return -fail_error;
    lasting_names_ = names_;
    return 0;
  }
  PathKind kind(const std::wstring& path) override {
    return exists(path) ? PathKind::REGULAR : PathKind::NONE;
  }
  s32 list(const std::wstring& folder, std::vector<std::wstring>& names) override {
    const std::wstring prefix = folder_prefix(folder);
    for (const auto& [name, node] : names_)
      if (name.compare(0, prefix.size(), prefix) == 0 && name.find(L'/', prefix.size()) == std::wstring::npos)
        names.push_back(name.substr(prefix.size()));
    return 0;
  }
  s64 free_bytes(const std::wstring&) override {
    return static_cast<s64>(std::min<u64>(capacity - used(), ~0ull >> 1));
  }

private:
  class Handle final : public FileHandle {
  public:
    Handle(MemoryFiles& files, std::shared_ptr<Node> node) : files_(files), node_(std::move(node)) {}
    s64 read(u64 offset, void* data, u64 bytes) override {
      if (files_.fails("read")) return -files_.fail_error;
      const u64 size = node_->data.size();
      if (offset >= size) return 0;
      const u64 n = std::min({bytes, size - offset, files_.max_transfer});
      std::memcpy(data, node_->data.data() + offset, n);
      return static_cast<s64>(n);
    }
    s64 write(u64 offset, const void* data, u64 bytes) override {
      if (files_.fails("write")) return -files_.fail_error;
      if (files_.write_nothing) return 0;
      ++files_.writes;
      u64 n = std::min(bytes, files_.max_transfer);
      const u64 size = node_->data.size();
      const u64 room = files_.capacity - files_.used();
      if (offset + n > size + room) n = offset >= size + room ? 0 : size + room - offset; // what still fits
      if (n == 0 && bytes != 0) return -ENOSPC;
      if (offset + n > size) node_->data.resize(offset + n);
      std::memcpy(node_->data.data() + offset, data, n);
      return static_cast<s64>(n);
    }
    s64 size() override { return static_cast<s64>(node_->data.size()); }
    s32 resize(u64 bytes) override {
      node_->data.resize(bytes);
      return 0;
    }
    s32 reserve(u64) override { return 0; }
    s32 sync() override {
      if (files_.fails("sync")) return -files_.fail_error;
      node_->synced = node_->data;
      return 0;
    }
    s32 close() override { return files_.fails("close") ? -files_.fail_error : 0; }

  private:
    MemoryFiles& files_;
    std::shared_ptr<Node> node_;
  };

  bool fails(const char* operation) {
    if (fail_on != operation || fail_times == 0) return false;
    if (fail_after > 0) {
      --fail_after;
      return false;
    }
    --fail_times;
    return true;
  }
  u64 used() const {
    u64 bytes = 0;
    for (const auto& [name, node] : names_) bytes += node->data.size();
    return bytes;
  }

  std::map<std::wstring, std::shared_ptr<Node>> names_;
  std::map<std::wstring, std::shared_ptr<Node>> lasting_names_;
};

} // namespace kelvane::test
