// hwclock: not built yet; its row in the command table runs this until it is.
#include "ziftools.h"

int HwclockMain(int, char **) { return NotBuiltYet("hwclock"); }
