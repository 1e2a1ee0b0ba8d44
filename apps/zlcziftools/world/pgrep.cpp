// pgrep: not built yet; its row in the command table runs this until it is.
#include "ziftools.h"

int PgrepMain(int, char **) { return NotBuiltYet("pgrep"); }
