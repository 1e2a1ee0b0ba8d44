// rpcfg: not built yet; its row in the command table runs this until it is.
#include "ziftools.h"

int RpcfgMain(int, char **) { return NotBuiltYet("rpcfg"); }
