// zdf: not built yet; its row in the command table runs this until it is.
#include "ziftools.h"

int ZdfMain(int, char **) { return NotBuiltYet("zdf"); }
