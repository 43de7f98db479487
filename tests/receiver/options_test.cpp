// The command line.
#include "receiver/options.h"

#include <gtest/gtest.h>

#include <map>
#include <sstream>

#include "receiver/values.h"

namespace {

int parse(std::vector<std::string> arguments, Options& options) {
  arguments.insert(arguments.begin(), {"", "--into", "in"});
  std::vector<char*> argv;
  for (std::string& argument : arguments) argv.push_back(argument.data());
  return parse_options(static_cast<int>(argv.size()), argv.data(), options);
}

TEST(Options, NetworksHoldTheAddressesOfTheirBits) {
  for (const auto& [text, address, mask] : {std::tuple{"10.1.2.3/0", 0U, 0U},
                                            {"10.1.2.3/1", 0U, 0x80000000U},
                                            {"10.1.2.3/8", 0x0A000000U, 0xFF000000U},
                                            {"10.1.2.3/32", 0x0A010203U, ~0U},
                                            {"10.1.2.3", 0x0A010203U, ~0U}}) {
    const auto network = to_network(text);
    ASSERT_TRUE(network) << text;
    EXPECT_EQ(address, network->address) << text;
    EXPECT_EQ(mask, network->mask) << text;
  }
}

TEST(Options, TakeUnitsAndTheLastOfARepeatedOneButEachOfAList) {
  std::istringstream words(
      "--give-up 1h --give-up 1.5min --silence=500ms --reserve 10G --memory 4mib --json --json "
      "--max-file-size 3 --listen 5 --listen 127.0.0.1:6 --allow 10.0.0.0/8 --allow 1.2.3.4 "
      "--join 239.1.2.3 --join 224.0.0.9@lo");
  Options options;
  ASSERT_EQ(-1, parse({std::istream_iterator<std::string>(words), {}}, options));
  EXPECT_EQ(90, options.give_up);
  EXPECT_EQ(0.5, options.silence);
  EXPECT_EQ(10ULL << 30, options.store.reserve);
  EXPECT_EQ(4U << 20, options.memory);
  EXPECT_EQ(3U, options.max_file_size);
  EXPECT_EQ((std::vector<std::string>{"5", "127.0.0.1:6"}), options.listen);
  EXPECT_EQ(2U, options.at.size());
  EXPECT_EQ(2U, options.allow.size());
  ASSERT_EQ(2U, options.groups.size());
  EXPECT_EQ(0, options.groups[0].imr_ifindex);
  EXPECT_NE(0, options.groups[1].imr_ifindex);
  EXPECT_EQ(2.0 * 86400, to_seconds("2", "d"));
  Options plain;
  ASSERT_EQ(-1, parse({}, plain));
  EXPECT_EQ(55001, ntohs(plain.at.at(0).sin_port));
  EXPECT_EQ(60, plain.give_up);
}

TEST(Options, RefuseWhatTheyCanNotMean) {
  const std::map<std::string, std::vector<std::string>> bad_values = {
      {"--give-up", {"0", "inf", "nan", "0x10", "-1", "5 weeks", ""}},
      {"--reserve", {"9999999999G", "-1", "K", "1.5G", "1GBs"}},
      {"--allow",
       {"", "10.1.2", "10.1.2.3/", "10.1.2.3/33", "10.1.2.3/-1", "1.2.3.4/8x",
        "1.2.3.4/00000000008"}},
      {"--listen", {"1:2:3"}},
      {"--mode", {"", "8", "00666", "1777"}},
      {"--join", {"10.0.0.1", "239.1.2.3@nowhere"}}};
  for (const auto& [option, values] : bad_values) {
    for (const std::string& value : values) {
      Options options;
      EXPECT_EQ(kExitUsage, parse({option, value}, options)) << option << " " << value;
    }
  }
}

}  // namespace
