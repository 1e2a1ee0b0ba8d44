// Where the ID files (pci.ids, its drop-in directories, the ACPI ID files) are
// read from.
//
// ZLC_HWDATA_DIR, when set and not empty, names the one directory for every
// file. Otherwise each name is looked up in /usr/share/hwdata, then in the data
// directory of this program's own installation (share/hwdata beside the bin/
// directory the running executable lives in; the build tree lays its data out
// the same way). A name found in neither is read from /usr/share/hwdata, so
// that the messages about it name the system's directory.
#pragma once

#include <span>
#include <string>
#include <string_view>

namespace hwdata {

inline constexpr char kSystemDir[] = "/usr/share/hwdata";

// The directory to read the file or drop-in directory `name` from.
std::string DirectoryOf(std::string_view name);
// DirectoryOf(name) joined with name.
std::string PathOf(std::string_view name);

// The choice itself: `override` (ignored when null or empty) wins; else the
// first of `candidates` that holds `name`; else the first candidate. Empty
// candidates (a directory that cannot be told) are passed over.
std::string ChooseDirectory(std::string_view name, const char *override, std::span<const std::string> candidates);

// The data directory of the installation that holds `executable`, or empty
// when `executable` is empty.
std::string OwnDataDir(std::string_view executable);

}  // namespace hwdata
