// lsof: not built yet; its row in the command table runs this until it is.
#include "ziftools.h"

int LsofMain(int, char **) { return NotBuiltYet("lsof"); }
