// pci-info: not built yet; its row in the command table runs this until it is.
#include "ziftools.h"

int PciInfoMain(int, char **) { return NotBuiltYet("pci-info"); }
