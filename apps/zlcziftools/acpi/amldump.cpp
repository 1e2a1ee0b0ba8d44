// amldump: not built yet; its row in the command table runs this until it is.
#include "ziftools.h"

int AmldumpMain(int, char **) { return NotBuiltYet("amldump"); }
