// The parts of a capture, one per family of nodes. Each reads the host and
// adds entries; one that cannot go on throws PartError, and the driver drops
// what that part added and notes why.
#pragma once

#include "builder.h"

#include <set>
#include <string>

namespace capture {

void CaptureWorlds(Capture &c);      // worlds, scheduler records, cartels, command lines, children
void CaptureCartels(Capture &c);     // working directories, descriptors, file mappings
void CapturePci(Capture &c);         // PCI functions, configuration spaces, device-info replies
void CaptureAcpi(Capture &c);        // ACPI tables and the ACPI device tree
void CaptureHost(Capture &c);        // uptime, loads, PCPUs, version, clock, boot command line
void CaptureInterrupts(Capture &c);  // interrupt cookies and their counts per PCPU
void CaptureMemfs(Capture &c);       // ramdisks and tardisks
void CaptureGroups(Capture &c);      // resource pool groups
void CaptureModules(Capture &c);     // the modules the PCI and ACPI parts met

// The inodes of one ramdisk (named name, mounted on dir): breadth first, on
// its own device, never into the other ramdisks' mount points, at most bound
// of them (a note says when there are more); their keys are appended to keys.
inline constexpr size_t kMaxInodesPerRamdisk = 10000;
void PutRamdiskInodes(Capture &c, const std::string &name, const std::string &dir,
                      const std::set<std::string> &otherMounts, size_t bound, zif::Keys &keys);

}  // namespace capture
