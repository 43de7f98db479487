// receiver/options.h: the command line of the receiver.
#pragma once

#include <netinet/in.h>

#include <cstdint>
#include <string>
#include <vector>

#include "receiver/deliver/store.h"
#include "receiver/receiver.h"
#include "receiver/tell/report.h"
#include "receiver/values.h"

/// Exit statuses.
constexpr int kExitOk = 0;
constexpr int kExitNotWhole = 1;  ///< report: something did not arrive whole
constexpr int kExitUsage = 2;
constexpr int kExitSocket = 3;   ///< the port can't be opened
constexpr int kExitStorage = 4;  ///< a folder or the ledger can't be used

/// What `check` is told of the line.
struct CheckOptions {
  double rate = 0;      ///< Mbit/s of 1,048,576 bits that are to come; 0: not told
  double wait = 0;      ///< s to wait for datagrams; 0: not at all
  int datagram = 1400;  ///< bytes of the sender's datagrams
};

struct Options {
  bool check = false;    ///< tell what will go wrong instead of receiving
  bool report = false;   ///< print from the ledger instead of receiving
  bool prune = false;    ///< delete what is old instead of receiving
  double prune_age = 0;  ///< s; what is older goes; 0: all stays
  CheckOptions check_options;
  ReportOptions report_options;
  std::string html;  ///< report: file for the page; empty: print

  std::vector<std::string> listen{"0.0.0.0:55001"};  ///< as written: [ADDRESS:]PORT
  std::vector<sockaddr_in> at;                       ///< the same, for bind()
  std::vector<ip_mreqn> groups;                      ///< multicast groups to join
  StoreOptions store;
  std::string ledger;               ///< path; empty: in the hidden folder
  std::string charset;              ///< of file names
  double give_up = 60;              ///< s without a packet
  double silence = 0;               ///< s without a datagram before a warning; 0: none
  std::string log;                  ///< for events and warnings; empty: the standard streams
  std::string metrics;              ///< path; empty: none
  std::vector<Network> allow;       ///< empty: everybody
  std::uint64_t max_file_size = 0;  ///< bytes; 0: no limit
  SealSettings seals;
  std::size_t max_transfers = 100'000;  ///< unfinished at a time
  std::size_t memory = 256 << 20;       ///< bytes for datagrams that wait to be settled
  bool json = false;                    ///< events as JSON
  bool drop_incomplete = false;
  bool ignore_source = false;  ///< transfers are told apart by their ids alone
  bool sandbox = true;         ///< see enter_sandbox()
  std::uint64_t count = 0;     ///< end after so many files; 0: never
};

/// Reads the command line. -1 when the run goes on; else the exit status, after
/// help, version or a message.
int parse_options(int argc, char** argv, Options& options);

/// The part of options.memory that is for parts whose header packet did not come.
std::size_t stash_share(const Options& options);

/// What the receiver itself needs of them.
ReceiverSettings receiver_settings(const Options& options);
