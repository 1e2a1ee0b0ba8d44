// lsacpi: not built yet; its row in the command table runs this until it is.
#include "ziftools.h"

int LsacpiMain(int, char **) { return NotBuiltYet("lsacpi"); }
