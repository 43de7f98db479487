#include "check/reasons.h"

#include "state/settings.h"

std::string why_not(Readiness readiness) {
  switch (readiness) {
    case Readiness::kMask:
      return "its name begins with -b:" + settings.blk_mask;
    case Readiness::kExtension:
      return "it has the extension -e:" + settings.blk_ext;
    case Readiness::kIgnored:
      return "it is empty, or no regular file (-z)";
    case Readiness::kOpen:
      return "a process holds it open, or that can't be told";
    case Readiness::kYoung:
      return "it was modified no more than " + std::to_string(settings.time_send_wait) +
             " s ago (-x)";
    default:
      return "";
  }
}

std::string why_not(Sendable sendable) {
  switch (sendable) {
    case Sendable::kMissing:
      return "it is not there, or can't be opened";
    case Sendable::kIrregular:
      return "it is no regular file";
    case Sendable::kNoSize:
      return "it has no size";
    default:
      return "";
  }
}
