/*
 * zellibs.h - the sysinfo client library's C interface.
 *
 * The kernel publishes its state as a tree of sysinfo nodes. A node holds one
 * record or stands for a set of instances; an instance is addressed by a list
 * of keys, one per instance level, outermost first. This library reads and
 * writes those nodes from one of three sources:
 *   - a snapshot file, after ZIF_UseCache(path, 0) (read-only);
 *   - the simulator, when ZLC_SIMULATOR names a snapshot file: after
 *     ZlcSyscall_Init(1, 0, 0) that file acts as the live kernel, and writes
 *     are applied to it;
 *   - a real host's kernel (not available off the host; see "Host seam" in
 *     docs/snapshot-format.md).
 * Callers never learn which source answers.
 *
 * Every node operation returns a ZLC_ReturnStatus; 0 is success.
 */
#ifndef ZELLIBS_H
#define ZELLIBS_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef uint32_t ZLC_ReturnStatus;

/* Status codes. The first group are the kernel's own; the second the library's. */
#define ZLC_OK 0x0u
#define ZLC_FAILURE 0xbad0001u        /* generic failure */
#define ZLC_BAD_PARAM 0xbad0007u      /* bad parameter */
#define ZLC_NO_MEMORY 0xbad0014u      /* out of memory */
#define ZLC_LIMIT_EXCEEDED 0xbad0017u /* limit exceeded */
#define ZLC_NOT_FOUND 0xbad0062u      /* not found */
#define ZLC_NOT_SUPPORTED 0xbad0094u  /* not supported */

#define ZLC_SNAP_NOT_A_SNAPSHOT 0xbad1001u /* the file is not a snapshot */
#define ZLC_SNAP_BAD_VERSION 0xbad1002u    /* unsupported snapshot format version */
#define ZLC_SNAP_TRUNCATED 0xbad1003u      /* the snapshot file is truncated */
#define ZLC_SNAP_CORRUPT 0xbad1004u        /* a checksum or structure check failed */
#define ZLC_SNAP_CANNOT_OPEN 0xbad1005u    /* the file cannot be opened or mapped */
#define ZLC_SNAP_READ_ONLY 0xbad1006u      /* a snapshot cannot be changed */
#define ZLC_NO_SOURCE 0xbad1007u           /* neither a host kernel nor a snapshot in use */
#define ZLC_NO_SUCH_NODE 0xbad1008u        /* the snapshot holds nothing for this node and keys */
#define ZLC_WRITE_FAILED 0xbad1009u        /* the simulator could not save its state */

/* Returns a constant text naming the status (never NULL). */
const char *ZLC_ReturnStatusToString(ZLC_ReturnStatus status);

/*
 * Node objects. The first 16 bits are the node number, which is what every
 * node operation takes; the rest belongs to the library.
 */
typedef struct ZIF_NodeObject {
   uint16_t number;
   uint16_t reserved;
   uint32_t reserved2;
   const char *name; /* the node's path, levels joined by '_', e.g. "world_info" */
} ZIF_NodeObject;

typedef uint16_t ZIF_NodeNumber;

#define ZIF_NODE_LIST(X)                                                     \
   X(hardware_acpi_tables)                                                   \
   X(hardware_acpi_tables_buffers)                                           \
   X(hardware_chipset_rtc)                                                   \
   X(hardware_cpu_cpuInfo)                                                   \
   X(hardware_interrupts_cookieList)                                         \
   X(hardware_interrupts_cookieList_PCPU)                                    \
   X(hardware_interrupts_cookieList_UsageStatus)                             \
   X(hardware_interrupts_cookieList_ZLCDevices)                              \
   X(hardware_pci_seg)                                                       \
   X(hardware_pci_seg_bus)                                                   \
   X(hardware_pci_seg_bus_slot)                                              \
   X(hardware_pci_seg_bus_slot_func)                                         \
   X(hardware_pci_seg_bus_slot_func_pciConfigHeader)                         \
   X(hardware_pci_seg_bus_slot_func_pciConfigSpace)                          \
   X(hardware_pci_seg_bus_slot_func_pciExtConfigSpace)                       \
   X(sched_Vcpus_stats_affinity)                                             \
   X(sched_Vcpus_stats_stateTimes)                                           \
   X(sched_Vcpus_stats_summaryStats)                                         \
   X(sched_globalStats_numPcpus)                                             \
   X(sched_groupPathNameToID)                                                \
   X(sched_groups_memAllocationInMB)                                         \
   X(sched_groups_members_groups)                                            \
   X(sched_groups_stats_cpuStatsDir_cpuLoadHistory_cpuLoadHistory1MinInPct)  \
   X(sched_groups_stats_cpuStatsDir_cpuLoadHistory_cpuLoadHistory5MinInPct)  \
   X(sched_groups_stats_cpuStatsDir_cpuLoadHistory_cpuLoadHistory15MinInPct) \
   X(sched_groups_stats_memoryStats)                                         \
   X(system_bootCmdLine)                                                     \
   X(system_bootMAC)                                                         \
   X(system_bootOption)                                                      \
   X(system_bootOptionFiles)                                                 \
   X(system_bootOptionFiles_content)                                         \
   X(system_devicetree_devices)                                              \
   X(system_devicetree_devices_info)                                         \
   X(system_modules)                                                         \
   X(system_modules_general)                                                 \
   X(system_ntpclock_upTime)                                                 \
   X(system_version)                                                         \
   X(system_zelorfs_inodes)                                                  \
   X(system_zelorfs_inodes_stats)                                            \
   X(system_zelorfs_ramdisks)                                                \
   X(system_zelorfs_ramdisks_stats)                                          \
   X(system_zelorfs_tardisks)                                                \
   X(system_zelorfs_tardisks_stats)                                          \
   X(userworld_cartel)                                                       \
   X(userworld_cartel_child)                                                 \
   X(userworld_cartel_cmdline)                                               \
   X(userworld_cartel_fd_cwd)                                                \
   X(userworld_cartel_fd_fds)                                                \
   X(userworld_cartel_mem_mmaps)                                             \
   X(world)                                                                  \
   X(world_info)                                                             \
   X(world_name)

#define ZIF_DECLARE_NODE_OBJECT(name) extern const ZIF_NodeObject ZIF_NODE_##name;
ZIF_NODE_LIST(ZIF_DECLARE_NODE_OBJECT)
#undef ZIF_DECLARE_NODE_OBJECT

/*
 * Parameters and parameter lists. A list is either a query list (kind 1: the
 * keys of one instance) or an input list (kind 0: values for ZIF_Set). A
 * parameter is owned by its list; its type is a uint32 at byte offset 28 of
 * the parameter object.
 */
typedef struct ZIF_Param ZIF_Param;
typedef struct ZIF_ParamList ZIF_ParamList;

#define ZIF_PARAM_TYPE_OFFSET 28
#define ZIF_PARAM_TYPE_INT 1u
#define ZIF_PARAM_TYPE_STRING 2u

ZIF_ParamList *ZIF_ParamListCreate(int kind, int capacity);
void ZIF_ParamListDestroy(ZIF_ParamList *list);
ZLC_ReturnStatus ZIF_ParamListAddInt(ZIF_ParamList *list, int64_t value);
ZLC_ReturnStatus ZIF_ParamListAddString(ZIF_ParamList *list, const char *text);
void ZIF_ParamListRemoveLastParam(ZIF_ParamList *list);
int32_t ZIF_ParamListUsedCount(const ZIF_ParamList *list);
uint32_t ZIF_ParamListNumInstances(const ZIF_ParamList *list);
ZIF_Param *ZIF_ParamListGetParam(ZIF_ParamList *list, int index);
int64_t ZIF_ParamGetInt(const ZIF_Param *param);
const char *ZIF_ParamGetString(const ZIF_Param *param);
ZLC_ReturnStatus ZIF_ParamListGetInt32(ZIF_ParamList *list, int index, int32_t *value);
ZLC_ReturnStatus ZIF_ParamListGetUInt64(ZIF_ParamList *list, int index, uint64_t *value);
ZLC_ReturnStatus ZIF_ParamListGetString(ZIF_ParamList *list, int index, const char **text);

/*
 * Data objects: a byte buffer with a size, used with ZIF_SetData. After a
 * successful ZIF_SetData the output object's length holds the number of bytes
 * delivered.
 */
typedef struct ZIFData {
   uint32_t size;   /* bytes allocated */
   uint32_t length; /* bytes holding data */
   unsigned char *bytes;
} ZIFData;

ZIFData *ZIFData_Create(uint32_t size, const void *bytes, uint32_t byteCount);
void *ZIFData_GetData(ZIFData *data);
void ZIFData_Destroy(ZIFData *data);

/* Node operations. */
ZLC_ReturnStatus ZIF_Get(ZIF_NodeNumber node, ZIF_ParamList *params, void *buffer, uint32_t length);
ZLC_ReturnStatus ZIF_Set(ZIF_NodeNumber node, ZIF_ParamList *params, ZIF_ParamList *input, void *output,
                         uint32_t outputLength);
ZLC_ReturnStatus ZIF_GetInstanceListAlloc(ZIF_NodeNumber node, ZIF_ParamList *params, ZIF_ParamList **list);
ZLC_ReturnStatus ZIF_GetInstanceListAllocHint(ZIF_NodeNumber node, ZIF_ParamList *params, uint32_t hint,
                                              ZIF_ParamList **list);
ZLC_ReturnStatus ZIF_GetDataLength(ZIF_NodeNumber node, ZIF_ParamList *params, uint32_t *length);
ZLC_ReturnStatus ZIF_SetData(ZIF_NodeNumber node, ZIF_ParamList *params, ZIFData *input, ZIFData *output);

/* Sources, signature and host type. */
ZLC_ReturnStatus ZIF_UseCache(const char *path, int flags);
/* 0 when the source's signature matches the library's; otherwise non-zero, the
 * source's build date in buffer (not necessarily terminated) and the library's
 * own build date in *date. */
int ZIF_CheckSig(char *buffer, int bufferLength, const char **date);
int HostType_OSIsZLC(void);
int HostType_OSIsSimulator(void);
ZLC_ReturnStatus ZlcSyscall_Init(int mode, int flags1, int flags2);

/*
 * The kernel's device-info system call for one PCI function. Fills the
 * 1024-byte reply (8 records of 128 bytes). Returns the call's status; a
 * non-zero *negErrno is a negated error number.
 */
#define ZLC_SYSCALL_DEVINFO 1193
#define ZLC_DEVINFO_REPLY_SIZE 1024
ZLC_ReturnStatus ZlcSyscall_DevInfo(uint32_t segment, uint32_t bus, uint32_t slot, uint32_t function, void *reply,
                                    int64_t *negErrno);

/*
 * zdu's way from a path to its inode record. A host keeps its in-memory root
 * file system on one device (1, or the "rootDevice" of a simulator snapshot)
 * and keys system_zelorfs_inodes by inode number. A capture of a Linux host
 * has a file system of its own per ram disk, each with its own device and
 * inode numbers; its snapshot sets "rootDevice" ZLC_INODE_KEYS_BY_DEVICE and
 * keys each inode by both, ZLC_DEVICE_INODE_KEY (device and inode number
 * below 2^32 each).
 * ZlcSim_InodeKey sets *key to the key of the inode that lstat reports as
 * (device, inode) and returns 1, or returns 0 when that device holds no part
 * of the in-memory root file system.
 */
#define ZLC_INODE_KEYS_BY_DEVICE 0
#define ZLC_DEVICE_INODE_KEY(device, inode) ((int64_t)(((uint64_t)(device) << 32) | (uint32_t)(inode)))
int ZlcSim_InodeKey(uint64_t device, uint64_t inode, uint64_t *key);

/* A newly allocated copy of text without leading and trailing white space. */
char *StrUtil_TrimWhitespace(const char *text);

/*
 * Scheduler state names: arrays of 24-byte elements indexed by run state or
 * wait state number; the name is at offset 16.
 */
typedef struct CpuSched_StateElement {
   uint64_t reserved[2];
   const char *name;
} CpuSched_StateElement;

extern const CpuSched_StateElement CpuSched_RunStateElements[];
extern const uint32_t CpuSched_NumRunStates;
extern const CpuSched_StateElement CpuSched_WaitStateElements[];
extern const uint32_t CpuSched_NumWaitStates;

#ifdef __cplusplus
}
#endif

#endif /* ZELLIBS_H */
