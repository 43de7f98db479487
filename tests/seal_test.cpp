#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>

#include "seal/digest.h"
#include "seal/keys.h"
#include "seal/percent.h"
#include "seal/record.h"

namespace {

namespace fs = std::filesystem;

// RFC 8032, 7.1, test 1
const std::string kSeed = "9d61b19deffd5a60ba844af492ec2cc44449c5697b326919703bac031cae7f60";
const std::string kPublic = "d75a980182b10ab7d54bfed3c964073a0ee172f3daa62325af021a68f707511a";

const std::string kBegin =
    "seal=1 of=00000000DEADBEEF kind=0 size=276001 udata=1400 sent=1732350000 crc=340BC6D9 "
    "b2=bddd813c634239723171ef3fee98579b94964e3bb1cb3e427262c8c068d52319 mtime=-2.000000005 "
    "mode=0640";
const std::string kPath = " name=%D0%B6%25%20a.txt folder=/in/x";
const std::string kCode = " k=200 r=10 window=65536";
// made by another program: openssl pkeyutl -sign -rawin
const std::string kSigned = " key=" + kPublic +
                            " sig=5c0322f14e7c474a677e86d3eee5b01edeb329ceba258a573ba3fbe91e8bad70"
                            "10ee07346d2aca00e2cfe45f8d5e0ddf748f1d3e8caae40c75982d71328cfb01";
const std::string kWhole = kBegin + kPath + kCode + kSigned;

std::string replaced(std::string text, const std::string& what, const std::string& with) {
  const std::size_t at = text.find(what);
  EXPECT_NE(std::string::npos, at) << what;
  return text.replace(at, what.size(), with);
}

struct Keys : testing::Test {
  Keys() { fs::create_directory(root); }
  ~Keys() override { fs::remove_all(root); }
  std::string file(const std::string& text, mode_t mode = 0600) const {
    std::ofstream(root + "/file") << text;
    chmod((root + "/file").c_str(), mode);
    return root + "/file";
  }
  bool reads_trusted(const std::string& text) { return read_trusted_keys(file(text), keys, error); }

  std::string made = testing::TempDir() + "seal_XXXXXX";
  const std::string root = mkdtemp(made.data());
  std::vector<PublicKey> keys;
  std::string error;
};

TEST(Record, IsReadInFull) {
  const auto record = parse_record(kWhole);
  ASSERT_TRUE(record);
  EXPECT_EQ(0xDEADBEEF, record->of);
  EXPECT_EQ(0, record->kind);
  EXPECT_EQ(276001U, record->size);
  EXPECT_EQ(1400U, record->udata);
  EXPECT_EQ(1732350000, record->sent);
  EXPECT_EQ(0x340BC6D9U, record->crc);
  EXPECT_EQ(-2, record->mtime_s);
  EXPECT_EQ(5U, record->mtime_ns);
  EXPECT_EQ(0640U, record->mode);
  EXPECT_EQ("\xD0\xB6% a.txt", record->path->name);
  EXPECT_EQ("/in/x", record->path->folder);
  EXPECT_EQ(200U, record->code->k);
  EXPECT_EQ(10U, record->code->r);
  EXPECT_EQ(65536U, record->code->window);
  EXPECT_EQ(kBegin + kPath + kCode + " key=" + kPublic, unsigned_text(*record));

  ContentDigest digest;
  digest.add(reinterpret_cast<const unsigned char*>("a"), 1);
  digest.add(reinterpret_cast<const unsigned char*>("bc"), 2);
  EXPECT_EQ(record->b2, digest.finish());
}

TEST(Record, MayLackWhatDoesNotApplyAndHoldWhatIsNew) {
  for (const std::string& text : {kBegin, kBegin + kPath, kBegin + kCode, kBegin + kSigned}) {
    EXPECT_TRUE(parse_record(text)) << text;
  }
  EXPECT_TRUE(parse_record(kBegin + " name=a folder="));
  const auto record = parse_record(replaced(kWhole, " k=", " new=x=y k="));
  ASSERT_TRUE(record);
  EXPECT_EQ(unsigned_text(*parse_record(kWhole)), unsigned_text(*record));
}

TEST(Record, IsRefusedWhereAnythingIsAmiss) {
  const std::vector<std::pair<std::string, std::string>> changes = {
      {"seal=1", "seal=2"},
      {"seal=1 ", ""},
      {"seal=1 ", "new=1 seal=1 "},
      {"seal=1", "seal="},
      {" of=00000000DEADBEEF", ""},
      {"DEADBEEF", "deadbeef"},
      {"=00000000DEAD", "=DEAD"},
      {"=00000000DEAD", "=100000000DEAD"},
      {" kind=0", " kind=2"},
      {" kind=0", " kind=00"},
      {" kind=0", " kind=65536"},
      {" kind=0", " kind=0 kind=0"},
      {" kind=0", " kind="},
      {" kind=0", " kind"},
      {" kind=0", " =0"},
      {" kind=0", "  kind=0"},
      {" kind=0", "\tkind=0"},
      {"size=276001", "size=9223372036854775808"},
      {"size=276001", "size=-1"},
      {"size=276001", "size=+1"},
      {"size=276001", "size=1x"},
      {"size=276001", "size=18446744073709827617"},
      {"size=276001", "size=0"},
      {"udata=1400", "udata=1399"},
      {"udata=1400", "udata=65508"},
      {"sent=1732350000", "sent=9223372036854775808"},
      {"sent=1732350000", "sent=-0"},
      {"340BC6D9", "340BC6D"},
      {"b2=bddd", "b2=Bddd"},
      {"b2=bddd", "b2=bdd"},
      {"b2=bddd", "b2=bd:d"},
      {"-2.000000005", "-2"},
      {"-2.000000005", "-2.00000005"},
      {"-2.000000005", "-2.-00000005"},
      {"-2.000000005", ".000000005"},
      {"0640", "640"},
      {"0640", "1640"},
      {"0640", "0680"},
      {"name=%D0", "name=%d0"},
      {"name=%D0", "name=%00"},
      {"name=%D0", "name=%41"},
      {"name=%D0", "name=\xD0"},
      {"a.txt", "a.txt%D"},
      {"name=%D0%B6%25%20a.txt", "name="},
      {kPath, " name=a"},
      {kPath, " folder=a"},
      {kPath, " folder=a name=b"},
      {"k=200", "k=0"},
      {"k=200", "k=246"},
      {" k=200", ""},
      {" r=10", " r=0"},
      {" r=10", ""},
      {"window=65536", "window=0"},
      {"window=65536", "window=4294967297"},
      {"key=d75a", "key=D75a"},
      {" key=" + kPublic, ""},
      {kSigned, " key=" + kPublic},
      {"328cfb01", "328cfb01 "},
      {"328cfb01", "328cfb01 new=1"},
      {"328cfb01", "328cfb0"},
      {"328cfb01", "328cfb01\n"},
      {kWhole, ""},
      {kWhole, "="}};
  for (const auto& [what, with] : changes) {
    EXPECT_FALSE(parse_record(replaced(kWhole, what, with))) << what << " -> " << with;
  }
}

TEST(Record, HoldsBySignatureOnlyAsItWasWritten) {
  EXPECT_TRUE(signature_holds(kWhole, *parse_record(kWhole)));
  EXPECT_FALSE(signature_holds(kBegin, *parse_record(kBegin)));
  for (std::size_t i = 0; i < kWhole.size(); ++i) {
    std::string text = kWhole;
    text[i] ^= 1;
    const auto record = parse_record(text);
    EXPECT_FALSE(record && signature_holds(text, *record)) << text;
  }
}

TEST_F(Keys, SignARecordWhichLosesItsNameWhereItHasNoRoom) {
  const auto key = SigningKey::read(file(kSeed), error);
  ASSERT_TRUE(key) << error;
  SealRecord record = *parse_record(kWhole);
  record.key.reset();
  EXPECT_EQ(kWhole, sealed_text(record, key.get(), kWhole.size()));
  const std::string text = sealed_text(record, key.get(), kWhole.size() - 1);
  EXPECT_EQ(0U, text.find(kBegin + kCode + " key="));
  EXPECT_TRUE(signature_holds(text, *parse_record(text)));
  EXPECT_EQ(kBegin + kPath + kCode, sealed_text(record, nullptr, 65507));

  EXPECT_EQ("00000000DEADBEEF.seal", seal_name(0xDEADBEEF));
  const std::string names = seal_name(1) + "./in/x." + std::string(record_room(5), 'r') + "..";
  EXPECT_EQ(65507U, 84 + names.size());
  EXPECT_EQ(0U, record_room(70000));
}

TEST_F(Keys, AreMadeTogetherOrNotAtAll) {
  const std::string name = root + "/site";
  ASSERT_TRUE(make_key_files(name, error)) << error;
  EXPECT_EQ(fs::perms(0600), fs::status(name + ".key").permissions());
  EXPECT_EQ(fs::perms(0644), fs::status(name + ".pub").permissions());
  const auto key = SigningKey::read(name + ".key", error);
  ASSERT_TRUE(key) << error;
  ASSERT_TRUE(read_trusted_keys(name + ".pub", keys, error)) << error;
  EXPECT_EQ(std::vector<PublicKey>{key->public_key()}, keys);

  EXPECT_FALSE(make_key_files(name, error));
  EXPECT_EQ(name + ".key: File exists", error);
  EXPECT_EQ(key->public_key(), SigningKey::read(name + ".key", error)->public_key());
  fs::remove(name + ".key");
  EXPECT_FALSE(make_key_files(name, error));
  EXPECT_FALSE(fs::exists(name + ".key"));
}

TEST_F(Keys, AreRefusedWhereTheyCanNotBeMeant) {
  EXPECT_TRUE(SigningKey::read(file(kSeed + "\n"), error));
  for (const std::string& bad : {kSeed + "\n\n", kSeed + "0", kSeed.substr(1), std::string(64, 'g'),
                                 std::string(), kSeed + "\r\n", " " + kSeed}) {
    error.clear();
    EXPECT_FALSE(SigningKey::read(file(bad), error)) << bad;
    EXPECT_EQ(root + "/file: not a key, which is one line of 64 hexadecimal digits", error);
  }
  EXPECT_FALSE(SigningKey::read(file(kSeed, 0640), error));
  EXPECT_EQ(root + "/file: others than its owner may use this key; chmod 600 it", error);
  EXPECT_FALSE(SigningKey::read(root + "/none", error));
  EXPECT_EQ(root + "/none: No such file or directory", error);
  EXPECT_FALSE(SigningKey::read(root, error));
}

TEST_F(Keys, AreTrustedByALineEach) {
  EXPECT_TRUE(reads_trusted("# sites\n\n" + kPublic + " site one\r\n  #x\n" + kSeed));
  EXPECT_EQ(2U, keys.size());
  for (const std::string& bad :
       {kPublic + "00", kPublic.substr(2) + " x", std::string("site"), "x " + kPublic}) {
    EXPECT_FALSE(reads_trusted(kPublic + "\n" + bad + "\n")) << bad;
    EXPECT_EQ(root + "/file, line 2: not a public key, which is 64 hexadecimal digits", error);
  }
  EXPECT_FALSE(reads_trusted("# nobody\n"));
  EXPECT_EQ(root + "/file: no public key in it", error);
  EXPECT_FALSE(read_trusted_keys(root + "/none", keys, error));
  EXPECT_EQ(root + "/none: No such file or directory", error);
  EXPECT_FALSE(read_trusted_keys(root, keys, error)) << "a folder";
  EXPECT_EQ(2U, keys.size());
}

}  // namespace
