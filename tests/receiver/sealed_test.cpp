// Files with seals: repaired, proved, and what is never taken for one.
#include <sys/stat.h>

#include "harness.h"
#include "seal/code.h"
#include "seal/digest.h"
#include "seal/keys.h"

namespace {

constexpr std::uint64_t kSealId = 0x900000000;

const std::array<unsigned char, 32> kSeed{1}, kOtherSeed{2};

/// The seal of `file` as its sender makes it; the parts of it can be changed before.
struct SealOf {
  explicit SealOf(const File& sealed, unsigned k = 0, unsigned r = 0)
      : file(sealed), key(std::make_unique<SigningKey>(kSeed)) {
    record.of = file.id;
    record.kind = static_cast<std::uint16_t>(file.kind);
    record.size = file.bytes.size();
    record.udata = static_cast<std::uint32_t>(file.udata);
    record.sent = 9;
    record.crc = file.crc();
    ContentDigest digest;
    digest.add(reinterpret_cast<const unsigned char*>(file.bytes.data()), file.bytes.size());
    record.b2 = digest.finish();
    record.mtime_s = 1'577'934'245, record.mtime_ns = 123'456'789;
    record.mode = 0640;
    record.path = TrueName{"文書", "дир"};
    if (r > 0) record.code = Code{k, r, file.parts()};
    name = seal_name(file.id);
  }

  std::string text() const {
    if (!forced.empty()) return forced;
    return sealed_text(record, key.get(), 60'000);
  }
  /// All its datagrams.
  Strings pass() const {
    std::string repair;
    if (record.code) {
      const auto part = static_cast<std::uint32_t>(file.udata - 20);
      const auto layout = CodeLayout::of(file.parts(), part, *record.code);
      WindowEncoder encoder(*layout);
      encoder.start(0);
      for (std::uint64_t n = 1; n <= file.parts(); ++n) {
        const std::string bytes = file.part(n).substr(20);
        encoder.add(reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size());
      }
      repair.assign(reinterpret_cast<const char*>(encoder.repair_part(0)), encoder.size());
    }
    const std::string names = name + '\0' + "/" + '\0' + text() + '\0' + '\0';
    Strings sent{datagram(id, 0,
                          le(repair.size() + more_size, 8) + le(~0ULL, 8) + le(file.udata, 4) +
                              le(crc ? *crc : file.crc(), 4) + le(sent_time, 8) + le(kind, 2) +
                              std::string(30, '\0') + names)};
    const File content{id, name, repair, "", file.udata};
    for (std::uint64_t n = 1; n <= content.parts(); ++n) sent.push_back(content.part(n));
    return sent;
  }

  File file;
  SealRecord record;
  std::unique_ptr<SigningKey> key;
  std::string name, forced;
  std::uint64_t id = kSealId, kind = 2, sent_time = 9, more_size = 0;
  std::optional<std::uint32_t> crc;
};

struct Sealed : Receive {
  Sealed() {
    for (const auto& [name, seed] : {std::pair{"k.pub", kSeed}, {"other.pub", kOtherSeed}}) {
      std::ofstream keys(root / name);
      const SigningKey key(seed);
      for (const unsigned byte : key.public_key()) {
        keys << "0123456789abcdef"[byte >> 4] << "0123456789abcdef"[byte & 15];
      }
    }
  }
  /// The datagrams of a pass without these parts.
  static Strings without(const File& file, const std::vector<std::uint64_t>& lost,
                         bool header = true) {
    Strings sent;
    if (header) sent.push_back(file.header());
    for (std::uint64_t n = 1; n <= file.parts(); ++n) {
      if (std::find(lost.begin(), lost.end(), n) == lost.end()) sent.push_back(file.part(n));
    }
    return sent;
  }
  const File file{7, "f", random_bytes(20 * 1380 + 5, 3), "in"};
  const Strings trusted{"--trust", root / "k.pub"};
};

TEST_F(Sealed, LostPartsComeBackOnceTheLineIsQuietAndTheDigestProvesThem) {
  start();
  feed(without(file, {1, 7, 20, 21}));
  feed(SealOf(file, 21, 4).pass());
  pass_time(0.5);
  pass_time(1.1);
  EXPECT_EQ("in/f ", told("delivered", "path"));
  EXPECT_EQ("signed ", told("delivered", "proof").substr(0, 7));
  EXPECT_TRUE(file.bytes == contents(into / "in/f"));
  EXPECT_EQ(4U, find(7)->repaired);
  EXPECT_TRUE(metric_is("repaired_parts_total 4"));
  EXPECT_TRUE(fs::is_empty(hidden / "parts"));
  const File more{8, "g", file.bytes};
  feed(without(more, {1, 2, 3, 4, 5}));
  SealOf seal(more, 21, 4);
  seal.id = kSealId + 1;
  feed({seal.pass()[0]});
  pass_time(1.1);
  start();  // which forgets what came of the seal, but its record
  feed(seal.pass());
  pass_time(1.1);
  EXPECT_FALSE(fs::exists(into / "g")) << "lacks more than came";
  feed({more.part(3)});  // late
  pass_time(1.1);
  EXPECT_TRUE(more.bytes == contents(into / "g"));
}

TEST_F(Sealed, ARecordStandsInForTheHeaderPacketsThatNeverCame) {
  start();
  const File small{9, "s", "few bytes"};
  feed(SealOf(small, 1, 4).pass());
  pass_time(1.1);
  EXPECT_EQ("few bytes", contents(into / "дир/文書"));
  SealOf seal(file, 21, 4);
  seal.id = kSealId + 1;
  feed(without(file, {2}, false));  // kept without a header packet
  feed(seal.pass());
  pass_time(1.1);
  EXPECT_TRUE(file.bytes == contents(into / "дир/文書 (1)")) << "another path's has the name";
  const File lost{10, "lost", random_bytes(50'000, 1)};
  SealOf of_lost(lost);
  of_lost.id = kSealId + 2;
  feed(of_lost.pass());
  pass_time(61);
  EXPECT_EQ("only its seal came ", told("incomplete", "why"));
  EXPECT_EQ(50'000U, find(10)->size);
}

TEST_F(Sealed, AFileIsProvedByTheRecordThatAnEarlierRunBelieved) {
  start(trusted);
  feed(without(file, {3})), feed(SealOf(file).pass()), pass_time(2);
  start(trusted);
  feed({file.part(3)}), pass_time(1.1);
  EXPECT_TRUE(file.bytes == contents(into / "дир/文書"));
}

TEST_F(Sealed, WhereASealIsRequiredNothingIsDeliveredThatItDoesNotProve) {
  start(trusted);
  feed(file.pass());
  pass_time(1.1);
  EXPECT_EQ("", told("delivered", "path"));
  const Strings seal = SealOf(file).pass();
  start(trusted);  // the file, and later the record, outlast a restart
  feed(seal);
  EXPECT_TRUE(file.bytes == contents(into / "дир/文書"));
  struct stat st {};
  ASSERT_EQ(0, stat((into / "дир/文書").c_str(), &st));
  EXPECT_EQ(0640U, st.st_mode & 0777);
  EXPECT_EQ(1'577'934'245, st.st_mtim.tv_sec);
  EXPECT_EQ(123'456'789, st.st_mtim.tv_nsec);

  const File unsealed{8, "unsealed", "x"}, changed{9, "changed", random_bytes(5000, 1)};
  feed(unsealed.pass());
  SealOf of_changed(changed);
  of_changed.id = kSealId + 1;
  File flipped = changed;
  flipped.bytes[4321] ^= 1;  // on the way, and the checksum of UDP with it
  feed(flipped.pass());
  feed(of_changed.pass());
  pass_time(61);
  EXPECT_EQ("its digest differs no seal ", told("incomplete", "why"));

  feed(file.pass(), "10.0.0.9", 5);  // played back, from elsewhere
  feed(seal, "10.0.0.9", 5);
  pass_time(1.1);
  EXPECT_FALSE(fs::exists(into / "дир/文書 (1)"));
  EXPECT_TRUE(metric_is("seals_total{outcome=\"unneeded\"} 1"));
}

TEST_F(Sealed, NoSealButASignedTrueAndFreshOneBringsAFileIn) {
  using Change = std::function<void(SealOf&)>;
  const auto rewrite = [](const char* from, const char* to) -> Change {
    return [=](SealOf& seal) {
      seal.forced = seal.text();
      seal.forced.replace(seal.forced.find(from), std::strlen(from), to);
    };
  };
  const std::pair<const char*, Change> attacks[] = {
      {"unsigned", [](SealOf& s) { s.key = nullptr; }},
      {"another key", [](SealOf& s) { s.key = std::make_unique<SigningKey>(kOtherSeed); }},
      {"another id", [](SealOf& s) { s.record.of = 8, s.name = seal_name(8); }},
      {"a name of another id", [](SealOf& s) { s.name = seal_name(8); }},
      {"no name", [](SealOf& s) { s.name = ""; }},
      {"another kind", [](SealOf& s) { s.record.kind = 1; }},
      {"a larger size", [](SealOf& s) { ++s.record.size; }},
      {"a smaller size", [](SealOf& s) { --s.record.size; }},
      {"another part size", [](SealOf& s) { s.record.udata = 1500; }},
      {"another time", [](SealOf& s) { s.record.sent = 10; }},
      {"another time in both", [](SealOf& s) { s.record.sent = 10, s.sent_time = 10; }},
      {"another path", [](SealOf& s) { s.record.crc ^= 1; }},
      {"another path in both", [](SealOf& s) { s.crc = s.record.crc ^= 1; }},
      {"another content", [](SealOf& s) { s.record.b2[0] ^= 1; }},
      {"another header time", [](SealOf& s) { s.sent_time = 8; }},
      {"another header path", [](SealOf& s) { s.crc = 1; }},
      {"repair parts of no code", [](SealOf& s) { s.more_size = 1380; }},
      {"signed, then another digest", rewrite("b2=", "b2=0")},
      {"signed, then another name", rewrite("name=%", "name=a%")},
      {"signed, then no name", rewrite("name=", "mane=")},
      {"signed, then another folder", rewrite("folder=", "folder=x")},
      {"signed, then another mode", rewrite("mode=0640", "mode=0666")},
      {"signed, then another time", rewrite("mtime=15", "mtime=16")},
      {"signed, then another version", rewrite("seal=1", "seal=2")},
      {"signed, then another key", rewrite("key=", "key=0")},
      {"signed, then a field more", rewrite(" sig=", " new=1 sig=")},
      {"signed, then a field twice", rewrite(" b2=", " kind=0 b2=")},
      {"signed, then another signature", rewrite("sig=", "sig=00")},
      {"text behind the signature", [](SealOf& s) { s.forced = s.text() + " x=1"; }},
      {"a cut signature", [](SealOf& s) { s.forced = s.text(), s.forced.pop_back(); }},
      {"a cut record", [](SealOf& s) { s.forced = s.text().substr(0, 50); }},
      {"no record", [](SealOf& s) { s.forced = "x"; }},
      {"blanks", rewrite(" kind", "  kind")},
      {"an ordinary kind of transfer", [](SealOf& s) { s.kind = 0; }},
      {"sent long ago",
       [](SealOf& s) {
         s.record.sent = -1'000'000;
         s.sent_time = static_cast<std::uint64_t>(s.record.sent);
       }},
  };
  for (const auto& [name, change] : attacks) {
    start(trusted);
    SealOf seal(file);
    change(seal);
    feed(file.pass());
    feed(seal.pass());
    pass_time(1.1);
    EXPECT_EQ("", told("delivered", "path")) << name;
    EXPECT_FALSE(fs::exists(into / "дир")) << name;
    stop(), fs::remove_all(into);
  }
  start({"--trust", root / "other.pub", "--trust", root / "k.pub", "--max-age", "1h"});
  feed(file.pass());
  feed(SealOf(file).pass());
  EXPECT_EQ("", told("delivered", "path")) << "older than an hour";
  pass_time(1.1);
  start(trusted);
  SealOf seal(file);
  seal.id = kSealId + 1;
  feed(seal.pass());
  EXPECT_TRUE(file.bytes == contents(into / "дир/文書")) << "the same without a change";
}

TEST_F(Sealed, AFileOfKeysThatIsOfNoUseEndsTheStart) {
  std::ofstream(root / "bad") << "not a key\n";
  for (const std::string path : {root / "bad", root / "none"}) {
    const ReceiverSettings settings = [&] {
      ReceiverSettings with;
      with.seals.trust = {path};
      return with;
    }();
    start();
    EXPECT_NE("", Receiver(settings, *store, *ledger, *events, now).error()) << path;
  }
}

}  // namespace
