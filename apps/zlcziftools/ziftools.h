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

// The message of a command whose implementation has not landed yet.
int NotBuiltYet(const char *name);

// The command table's handlers, one per command, in the table's stored order.
int LspciMain(int argc, char **argv);
int LsacpiMain(int argc, char **argv);
int PsMain(int argc, char **argv);
int HwclockMain(int argc, char **argv);
int ZelnorMain(int argc, char **argv);
int IrqinfoMain(int argc, char **argv);
int BootOptionMain(int argc, char **argv);
int AmldumpMain(int argc, char **argv);
int PciInfoMain(int argc, char **argv);
int PidofMain(int argc, char **argv);
int UserspaceofMain(int argc, char **argv);
int ZduMain(int argc, char **argv);
int LsofMain(int argc, char **argv);
int ZdfMain(int argc, char **argv);
int PkillMain(int argc, char **argv);
int PgrepMain(int argc, char **argv);
int UptimeMain(int argc, char **argv);
int RpcfgMain(int argc, char **argv);
