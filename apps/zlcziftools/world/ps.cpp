// ps: not built yet; its row in the command table runs this until it is.
#include "ziftools.h"

int PsMain(int, char **) { return NotBuiltYet("ps"); }
