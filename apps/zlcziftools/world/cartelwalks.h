// The walks over the cartel list that the lookup commands share: pgrep and
// pkill visit every cartel with the text they match it by; pidof and
// userspaceof visit the world info record of every cartel or world, and their
// messages carry the prefix "CartelList: ".
#pragma once

#include <cstdint>
#include <string>

#include "records.h"
#include "sysinfo.h"

namespace world {

// A record read with one of these statuses skips the cartel silently: it has
// gone, or it has no such record.
bool IsSkipStatus(ZLC_ReturnStatus status);

// Reads the cartel's command line (commandLine true) or its world name; the
// query list holds the cartel key.
ZLC_ReturnStatus ReadCartelText(ZIF_ParamList *query, bool commandLine, std::string &text);

// The cartel list with the text that each cartel is matched by.
class CartelTexts {
public:
   // Creates the query list and fetches the cartel list: ZLC_NO_MEMORY or
   // the fetch's status when either fails, else 0.
   ZLC_ReturnStatus Open();
   bool Empty() const { return cartels_.Count() == 0; }

   // The ID of the cartel at index: its instance key.
   ZLC_ReturnStatus CartelId(int index, std::int32_t &id) const {
      return ZIF_ParamListGetInt32(cartels_.Get(), index, &id);
   }

   // Visits each cartel in list order with its command line (commandLine
   // true) or its world name, passing over a cartel whose read returns a skip
   // status. visit(text, index) returns 0 to go on, or a status that ends the
   // walk. Returns 0 after the last cartel, else the status that ended it:
   // the visitor's, a failed read's, or ZLC_FAILURE when a key copy failed.
   template <typename Visitor>
   ZLC_ReturnStatus ForEach(bool commandLine, Visitor &&visit) {
      ZLC_ReturnStatus status = 0;
      const sysinfo::WalkResult walk = sysinfo::ForEachInstance(cartels_, query_.get(), [&](ZIF_Param *, int index) {
         status = ReadCartelText(query_.get(), commandLine, text_);
         if (IsSkipStatus(status)) {
            status = 0;
            return sysinfo::Visit::Next;
         }
         if (status == 0) {
            status = visit(static_cast<const std::string &>(text_), index);
         }
         return status == 0 ? sysinfo::Visit::Next : sysinfo::Visit::Stop;
      });
      return walk.KeyCopyFailed() ? ZLC_FAILURE : status;
   }

private:
   sysinfo::ParamListPtr query_;
   sysinfo::InstanceList cartels_;
   std::string text_;
};

// Creates the query list and fetches the instances of node; false after a
// "CartelList: " message when either fails.
bool OpenCartelList(const ZIF_NodeObject &node, sysinfo::ParamListPtr &query, sysinfo::InstanceList &instances);

// Visits the world info record of each instance of node (every cartel, or
// every world) in list order, passing over an instance whose record cannot be
// read. visit(info, query) may end the walk with Visit::Stop; the query list
// then holds the instance's key as its last, which the visitor may replace.
// Returns false when the walk could not be made (after a "CartelList: "
// message) or a key copy cut it short.
template <typename Visitor>
bool ForEachWorldInfo(const ZIF_NodeObject &node, Visitor &&visit) {
   sysinfo::ParamListPtr query;
   sysinfo::InstanceList instances;
   if (!OpenCartelList(node, query, instances)) {
      return false;
   }
   rec::world_info info;
   const sysinfo::WalkResult walk = sysinfo::ForEachInstance(instances, query.get(), [&](ZIF_Param *, int) {
      if (sysinfo::GetRecord(info, query.get()) != 0) {
         return sysinfo::Visit::Next;
      }
      return visit(static_cast<const rec::world_info &>(info), query.get());
   });
   return !walk.KeyCopyFailed();
}

}  // namespace world
