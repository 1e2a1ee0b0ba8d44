// The process entry's shared pieces: the cache-mode flag, the message
// functions and the handler type every command implements.
#pragma once

// True when the commands read a snapshot file, false when they read the live
// kernel. Set once by the entry before any handler runs.
extern unsigned char gZifCacheMode;

// Format like printf into a 1024-byte buffer (longer output is cut to 1023
// characters), write it unchanged to standard error. Panic then ends the
// process with status 1; Warning returns.
[[noreturn]] void Panic(const char *format, ...) __attribute__((format(printf, 1, 2)));
void Warning(const char *format, ...) __attribute__((format(printf, 1, 2)));

// A command: argument count and vector (starting with the command word as
// typed) to exit status.
using CommandHandler = int (*)(int argc, char **argv);

// The process entry: chooses the source, checks the signature, runs one command.
int ZifToolsMain(int argc, char **argv);

// The command table's handlers, one per command of commands.def.
#define ZIF_COMMAND(name, handler) int handler(int argc, char **argv);
#include "commands.def"
#undef ZIF_COMMAND
