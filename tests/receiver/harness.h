// tests/receiver/harness.h: a receiver in this process, fed without a socket, at a time
// that the test sets. The wire is written down here once more, on purpose.
#pragma once

#include <arpa/inet.h>
#include <fcntl.h>

#include <functional>
#include <nlohmann/json.hpp>
#include <random>

#include "receiver/options.h"
#include "receiver/receiver.h"
#include "tests/receiver/folder.h"
#include "wire/crc32.h"

using Strings = std::vector<std::string>;

inline std::string le(std::uint64_t value, unsigned bytes) {
  std::string text;
  for (; bytes > 0; --bytes, value >>= 8) text += static_cast<char>(value & 0xFF);
  return text;
}

inline std::string datagram(std::uint64_t id, std::uint64_t part_no, const std::string& body) {
  return le(id, 8) + le(part_no, 8) + le(body.size(), 4) + body;
}

/// The same for the same `seed`, up to 2 MB.
inline std::string random_bytes(std::size_t size, std::size_t seed) {
  static const std::string pool = [] {
    std::mt19937 random;
    std::string bytes;
    while (bytes.size() < 3'000'000) bytes += le(random(), 4);
    return bytes;
  }();
  return pool.substr(seed * 7919 % 1'000'000, size);
}

struct File {
  std::uint64_t id;
  std::string name, bytes, folder = "";
  std::uint64_t udata = 1400, kind = 0;
  std::string path = name;  ///< at the sender

  std::uint32_t crc() const { return static_cast<std::uint32_t>(crc32_str(path)); }
  std::string header() const {
    return datagram(id, 0,
                    le(bytes.size(), 8) + le(~0ULL, 8) + le(udata, 4) + le(crc(), 4) + le(9, 8) +
                        le(kind, 2) + std::string(30, '\0') + name + '\0' +
                        (folder.empty() ? "" : folder + '\0') + '\0');
  }
  std::uint64_t parts() const { return (bytes.size() + udata - 21) / (udata - 20); }
  std::string part(std::uint64_t n) const {
    return datagram(id, n, bytes.substr((n - 1) * (udata - 20), udata - 20));
  }
  Strings pass(std::size_t headers = 1, std::uint64_t first = 1, std::uint64_t last = 9999) const {
    Strings sent(headers, header());
    for (; first <= std::min(last, parts()); ++first) sent.push_back(part(first));
    return sent;
  }
  std::string journal_line() const {
    char text[32];
    std::snprintf(text, sizeof text, "0000000009%08X0000%08X ", static_cast<unsigned>(id), crc());
    return text + path + "\n";
  }
};

inline std::vector<char*> to_argv(Strings& arguments) {
  std::vector<char*> argv;
  for (std::string& argument : arguments) argv.push_back(argument.data());
  argv.push_back(nullptr);
  return argv;
}

inline sockaddr_in from(const char* address, std::uint16_t port = 0) {
  return {AF_INET, htons(port), {inet_addr(address)}, {}};
}

// Of receive_test: what comes before and after each renaming and removal of the receiver,
// and the errno with which renamings fail, or 0.
extern std::function<void()> on_act;
extern int move_error;
extern std::optional<ino_t> read_only_folder;  ///< moves to it fail with EROFS

struct Receive : InFolder {
  Receive() {
    int ends[2];
    EXPECT_EQ(0, pipe2(ends, O_CLOEXEC | O_NONBLOCK));
    shown_to = Fd(ends[0]), shown_by = Fd(ends[1]);
    outlet = std::make_unique<Outlet>(shown_by.get());
    events = std::make_unique<Events>(true, *outlet, *outlet);
  }
  /// Anew; goes on with what an earlier one left.
  void start(const Strings& more = {}) {
    Strings arguments{"", "--json", "--into", into, "--metrics", root / "metrics"};
    arguments.insert(arguments.end(), more.begin(), more.end());
    if (!synced) arguments.push_back("--no-sync");
    stop();
    options = {};
    const int count = static_cast<int>(arguments.size());
    ASSERT_EQ(-1, parse_options(count, to_argv(arguments).data(), options));
    options.charset = "UTF-8";
    store = std::make_unique<Store>(options.store);
    ledger = Ledger::open(store->hidden_path() + "/ledger.sqlite", error);
    ASSERT_EQ("", store->error() + error);
    receiver =
        std::make_unique<Receiver>(receiver_settings(options), *store, *ledger, *events, now);
    receiver->resume(now);
  }
  void stop() { receiver.reset(), ledger.reset(), store.reset(); }
  void feed(const Strings& datagrams, const char* address = "127.0.0.1", std::uint16_t port = 0) {
    for (std::size_t at = 0; at < datagrams.size();) {
      std::vector<std::vector<unsigned char>> batch;  // so that a sanitizer knows their ends
      for (; at < datagrams.size() && batch.size() < 32; ++at) {
        const auto* bytes = reinterpret_cast<const unsigned char*>(datagrams[at].data());
        batch.emplace_back(bytes, bytes + datagrams[at].size());
        receiver->take(batch.back().data(), batch.back().size(), from(address, port), now);
      }
      receiver->end_batch();
    }
  }
  void pass_time(double seconds) {
    now.monotonic += seconds, now.real += seconds;
    receiver->tick(now, now, {});
  }
  /// The values of `key` in the events `event` so far, each with a space behind.
  std::string told(const std::string& event, const char* key) {
    std::string values;
    std::istringstream lines(console());
    for (std::string line; std::getline(lines, line);) {
      const auto json = nlohmann::json::parse(line);
      if (json["event"] == event) values += std::string(json[key]) + " ";
    }
    return values;
  }
  /// All that was told so far.
  const std::string& console() {
    char bytes[4096];
    for (ssize_t got; (got = read(shown_to.get(), bytes, sizeof bytes)) > 0; events->flush())
      shown.append(bytes, bytes + got);
    return shown;
  }
  /// The last record under the id.
  std::optional<TransferRecord> find(std::uint64_t id) const {
    std::optional<TransferRecord> found;
    for (const TransferRecord& each : ledger->all({})) {
      if (each.key.id == id) found = each;
    }
    return found;
  }
  bool program_told(const std::string& text) const { return contents(out).find(text) + 1 != 0; }
  bool metric_is(const std::string& name_and_value, const IntakeCounts& intake = {}) const {
    receiver->end(intake);
    return contents(root / "metrics").find("\ntarnwick_receive_" + name_and_value + "\n") + 1 != 0;
  }

  bool synced = false;
  Now now{1000, 1.8e9};
  std::string shown;
  Fd shown_to, shown_by;  ///< a pipe: no limit on files may stop it
  const fs::path into = root / "in", hidden = into / ".tarnwick", out = root / "out";
  Options options;
  std::unique_ptr<Outlet> outlet;
  std::unique_ptr<Events> events;
  std::unique_ptr<Store> store;
  std::unique_ptr<Ledger> ledger;
  std::unique_ptr<Receiver> receiver;
};
