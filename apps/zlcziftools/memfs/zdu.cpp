// zdu: not built yet; its row in the command table runs this until it is.
#include "ziftools.h"

int ZduMain(int, char **) { return NotBuiltYet("zdu"); }
