// uptime: not built yet; its row in the command table runs this until it is.
#include "ziftools.h"

int UptimeMain(int, char **) { return NotBuiltYet("uptime"); }
