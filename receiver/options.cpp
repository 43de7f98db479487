#include "receiver/options.h"

#include <arpa/inet.h>
#include <langinfo.h>

#include <CLI/CLI.hpp>
#include <clocale>
#include <cstdlib>
#include <iostream>
#include <optional>

#include "receiver/names.h"

namespace {

std::optional<unsigned long> to_number(const std::string& text, unsigned long most) {
  if (text.empty() || text.find_first_not_of("0123456789") != std::string::npos) return {};
  const unsigned long number = std::strtoul(text.c_str(), nullptr, 10);
  if (text.size() > 10 || number > most) return {};
  return number;
}

/// "[ADDRESS:]PORT"
std::optional<sockaddr_in> to_endpoint(const std::string& text) {
  const std::size_t colon = text.rfind(':');
  const std::string address = colon == std::string::npos ? "0.0.0.0" : text.substr(0, colon);
  const auto port = to_number(text.substr(colon == std::string::npos ? 0 : colon + 1), 65535);
  sockaddr_in at{};
  at.sin_family = AF_INET;
  if (!port || inet_pton(AF_INET, address.c_str(), &at.sin_addr) != 1) return {};
  at.sin_port = htons(static_cast<std::uint16_t>(*port));
  return at;
}

/// "ADDRESS[/BITS]"
std::optional<Network> to_network(const std::string& text) {
  const std::size_t slash = text.find('/');
  const auto bits = slash == std::string::npos ? 32UL : to_number(text.substr(slash + 1), 32);
  in_addr address{};
  if (!bits || inet_pton(AF_INET, text.substr(0, slash).c_str(), &address) != 1) return {};
  const std::uint32_t mask = *bits == 0 ? 0 : ~std::uint32_t{0} << (32 - *bits);
  return Network{ntohl(address.s_addr) & mask, mask};
}

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
  std::string mode = "666";
  bool no_sync = false;
};

void add_receiving(CLI::App& app, Options& options, Texts& texts) {
  app.add_option("--into", options.store.into, "folder that files arrive in")->type_name("DIR");
  app.add_option("--listen", options.listen, "UDP port, and address to listen at")
      ->type_name("[ADDRESS:]PORT")
      ->capture_default_str()
      ->check([](const std::string& text) {
        return check(to_endpoint(text).has_value(), "not an IPv4 address and port");
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
        return check(octal && !text.empty() && text.size() <= 4, "not an octal mode");
      });
  app.add_flag("--no-sync", texts.no_sync, "do not wait for the disk before a file counts");
  app.add_flag("--keep-existing", options.store.keep_existing,
               "give a newcomer a numbered name instead of replacing a file");
  app.add_option("--journals", options.store.journals, "folder for trash journals")
      ->type_name("DIR");
  app.add_option("--incomplete", options.store.incomplete, "folder for unfinished files")
      ->type_name("DIR");
  app.add_flag("--drop-incomplete", options.drop_incomplete, "delete unfinished files");
  app.add_option("--give-up", options.give_up, "without a packet, a file is unfinished")
      ->type_name("SECONDS")
      ->capture_default_str()
      ->check(CLI::PositiveNumber);
  app.add_option("--count", options.count, "end after so many files")->type_name("N");
}

void add_watching(CLI::App& app, Options& options) {
  app.add_option("--ledger", options.ledger, "SQLite file with all that came")->type_name("FILE");
  app.add_flag("--json", options.json, "one JSON object a line on standard output");
  app.add_option("--metrics", options.metrics, "Prometheus text file, kept up to date")
      ->type_name("FILE");
  app.add_option("--silence", options.silence, "warn when nothing came for so long")
      ->type_name("SECONDS")
      ->check(CLI::PositiveNumber);
}

void add_limits(CLI::App& app, Options& options, Texts& texts) {
  app.add_option("--allow", texts.allow, "senders to listen to; may be repeated")
      ->type_name("ADDRESS[/BITS]")
      ->check([](const std::string& text) {
        return check(to_network(text).has_value(), "not an IPv4 address or network");
      });
  app.add_option("--max-file-size", options.max_file_size, "refuse larger files")
      ->type_name("BYTES");
  app.add_option("--max-transfers", options.max_transfers, "refuse more at a time")
      ->type_name("N")
      ->capture_default_str()
      ->check(CLI::PositiveNumber);
  app.add_option("--reserve", options.store.reserve, "disk space that stays free")
      ->type_name("BYTES");
}

void add_report(CLI::App& app, Options& options) {
  CLI::App* report = app.add_subcommand("report", "print what came, from the ledger");
  report->add_option("--into", options.store.into, "folder that files arrive in")->type_name("DIR");
  report->add_option("--ledger", options.ledger, "SQLite file to read")->type_name("FILE");
  report->add_flag("--missing", options.report_options.missing,
                   "the sender's paths that did not arrive, by its trash journals");
  report->add_flag("--incomplete", options.report_options.incomplete, "unfinished files only");
  report->add_flag("--json", options.report_options.json, "one JSON object a line");
  report->callback([&options] { options.report = true; });
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
      "Exit status: 0 in order; 1 report: something did not arrive whole; 2 usage;\n"
      "3 the port can't be opened; 4 a folder or the ledger can't be used.");
  add_receiving(app, options, texts);
  add_watching(app, options);
  add_limits(app, options, texts);
  add_report(app, options);
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
  options.at = *to_endpoint(options.listen);
  for (const std::string& text : texts.allow) options.allow.push_back(*to_network(text));
  options.store.mode = static_cast<mode_t>(std::strtoul(texts.mode.c_str(), nullptr, 8));
  options.store.sync = !texts.no_sync;
  return -1;
}
