// pkill: not built yet; its row in the command table runs this until it is.
#include "ziftools.h"

int PkillMain(int, char **) { return NotBuiltYet("pkill"); }
