// state/settings.h: the one record of settings that every layer reads.
//
// It is set at start-up: defaults, then the configuration file, then the command
// line. The only later writers are request_stop(), the run modes that silence the
// console or switch the trash off, and the code that makes the trash folder, which
// turns "\" in its path into "/".
#pragma once

#include <optional>
#include <string>

/// Values of `mode`; any other value runs as kOneScan.
enum Mode : int { kOneScan = 0, kCycle = 1, kDaemon = 2, kStop = 3, kTrashJournal = 4 };

struct Settings {
  int verboze = 0;                              ///< console text: 0 none, 1 normal, 2 detailed
  int logs = 0;                                 ///< log file: 0 off
  int mode = kOneScan;                          ///< run mode; kStop during a run asks it to end
  std::string sdir = "scan_dir";                ///< the folder to scan when there is no scan list
  std::string ip = "127.0.0.1";                 ///< receiver for `sdir`, dotted IPv4
  int port = 55001;                             ///< UDP port for `sdir`, and for lines without one
  int head_send = 5;                            ///< header packets in each pass over a file
  int data_send = 2;                            ///< passes over a file
  double speed = 0.0;                           ///< line speed, Mbit/s; 0 sends unpaced
  int udata_size = 1400;                        ///< largest UDP payload, bytes: 1400..65507
  std::string scan_list_name;                   ///< scan list file; empty scans `sdir`
  int time_wait = 5;                            ///< length of a scan cycle, s
  int time_rescan = 5;                          ///< pause between passes, s; daemon: half-seconds
  int time_send_wait = 0;                       ///< files this young (s) are left; 0 tests no age
  int trash_active = 0;                         ///< not 0: sent files move to the trash
  std::string trash_path = "TRASH_FOLDER";      ///< the trash folder
  std::string trash_log = "trash_log";          ///< journal inside it; can't be set
  std::string blk_mask;                         ///< names that begin with it are left; empty: none
  std::string blk_ext;                          ///< files with this extension are left; empty: none
  int zero_ign = 0;                             ///< not 0: empty files are left
  std::string logs_name = "tarnwick_logs.txt";  ///< log file
  std::string lcs_a;                            ///< local character set as given by the user
  int send_serv = 0;                            ///< datagrams between service packets; 0: none
  std::string dir_name;                         ///< accepted and kept; nothing uses it
  std::string config_name = "./tarnwick_cfg";   ///< configuration file read first

  int send_buffer = 0;               ///< bytes to ask the system for; 0 forces 16 MiB
  std::string run_dir = "/var/run";  ///< folder of the lock file

  std::string metrics;  ///< file for the metrics; empty: none

  bool seal = false;   ///< true: a seal follows every file
  std::string repair;  ///< percentage of repair parts in the seal, as given; empty: none
  std::string sign;    ///< file of the key that signs the seal; empty: none

  /// Why the start must be refused: the last option with a bad value. Empty if none had.
  std::string refusal;

  std::optional<std::string> lcs;  ///< local character set in force; not set before start-up
  std::string prg_name;            ///< program name without folder and extension
  std::string prg_dir;             ///< folder part of the program's path, may be empty
};

extern Settings settings;

/// Takes `name` as the local character set, in place of the locale's.
void use_charset(const std::string& name);

/// True once the run has been asked to end.
bool stop_requested();

/// Asks the run to end.
void request_stop();
