// The module list read of lspci and lsacpi.
#include "modules.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <string_view>

#include "records.h"
#include "sysinfo.h"

ModuleList ReadModuleList() {
   using Failure = ModuleList::Failure;
   ModuleList list;
   sysinfo::ParamListPtr query = sysinfo::MakeQueryList();
   if (!query) {
      list.failure = Failure::kNoQueryList;
      return list;
   }
   sysinfo::InstanceList instances;
   list.status = instances.Fetch(sysinfo::Node(ZIF_NODE_system_modules), nullptr);
   if (list.status != 0) {
      list.failure = Failure::kListFailed;
      return list;
   }
   try {
      list.modules.reserve(static_cast<std::size_t>(std::max(instances.Count(), 0)));
   } catch (const std::bad_alloc &) {
      list.failure = Failure::kNoMemory;
      return list;
   }
   rec::system_modules_general general;
   const sysinfo::WalkResult walk = sysinfo::ForEachInstance(instances, query.get(), [&](ZIF_Param *, int) {
      list.status = sysinfo::GetRecord(general, query.get());
      if (list.status != 0) {
         return sysinfo::Visit::Stop;
      }
      ModuleName &module = list.modules.emplace_back();
      module.id = static_cast<std::uint16_t>(general.moduleId() & 0xFFFF);
      const std::string_view name = general.name().substr(0, sizeof module.name - 1);
      std::memcpy(module.name, name.data(), name.size());
      return sysinfo::Visit::Next;
   });
   if (!walk.Completed()) {
      list.failure = walk.KeyCopyFailed() ? Failure::kKeyCopyFailed : Failure::kRecordFailed;
      list.modules.clear();
   }
   return list;
}
