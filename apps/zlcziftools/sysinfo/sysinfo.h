// The program's layer over the sysinfo client library: list ownership, the
// instance-list call, the key copy and the one walker that every listing uses.
#pragma once

#include <memory>

#include "zellibs.h"

namespace sysinfo {

struct ParamListDeleter {
   void operator()(ZIF_ParamList *list) const { ZIF_ParamListDestroy(list); }
};
// Owns a query list, an input list or an instance list.
using ParamListPtr = std::unique_ptr<ZIF_ParamList, ParamListDeleter>;

// ZIF_ParamListCreate(kind, capacity) into an owner; empty when out of memory.
inline ParamListPtr MakeParamList(int kind, int capacity) {
   return ParamListPtr(ZIF_ParamListCreate(kind, capacity));
}
inline ParamListPtr MakeQueryList(int capacity = 1) {
   return MakeParamList(1, capacity);
}

// The node number a node object stands for.
inline ZIF_NodeNumber Node(const ZIF_NodeObject &object) {
   return object.number;
}

// The instance-list call: the instances of node under the parent keys (null
// at the top level).
ZLC_ReturnStatus GetInstanceList(ZIF_NodeNumber node, ZIF_ParamList *parent, ZIF_ParamList **list);

// The key copy: appends an instance key to a query list. Returns false (after
// "Couldn't add param to list: %#x") when the append fails; a key of a type
// other than integer or text ends the process.
bool CopyKey(ZIF_Param *key, ZIF_ParamList *query);

// What a walk's visitor asks for after one instance.
enum class Visit { Next, Stop };

struct WalkResult {
   enum class Kind { Done, ListFailed, KeyCopyFailed, Stopped };
   Kind kind = Kind::Done;
   ZLC_ReturnStatus status = 0;  // the list fetch's status when ListFailed

   bool Completed() const { return kind == Kind::Done; }
   bool ListFailed() const { return kind == Kind::ListFailed; }
   bool KeyCopyFailed() const { return kind == Kind::KeyCopyFailed; }
   bool Stopped() const { return kind == Kind::Stopped; }
};

// An instance list fetched and owned.
class InstanceList {
public:
   // Fetches the instances of node under parent (null at the top level).
   ZLC_ReturnStatus Fetch(ZIF_NodeNumber node, ZIF_ParamList *parent) {
      ZIF_ParamList *raw = nullptr;
      ZLC_ReturnStatus status = GetInstanceList(node, parent, &raw);
      list_.reset(status == 0 ? raw : nullptr);
      return status;
   }
   int Count() const { return list_ ? ZIF_ParamListUsedCount(list_.get()) : 0; }
   ZIF_Param *At(int index) const { return ZIF_ParamListGetParam(list_.get(), index); }
   ZIF_ParamList *Get() const { return list_.get(); }

private:
   ParamListPtr list_;
};

// Visits each instance of a fetched list in list order: appends its key to the
// query list, calls visit(key, index), then removes the key again, so the
// query list holds only the outer keys between instances.
template <typename Visitor>
WalkResult ForEachInstance(const InstanceList &instances, ZIF_ParamList *query, Visitor &&visit) {
   const int count = instances.Count();
   for (int index = 0; index < count; ++index) {
      ZIF_Param *key = instances.At(index);
      if (!CopyKey(key, query)) {
         return {WalkResult::Kind::KeyCopyFailed, 0};
      }
      Visit next = visit(key, index);
      ZIF_ParamListRemoveLastParam(query);
      if (next == Visit::Stop) {
         return {WalkResult::Kind::Stopped, 0};
      }
   }
   return {};
}

// The walk over the instances of a node: fetches the instance list under
// parent (null at the top level, else the query list holding the parent's
// keys) and visits each instance as ForEachInstance does.
template <typename Visitor>
WalkResult WalkInstances(ZIF_NodeNumber node, ZIF_ParamList *parent, ZIF_ParamList *query, Visitor &&visit) {
   InstanceList instances;
   ZLC_ReturnStatus status = instances.Fetch(node, parent);
   if (status != 0) {
      return {WalkResult::Kind::ListFailed, status};
   }
   return ForEachInstance(instances, query, std::forward<Visitor>(visit));
}

}  // namespace sysinfo
