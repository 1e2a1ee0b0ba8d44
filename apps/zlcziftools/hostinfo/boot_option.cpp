// bootOption: not built yet; its row in the command table runs this until it is.
#include "ziftools.h"

int BootOptionMain(int, char **) { return NotBuiltYet("bootOption"); }
