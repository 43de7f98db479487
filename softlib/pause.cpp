#include "softlib/pause.h"

#include <unistd.h>

void pause_us(std::uint32_t us) { usleep(us); }
