// tests/receiver/folder.h: what tests of the receiver's files share.
#pragma once

#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/resource.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace fs = std::filesystem;

/// All bytes of a file; "" if there is none.
inline std::string contents(const fs::path& path) {
  std::ostringstream bytes;
  bytes << std::ifstream(path, std::ios::binary).rdbuf();
  return bytes.str();
}

inline std::size_t number_in(const fs::path& folder) {
  return static_cast<std::size_t>(std::distance(fs::directory_iterator(folder), {}));
}

/// No file grows beyond `most` bytes while this lasts, as on a full disk.
class FullDisk {
 public:
  explicit FullDisk(rlim_t most) {
    (void)signal(SIGXFSZ, SIG_IGN);
    limit(most);
  }
  ~FullDisk() { limit(RLIM_INFINITY); }
  FullDisk(const FullDisk&) = delete;
  FullDisk& operator=(const FullDisk&) = delete;

 private:
  static void limit(rlim_t most) {
    const rlimit to{most, RLIM_INFINITY};
    EXPECT_EQ(0, setrlimit(RLIMIT_FSIZE, &to));
  }
};

/// Another program that has the ledger open.
class OtherProgram {
 public:
  explicit OtherProgram(const fs::path& ledger) { sqlite3_open(ledger.c_str(), &db_); }
  ~OtherProgram() { sqlite3_close(db_); }
  OtherProgram(const OtherProgram&) = delete;
  OtherProgram& operator=(const OtherProgram&) = delete;

  void run(const std::string& sql) const {
    EXPECT_EQ(SQLITE_OK, sqlite3_exec(db_, sql.c_str(), nullptr, nullptr, nullptr))
        << sqlite3_errmsg(db_);
  }

 private:
  sqlite3* db_ = nullptr;
};

/// Each test has a folder of its own.
struct InFolder : testing::Test {
  ~InFolder() override { fs::remove_all(root); }

  std::string made = fs::temp_directory_path() / "receiver_XXXXXX", error;
  const fs::path root = mkdtemp(made.data());
};
