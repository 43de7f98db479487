// Datagrams, each behind two bytes with its length, through a whole receiver. Folders and
// ledger are one for all runs; a run leaves nothing in them.
#include <filesystem>

#include "fuzz/target.h"
#include "receiver/receiver.h"

namespace fs = std::filesystem;

namespace {

/// What outlasts a run.
struct House {
  House() {
    folders.into = root / "in";
    folders.sync = false;
    store.emplace(folders);
    std::string error;
    ledger = Ledger::open(store->hidden_path() + "/ledger.sqlite", error);
    check(store->error().empty() && ledger != nullptr);
  }
  ~House() { fs::remove_all(root); }
  House(const House&) = delete;
  House& operator=(const House&) = delete;

  /// Deletes what the run delivered, with its records.
  void tidy() {
    for (const auto& entry : fs::directory_iterator(root / "in")) {
      if (entry.path().filename() != kHidden) fs::remove_all(entry.path());
    }
    for (const char* name : {"journals", "incomplete"}) {
      for (const auto& entry : fs::directory_iterator(root / "in" / kHidden / name)) {
        fs::remove(entry.path());
      }
    }
    check(fs::is_empty(root / "in" / kHidden / "parts"));
    check(std::distance(fs::directory_iterator(root), {}) == 1);  // nothing outside
    (void)ledger->prune(1e300, 10'000);
    check(ledger->all({}).empty());
  }

  static constexpr char kHidden[] = ".tarnwick";
  std::string made = fs::temp_directory_path() / "fuzz_XXXXXX";
  fs::path root = mkdtemp(made.data());
  StoreOptions folders;
  std::optional<Store> store;
  std::unique_ptr<Ledger> ledger;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static House house;
  ReceiverSettings settings;
  settings.charset = "UTF-8";
  settings.max_transfers = 4;
  Outlet nowhere(-1);
  Events events(true, nowhere, nowhere);
  Receiver receiver(settings, *house.store, *house.ledger, events, {});
  std::vector<std::vector<unsigned char>> datagrams;  // by itself, each: its end is known
  while (size > 2) {
    const std::size_t length = std::min<std::size_t>(size - 2, data[0] + 256U * data[1]);
    datagrams.emplace_back(data + 2, data + 2 + length);
    receiver.take(datagrams.back().data(), length, {}, {});
    data += 2 + length, size -= 2 + length;
  }
  receiver.end_batch();
  for (const double later : {2., 99., 200.}) {  // seals are examined, then all is given up
    receiver.tick({later, later}, {later, later}, {});
  }
  receiver.end({});
  house.tidy();
  return 0;
}
