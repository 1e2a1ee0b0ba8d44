// zelnor: not built yet; its row in the command table runs this until it is.
#include "ziftools.h"

int ZelnorMain(int, char **) { return NotBuiltYet("zelnor"); }
