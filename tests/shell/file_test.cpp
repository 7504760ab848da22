// The file layer: finished transfers, errors with code, text and path, and the disk that misbehaves.

#include "shell/file.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <fstream>

#include "shell/exception.h"
#include "shell/memory_files.h"

namespace kelvane {
namespace {

using test::MemoryFiles;

template <class F> void expect_error(const F& f, int code, const char* text, const std::wstring& path) {
  try {
    f();
    ADD_FAILURE() << "nothing thrown, expected " << text;
  } catch (const km_exception& e) {
    EXPECT_EQ(e.code, code);
    EXPECT_STREQ(e.message, errno_message(code));
    EXPECT_EQ(e.text, text);
    EXPECT_EQ(e.wtext, path);
  }
}

class PosixFile : public testing::Test {
protected:
  void SetUp() override {
    folder = std::filesystem::temp_directory_path() / ("kelvane_file_" + std::to_string(getpid()));
    std::filesystem::create_directories(folder);
  }
  void TearDown() override { std::filesystem::remove_all(folder); }
  std::wstring path(const char* name) const { return path_to_wide((folder / name).string()); }
  std::filesystem::path folder;
};

TEST_F(PosixFile, WritesReadsRenamesRemoves) {
  FileSystem& files = posix_files();
  File file(files, path("a"), OpenMode::CREATE);
  file.write(0, "hello", 5);
  file.write(9, "x", 1); // a gap reads as zeros
  file.sync();
  char data[16];
  EXPECT_EQ(file.size(), 10u);
  EXPECT_EQ(file.read(0, data, sizeof data), 10u);
  EXPECT_EQ(std::string(data, 10), std::string("hello\0\0\0\0x", 10));
  EXPECT_EQ(file.read(10, data, 1), 0u);
  file.resize(3);
  file.reserve(4096);
  EXPECT_EQ(file.size(), 3u);
  file.close();
  EXPECT_FALSE(file.is_open());

  expect_error([&] { File(files, path("a"), OpenMode::CREATE_NEW); }, EEXIST, "Unable to create file.",
               path("a"));
  rename_file(files, path("a"), path("b"));
  sync_folder(files, folder_of(path("b")));
  EXPECT_EQ(files.kind(path("a")), PathKind::NONE);
  EXPECT_EQ(files.kind(path("b")), PathKind::REGULAR);
  EXPECT_EQ(files.kind(folder_of(path("b"))), PathKind::FOLDER);
  EXPECT_EQ(File(files, path("b"), OpenMode::UPDATE).size(), 3u);
  EXPECT_EQ(File(files, path("b"), OpenMode::CREATE).size(), 0u);
  remove_file(files, path("b"));
  EXPECT_GT(files.free_bytes(folder_of(path("b"))), 0);
}

TEST_F(PosixFile, FailuresNameCodeAndPath) {
  FileSystem& files = posix_files();
  expect_error([&] { File(files, path("none"), OpenMode::READ); }, ENOENT, "Unable to open file.",
               path("none"));
  expect_error([&] { remove_file(files, path("none")); }, ENOENT, "Unable to remove file.", path("none"));
  expect_error([&] { rename_file(files, path("none"), path("c")); }, ENOENT, "Unable to rename file.",
               path("c"));
  expect_error([&] { File(files, path("no/where"), OpenMode::CREATE); }, ENOENT, "Unable to create file.",
               path("no/where"));
  File full(files, L"/dev/full", OpenMode::CREATE);
  full.sync();
  expect_error([&] { full.write(0, "x", 1); }, ENOSPC, "Error writing to file.", L"/dev/full");
}

TEST_F(PosixFile, DirectTransfersOrPlainOnes) {
  alignas(4096) static char block[4096] = "direct";
  File file(posix_files(), path("d"), OpenMode::CREATE, true);
  file.write(0, block, sizeof block);
  EXPECT_EQ(file.read(0, block, sizeof block), sizeof block);
  EXPECT_STREQ(block, "direct");
}

TEST(File, FinishesShortTransfers) {
  MemoryFiles files;
  files.max_transfer = 3;
  File file(files, L"f", OpenMode::CREATE);
  file.write(0, "0123456789", 10);
  EXPECT_EQ(files.text(L"f"), "0123456789");
  EXPECT_EQ(files.writes, 4u);
  char data[10];
  EXPECT_EQ(file.read(1, data, 10), 9u);
  EXPECT_EQ(std::string(data, 9), "123456789");
}

TEST(File, WholeFileIsReplacedAndLasting) {
  MemoryFiles files;
  files.put(L"f", "an older and longer text");
  write_whole_file(L"f", "text", files);
  files.crash();
  EXPECT_EQ(files.text(L"f"), "text");
}

// In every failure the older text stays and nothing else; only the last step comes too late for that.
TEST(File, WholeFileIsReplacedInOneStep) {
  const std::wstring path = L"/folder/f";
  for (const char* operation : {"none", "open", "write", "sync", "close", "rename", "sync_folder"}) {
    MemoryFiles files;
    files.put(path, "an older and longer text");
    files.fail_on = operation;
    files.fail_times = 1;
    int error = 0;
    try {
      replace_whole_file(path, "text", files);
    } catch (const km_exception& e) {
      error = e.code;
      EXPECT_TRUE(e.wtext == path || std::string(operation) == "sync_folder") << operation;
    }
    EXPECT_EQ(error, std::string(operation) == "none" ? 0 : EIO) << operation;
    const bool replaced = error == 0 || std::string(operation) == "sync_folder";
    const std::map<std::wstring, std::string> expected = {
        {path, replaced ? "text" : "an older and longer text"}};
    EXPECT_EQ(files.contents(), expected) << operation;
  }
  MemoryFiles full;
  full.put(path, "older");
  full.capacity = 7;
  expect_error([&] { replace_whole_file(path, "text", full); }, ENOSPC, "Error writing to file.",
               path.c_str());
  EXPECT_EQ(full.contents().size(), 1u);
}

TEST(File, FullDiskKeepsWhatFits) {
  MemoryFiles files;
  files.capacity = 7;
  File file(files, L"f", OpenMode::CREATE);
  expect_error([&] { file.write(0, "0123456789", 10); }, ENOSPC, "Error writing to file.", L"f");
  EXPECT_EQ(files.text(L"f"), "0123456");
  files.capacity = 10;
  file.write(7, "789", 3); // space was made: the same handle goes on
  EXPECT_EQ(files.text(L"f"), "0123456789");
}

TEST(File, DeviceErrorsAreReported) {
  MemoryFiles files;
  File file(files, L"f", OpenMode::CREATE);
  files.write_nothing = true;
  expect_error([&] { file.write(0, "x", 1); }, EIO, "Error writing to file.", L"f");
  files.write_nothing = false;
  struct {
    const char* operation;
    const char* text;
  } const cases[] = {{"write", "Error writing to file."},
                     {"read", "Error Reading File"},
                     {"sync", "Error writing to file."}};
  for (const auto& c : cases) {
    files.fail_on = c.operation;
    files.fail_times = 1;
    char byte = 0;
    expect_error(
        [&] {
          file.write(0, &byte, 1);
          file.read(0, &byte, 1);
          file.sync();
        },
        EIO, c.text, L"f");
  }
  files.fail_on = "close";
  files.fail_error = ENOSPC; // space that was promised and is not there
  files.fail_times = 1;
  expect_error([&] { file.close(); }, ENOSPC, "Unable to close file.", L"f");
  EXPECT_FALSE(file.is_open());
}

TEST(File, PathsOfFolders) {
  EXPECT_EQ(folder_prefix(L""), L"");
  EXPECT_EQ(folder_prefix(L"a"), L"a/");
  EXPECT_EQ(folder_prefix(L"a/"), L"a/");
  EXPECT_EQ(folder_prefix(L"C:\\"), L"C:\\");
  EXPECT_EQ(folder_of(L"x"), L".");
  EXPECT_EQ(folder_of(L"/x"), L"/");
  EXPECT_EQ(folder_of(L"/y/x"), L"/y");
  EXPECT_EQ(full_path(L"/a/./b/../c"), L"/a/c");
  EXPECT_EQ(full_path(L"x").substr(0, 1), L"/");
}

} // namespace
} // namespace kelvane
