#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>

#include "seal/digest.h"
#include "seal/keys.h"
#include "seal/percent.h"
#include "seal/record.h"

namespace {

namespace fs = std::filesystem;

// RFC 8032, 7.1, test 1
const std::string kSeed = "9d61b19deffd5a60ba844af492ec2cc44449c5697b326919703bac031cae7f60";
const std::string kPublic = "d75a980182b10ab7d54bfed3c964073a0ee172f3daa62325af021a68f707511a";

// BLAKE2b-256 of "abc"
const std::string kDigest = "bddd813c634239723171ef3fee98579b94964e3bb1cb3e427262c8c068d52319";

const std::string kBegin =
    "seal=1 of=00000000DEADBEEF kind=0 size=276001 udata=1400 sent=1732350000 crc=340BC6D9 "
    "b2=" +
    kDigest + " mtime=-2.000000005 mode=0640";
const std::string kPath = " name=%D0%B6%25%20a.txt folder=/in/x";
const std::string kCode = " k=200 r=10 window=65536";
// made by another program: openssl pkeyutl -sign -rawin
const std::string kKey = " key=" + kPublic;
const std::string kSigned = kKey +
                            " sig=5c0322f14e7c474a677e86d3eee5b01edeb329ceba258a573ba3fbe91e8bad70"
                            "10ee07346d2aca00e2cfe45f8d5e0ddf748f1d3e8caae40c75982d71328cfb01";
const std::string kWhole = kBegin + kPath + kCode + kSigned;

struct Keys : testing::Test {
  ~Keys() override { fs::remove_all(root); }
  std::string file(const std::string& text, mode_t mode = 0600) const {
    std::ofstream(root + "/file") << text;
    chmod((root + "/file").c_str(), mode);
    return root + "/file";
  }
  /// Why the file is refused, without the folder; "" if it isn't.
  std::string of_key(const std::string& path) {
    error = root + "/";
    (void)SigningKey::read(path, error);
    return error.substr(root.size() + 1);
  }
  std::string of_trusted(const std::string& path) {
    error = root + "/";
    (void)read_trusted_keys(path, keys, error);
    return error.substr(root.size() + 1);
  }

  std::string made = testing::TempDir() + "seal_XXXXXX";
  const std::string root = mkdtemp(made.data());
  std::vector<PublicKey> keys;
  std::string error;
};

TEST(Record, IsReadInFull) {
  const auto record = parse_record(kWhole);
  ASSERT_TRUE(record);
  EXPECT_EQ(kBegin + kPath + kCode + kKey, unsigned_text(*record));
  EXPECT_EQ("\xD0\xB6% a.txt", record->path->name);
  EXPECT_EQ(-2, record->mtime_s);
  EXPECT_EQ(5U, record->mtime_ns);
  ContentDigest digest;
  digest.add(reinterpret_cast<const unsigned char*>("a"), 1);
  digest.add(reinterpret_cast<const unsigned char*>("bc"), 2);
  EXPECT_EQ(record->b2, digest.finish());
}

TEST(Record, MayLackWhatDoesNotApplyAndHoldWhatIsNew) {
  for (const std::string& text :
       {kBegin, kBegin + kPath, kBegin + kCode, kBegin + kSigned, kBegin + " name=a folder="}) {
    EXPECT_TRUE(parse_record(text)) << text;
  }
  const auto record = parse_record(kBegin + " new=x=y" + kCode);
  ASSERT_TRUE(record);
  EXPECT_EQ(kBegin + kCode, unsigned_text(*record));
}

TEST(Record, NeedsEachFieldOnceAndInItsOrder) {
  std::istringstream text(kWhole);
  const std::vector<std::string> fields{std::istream_iterator<std::string>(text), {}};
  const auto read = [](const std::vector<std::string>& some) {
    std::string joined;
    for (const std::string& field : some) joined += field + " ";
    return parse_record(joined.substr(0, joined.size() - 1)).has_value();
  };
  ASSERT_TRUE(read(fields));
  for (std::size_t i = 0; i < fields.size(); ++i) {
    auto lacking = fields, doubled = fields, swapped = fields;
    lacking.erase(lacking.begin() + static_cast<std::ptrdiff_t>(i));
    doubled.insert(doubled.begin() + static_cast<std::ptrdiff_t>(i), fields[i]);
    std::swap(swapped[i], swapped[i > 0 ? i - 1 : 1]);
    EXPECT_FALSE(read(lacking)) << fields[i];
    EXPECT_FALSE(read(doubled)) << fields[i];
    EXPECT_FALSE(read(swapped)) << fields[i];
  }
  for (const std::string& bad :
       {std::string(), std::string("="), "new=1 " + kWhole, kWhole + " new=1", kWhole + " ",
        kWhole + "\n", kBegin + " " + kCode, kBegin + " =0", kBegin + " new", kBegin + "\tnew=0"}) {
    EXPECT_FALSE(parse_record(bad)) << bad;
  }
}

TEST(Record, IsRefusedWithAValueThatNoneWrites) {
  const std::map<std::string, std::vector<std::string>> bad_values = {
      {"seal", {"", "2"}},
      {"of", {"00000000deadbeef", "DEADBEEF", "100000000DEADBEEF"}},
      {"kind", {"", "2", "00", "65536"}},
      {"size", {"9223372036854775808", "18446744073709827617", "-1", "+1", "1x", "0"}},
      {"udata", {"1399", "65508"}},
      {"sent", {"9223372036854775808", "-0"}},
      {"crc", {"340BC6D"}},
      {"b2", {"B" + kDigest.substr(1), kDigest.substr(1), "b:" + kDigest.substr(1)}},
      {"mtime", {"-2", "-2.00000005", "-2.-00000005", ".000000005"}},
      {"mode", {"640", "1640", "0680"}},
      {"name", {"", "%d0", "%00", "%41", "\xD0", "a%D"}},
      {"folder", {"%d0"}},
      {"k", {"0", "246"}},
      {"r", {"0"}},
      {"window", {"0", "4294967297"}},
      {"key", {"D" + kPublic.substr(1)}},
      {"sig", {"", "5c0322"}}};
  for (const auto& [field, values] : bad_values) {
    const std::size_t at = (" " + kWhole).find(" " + field + "=") + field.size() + 1;
    const std::size_t end = std::min(kWhole.find(' ', at), kWhole.size());
    for (const std::string& value : values) {
      EXPECT_FALSE(parse_record(kWhole.substr(0, at) + value + kWhole.substr(end)))
          << field << "=" << value;
    }
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
  const auto make = [&](const std::string& options) {
    return std::system(("'" KEY "' " + options + " >" + root + "/said 2>&1").c_str());
  };
  EXPECT_NE(0, make("--help"));
  EXPECT_NE(0, make(""));
  ASSERT_EQ(0, make(name));
  EXPECT_EQ(fs::perms(0600), fs::status(name + ".key").permissions());
  EXPECT_EQ(fs::perms(0644), fs::status(name + ".pub").permissions());
  const auto key = SigningKey::read(name + ".key", error);
  ASSERT_TRUE(key) << error;
  ASSERT_TRUE(read_trusted_keys(name + ".pub", keys, error)) << error;
  EXPECT_EQ(std::vector<PublicKey>{key->public_key()}, keys);

  EXPECT_NE(0, make(name));
  EXPECT_FALSE(make_key_files(name, error));
  EXPECT_EQ(name + ".key: File exists", error);
  EXPECT_EQ(key->public_key(), SigningKey::read(name + ".key", error)->public_key());
  fs::remove(name + ".key");
  EXPECT_FALSE(make_key_files(name, error));
  EXPECT_FALSE(fs::exists(name + ".key"));
}

TEST_F(Keys, AreRefusedWhereTheyCanNotBeMeant) {
  EXPECT_EQ("", of_key(file(kSeed + "\n")));
  for (const std::string& bad : {kSeed + "\n\n", kSeed + "0", kSeed.substr(1), std::string(64, 'g'),
                                 std::string(), kSeed + "\r\n", " " + kSeed}) {
    EXPECT_EQ("file: not a key, which is one line of 64 hexadecimal digits", of_key(file(bad)));
  }
  EXPECT_EQ("file: others than its owner may use this key; chmod 600 it",
            of_key(file(kSeed, 0640)));
  EXPECT_EQ("none: No such file or directory", of_key(root + "/none"));
  EXPECT_FALSE(SigningKey::read(root, error)) << "a folder";

  EXPECT_EQ("", of_trusted(file("# us\n\n" + kPublic + " site one\r\n  #x\n" + kSeed)));
  for (const std::string& bad :
       {kPublic + "00", kPublic.substr(2) + " x", std::string("site"), "x " + kPublic}) {
    EXPECT_EQ("file, line 2: not a public key, which is 64 hexadecimal digits",
              of_trusted(file(kPublic + "\n" + bad + "\n")));
  }
  EXPECT_EQ("file: no public key in it", of_trusted(file("# nobody\n")));
  EXPECT_EQ("none: No such file or directory", of_trusted(root + "/none"));
  EXPECT_FALSE(read_trusted_keys(root, keys, error)) << "a folder";
  EXPECT_EQ(2U, keys.size()) << "none of a file that is refused";
}

}  // namespace
