// pidof: not built yet; its row in the command table runs this until it is.
#include "ziftools.h"

int PidofMain(int, char **) { return NotBuiltYet("pidof"); }
