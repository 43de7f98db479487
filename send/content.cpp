#include "send/content.h"

#include <ostream>

#include "send/transfer.h"
#include "state/console.h"
#include "state/metrics.h"

int FileContent::end_short() const {
  ++metrics.failed[kChanged];
  say(1) << "\nFile " << shown(file_.path()) << " could not be read as far as it was measured.";
  return kNotSent;
}
