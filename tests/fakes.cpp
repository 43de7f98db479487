#include "softlib/pause.h"
#include "tests/support.h"

Pauses pauses;
std::function<void(std::uint32_t)> on_pause;

void pause_us(std::uint32_t us) {
  pauses.push_back(us);
  on_pause(us);
}
