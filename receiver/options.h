// receiver/options.h: the command line of the receiver.
#pragma once

#include <netinet/in.h>

#include <cstdint>
#include <string>
#include <vector>

#include "receiver/report.h"
#include "receiver/store.h"

/// Exit statuses.
constexpr int kExitOk = 0;
constexpr int kExitNotWhole = 1;  ///< report: something did not arrive whole
constexpr int kExitUsage = 2;
constexpr int kExitSocket = 3;   ///< the port can't be opened
constexpr int kExitStorage = 4;  ///< a folder or the ledger can't be used

/// Addresses that agree with `address` in the bits of `mask`; host byte order.
struct Network {
  std::uint32_t address = 0;
  std::uint32_t mask = 0;
};

struct Options {
  bool report = false;  ///< print from the ledger instead of receiving
  ReportOptions report_options;

  std::string listen = "0.0.0.0:55001";  ///< as written: [ADDRESS:]PORT
  sockaddr_in at{};                      ///< the same, for bind()
  StoreOptions store;
  std::string ledger;   ///< path; empty: in the hidden folder
  std::string charset;  ///< of file names
  bool drop_incomplete = false;
  double give_up = 60;              ///< s without a packet
  double silence = 0;               ///< s without a datagram before a warning; 0: none
  bool json = false;                ///< events as JSON
  std::string metrics;              ///< path; empty: none
  std::vector<Network> allow;       ///< empty: everybody
  std::uint64_t max_file_size = 0;  ///< bytes; 0: no limit
  std::size_t max_transfers = 256;  ///< unfinished at a time
  std::uint64_t count = 0;          ///< end after so many files; 0: never
};

/// Reads the command line. -1 when the run goes on; else the exit status, after
/// help, version or a message.
int parse_options(int argc, char** argv, Options& options);
