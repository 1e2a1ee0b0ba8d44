// userspaceof: not built yet; its row in the command table runs this until it is.
#include "ziftools.h"

int UserspaceofMain(int, char **) { return NotBuiltYet("userspaceof"); }
