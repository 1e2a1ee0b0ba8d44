// The seam to a real host kernel. Off the host there is no kernel to talk to,
// so detection says no and the back end answers every call with
// ZLC_NOT_SUPPORTED (and, like any live kernel, has no signature to check). A
// host build replaces this file with one that issues the kernel's sysinfo
// calls; nothing above the Backend interface changes.
#include "backend.h"

namespace zif {

bool hostKernelPresent() {
   return false;
}

std::unique_ptr<Backend> openHostBackend(ZLC_ReturnStatus &status) {
   status = ZLC_OK;
   return makeFailingBackend(ZLC_NOT_SUPPORTED);
}

}  // namespace zif
