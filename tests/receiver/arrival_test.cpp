// Files on their way in: their parts, their counts and what waits for a header packet.
#include "receiver/assemble/arrival.h"

#include <fcntl.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <deque>
#include <functional>

#include "receiver/assemble/arrivals.h"
#include "receiver/assemble/contested.h"
#include "receiver/assemble/settled_transfers.h"
#include "receiver/assemble/stash.h"
#include "tests/receiver/folder.h"

static std::size_t most_written;      // bytes of a call
static std::deque<int> write_errors;  // of the next calls; 0: none

ssize_t pwritev(int fd, const iovec* parts, int count, off_t at) {
  int error = count > IOV_MAX ? EINVAL : 0;
  if (!write_errors.empty()) error = write_errors.front(), write_errors.pop_front();
  if (error != 0) return errno = error, -1;
  std::string bytes;
  for (int i = 0; i < count; ++i)
    bytes.append(static_cast<const char*>(parts[i].iov_base), parts[i].iov_len);
  return pwrite(fd, bytes.data(), std::min(bytes.size(), most_written), at);
}

namespace {

constexpr std::uint64_t kPart = 1380;
constexpr TransferKey kKey{1, 2, 3};

struct Arriving : InFolder {
  Arriving() { most_written = SIZE_MAX, write_errors.clear(); }

  static TransferRecord record(std::uint64_t parts) {
    return begin_record(header(parts), kKey, "UTF-8", "", 0);
  }
  static HeaderPacket header(std::uint64_t parts) {
    return {kKey.id, parts * kPart - 7, 1400, 5, 9, 0, "f", "d", ""};
  }
  /// The bytes of the file of `parts` parts.
  static std::string bytes_of(std::uint64_t parts) {
    std::string bytes;
    while (bytes.size() < parts * kPart - 7) bytes += static_cast<char>(bytes.size() * 7 / 3);
    return bytes;
  }
  static bool take(Arrival& arrival, std::uint64_t n, std::uint64_t last) {
    static const std::string bytes = bytes_of(1301);
    for (; n <= last; ++n) {
      const auto* at = reinterpret_cast<const unsigned char*>(bytes.data()) + (n - 1) * kPart;
      const std::uint64_t length = n == arrival.counts().parts ? kPart - 7 : kPart;
      if (!arrival.take_part({kKey.id, n, at, length})) return false;
    }
    return true;
  }
  std::string stored() const { return contents(root / key_text(kKey)); }

  PartFiles files{Fd(open(root.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC))};
};

TEST_F(Arriving, PartsAreStoredHoweverLittleTheDiskTakesAtOnce) {
  const std::string bytes = bytes_of(1301);
  for (const std::size_t most : {std::size_t{700}, std::size_t{1379}, std::size_t{1380},
                                 std::size_t{1381}, std::size_t{3000}, SIZE_MAX}) {
    most_written = most, write_errors = {EINTR};
    Arrival arrival(record(1301), files);  // more parts than one call takes
    EXPECT_TRUE(take(arrival, 1, 1301));
    EXPECT_TRUE(arrival.is_complete()) << "the last one is written at once";
    EXPECT_EQ(0, arrival.write_error()) << most;
    EXPECT_TRUE(bytes == stored()) << most;
    files.drop(kKey);
  }
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

/// Three files of ten parts, the last one from an address of its own.
struct Several : Arriving {
  Several() { bring(first, 1, 2); }
  Arrivals three() {
    Arrivals three;
    for (const TransferKey key : {TransferKey{1, 0, 0}, {2, 0, 0}, {3, 1, 0}}) {
      TransferRecord r = record(10);
      r.key = key;
      three.add(Arrival(r, files));
    }
    return three;
  }
  void bring(Arrival& arrival, std::uint64_t from, std::uint64_t to) {
    EXPECT_TRUE(take(arrival, from, to));
    arrival.flush();
    all.note_packet(arrival, {5, 6});
  }
  Arrivals all = three();
  Arrival &first = *all.find({1}), &second = *all.find({2});
};

TEST_F(Several, HaveTheSumsOfEachAndAreSavedOnceForEachChange) {
  EXPECT_EQ(28U, all.sums().missing);
  EXPECT_EQ(2 * kPart, all.sums().promised) << "no more than came";
  EXPECT_TRUE(all.changed(0).empty());
  const auto changed = all.changed(9);
  ASSERT_EQ(1U, changed.size()) << "nothing has come of the others";
  EXPECT_EQ(6, changed[0].last_packet);
  EXPECT_TRUE(all.changed(9).empty());
  all.not_saved(changed);
  EXPECT_EQ(1U, all.changed(9).size());
  all.all_changed();
  EXPECT_EQ(1U, all.changed(9).size());
  EXPECT_TRUE(take(second, 1, 1));
  second.flush();
  for (const std::uint64_t id : {1U, 1U, 2U}) all.erase({id});
  EXPECT_EQ(10U, all.sums().missing);
  EXPECT_EQ(0U, all.sums().promised);
  EXPECT_EQ(nullptr, all.most_silent_from(0));
  EXPECT_EQ(1U, all.growing() + all.aside());
}

TEST_F(Several, GrowOrWaitInTurn) {
  EXPECT_EQ(&second, all.most_silent());
  EXPECT_EQ(&second, all.most_silent_from(0));
  all.set_aside(first, 10);
  EXPECT_EQ(1U, all.growing_from(0));
  EXPECT_EQ(nullptr, all.due(9.9));
  EXPECT_EQ(&first, all.due(10));
  bring(first, 3, 3);
  EXPECT_FALSE(all.is_aside({1})) << "more may come";
  EXPECT_EQ(2U, all.growing_from(0));
  EXPECT_TRUE(take(first, 4, 10));
  for (Arrival* each : {&first, &second, &first}) all.set_aside(*each, 10);
  EXPECT_EQ(&second, all.due(10)) << "behind those that are aside";
  bring(first, 1, 1);
  EXPECT_TRUE(all.is_aside({1})) << "it is whole";
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
    for (const std::uint64_t n : {7U, 6U, 5U}) put(1, n, 0);
    EXPECT_EQ("7 6 5 ", take(1)) << round;
    for (const std::uint64_t id : {1U, 2U}) put(id, 1, 0);
    EXPECT_EQ("1 1 ", take(1) + take(2)) << round;
  }
  EXPECT_EQ(0U, stash.forgotten());
  for (const std::uint64_t n : {1U, 2U, 3U, 4U}) put(1, n, 0);
  EXPECT_EQ(1U, stash.forgotten());
  put(2, 1, 0);
  for (const std::uint64_t n : {5U, 6U}) put(1, n, 0);  // 2 is the most silent now
  EXPECT_EQ("", take(2));
  EXPECT_EQ("4 5 6 ", take(1));
  const std::uint64_t forgotten = stash.forgotten();
  put(1, 1, 0), put(2, 1, 5), put(1, 2, 8);
  stash.expire(13, 5);
  EXPECT_EQ(forgotten + 1, stash.forgotten());
  EXPECT_EQ("", take(2));
  EXPECT_EQ("1 2 ", take(1)) << "not longer than 5 s";
}

TEST(KeptKeys, AreForgottenForNewerOnes) {
  Contested contested;
  std::size_t kept = 0;
  for (std::uint64_t id = 0; id <= Contested::kMost; ++id) contested.add({id}, 0);
  for (std::uint64_t id = 0; id <= Contested::kMost; ++id) kept += contested.hear({id}, 0) ? 1 : 0;
  EXPECT_EQ(Contested::kMost, kept);
  SettledTransfers settled;
  for (std::uint64_t id = 0; id <= SettledTransfers::kMost; ++id) settled.add({id}, id);
  EXPECT_FALSE(settled.has({0}));
  EXPECT_TRUE(settled.has({1}, 1));
  settled.add({1}, 2);
  EXPECT_TRUE(settled.has({1}, 2));
}

}  // namespace
