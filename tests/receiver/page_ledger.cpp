// Writes a ledger of invented transfers for looking at the page: page_ledger FILE COUNT
#include <cstdlib>
#include <random>

#include "receiver/ledger/ledger.h"

namespace {

std::mt19937_64 dice(1);  // the same ledger every time

/// Spread over two days, with more loss around noon of the second one.
TransferRecord invented(std::uint64_t number, std::uint64_t count) {
  const std::uint64_t share = 1000 * number / count;
  const std::uint64_t lost = dice() % 100 < (share / 50 == 14 ? 60 : 2) ? 1 + dice() % 500 : 0;
  TransferRecord r;
  r.key = {number, 0x7F000001, 4000}, r.source = "127.0.0.1:4000";
  r.udata_size = 1400, r.parts = 2000, r.size = r.parts * 1380 - dice() % 1380;
  r.path_crc = static_cast<std::uint32_t>(number % (count * 9 / 10));
  r.folder = "site1/данные", r.name = "измерение " + std::to_string(r.path_crc) + ".csv";
  if (number % 97 == 0) r.name += "</bdi><script>alert(1)</script>&amp;\"'\x1B[2J\xE2\x80\xAE";
  r.first_packet = 1.79e9 + 172.8 * static_cast<double>(share), r.last_packet = r.first_packet + 2;
  r.received = r.parts, r.received_per_pass = {r.parts - lost, lost};
  r.repeated_per_pass = {0, r.parts - lost};
  r.outcome = Outcome::kDelivered, r.asked_for = r.lies_at = r.folder + "/" + r.name;
  r.collided = number % 200 == 0;
  if (lost % 3 == 1) r.outcome = Outcome::kIncomplete, r.why = "silent", r.missing = "1,3-5";
  if (number % 500 == 7) r.outcome = Outcome::kRefused, r.why = "larger than --max-file-size";
  return r;
}

}  // namespace

int main(int argc, char** argv) {
  std::string error;
  const auto ledger = argc == 3 ? Ledger::open(argv[1], error) : nullptr;
  if (!ledger) return EXIT_FAILURE;
  const std::uint64_t count = std::strtoull(argv[2], nullptr, 10);
  ledger->begin();
  for (std::uint64_t i = 0; i < count; ++i) (void)ledger->save(invented(i, count));
  // CRC-32/JAMCRC of the path
  (void)ledger->add_journal({{1790000000, 1, 0x340BC6D9, "123456789", 0}});
  return ledger->commit().empty() ? EXIT_SUCCESS : EXIT_FAILURE;
}
