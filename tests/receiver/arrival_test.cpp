// Files on their way in: their parts, their counts and what waits for a header packet.
#include "receiver/assemble/arrival.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <deque>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>

#include "receiver/assemble/arrivals.h"
#include "receiver/assemble/contested.h"
#include "receiver/assemble/settled_transfers.h"
#include "receiver/assemble/stash.h"

static std::size_t most_written;      // bytes of a call
static std::deque<int> write_errors;  // of the next calls; 0: none
static int writes;

ssize_t pwritev(int fd, const iovec* parts, int count, off_t at) {
  ++writes;
  int error = count > IOV_MAX ? EINVAL : 0;
  if (!write_errors.empty()) error = write_errors.front(), write_errors.pop_front();
  if (error != 0) return errno = error, -1;
  std::string bytes;
  for (int i = 0; i < count; ++i)
    bytes.append(static_cast<const char*>(parts[i].iov_base), parts[i].iov_len);
  return pwrite(fd, bytes.data(), std::min(bytes.size(), most_written), at);
}

namespace {

namespace fs = std::filesystem;

constexpr std::uint64_t kPart = 1380;
constexpr TransferKey kKey{1, 2, 3};

struct Arriving : testing::Test {
  Arriving() { most_written = SIZE_MAX, writes = 0, write_errors.clear(); }
  ~Arriving() override { fs::remove_all(root); }

  static TransferRecord record(std::uint64_t parts) {
    TransferRecord r;
    r.key = kKey, r.udata_size = 1400, r.parts = parts, r.size = parts * kPart - 7;
    r.path_crc = 5, r.send_time = 9, r.name = "f";
    return r;
  }
  static HeaderPacket header(std::uint64_t parts) {
    return {kKey.id, parts * kPart - 7, 1400, 5, 9, 0, "f", "d", ""};
  }
  /// The bytes of the file of `parts` parts.
  static const std::string& bytes_of(std::uint64_t parts) {
    static std::string bytes;
    for (std::size_t i = bytes.size(); i < parts * kPart - 7; ++i)
      bytes += static_cast<char>(i * 7 / 3);
    return bytes.resize(parts * kPart - 7), bytes;
  }
  static bool take(Arrival& arrival, std::uint64_t n, std::uint64_t last) {
    for (; n <= last; ++n) {
      const std::string& bytes = bytes_of(arrival.counts().parts);
      const auto* at = reinterpret_cast<const unsigned char*>(bytes.data()) + (n - 1) * kPart;
      if (!arrival.take_part({kKey.id, n, at, std::min(kPart, bytes.size() - (n - 1) * kPart)}))
        return false;
    }
    return true;
  }
  std::string stored() const {
    std::ostringstream all;
    all << std::ifstream(root / key_text(kKey), std::ios::binary).rdbuf();
    return all.str();
  }

  std::string made = fs::temp_directory_path() / "arrival_XXXXXX";
  const fs::path root = mkdtemp(made.data());
  PartFiles files{Fd(open(root.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC))};
};

TEST_F(Arriving, PartsAreStoredHoweverLittleTheDiskTakesAtOnce) {
  for (const std::size_t most : {std::size_t{1}, std::size_t{1379}, std::size_t{1380},
                                 std::size_t{1381}, std::size_t{3000}, SIZE_MAX}) {
    most_written = most, write_errors = {EINTR};
    Arrival arrival(record(4), files);
    EXPECT_TRUE(take(arrival, 1, 4));
    EXPECT_TRUE(arrival.is_complete()) << "the last one is written at once";
    EXPECT_EQ(0, arrival.write_error()) << most;
    EXPECT_TRUE(bytes_of(4) == stored()) << most;
    files.drop(kKey);
  }
}

TEST_F(Arriving, MorePartsThanOneCallTakesAreWrittenWithSeveral) {
  Arrival arrival(record(1301), files);
  EXPECT_TRUE(take(arrival, 1, 1300));
  arrival.flush();
  EXPECT_EQ(1300U, arrival.counts().received);
  EXPECT_EQ(3, writes);
  EXPECT_TRUE(bytes_of(1301).substr(0, 1300 * kPart) == stored());
}

TEST_F(Arriving, WhatCanNotBeWrittenStaysMissingAndIsCounted) {
  Arrival arrival(record(6), files);
  EXPECT_TRUE(take(arrival, 3, 3));
  arrival.flush();
  write_errors = {0, ENOSPC};
  EXPECT_TRUE(take(arrival, 2, 4));
  arrival.flush();
  EXPECT_EQ(1U, arrival.failed_parts());
  EXPECT_EQ(ENOSPC, arrival.write_error());
  EXPECT_EQ("1,4-6", arrival.record().missing);
  EXPECT_EQ(2U, arrival.counts().received);
  EXPECT_EQ(1U, arrival.counts().repeated);
  EXPECT_EQ(1U, arrival.holes());
  EXPECT_TRUE(take(arrival, 4, 6));
  EXPECT_FALSE(arrival.is_complete());
  EXPECT_TRUE(take(arrival, 1, 1));
  EXPECT_TRUE(arrival.is_complete());
  EXPECT_TRUE(bytes_of(6) == stored());
  EXPECT_TRUE(take(arrival, 2, 3));
  EXPECT_EQ(1U, arrival.counts().repeated) << "no hurry with what is known";
  arrival.flush();
  EXPECT_EQ(3U, arrival.counts().repeated);
  EXPECT_EQ(0U, arrival.counts().differing);
}

TEST_F(Arriving, TakesNothingThatIsAtOddsWithTheFirstHeaderPacket) {
  Arrival arrival(record(3), files);
  EXPECT_FALSE(arrival.was_announced());
  EXPECT_TRUE(arrival.take_header(header(3)));
  EXPECT_TRUE(arrival.was_announced());
  EXPECT_FALSE(files.has(kKey)) << "no file before its first part";
  const std::function<void(HeaderPacket&)> changes[] = {
      [](auto& h) { ++h.size; },      [](auto& h) { ++h.udata_size; },
      [](auto& h) { ++h.path_crc; },  [](auto& h) { ++h.send_time; },
      [](auto& h) { ++h.file_kind; }, [](auto& h) { h.name = "g"; },
      [](auto& h) { h.folder = ""; }, [](auto& h) { h.name = "fd", h.folder = ""; }};
  for (const auto& change : changes) {
    HeaderPacket other = header(3);
    change(other);
    EXPECT_FALSE(arrival.take_header(other)) << &change - changes;
  }
  const unsigned char bytes[2000] = {};
  for (const auto& [n, size] : {std::pair{1U, 1379U}, {1U, 1381U}, {3U, 1380U}, {4U, 1380U}})
    EXPECT_FALSE(arrival.take_part({kKey.id, n, bytes, size})) << n << " " << size;
  EXPECT_TRUE(arrival.take_part({kKey.id, 3, bytes, 1373}));
}

TEST_F(Arriving, APassBeginsWithAHeaderPacketOrFarBack) {
  using Counts = std::vector<std::uint64_t>;
  Arrival arrival(record(10), files);
  for (int pass = 0; pass < 2; ++pass) {
    EXPECT_TRUE(take(arrival, 1, 8));
    EXPECT_TRUE(arrival.take_header(header(10)));
  }
  EXPECT_TRUE(take(arrival, 4, 9));
  EXPECT_TRUE(take(arrival, 5, 5));  // late
  EXPECT_TRUE(take(arrival, 1, 2));  // the next one, whose header packets are lost
  arrival.flush();
  EXPECT_EQ((Counts{8, 0, 1}), arrival.counts().received_per_pass);
  EXPECT_EQ((Counts{0, 8, 6, 2}), arrival.counts().repeated_per_pass);
  for (int pass = 0; pass < 99; ++pass) {
    EXPECT_TRUE(take(arrival, 8, 8));
    EXPECT_TRUE(arrival.take_header(header(10)));
  }
  EXPECT_EQ(64U, arrival.counts().repeated_per_pass.size());
}

TEST_F(Arriving, GoesOnWhereAnEarlierRunEnded) {
  for (const auto& [missing, holes, left] :
       {std::tuple{"3,8-10", 1U, 4U}, {"3", 1U, 1U}, {"1-10", 0U, 10U}, {"x", 0U, 10U}}) {
    TransferRecord before = record(10);
    before.missing = missing;
    const Arrival arrival = Arrival::resumed(before, files);
    EXPECT_EQ(holes, arrival.holes()) << missing;
    EXPECT_EQ(left, arrival.missing().count()) << missing;
  }
}

TEST_F(Arriving, SumsChangesAndTurnsAreThoseOfAllArrivals) {
  Arrivals all;
  for (std::uint64_t id = 1; id <= 3; ++id) {
    TransferRecord r = record(10);
    r.key = {id, static_cast<std::uint32_t>(id / 3), 0};
    all.add(Arrival(r, files));
  }
  EXPECT_EQ(30U, all.sums().missing);
  EXPECT_EQ(2U, all.growing_from(0));
  EXPECT_TRUE(all.changed(9).empty()) << "nothing has come yet";
  Arrival& first = *all.find({1, 0, 0});
  EXPECT_TRUE(take(first, 1, 2));
  first.flush();
  all.note_packet(first, {5, 6});
  EXPECT_EQ(28U, all.sums().missing);
  EXPECT_EQ(2 * kPart, all.sums().promised);
  EXPECT_EQ(2U, all.most_silent()->key().id);
  EXPECT_EQ(2U, all.most_silent_from(0)->key().id);
  EXPECT_TRUE(all.has_changes());
  EXPECT_TRUE(all.changed(0).empty());
  const auto changed = all.changed(9);
  ASSERT_EQ(1U, changed.size());
  EXPECT_EQ(6, changed[0].last_packet);
  EXPECT_TRUE(all.changed(9).empty());
  all.not_saved(changed);
  EXPECT_EQ(1U, all.changed(9).size());
  all.all_changed();
  EXPECT_EQ(1U, all.changed(9).size());
  all.set_aside(first, 10);
  EXPECT_TRUE(all.is_aside({1, 0, 0}));
  EXPECT_EQ(1U, all.growing_from(0));
  EXPECT_EQ(nullptr, all.due(9.9));
  EXPECT_EQ(&first, all.due(10));
  all.note_packet(first, {11, 12});
  EXPECT_FALSE(all.is_aside({1, 0, 0})) << "more may come";
  EXPECT_EQ(2U, all.growing_from(0));
  EXPECT_TRUE(take(first, 3, 10));
  all.set_aside(first, 10);
  all.note_packet(first, {11, 12});
  EXPECT_TRUE(all.is_aside({1, 0, 0})) << "it is whole";
  EXPECT_TRUE(take(*all.find({2, 0, 0}), 1, 1));
  all.find({2, 0, 0})->flush();
  for (const std::uint64_t id : {1U, 1U, 2U}) all.erase({id, 0, 0});
  EXPECT_EQ(10U, all.sums().missing);
  EXPECT_EQ(0U, all.sums().promised);
  EXPECT_EQ(0U, all.growing_from(0));
  EXPECT_EQ(nullptr, all.most_silent_from(0));
  EXPECT_EQ(1U, all.growing() + all.aside());
}

TEST(Stash, ForgetsTheOldestPartsOfTheMostSilentAndHasItsRoomBack) {
  Stash stash(3000);
  const std::string bytes(600, 'x');
  const auto put = [&](std::uint64_t id, std::uint64_t n, double now) {
    stash.put({id, 0, 0}, {id, n, reinterpret_cast<const unsigned char*>(bytes.data()), 600}, now);
  };
  const auto take = [&](std::uint64_t id) {
    std::string parts;
    for (const Stash::Part& part : stash.take({id, 0, 0})) {
      EXPECT_EQ(bytes, std::string(part.bytes.begin(), part.bytes.end()));
      parts += std::to_string(part.part_no) + " ";
    }
    return parts;
  };
  for (int round = 0; round < 9; ++round) {  // as full each time
    put(1, 7, 0), put(1, 6, 0), put(1, 5, 0);
    EXPECT_EQ("7 6 5 ", take(1)) << round;
    put(1, 1, 0), put(2, 1, 0);
    EXPECT_EQ("1 ", take(1));
    EXPECT_EQ("1 ", take(2));
  }
  EXPECT_EQ("", take(1));
  EXPECT_EQ(0U, stash.forgotten());
  put(1, 1, 0), put(1, 2, 0), put(1, 3, 0), put(1, 4, 0);
  EXPECT_EQ(1U, stash.forgotten());
  put(2, 1, 0), put(1, 5, 0), put(1, 6, 0);  // 2 is the most silent now
  EXPECT_EQ("", take(2));
  EXPECT_EQ("4 5 6 ", take(1));
  const std::uint64_t forgotten = stash.forgotten();
  put(1, 1, 0), put(2, 1, 5), put(1, 2, 8);
  stash.expire(13, 5);
  EXPECT_EQ(forgotten + 1, stash.forgotten());
  EXPECT_EQ("", take(2));
  EXPECT_EQ("1 2 ", take(1)) << "not longer than 5 s";
}

TEST(KeptKeys, AreForgottenInTimeOrForNewerOnes) {
  Contested contested;
  contested.add({1}, 10);
  EXPECT_FALSE(contested.hear({2}, 11));
  EXPECT_TRUE(contested.hear({1}, 11));
  contested.expire(16, 5);
  EXPECT_TRUE(contested.hear({1}, 11));
  contested.expire(16.1, 5);
  EXPECT_FALSE(contested.hear({1}, 11));
  for (std::uint64_t id = 0; id <= Contested::kMost; ++id) contested.add({id}, 0);
  std::size_t kept = 0;
  for (std::uint64_t id = 0; id <= Contested::kMost; ++id) kept += contested.hear({id}, 0) ? 1 : 0;
  EXPECT_EQ(Contested::kMost, kept);
  SettledTransfers settled;
  for (std::uint64_t id = 0; id <= SettledTransfers::kMost; ++id) settled.add({id}, id);
  EXPECT_FALSE(settled.has({0}));
  EXPECT_TRUE(settled.has({1}, 1));
  EXPECT_FALSE(settled.has({1}, 2));
  settled.add({1}, 2);
  EXPECT_TRUE(settled.has({1}, 2));
  settled.forget({1});
  EXPECT_FALSE(settled.has({1}));
}

}  // namespace
