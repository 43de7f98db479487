// Writes a ledger of invented transfers for looking at the page: page_ledger FILE COUNT
#include <cstdlib>
#include <iostream>
#include <random>

#include "receiver/ledger/ledger.h"

namespace {

std::mt19937_64 dice(1);  // the same ledger every time

std::uint64_t roll(std::uint64_t sides) { return dice() % sides; }

/// Spread over two days, with more loss around noon of the second one.
TransferRecord invented(std::uint64_t number, std::uint64_t count) {
  const double share = static_cast<double>(number) / static_cast<double>(count);
  const std::uint64_t noon = share > 0.7 && share < 0.75 ? 60 : 2;
  TransferRecord r;
  r.key = {number, 0x7F000001, 4000};
  r.source = "127.0.0.1:4000";
  r.udata_size = 1400, r.parts = 1 + roll(3000), r.size = r.parts * 1380 - roll(1380);
  r.path_crc = static_cast<std::uint32_t>(number % (count * 9 / 10));
  r.folder = "site1/данные", r.name = "измерение " + std::to_string(r.path_crc) + ".csv";
  if (number % 97 == 0) r.name += "</bdi><script>alert(1)</script>&amp;\"'\x1B[2J\xE2\x80\xAE";
  r.first_packet = 1.79e9 + 172800 * share, r.last_packet = r.first_packet + 2;
  const std::uint64_t lost = roll(100) < noon ? roll(r.parts / 5 + 1) : 0;
  r.received = r.parts, r.received_per_pass = {r.parts - lost}, r.repeated_per_pass = {0};
  if (lost > 0) r.received_per_pass.push_back(lost), r.repeated_per_pass.push_back(r.parts - lost);
  r.outcome = Outcome::kDelivered, r.asked_for = r.lies_at = r.folder + "/" + r.name;
  r.delivered_to = "/srv/in/" + r.lies_at;
  if (roll(200) == 0) r.lies_at += " (1)", r.collided = true;
  if (lost > 1 && roll(3) == 0) {
    r.outcome = Outcome::kIncomplete, r.why = "nothing came for 60 s", r.received -= lost / 2;
    r.received_per_pass.back() -= lost / 2;
    for (std::uint64_t i = 0; i < lost / 2; ++i) {
      r.missing += (i > 0 ? "," : "") + std::to_string(2 * i + 1);
    }
  } else if (roll(500) == 0) {
    r.outcome = Outcome::kRefused, r.why = "larger than --max-file-size", r.received = 0;
    r.received_per_pass = r.repeated_per_pass = {}, r.missing = "", r.delivered_to = "";
  }
  return r;
}

}  // namespace

int main(int argc, char** argv) {
  std::string error;
  const auto ledger = argc == 3 ? Ledger::open(argv[1], error) : nullptr;
  if (!ledger) return std::cerr << error << "\n", EXIT_FAILURE;
  const std::uint64_t count = std::strtoull(argv[2], nullptr, 10);
  ledger->begin();
  for (std::uint64_t i = 0; i < count; ++i) (void)ledger->save(invented(i, count));
  // CRC-32/JAMCRC of the path
  (void)ledger->add_journal({{1790000000, 1, 0x340BC6D9, "123456789", 0}});
  error = ledger->commit();
  return error.empty() ? EXIT_SUCCESS : (std::cerr << error << "\n", EXIT_FAILURE);
}
