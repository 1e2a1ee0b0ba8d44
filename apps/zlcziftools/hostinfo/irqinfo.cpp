// irqinfo: not built yet; its row in the command table runs this until it is.
#include "ziftools.h"

int IrqinfoMain(int, char **) { return NotBuiltYet("irqinfo"); }
