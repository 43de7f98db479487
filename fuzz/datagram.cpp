// Datagrams, each behind two bytes with its length, through a receiver of their own.
#include <cstdlib>
#include <filesystem>
#include <iostream>

#include "receiver/receiver.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::string error, made = std::filesystem::temp_directory_path() / "fuzz_XXXXXX";
  const std::filesystem::path root = mkdtemp(made.data());
  Options options;
  options.store.into = root / "in";
  options.store.sync = false;
  options.charset = "UTF-8";
  options.max_transfers = 4;
  Store store(options.store);
  const auto ledger = Ledger::open(store.hidden_path() + "/ledger.sqlite", error);
  std::cout.rdbuf(nullptr);
  Events events(true);
  Receiver receiver(options, store, *ledger, events);
  std::vector<std::vector<unsigned char>> datagrams;  // by itself, each: its end is known
  while (size > 2) {
    const std::size_t length = std::min<std::size_t>(size - 2, data[0] + 256U * data[1]);
    datagrams.emplace_back(data + 2, data + 2 + length);
    receiver.take(datagrams.back().data(), length, {});
    data += 2 + length, size -= 2 + length;
  }
  receiver.end_batch();
  receiver.end(0);
  if (std::distance(std::filesystem::directory_iterator(root), {}) != 1) std::abort();
  std::filesystem::remove_all(root);
  return 0;
}
