// The C interface of zellibs.h over whichever back end is the current source.
// No C++ exception leaves this file: allocation failures become
// ZLC_NO_MEMORY or NULL.
#include "zellibs.h"

#include "backend.h"
#include "zellibs_testing.h"
#include "zifformat/layouts.h"

#include <cctype>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <new>
#include <vector>

struct ZIF_Param {
   int64_t number;      // 0
   char *text;          // 8: owned, NUL-terminated; NULL unless a text
   uint64_t reserved;   // 16
   uint32_t reserved2;  // 24
   uint32_t type;       // 28: ZIF_PARAM_TYPE_INT, ZIF_PARAM_TYPE_STRING or 3 (null key)
};
static_assert(offsetof(ZIF_Param, type) == ZIF_PARAM_TYPE_OFFSET);

struct ZIF_ParamList {
   int kind = 0;
   std::vector<ZIF_Param *> params;  // owned; pointers stay valid as the list grows
   // The parameters of an instance list, made in one allocation, and their
   // texts in another: params point into them, and those are not freed one
   // by one.
   std::unique_ptr<ZIF_Param[]> block;
   size_t blockSize = 0;
   std::unique_ptr<char[]> texts;
   size_t textsSize = 0;
   // Parameters removed from the end, kept for the next add: a walk appends
   // and removes a key per instance.
   std::vector<ZIF_Param *> spare;

   ZIF_ParamList() = default;
   ZIF_ParamList(const ZIF_ParamList &) = delete;
   ZIF_ParamList &operator=(const ZIF_ParamList &) = delete;
   ~ZIF_ParamList() {
      for (ZIF_Param *p : params) {
         release(p);
      }
      for (ZIF_Param *p : spare) {
         delete p;
      }
   }

   template <typename T>
   static bool within(const T *p, const T *begin, size_t size) {
      return begin && std::greater_equal<const T *>()(p, begin) && std::less<const T *>()(p, begin + size);
   }
   bool inBlock(const ZIF_Param *p) const { return within(p, block.get(), blockSize); }
   void freeText(ZIF_Param *p) const {
      // Most parameters are integers: no text, and no call to free.
      if (p->text != nullptr && !within<char>(p->text, texts.get(), textsSize)) {
         std::free(p->text);
      }
      p->text = nullptr;
   }
   void release(ZIF_Param *p) const {
      freeText(p);
      if (!inBlock(p)) {
         delete p;
      }
   }
   // Releases the last parameter, keeping it for reuse when it can.
   void removeLast() {
      ZIF_Param *p = params.back();
      params.pop_back();
      if (inBlock(p) || spare.size() >= kMaxSpare) {
         release(p);
         return;
      }
      freeText(p);
      try {
         spare.push_back(p);
      } catch (const std::bad_alloc &) {
         delete p;
      }
   }
   // Empties the list for its next use, keeping its storage: parameters as
   // spares, the vector's room, and an instance list's blocks.
   void clear() {
      while (!params.empty()) {
         removeLast();
      }
      kind = 0;
   }
   ZIF_Param *reuse() {
      if (spare.empty()) {
         return nullptr;
      }
      ZIF_Param *p = spare.back();
      spare.pop_back();
      return p;
   }
   static constexpr size_t kMaxSpare = 8;
};

namespace {

using namespace zif;

std::unique_ptr<Backend> gSource;
bool gSimulatorTried = false;

// Lists destroyed are kept for the next create: a walk makes and destroys a
// query list or an instance list for each instance it visits, and the library
// is for single-threaded use.
constexpr size_t kKeptLists = 8;

class KeptLists {
public:
   ~KeptLists() {
      closed_ = true;
      for (size_t i = 0; i < count_; i++) {
         delete lists_[i];
      }
      count_ = 0;
   }
   ZIF_ParamList *take() { return count_ > 0 ? lists_[--count_] : nullptr; }
   // Keeps list when there is room, else frees it.
   void give(ZIF_ParamList *list) {
      if (closed_ || count_ >= kKeptLists) {
         delete list;
         return;
      }
      list->clear();
      lists_[count_++] = list;
   }

private:
   ZIF_ParamList *lists_[kKeptLists] = {};
   size_t count_ = 0;
   // After exit has destroyed this, lists are freed at once.
   static inline bool closed_ = false;
};

KeptLists gKeptLists;

void freeParam(ZIF_Param *p) {
   std::free(p->text);
   delete p;
}

ZLC_ReturnStatus addParam(ZIF_ParamList *list, uint32_t type, int64_t number, const char *text) {
   if (!list) {
      return ZLC_BAD_PARAM;
   }
   ZIF_Param *p = list->reuse();
   if (p) {
      *p = {number, nullptr, 0, 0, type};
   } else {
      p = new (std::nothrow) ZIF_Param{number, nullptr, 0, 0, type};
   }
   if (!p) {
      return ZLC_NO_MEMORY;
   }
   if (text) {
      p->text = strdup(text);
      if (!p->text) {
         delete p;
         return ZLC_NO_MEMORY;
      }
   }
   try {
      list->params.push_back(p);
   } catch (const std::bad_alloc &) {
      freeParam(p);
      return ZLC_NO_MEMORY;
   }
   return ZLC_OK;
}

Keys toKeys(const ZIF_ParamList *list) {
   Keys keys;
   if (!list) {
      return keys;
   }
   keys.reserve(list->params.size());
   for (const ZIF_Param *p : list->params) {
      if (p->type == ZIF_PARAM_TYPE_INT) {
         keys.push_back(Key::ofInt(p->number));
      } else if (p->type == ZIF_PARAM_TYPE_STRING) {
         keys.push_back(Key::ofText(p->text ? p->text : ""));
      } else {
         keys.push_back(Key::null());
      }
   }
   return keys;
}

// The keys of a list encoded as encodeKeys would encode toKeys(list): in a
// buffer on the stack for the usual few keys, else on the heap.
class EncodedParams {
public:
   explicit EncodedParams(const ZIF_ParamList *list) {
      if (!list) {
         return;
      }
      size_t size = 0;
      for (const ZIF_Param *p : list->params) {
         size += encodedKeySize(typeOf(p), textOf(p));
      }
      uint8_t *out = fixed_;
      if (size > sizeof fixed_) {
         heap_ = std::make_unique<uint8_t[]>(size);
         out = heap_.get();
      }
      for (const ZIF_Param *p : list->params) {
         size_ += encodeKey(out + size_, typeOf(p), p->number, textOf(p));
      }
   }
   std::string_view view() const { return {reinterpret_cast<const char *>(heap_ ? heap_.get() : fixed_), size_}; }

private:
   static KeyType typeOf(const ZIF_Param *p) {
      return p->type == ZIF_PARAM_TYPE_INT      ? KeyType::Int
             : p->type == ZIF_PARAM_TYPE_STRING ? KeyType::Text
                                                : KeyType::Null;
   }
   static std::string_view textOf(const ZIF_Param *p) {
      return p->type == ZIF_PARAM_TYPE_STRING && p->text ? std::string_view(p->text) : std::string_view();
   }
   uint8_t fixed_[256];
   std::unique_ptr<uint8_t[]> heap_;
   size_t size_ = 0;
};

// An instance list from its keys as stored: the parameters in one block,
// their texts in another.
ZLC_ReturnStatus fromEncoded(std::span<const uint8_t> bytes, ZIF_ParamList *&out) {
   size_t count = 0, textBytes = 0;
   KeyType type;
   int64_t number;
   std::string_view text;
   KeyReader counter(bytes);
   while (counter.next(type, number, text)) {
      count++;
      textBytes += type == KeyType::Text ? text.size() + 1 : 0;
   }
   if (counter.malformed()) {
      return ZLC_SNAP_CORRUPT;
   }
   std::unique_ptr<ZIF_ParamList> list(ZIF_ParamListCreate(1, 0));
   if (!list) {
      return ZLC_NO_MEMORY;
   }
   // A list kept from an earlier use may have room enough already.
   try {
      list->params.reserve(count);
      if (list->blockSize < count) {
         list->block.reset();
         list->blockSize = 0;
         list->block = std::make_unique_for_overwrite<ZIF_Param[]>(count);
         list->blockSize = count;
      }
      if (list->textsSize < textBytes) {
         list->texts.reset();
         list->textsSize = 0;
         list->texts = std::make_unique_for_overwrite<char[]>(textBytes);
         list->textsSize = textBytes;
      }
   } catch (const std::bad_alloc &) {
      return ZLC_NO_MEMORY;
   }
   char *nextText = list->texts.get();
   ZIF_Param *p = list->block.get();
   for (KeyReader keys(bytes); keys.next(type, number, text); p++) {
      *p = {type == KeyType::Int ? number : 0, nullptr, 0, 0,
            type == KeyType::Int    ? ZIF_PARAM_TYPE_INT
            : type == KeyType::Text ? ZIF_PARAM_TYPE_STRING
                                    : 3};
      if (type == KeyType::Text) {
         if (!text.empty()) {
            std::memcpy(nextText, text.data(), text.size());
         }
         nextText[text.size()] = '\0';
         p->text = nextText;
         nextText += text.size() + 1;
      }
      list->params.push_back(p);
   }
   out = list.release();
   return ZLC_OK;
}

// Runs a node operation: resolves the node number and guards against
// exceptions from the back end.
template <typename Op>
ZLC_ReturnStatus nodeOp(ZIF_NodeNumber node, Op op) {
   if (!gSource) {
      return ZLC_NO_SOURCE;
   }
   const std::string_view name = nodeName(node);
   if (name.empty()) {
      return ZLC_BAD_PARAM;
   }
   try {
      return op(NodeRef{node, name});
   } catch (const std::bad_alloc &) {
      return ZLC_NO_MEMORY;
   } catch (...) {
      return ZLC_FAILURE;
   }
}

const char *simulatorPath() {
   const char *p = std::getenv("ZLC_SIMULATOR");
   return p && *p ? p : nullptr;
}

}  // namespace

void zif::resetSource() {
   gSource.reset();
   gSimulatorTried = false;
}

extern "C" {

const char *ZLC_ReturnStatusToString(ZLC_ReturnStatus status) {
   switch (status) {
      case ZLC_OK:
         return "Success";
      case ZLC_FAILURE:
         return "Failure";
      case ZLC_BAD_PARAM:
         return "Bad parameter";
      case ZLC_NO_MEMORY:
         return "Out of memory";
      case ZLC_LIMIT_EXCEEDED:
         return "Limit exceeded";
      case ZLC_NOT_FOUND:
         return "Not found";
      case ZLC_NOT_SUPPORTED:
         return "Not supported";
      case ZLC_SNAP_NOT_A_SNAPSHOT:
         return "Not a snapshot file";
      case ZLC_SNAP_BAD_VERSION:
         return "Unsupported snapshot format version";
      case ZLC_SNAP_TRUNCATED:
         return "Snapshot file is truncated";
      case ZLC_SNAP_CORRUPT:
         return "Snapshot file is corrupt";
      case ZLC_SNAP_CANNOT_OPEN:
         return "Cannot open snapshot file";
      case ZLC_SNAP_READ_ONLY:
         return "Snapshot is read-only";
      case ZLC_NO_SOURCE:
         return "No sysinfo source";
      case ZLC_NO_SUCH_NODE:
         return "No such node in snapshot";
      case ZLC_WRITE_FAILED:
         return "Cannot save simulator state";
      default:
         return "Unknown status";
   }
}

ZIF_ParamList *ZIF_ParamListCreate(int kind, int capacity) {
   ZIF_ParamList *list = gKeptLists.take();
   if (!list) {
      list = new (std::nothrow) ZIF_ParamList();
   }
   if (!list) {
      return nullptr;
   }
   list->kind = kind;
   try {
      if (capacity > 0) {
         list->params.reserve(static_cast<size_t>(std::min(capacity, 1024)));
      }
   } catch (const std::bad_alloc &) {
      delete list;
      return nullptr;
   }
   return list;
}

void ZIF_ParamListDestroy(ZIF_ParamList *list) {
   if (list) {
      gKeptLists.give(list);
   }
}

ZLC_ReturnStatus ZIF_ParamListAddInt(ZIF_ParamList *list, int64_t value) {
   return addParam(list, ZIF_PARAM_TYPE_INT, value, nullptr);
}

ZLC_ReturnStatus ZIF_ParamListAddString(ZIF_ParamList *list, const char *text) {
   if (!text) {
      return ZLC_BAD_PARAM;
   }
   return addParam(list, ZIF_PARAM_TYPE_STRING, 0, text);
}

void ZIF_ParamListRemoveLastParam(ZIF_ParamList *list) {
   if (list && !list->params.empty()) {
      list->removeLast();
   }
}

int32_t ZIF_ParamListUsedCount(const ZIF_ParamList *list) {
   return list ? static_cast<int32_t>(list->params.size()) : 0;
}

uint32_t ZIF_ParamListNumInstances(const ZIF_ParamList *list) {
   return list ? static_cast<uint32_t>(list->params.size()) : 0;
}

ZIF_Param *ZIF_ParamListGetParam(ZIF_ParamList *list, int index) {
   if (!list || index < 0 || static_cast<size_t>(index) >= list->params.size()) {
      return nullptr;
   }
   return list->params[static_cast<size_t>(index)];
}

int64_t ZIF_ParamGetInt(const ZIF_Param *param) {
   return param && param->type == ZIF_PARAM_TYPE_INT ? param->number : 0;
}

const char *ZIF_ParamGetString(const ZIF_Param *param) {
   return param && param->type == ZIF_PARAM_TYPE_STRING ? param->text : nullptr;
}

ZLC_ReturnStatus ZIF_ParamListGetInt32(ZIF_ParamList *list, int index, int32_t *value) {
   ZIF_Param *p = ZIF_ParamListGetParam(list, index);
   if (!p || !value || p->type != ZIF_PARAM_TYPE_INT) {
      return ZLC_BAD_PARAM;
   }
   *value = static_cast<int32_t>(p->number);
   return ZLC_OK;
}

ZLC_ReturnStatus ZIF_ParamListGetUInt64(ZIF_ParamList *list, int index, uint64_t *value) {
   ZIF_Param *p = ZIF_ParamListGetParam(list, index);
   if (!p || !value || p->type != ZIF_PARAM_TYPE_INT) {
      return ZLC_BAD_PARAM;
   }
   *value = static_cast<uint64_t>(p->number);
   return ZLC_OK;
}

ZLC_ReturnStatus ZIF_ParamListGetString(ZIF_ParamList *list, int index, const char **text) {
   ZIF_Param *p = ZIF_ParamListGetParam(list, index);
   if (!p || !text || p->type != ZIF_PARAM_TYPE_STRING) {
      return ZLC_BAD_PARAM;
   }
   *text = p->text;
   return ZLC_OK;
}

ZIFData *ZIFData_Create(uint32_t size, const void *bytes, uint32_t byteCount) {
   if (byteCount > size || (byteCount && !bytes)) {
      return nullptr;
   }
   ZIFData *d = static_cast<ZIFData *>(std::calloc(1, sizeof(ZIFData)));
   if (!d) {
      return nullptr;
   }
   d->bytes = static_cast<unsigned char *>(std::calloc(size ? size : 1, 1));
   if (!d->bytes) {
      std::free(d);
      return nullptr;
   }
   d->size = size;
   d->length = byteCount;
   if (byteCount) {
      std::memcpy(d->bytes, bytes, byteCount);
   }
   return d;
}

void *ZIFData_GetData(ZIFData *data) {
   return data ? data->bytes : nullptr;
}

void ZIFData_Destroy(ZIFData *data) {
   if (data) {
      std::free(data->bytes);
      std::free(data);
   }
}

ZLC_ReturnStatus ZIF_Get(ZIF_NodeNumber node, ZIF_ParamList *params, void *buffer, uint32_t length) {
   if (!buffer && length) {
      return ZLC_BAD_PARAM;
   }
   return nodeOp(node, [&](const NodeRef &ref) {
      return gSource->getRecordEncoded(ref, EncodedParams(params).view(), {static_cast<uint8_t *>(buffer), length});
   });
}

ZLC_ReturnStatus ZIF_Set(ZIF_NodeNumber node, ZIF_ParamList *params, ZIF_ParamList *input, void *output,
                         uint32_t outputLength) {
   std::span<uint8_t> out;
   if (output) {
      out = {static_cast<uint8_t *>(output), outputLength};
   }
   return nodeOp(node, [&](const NodeRef &ref) { return gSource->set(ref.name, toKeys(params), toKeys(input), out); });
}

ZLC_ReturnStatus ZIF_GetInstanceListAlloc(ZIF_NodeNumber node, ZIF_ParamList *params, ZIF_ParamList **list) {
   if (!list) {
      return ZLC_BAD_PARAM;
   }
   *list = nullptr;
   return nodeOp(node, [&](const NodeRef &ref) {
      std::span<const uint8_t> keys;
      ZLC_ReturnStatus s = gSource->listInstancesEncoded(ref, EncodedParams(params).view(), keys);
      if (s != ZLC_OK) {
         return s;
      }
      return fromEncoded(keys, *list);
   });
}

ZLC_ReturnStatus ZIF_GetInstanceListAllocHint(ZIF_NodeNumber node, ZIF_ParamList *params, uint32_t,
                                              ZIF_ParamList **list) {
   return ZIF_GetInstanceListAlloc(node, params, list);
}

ZLC_ReturnStatus ZIF_GetDataLength(ZIF_NodeNumber node, ZIF_ParamList *params, uint32_t *length) {
   if (!length) {
      return ZLC_BAD_PARAM;
   }
   return nodeOp(node, [&](const NodeRef &ref) { return gSource->dataLength(ref.name, toKeys(params), *length); });
}

// The input object holds a read request {u32 offset, u32 count}; the output
// receives min(count, bytes left, output size) bytes.
ZLC_ReturnStatus ZIF_SetData(ZIF_NodeNumber node, ZIF_ParamList *params, ZIFData *input, ZIFData *output) {
   if (!input || !output || !input->bytes || input->length < 8 || (!output->bytes && output->size)) {
      return ZLC_BAD_PARAM;
   }
   uint32_t offset = 0, count = 0;
   for (int i = 3; i >= 0; i--) {
      offset = (offset << 8) | input->bytes[i];
      count = (count << 8) | input->bytes[4 + i];
   }
   return nodeOp(node, [&](const NodeRef &ref) {
      uint32_t delivered = 0;
      std::span<uint8_t> out(output->bytes, std::min(count, output->size));
      ZLC_ReturnStatus s = gSource->readData(ref.name, toKeys(params), offset, out, delivered);
      if (s == ZLC_OK) {
         output->length = delivered;
      }
      return s;
   });
}

ZLC_ReturnStatus ZIF_UseCache(const char *path, int) {
   if (!path) {
      return ZLC_BAD_PARAM;
   }
   try {
      ZLC_ReturnStatus status;
      auto backend = openSnapshotBackend(path, status);
      if (!backend) {
         return status;
      }
      gSource = std::move(backend);
      return ZLC_OK;
   } catch (const std::bad_alloc &) {
      return ZLC_NO_MEMORY;
   }
}

int ZIF_CheckSig(char *buffer, int bufferLength, const char **date) {
   if (date) {
      *date = libraryBuildDate();
   }
   Signature sig;
   if (!gSource || !gSource->signature(sig) || sig.digest == librarySignatureDigest()) {
      return 0;
   }
   if (buffer && bufferLength > 0) {
      size_t n = std::min(sig.date.size() + 1, static_cast<size_t>(bufferLength));
      std::memcpy(buffer, sig.date.c_str(), n);
   }
   return 1;
}

int HostType_OSIsZLC(void) {
   return hostKernelPresent() ? 1 : 0;
}

int HostType_OSIsSimulator(void) {
   return simulatorPath() ? 1 : 0;
}

// Prepares live access once: the host kernel, else the simulator. A source
// chosen earlier (a snapshot from ZIF_UseCache) is kept.
ZLC_ReturnStatus ZlcSyscall_Init(int, int, int) {
   if (gSource) {
      return ZLC_OK;
   }
   try {
      ZLC_ReturnStatus status = ZLC_NO_SOURCE;
      if (hostKernelPresent()) {
         gSource = openHostBackend(status);
      } else if (const char *path = simulatorPath(); path && !gSimulatorTried) {
         gSimulatorTried = true;
         gSource = openSimulatorBackend(path, status);
         if (!gSource) {
            std::fprintf(stderr, "zellibs: simulator snapshot %s: %s\n", path, ZLC_ReturnStatusToString(status));
            if (std::strcmp(path, "-") == 0) {
               std::fputs("zellibs: the simulator maps and rewrites a snapshot file; standard input cannot be one\n",
                          stderr);
            }
            gSource = makeFailingBackend(status);
         }
      }
      return status;
   } catch (const std::bad_alloc &) {
      return ZLC_NO_MEMORY;
   }
}

ZLC_ReturnStatus ZlcSyscall_DevInfo(uint32_t segment, uint32_t bus, uint32_t slot, uint32_t function, void *reply,
                                    int64_t *negErrno) {
   int64_t err = 0;
   ZLC_ReturnStatus s = ZLC_NO_SOURCE;
   if (!reply) {
      s = ZLC_BAD_PARAM;
   } else if (gSource) {
      try {
         s = gSource->devInfo(
               {segment, bus, slot, function},
               std::span<uint8_t, ZLC_DEVINFO_REPLY_SIZE>(static_cast<uint8_t *>(reply), ZLC_DEVINFO_REPLY_SIZE), err);
      } catch (const std::bad_alloc &) {
         s = ZLC_NO_MEMORY;
      }
   }
   if (negErrno) {
      *negErrno = err;
   }
   return s;
}

int ZlcSim_InodeKey(uint64_t device, uint64_t inode, uint64_t *key) {
   uint64_t found = inode;
   bool inMemory = false;
   try {
      inMemory = gSource && gSource->inodeKey(device, inode, found);
   } catch (const std::bad_alloc &) {
      inMemory = false;
   }
   if (inMemory && key) {
      *key = found;
   }
   return inMemory ? 1 : 0;
}

char *StrUtil_TrimWhitespace(const char *text) {
   if (!text) {
      return nullptr;
   }
   const char *begin = text;
   while (*begin && std::isspace(static_cast<unsigned char>(*begin))) {
      begin++;
   }
   const char *end = begin + std::strlen(begin);
   while (end > begin && std::isspace(static_cast<unsigned char>(end[-1]))) {
      end--;
   }
   return strndup(begin, static_cast<size_t>(end - begin));
}

// Scheduler states. Names longer than six characters are cut by the tools.
#define ZIF_STATE(name) \
   { {0, 0}, name }
const CpuSched_StateElement CpuSched_RunStateElements[] = {
      ZIF_STATE("NEW"),    ZIF_STATE("ZOMBIE"), ZIF_STATE("READY"),  ZIF_STATE("RUN"),
      ZIF_STATE("WAIT"),   ZIF_STATE("WAITB"),  ZIF_STATE("SUSPND"), ZIF_STATE("MIGRAT"),
      ZIF_STATE("BUSYWT"), ZIF_STATE("HALTED"), ZIF_STATE("IDLE"),
};
const uint32_t CpuSched_NumRunStates = sizeof CpuSched_RunStateElements / sizeof CpuSched_RunStateElements[0];

const CpuSched_StateElement CpuSched_WaitStateElements[] = {
      ZIF_STATE("NONE"),   ZIF_STATE("ANY"),    ZIF_STATE("IDLE"),  ZIF_STATE("LOCK"),   ZIF_STATE("SEMA"),
      ZIF_STATE("RWLOCK"), ZIF_STATE("EVENT"),  ZIF_STATE("SLEEP"), ZIF_STATE("TIMER"),  ZIF_STATE("IO"),
      ZIF_STATE("BLKIO"),  ZIF_STATE("NET"),    ZIF_STATE("RPC"),   ZIF_STATE("FS"),     ZIF_STATE("SWPIN"),
      ZIF_STATE("MEM"),    ZIF_STATE("UWAIT"),  ZIF_STATE("FUTEX"), ZIF_STATE("POLL"),   ZIF_STATE("PIPE"),
      ZIF_STATE("SOCKET"), ZIF_STATE("SIGNAL"), ZIF_STATE("CHILD"), ZIF_STATE("DRIVER"), ZIF_STATE("AIO"),
};
const uint32_t CpuSched_NumWaitStates = sizeof CpuSched_WaitStateElements / sizeof CpuSched_WaitStateElements[0];
#undef ZIF_STATE
static_assert(sizeof(CpuSched_StateElement) == 24 && offsetof(CpuSched_StateElement, name) == 16);

}  // extern "C"
