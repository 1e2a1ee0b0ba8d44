// Whether a command line names a program: how pidof compares names and paths.
#pragma once

#include <string_view>

namespace world {

// The part after the last '/': the whole text without one, empty when the text
// ends in '/'.
std::string_view LastPathComponent(std::string_view path);

// A word of a command line names a program when the two are equal, or the
// word equals the program's last path component, or the word's last path
// component equals the program.
bool NameMatches(std::string_view word, std::string_view program);

// The program word is the command line up to its first blank. With scripts,
// a command line run by /bin/sh, /bin/ash or /bin/bash also names the program
// of its second word (the script).
bool CommandLineNames(std::string_view commandLine, std::string_view program, bool scripts);

}  // namespace world
