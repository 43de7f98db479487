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
  /// With `r` repair parts, or without a code.
  explicit SealOf(const File& sealed, unsigned r = 0)
      : file(sealed),
        key(std::make_unique<SigningKey>(kSeed)),
        own{kSealId + file.id, seal_name(file.id), "", "", file.udata, 2, file.path} {
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
    if (r > 0) add_code(r);
  }
  void add_code(unsigned r) {
    record.code = Code{static_cast<unsigned>(file.parts()), r, file.parts()};
    const auto part = static_cast<std::uint32_t>(file.udata - 20);
    WindowEncoder encoder(*CodeLayout::of(file.parts(), part, *record.code));
    encoder.start(0);
    for (std::uint64_t n = 1; n <= file.parts(); ++n) {
      const std::string bytes = file.part(n).substr(20);
      encoder.add(reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size());
    }
    own.bytes.assign(reinterpret_cast<const char*>(encoder.repair_part(0)), encoder.size());
  }
  std::string text() const {
    return forced.empty() ? sealed_text(record, key.get(), 60'000) : forced;
  }
  /// All its datagrams.
  Strings pass() {
    own.folder = std::string("/") + '\0' + text();
    Strings sent = own.pass();
    sent[0].replace(44, 8, le(sent_time, 8));
    return sent;
  }

  const File file;
  SealRecord record;
  std::unique_ptr<SigningKey> key;
  std::string forced;
  File own;  ///< its own transfer
  std::uint64_t sent_time = 9;
};

struct Sealed : Receive {
  Sealed() {
    for (const auto& [name, seed] : {std::pair{"k.pub", kSeed}, {"other.pub", kOtherSeed}}) {
      std::ofstream keys(root / name);
      const SigningKey key(seed);
      for (const unsigned byte : key.public_key()) keys << std::hex << byte / 16 << byte % 16;
    }
  }
  /// The datagrams of a pass without these, in order: 0 is the header packet.
  static Strings without(const File& file, const std::vector<std::ptrdiff_t>& lost) {
    Strings sent = file.pass();
    for (auto each = lost.rbegin(); each != lost.rend(); ++each) sent.erase(sent.begin() + *each);
    return sent;
  }
  const File file{7, "f", random_bytes(20 * 1380 + 5, 3), "in"};
  const Strings trusted{"--trust", root / "k.pub"};
};

TEST_F(Sealed, LostPartsComeBackOnceTheLineIsQuietAndTheDigestProvesThem) {
  start();
  feed(without(file, {1, 7, 20, 21}));
  feed(SealOf(file, 4).pass());
  EXPECT_EQ("in/f ", told("delivered", "path"));
  EXPECT_EQ("signed ", told("delivered", "proof").substr(0, 7));
  EXPECT_TRUE(file.bytes == contents(into / "in/f"));
  EXPECT_EQ(4U, find(7)->repaired);
  EXPECT_TRUE(metric_is("repaired_parts_total 4"));
  EXPECT_TRUE(metric_is("seals_total{outcome=\"proved\"} 1"));
  EXPECT_TRUE(fs::is_empty(hidden / "parts"));
  const File more{8, "g", file.bytes};
  feed(without(more, {1, 2, 3, 4, 5}));
  SealOf seal(more, 4);
  feed({seal.pass()[0]});
  pass_time(1.1);
  start();  // which forgets what came of the seal, but its record
  feed(seal.pass());
  pass_time(1.1);
  EXPECT_FALSE(fs::exists(into / "g")) << "lacks more than came";
  feed({more.part(3)});  // late
  pass_time(0.9);
  EXPECT_FALSE(fs::exists(into / "g")) << "the others may come, too";
  pass_time(0.2);
  EXPECT_TRUE(more.bytes == contents(into / "g"));
}

TEST_F(Sealed, ARecordStandsInForTheHeaderPacketsThatNeverCame) {
  start();
  feed(SealOf(File{9, "s", "few bytes"}, 4).pass());
  pass_time(1.1);
  EXPECT_EQ("few bytes", contents(into / "дир/文書"));
  feed(without(file, {0, 2}));  // kept without a header packet
  feed(SealOf(file, 4).pass());
  pass_time(1.1);
  EXPECT_TRUE(file.bytes == contents(into / "дир/文書 (1)")) << "another path's has the name";
  feed(SealOf(File{10, "lost", random_bytes(50'000, 1)}).pass());
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

  const File changed{9, "changed", random_bytes(5000, 1)};
  File flipped = changed;
  flipped.bytes[4321] ^= 1;  // on the way, and the checksum of UDP with it
  feed(File{8, "unsealed", "x"}.pass());
  feed(flipped.pass());
  feed(SealOf(changed).pass());
  pass_time(61);
  EXPECT_EQ("its digest differs no seal ", told("incomplete", "why"));
  EXPECT_TRUE(metric_is("seals_total{outcome=\"differing\"} 1"));

  feed(file.pass(), "10.0.0.9", 5);  // played back, from elsewhere
  feed(seal, "10.0.0.9", 5);
  pass_time(1.1);
  EXPECT_FALSE(fs::exists(into / "дир/文書 (1)"));
  EXPECT_TRUE(metric_is("seals_total{outcome=\"unneeded\"} 1"));
  EXPECT_EQ("played back: it was delivered before ", told("refused", "why"));
}

TEST_F(Sealed, NoSealButASignedTrueAndFreshOneBringsAFileIn) {
  using Attack = std::pair<const char*, std::function<void(SealOf&)>>;
  const std::pair<const char*, std::vector<Attack>> refused[] = {
      {"seal: it is not signed ", {{"unsigned", [](SealOf& s) { s.key = nullptr; }}}},
      {"seal: its signature does not hold ",
       {{"signed, then another mode",
         [](SealOf& s) {
           s.forced = s.text();
           s.forced.replace(s.forced.find("mode=0640"), 9, "mode=0666");
         }}}},
      {"seal: its record is malformed ",
       {{"text behind the signature", [](SealOf& s) { s.forced = s.text() + " x=1"; }},
        {"no record", [](SealOf& s) { s.forced = "x"; }}}},
      {"seal: its header packet and its record differ ",
       {{"a name of another id", [](SealOf& s) { s.own.name = seal_name(8); }},
        {"another part size", [](SealOf& s) { s.record.udata = 1500; }},
        {"another time", [](SealOf& s) { s.record.sent = 10; }},
        {"another path", [](SealOf& s) { s.record.crc ^= 1; }},
        {"repair parts of no code", [](SealOf& s) { s.own.bytes = "x"; }}}},
      {"seal: its file's header packet says something else ",
       {{"another kind", [](SealOf& s) { s.record.kind = 1; }},
        {"another size", [](SealOf& s) { ++s.record.size; }},
        {"another part size", [](SealOf& s) { s.record.udata = 1500, s.own.udata = 1500; }},
        {"another time", [](SealOf& s) { s.record.sent = 10, s.sent_time = 10; }},
        {"another path", [](SealOf& s) { s.own.path = "x", s.record.crc = s.own.crc(); }}}},
      {"",
       {{"another id", [](SealOf& s) { s.record.of = 8, s.own.name = seal_name(8); }},
        {"another content", [](SealOf& s) { s.record.b2[0] ^= 1; }},
        {"an ordinary kind of transfer", [](SealOf& s) { s.own.kind = 0; }}}},
  };
  for (const auto& [why, attacks] : refused) {
    for (const auto& [name, change] : attacks) {
      SCOPED_TRACE(std::string(why) + name);
      start(trusted);
      SealOf seal(file);
      change(seal);
      feed(file.pass());
      feed(seal.pass());
      pass_time(1.1);
      EXPECT_EQ("", told("delivered", "path"));
      EXPECT_FALSE(fs::exists(into / "дир"));
      EXPECT_EQ(why, told("refused", "why"));
      stop(), fs::remove_all(into), shown.clear();
    }
  }
  start(trusted);
  SealOf of_another(file);
  of_another.key = std::make_unique<SigningKey>(kOtherSeed);
  feed(file.pass());
  feed(of_another.pass());
  feed(of_another.pass());
  EXPECT_EQ(0U, told("refused", "why").find("seal: it is signed by an untrusted key, "));
  EXPECT_TRUE(metric_is("seals_total{outcome=\"refused\"} 1"));
  start({"--trust", root / "other.pub", "--trust", root / "k.pub", "--max-age", "1h"});
  feed(file.pass());
  feed(SealOf(file).pass());
  EXPECT_EQ("", told("delivered", "path")) << "older than an hour";
  pass_time(1.1);
  start(trusted);
  SealOf seal(file);
  ++seal.own.id;
  feed(seal.pass());
  EXPECT_TRUE(file.bytes == contents(into / "дир/文書")) << "the same without a change";
}

TEST_F(Sealed, AFileOfKeysThatIsOfNoUseEndsTheStart) {
  std::ofstream(root / "bad") << "not a key\n";
  for (const std::string path : {root / "bad", root / "none"}) {
    start({"--trust", path});
    EXPECT_NE("", receiver->error()) << path;
  }
}

}  // namespace
