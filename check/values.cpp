#include "check/values.h"

#include "send/pacing.h"
#include "send/send_file.h"
#include "send/socket.h"
#include "state/settings.h"

namespace {

void check_mode(Findings& findings) {
  if (settings.mode < kOneScan || settings.mode > kTrashJournal)
    findings.warn("values",
                  "-m:" + std::to_string(settings.mode) + " is no mode: it runs as one scan (0)");
}

void check_negative(Findings& findings) {
  const struct {
    const char* option;
    int value;
    const char* effect;
  } kNumbers[] = {
      {"-c", settings.time_wait, "every cycle is over at once"},
      {"-r", settings.time_rescan, "passes follow each other without a pause"},
      {"-x", settings.time_send_wait, "no file is too young"},
      {"-q", settings.send_serv, "no service packet is sent"},
  };
  for (const auto& number : kNumbers) {
    if (number.value < 0)
      findings.warn("values", std::string(number.option) + ":" + std::to_string(number.value) +
                                  " is negative: " + number.effect);
  }
}

void check_names_to_leave(Findings& findings) {
  const std::string& ext = settings.blk_ext;
  if (ext.find('.') != std::string::npos)
    findings.warn("values", "-e:" + ext +
                                " never applies: an extension is what stands behind the "
                                "last \".\" of a name, without it");
  if (settings.blk_mask.find('/') != std::string::npos)
    findings.warn("values", "-b:" + settings.blk_mask + " never applies: names have no \"/\"");
  if (settings.blk_mask.find_first_of("*?") != std::string::npos)
    findings.warn("values",
                  "-b:" + settings.blk_mask + " is the beginning of names, to the letter");
}

}  // namespace

void check_values(const ReadWords& words, Findings& findings) {
  if (!words.command_line.empty() && words.command_line.back().option == "-h")
    findings.stop("words", "-h prints the usage text and ends");
  if (!settings.refusal.empty()) findings.stop("values", settings.refusal);
  check_mode(findings);
  if (!settings_send_it_whole())
    findings.stop("values", "nothing is sent: -u and -d must be 1 or more");
  if (!udata_size_is_valid())
    findings.stop("values", "-t:" + std::to_string(settings.udata_size) +
                                " can't be sent: datagrams have 1400 to 65507 bytes");
  if (!is_paced())
    findings.warn("values",
                  "without -s nothing is paced: the kernel drops what the queue of the "
                  "network interface does not hold, and nobody is told");
  check_negative(findings);
  check_names_to_leave(findings);
}
