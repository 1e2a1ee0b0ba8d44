// The seam to a real host kernel. Off the host there is no kernel to talk to,
// so detection says no and the back end answers every call with
// ZLC_NOT_SUPPORTED. A host build replaces this file with one that issues the
// kernel's sysinfo calls; nothing above the Backend interface changes.
#include "backend.h"

namespace zif {
namespace {

class HostBackend : public Backend {
public:
   ZLC_ReturnStatus listInstances(std::string_view, const Keys &, Keys &) override { return ZLC_NOT_SUPPORTED; }
   ZLC_ReturnStatus getRecord(std::string_view, const Keys &, std::span<uint8_t>) override {
      return ZLC_NOT_SUPPORTED;
   }
   ZLC_ReturnStatus dataLength(std::string_view, const Keys &, uint32_t &) override { return ZLC_NOT_SUPPORTED; }
   ZLC_ReturnStatus readData(std::string_view, const Keys &, uint32_t, std::span<uint8_t>, uint32_t &) override {
      return ZLC_NOT_SUPPORTED;
   }
   ZLC_ReturnStatus set(std::string_view, const Keys &, const Keys &, std::span<uint8_t>) override {
      return ZLC_NOT_SUPPORTED;
   }
   ZLC_ReturnStatus devInfo(const PciFunction &, std::span<uint8_t, ZLC_DEVINFO_REPLY_SIZE>, int64_t &e) override {
      e = 0;
      return ZLC_NOT_SUPPORTED;
   }
   // The live kernel is by definition built with the library's interface.
   bool signature(Signature &) override { return false; }
};

} // namespace

bool hostKernelPresent() { return false; }

std::unique_ptr<Backend> openHostBackend(ZLC_ReturnStatus &status) {
   status = ZLC_OK;
   return std::make_unique<HostBackend>();
}

} // namespace zif
