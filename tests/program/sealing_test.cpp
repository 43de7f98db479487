// A file's seal as it goes out: its packets, its record, what becomes of the file.
#include <sodium.h>
#include <sys/stat.h>

#include "tests/program/support.h"

namespace {

// RFC 8032, 7.1, test 1
const std::string kSeed = "9d61b19deffd5a60ba844af492ec2cc44449c5697b326919703bac031cae7f60";
const std::string kPublic = "d75a980182b10ab7d54bfed3c964073a0ee172f3daa62325af021a68f707511a";
// BLAKE2b-256 of "" and of "abc", by Python's hashlib
constexpr const char* kEmpty = "0e5751c026e543b2e8ab2eb06099daa1d1e5df47778f7787faab45cdf12fe3a8";
constexpr const char* kAbc = "bddd813c634239723171ef3fee98579b94964e3bb1cb3e427262c8c068d52319";

struct Sealing : testing::Test {
  TempDir home;
  Collector net;

  void SetUp() override {
    home.write("tarnwick_cfg", "p:" + net.port + "\nf:in\nu:2\nd:2\nc:0\n--repair=5\n");
    home.write("site.key", kSeed);
    chmod(home.path("site.key").c_str(), 0600);
  }
};

std::string hex_upper(std::uint64_t value, int digits) {
  char text[20];
  (void)std::snprintf(text, sizeof text, "%0*lX", digits, static_cast<unsigned long>(value));
  return text;
}

/// The strings in the names area of a header packet, without the empty last one.
std::vector<std::string> names(const Packet& header) {
  std::vector<std::string> found;
  for (std::size_t at = 84; header.bytes.at(at) != '\0'; at += found.back().size() + 1) {
    found.emplace_back(header.bytes.c_str() + at);
  }
  return found;
}

/// The packets of each transfer, in the order of their first ones.
std::vector<std::vector<Packet>> by_transfer(const std::vector<Packet>& packets) {
  std::vector<std::vector<Packet>> found;
  for (const Packet& packet : packets) {
    if (found.empty() || found.back()[0].field(0, 8) != packet.field(0, 8)) found.emplace_back();
    found.back().push_back(packet);
  }
  return found;
}

/// Checks what a seal's header packet has in common with that of the sealed transfer.
void expect_sealed(const Packet& file, const Packet& seal, std::size_t repair_parts) {
  EXPECT_EQ(repair_parts * (file.field(36, 4) - 20), seal.field(20, 8));
  EXPECT_EQ(file.field(36, 4), seal.field(36, 4));
  EXPECT_EQ(file.field(40, 4), seal.field(40, 4));
  EXPECT_EQ(file.field(44, 8), seal.field(44, 8));
  EXPECT_EQ(2U, seal.field(52, 2));
  EXPECT_EQ(hex_upper(file.field(0, 8), 16) + ".seal", names(seal).at(0));
  EXPECT_EQ(names(file).size() > 1 ? names(file)[1] : "/", names(seal).at(1));
  EXPECT_EQ(3U, names(seal).size());
}

/// The record that stands for `file`, up to what is only there now and then.
std::string record_of(const Packet& file, const std::string& rest) {
  return "seal=1 of=" + hex_upper(file.field(0, 8), 16) +
         " kind=" + std::to_string(file.field(52, 2)) +
         " size=" + std::to_string(file.field(20, 8)) +
         " udata=1400 sent=" + std::to_string(file.field(44, 8)) +
         " crc=" + hex_upper(file.field(40, 4), 8) + rest;
}

TEST_F(Sealing, FollowsEveryFileWithItsProofAndRepairParts) {
  home.write("in/sub/Ж %.bin", "abc");
  const std::string file = home.path("in/sub/Ж %.bin");
  chmod(file.c_str(), 0604);
  const timespec times[] = {{1, 0}, {-2, 5}};
  ASSERT_EQ(0, utimensat(AT_FDCWD, file.c_str(), times, 0));
  Program program(home, {"--sign=site.key"});
  program.input = Fd();  // while nothing is shown, no key is looked for
  EXPECT_EQ(0, program.wait());
  EXPECT_FALSE(fs::exists(file));
  const auto transfers = by_transfer(net.packets());
  ASSERT_EQ(2U, transfers.size());
  EXPECT_EQ(6U, transfers[0].size());
  const std::vector<Packet>& seal = transfers[1];
  ASSERT_EQ(6U, seal.size());
  EXPECT_EQ(seal[0].bytes, seal[1].bytes);
  EXPECT_LE(seal[0].arrived + 10'000'000, seal[1].arrived);
  expect_sealed(transfers[0][0], seal[0], 4);

  const std::string record = names(seal[0]).at(2);
  const std::size_t signed_end = record.find(" sig=");
  EXPECT_EQ(record_of(transfers[0][0], " b2=" + std::string(kAbc) +
                                           " mtime=-2.000000005 mode=0604 name=%D0%96%20%25.bin "
                                           "folder=/sub k=1 r=4 window=12157 key=" +
                                           kPublic),
            record.substr(0, signed_end));
  unsigned char key[32], signature[64];
  sodium_hex2bin(key, 32, kPublic.data(), 64, nullptr, nullptr, nullptr);
  sodium_hex2bin(signature, 64, record.data() + signed_end + 5, 128, nullptr, nullptr, nullptr);
  const std::string message = "tarnwick-seal-1\n" + record.substr(0, signed_end);
  EXPECT_EQ(record.size(), signed_end + 5 + 128);
  EXPECT_EQ(0, crypto_sign_verify_detached(signature,
                                           reinterpret_cast<const unsigned char*>(message.data()),
                                           message.size(), key));

  // "abc" times the inverses of 1, 2, 3 and 4
  const std::string products[] = {"abc", "\xBE\x31\xBF", "\xD4\xD5\x21", "\x5F\x96\xD1"};
  for (std::size_t i = 0; i < 4; ++i) {
    EXPECT_EQ(i + 1, seal[2 + i].field(8, 8));
    EXPECT_EQ(1380U, seal[2 + i].field(16, 4));
    EXPECT_EQ(products[i] + std::string(1377, '\0'), seal[2 + i].bytes.substr(20)) << i;
  }
}

TEST_F(Sealing, FollowsAnEmptyFileAndTheTrashJournalToo) {
  home.write("tarnwick_cfg", "p:" + net.port + "\nf:in\nu:1\nd:1\nc:0\n--seal\n");
  home.write("in/empty", ""), home.write("TRASH_FOLDER/trash_log", "abc");
  const struct {
    const char *mode, *name, *hash;
  } files[] = {{"-m:0", "empty", kEmpty}, {"-m:4", "trash_log", kAbc}};
  for (const auto& [mode, name, hash] : files) {
    EXPECT_EQ(0, Program(home, {mode}).wait());
    const auto transfers = by_transfer(net.packets());
    ASSERT_EQ(2U, transfers.size());
    ASSERT_EQ(1U, transfers[1].size());
    expect_sealed(transfers[0][0], transfers[1][0], 0);
    const std::string record = names(transfers[1][0]).at(2);
    EXPECT_EQ(0U, record.find(record_of(transfers[0][0], std::string(" b2=") + hash)));
    EXPECT_NE(std::string::npos, record.find(std::string(" name=") + name + " folder="));
    EXPECT_EQ(std::string::npos, record.find(" k="));
  }
}

TEST_F(Sealing, KeepsAFileThatChangesBehindItsLastPassOrWhoseSealIsStopped) {
  for (const bool is_stopped : {false, true}) {
    home.write("in/a.bin", "abc");
    Program program(home, {"-u:300", "-d:1", "-v:1"});
    const auto tells = [&](const char* text) {
      return eventually([&] { return program.out().find(text) != std::string::npos; });
    };
    ASSERT_TRUE(tells("Seal of"));
    if (is_stopped) {
      program.input = Fd();
    } else {
      home.write("in/a.bin", "abd");
    }
    EXPECT_TRUE(is_stopped || tells("changed while"));
    program.input = Fd();
    EXPECT_EQ(0, program.wait());
    EXPECT_TRUE(home.has("in/a.bin")) << is_stopped;
    std::size_t parts = 0;
    for (const Packet& packet : net.packets()) parts += packet.is_header() ? 0 : 1;
    EXPECT_EQ(is_stopped ? 1U : 5U, parts) << "those of the seal go on until it is stopped";
  }
}

}  // namespace
