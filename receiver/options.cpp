#include "receiver/options.h"

#include <langinfo.h>

#include <CLI/CLI.hpp>
#include <clocale>
#include <cstdlib>
#include <iostream>

#include "receiver/base/names.h"

namespace {

/// The locale's character set, but UTF-8 where the locale knows only ASCII.
std::string locale_charset() {
  std::setlocale(LC_CTYPE, "");
  const std::string name = nl_langinfo(CODESET);
  return name == "ANSI_X3.4-1968" ? "UTF-8" : name;
}

std::string check(bool good, const char* wanted) { return good ? "" : wanted; }

/// What is kept as text until it has been checked.
struct Texts {
  std::vector<std::string> allow;
  std::vector<std::string> join;
  std::string mode = "666";
  bool no_sync = false;
  bool no_sandbox = false;
};

/// The last of a repeated option counts, but all of such a list.
template <typename T>
CLI::Option* add_list(CLI::App& app, const char* name, T& values, const char* what) {
  return app.add_option(name, values, what)
      ->expected(1)
      ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
}

/// A number without a unit stands for `unit`.
CLI::Option* add_duration(CLI::App& app, const char* name, double& seconds, const char* what,
                          const std::string& unit = "s") {
  const auto set = [&seconds, unit](const std::string& text) { seconds = *to_seconds(text, unit); };
  return app.add_option_function<std::string>(name, set, what)
      ->type_name("TIME")
      ->check([](const std::string& text) {
        return check(to_seconds(text).has_value(), "not a time like 90, 90s, 5min, 2h or 1d");
      });
}

template <typename T>
CLI::Option* add_size(CLI::App& app, const char* name, T& bytes, const char* what) {
  const auto set = [&bytes](const std::string& text) { bytes = *to_bytes(text); };
  return app.add_option_function<std::string>(name, set, what)
      ->type_name("BYTES")
      ->check([](const std::string& text) {
        return check(to_bytes(text).has_value(), "not a number of bytes like 4096, 64K or 10G");
      });
}

void add_receiving(CLI::App& app, Options& options, Texts& texts) {
  app.add_option("--into", options.store.into, "folder that files arrive in")->type_name("DIR");
  add_list(app, "--listen", options.listen, "UDP port, and address to listen at; may be repeated")
      ->type_name("[ADDRESS:]PORT")
      ->capture_default_str()
      ->check([](const std::string& text) {
        return check(to_endpoint(text).has_value(), "not an IPv4 address and port");
      });
  add_list(app, "--join", texts.join, "multicast group to receive, too; may be repeated")
      ->type_name("GROUP[@INTERFACE]")
      ->check([](const std::string& text) {
        return check(to_membership(text).has_value(),
                     "not an IPv4 multicast address, or there is no such interface");
      });
  app.add_option("--charset", options.charset, "character set of file names here")
      ->type_name("NAME")
      ->capture_default_str()
      ->check([](const std::string& text) {
        return check(is_charset(text), "the system can't convert to this character set");
      });
  app.add_option("--mode", texts.mode, "permissions of files, less the umask")
      ->type_name("OCTAL")
      ->capture_default_str()
      ->check([](const std::string& text) {
        const bool octal = text.find_first_not_of("01234567") == std::string::npos;
        if (!octal || text.empty() || text.size() > 4) return check(false, "not an octal mode");
        return check(std::strtoul(text.c_str(), nullptr, 8) <= 0777,
                     "setuid, setgid and sticky are not for files off the wire: up to 777");
      });
  app.add_flag("--no-sync", texts.no_sync, "do not wait for the disk before a file counts");
  app.add_flag("--keep-existing", options.store.keep_existing,
               "give a newcomer a numbered name instead of replacing a file");
  app.add_option("--journals", options.store.journals, "folder for trash journals")
      ->type_name("DIR");
  app.add_option("--incomplete", options.store.incomplete, "folder for unfinished files")
      ->type_name("DIR");
  app.add_flag("--drop-incomplete", options.drop_incomplete, "delete unfinished files");
  add_duration(app, "--give-up", options.give_up, "without a packet, a file is unfinished")
      ->default_str("60s");
  app.add_option("--count", options.count, "end after so many files")->type_name("N");
}

void add_watching(CLI::App& app, Options& options) {
  add_duration(app, "--prune-older-than", options.prune_age,
               "delete old records, trash journals and incomplete files", "d")
      ->type_name("DAYS");
  app.add_option("--ledger", options.ledger, "SQLite file with all that came")->type_name("FILE");
  app.add_flag("--json", options.json, "one JSON object a line on standard output");
  app.add_option("--log", options.log, "file for events and warnings; SIGHUP opens it anew")
      ->type_name("FILE");
  app.add_option("--metrics", options.metrics, "Prometheus text file, kept up to date")
      ->type_name("FILE");
  add_duration(app, "--silence", options.silence, "warn when nothing came for so long");
}

void add_proving(CLI::App& app, Options& options) {
  app.add_flag("--require-seal", options.seals.require, "deliver only what a seal has proved");
  add_list(app, "--trust", options.seals.trust,
           "public keys; deliver only what one of them has signed; may be repeated")
      ->type_name("FILE");
  add_duration(app, "--max-age", options.seals.max_age, "refuse what was sealed longer ago");
}

void add_limits(CLI::App& app, Options& options, Texts& texts) {
  add_list(app, "--allow", texts.allow, "senders to listen to; may be repeated")
      ->type_name("ADDRESS[/BITS]")
      ->check([](const std::string& text) {
        return check(to_network(text).has_value(), "not an IPv4 address or network");
      });
  app.add_flag("--ignore-source", options.ignore_source,
               "tell transfers apart by id alone, not by address and port");
  add_size(app, "--max-file-size", options.max_file_size, "refuse larger files");
  app.add_option("--max-transfers", options.max_transfers,
                 "unfinished at a time; beyond it the most silent is given up")
      ->type_name("N")
      ->capture_default_str()
      ->check(CLI::PositiveNumber);
  add_size(app, "--memory", options.memory, "for datagrams that wait for disk and ledger")
      ->default_str("256M");
  add_size(app, "--reserve", options.store.reserve, "disk space that stays free");
  app.add_flag("--no-sandbox", texts.no_sandbox, "keep rights that receiving does not need");
}

void add_prune(CLI::App& app, Options& options) {
  app.add_subcommand("prune", "delete old records, trash journals and incomplete files")
      ->callback([&options] { options.prune = true; });
  CLI::App* prune = app.get_subcommand("prune");
  prune->add_option("--into", options.store.into, "folder that files arrive in")->type_name("DIR");
  prune->add_option("--ledger", options.ledger, "SQLite file")->type_name("FILE");
  prune->add_option("--journals", options.store.journals, "folder for trash journals")
      ->type_name("DIR");
  prune->add_option("--incomplete", options.store.incomplete, "folder for unfinished files")
      ->type_name("DIR");
  add_duration(*prune, "--older-than", options.prune_age, "what is older goes", "d")
      ->type_name("DAYS")
      ->required();
}

void add_report(CLI::App& app, Options& options) {
  CLI::App* report = app.add_subcommand("report", "print what came, from the ledger");
  report->add_option("--into", options.store.into, "folder that files arrive in")->type_name("DIR");
  report->add_option("--ledger", options.ledger, "SQLite file to read")->type_name("FILE");
  report->add_flag("--missing", options.report_options.missing,
                   "the sender's paths that did not arrive, by its trash journals");
  report->add_flag("--incomplete", options.report_options.incomplete, "unfinished files only");
  report->add_flag("--json", options.report_options.json, "one JSON object a line");
  report->add_option("--html", options.html, "write one page with all of it")
      ->type_name("FILE")
      ->excludes("--missing")
      ->excludes("--incomplete")
      ->excludes("--json");
  report->callback([&options] { options.report = true; });
}

void add_check(CLI::App& app, Options& options) {
  CLI::App* check = app.add_subcommand("check", "tell what will go wrong with these options");
  check->fallthrough();  // it has all options of receiving
  check->add_option("--rate", options.check_options.rate, "speed at which files will come")
      ->type_name("MBIT")
      ->check(CLI::PositiveNumber);
  check->add_option("--datagram", options.check_options.datagram, "the sender's -t")
      ->type_name("BYTES")
      ->capture_default_str()
      ->check(CLI::Range(1400, 65507));
  add_duration(*check, "--wait", options.check_options.wait,
               "wait so long for datagrams, which are thrown away");
  check->callback([&options] { options.check = true; });
}

int missing_option(const char* name) {
  std::cerr << name << " is required; see --help\n";
  return kExitUsage;
}

}  // namespace

int parse_options(int argc, char** argv, Options& options) {
  options.charset = locale_charset();
  Texts texts;
  CLI::App app("Receives files over a link that only goes one way.", "tarnwick-receive");
  app.set_version_flag("--version", TARNWICK_VERSION);
  app.footer(
      "Exit status: 0 in order; 1 report: something did not arrive whole, check: warnings;\n"
      "2 usage, check: it would not run; 3 the port can't be opened; 4 a folder or the ledger "
      "can't be used.");
  app.option_defaults()->multi_option_policy(CLI::MultiOptionPolicy::TakeLast);
  add_receiving(app, options, texts);
  add_watching(app, options);
  add_proving(app, options);
  add_limits(app, options, texts);
  add_report(app, options);
  add_prune(app, options);
  add_check(app, options);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& end) {
    return app.exit(end) == 0 ? kExitOk : kExitUsage;
  }
  if (options.report) {
    return options.ledger.empty() && options.store.into.empty()
               ? missing_option("--into or --ledger")
               : -1;
  }
  if (options.store.into.empty()) return missing_option("--into");
  if (options.prune) return -1;
  for (const std::string& text : options.listen) options.at.push_back(*to_endpoint(text));
  for (const std::string& text : texts.join) options.groups.push_back(*to_membership(text));
  for (const std::string& text : texts.allow) options.allow.push_back(*to_network(text));
  options.store.mode = static_cast<mode_t>(std::strtoul(texts.mode.c_str(), nullptr, 8));
  options.store.mode_given = app.count("--mode") > 0;
  options.store.sync = !texts.no_sync;
  options.sandbox = !texts.no_sandbox;
  return -1;
}

std::size_t stash_share(const Options& options) { return options.memory / 4; }

ReceiverSettings receiver_settings(const Options& options) {
  ReceiverSettings settings;
  settings.charset = options.charset;
  settings.metrics = options.metrics;
  settings.allow = options.allow;
  settings.ignore_source = options.ignore_source;
  settings.drop_incomplete = options.drop_incomplete;
  settings.give_up = options.give_up;
  settings.silence = options.silence;
  settings.max_file_size = options.max_file_size;
  settings.max_transfers = options.max_transfers;
  settings.seals = options.seals;
  settings.stash = stash_share(options);
  return settings;
}
