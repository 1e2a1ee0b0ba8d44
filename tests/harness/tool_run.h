// Running the built programs from a unit test: finding them beside the test,
// and running one as a child process with its output captured in files.
#pragma once

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

namespace testtools {

namespace fs = std::filesystem;

// The build puts every executable into <build>/bin; the tests may live there
// or in <build>/tests. An environment variable, when given and set, names the
// program instead.
inline fs::path FindTool(const char *name, const char *overrideVariable = nullptr) {
   if (const char *path = overrideVariable != nullptr ? std::getenv(overrideVariable) : nullptr) {
      return path;
   }
   const fs::path self = fs::read_symlink("/proc/self/exe").parent_path();
   for (const fs::path &candidate : {self / name, self.parent_path() / "bin" / name}) {
      if (fs::exists(candidate)) {
         return candidate;
      }
   }
   return {};
}

inline std::string ReadFile(const fs::path &path) {
   std::ifstream in(path, std::ios::binary);
   return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

struct ToolRun {
   int status = -1;
   std::string out;
   std::string err;
   bool operator==(const ToolRun &) const = default;
};

inline void PrintTo(const ToolRun &run, std::ostream *os) {
   *os << "status " << run.status << ", out \"" << run.out << "\", err \"" << run.err << "\"";
}

struct RunOptions {
   fs::path simulator;         // ZLC_SIMULATOR for the child; unset when empty
   fs::path workingDirectory;  // the child's; the test's own when empty
};

inline RunOptions InSimulator(fs::path snapshot, fs::path workingDirectory = {}) {
   return {std::move(snapshot), std::move(workingDirectory)};
}

// Runs tool with argv[0] = the tool's path and args after it. Standard output
// and error go to out.txt and err.txt in scratch, read back when it exits.
inline ToolRun RunTool(const fs::path &tool, std::vector<std::string> args, const fs::path &scratch,
                       const RunOptions &options = {}) {
   const fs::path out = scratch / "out.txt";
   const fs::path err = scratch / "err.txt";
   const pid_t child = fork();
   if (child == 0) {
      const int outFd = open(out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
      const int errFd = open(err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
      if (outFd < 0 || errFd < 0 || dup2(outFd, 1) < 0 || dup2(errFd, 2) < 0) {
         _exit(125);
      }
      if (!options.simulator.empty()) {
         setenv("ZLC_SIMULATOR", options.simulator.c_str(), 1);
      } else {
         unsetenv("ZLC_SIMULATOR");
      }
      if (!options.workingDirectory.empty() && chdir(options.workingDirectory.c_str()) != 0) {
         _exit(126);
      }
      std::vector<char *> argv{const_cast<char *>(tool.c_str())};
      for (std::string &arg : args) {
         argv.push_back(arg.data());
      }
      argv.push_back(nullptr);
      execv(tool.c_str(), argv.data());
      _exit(127);
   }
   ToolRun run;
   int status = 0;
   if (child < 0 || waitpid(child, &status, 0) != child) {
      return run;
   }
   run.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
   run.out = ReadFile(out);
   run.err = ReadFile(err);
   return run;
}

}  // namespace testtools
