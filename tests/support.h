// tests/support.h: what the unit tests share.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <iostream>

#include "state/settings.h"

namespace fs = std::filesystem;
using Pauses = std::vector<std::uint32_t>;

// From fakes.cpp, where pause_us() does not sleep and nothing reaches the system's log.
extern Pauses pauses;                                ///< all of them, us
extern std::function<void(std::uint32_t)> on_pause;  ///< what happens meanwhile
extern std::string system_log;                       ///< lines "warning: " or "error: " and text

// Also from there, s: what the monotonic clock, which stands still, and the real one are
// ahead, and what somebody has set the real one to.
extern std::time_t time_passed, clock_stepped;

extern uid_t other_uid;  ///< whom the program takes itself for, unless 0

/// Comes before each renameat2() with its flags; its errno, if not 0, is the answer.
extern std::function<int(unsigned)> on_rename;

/// A folder of its own, spelled as /proc does, removed on every way out.
struct TempDir {
  TempDir();
  ~TempDir();
  std::string path(const std::string& name) const { return root + "/" + name; }
  bool exists(const std::string& name) const { return fs::exists(path(name)); }
  /// Writes a file anew, with the folders above it; returns its path.
  std::string file(const std::string& name, const std::string& content = "x") const;

  std::string root = fs::temp_directory_path() / "tarnwick_test_XXXXXX";
};

/// All bytes of a file; "" if there is none.
std::string contents(const std::string& path);

constexpr uid_t kStranger = 54321;

/// Makes the stranger the owner of the entry, be it a link; false where we are not root, who
/// alone can.
bool give_away(const std::string& path);

/// What a lock file holds.
std::string lock_record(std::int32_t pid, char stop = 0, char command = 0, char status = 0);

/// Sets the byte in a lock file by which its owner is asked to end.
void ask_to_stop(const std::string& lock);

/// Sends std::cout to standard error, and there every pause as "[us]".
void show_all();

/// The process ends with status 1, having written just `text`, pauses included.
#define EXPECT_FATAL(statement, text) \
  EXPECT_EXIT((show_all(), statement), testing::ExitedWithCode(1), testing::Eq(text))

/// Starts each test from the defaults; std::cout goes to `console`.
struct StateTest : testing::Test {
  StateTest() {
    settings = Settings{};
    pauses.clear(), system_log.clear();
    time_passed = clock_stepped = 0;
    on_pause = [](std::uint32_t) {};
    on_rename = [](unsigned) { return 0; };
  }
  ~StateTest() override { std::cout.rdbuf(kept); }

  TempDir dir;
  std::ostringstream console;
  std::streambuf* const kept = std::cout.rdbuf(console.rdbuf());
};
