// The kernel's module list as lspci and lsacpi keep it: each module's ID and
// name, read from the module general records in instance-list order.
#pragma once

#include <cstdint>
#include <vector>

#include "zellibs.h"

struct ModuleName {
   std::uint16_t id = 0;  // the low 16 bits of the module ID
   char name[32] = {};    // at most 31 characters, terminated
};

struct ModuleList {
   // Where reading stopped; the caller says what each means to it.
   enum class Failure { kNone, kNoQueryList, kListFailed, kNoMemory, kKeyCopyFailed, kRecordFailed };

   std::vector<ModuleName> modules;  // empty after a failure
   Failure failure = Failure::kNone;
   ZLC_ReturnStatus status = 0;  // the failed list fetch's or record read's
};

// Reads the ID and name of every kernel module; stops at the first failure.
ModuleList ReadModuleList();
