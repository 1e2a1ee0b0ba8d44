// The parsers of outside input in the process tools: pidof's name matching,
// pkill's signal argument and lsof's argument.
#include <gtest/gtest.h>

#include <string>

#include "world/lsofargs.h"
#include "world/programname.h"
#include "world/signals.h"

namespace {

using world::CommandLineNames;
using world::LastPathComponent;
using world::NameMatches;

TEST(PidofMatch, LastPathComponent) {
   EXPECT_EQ(LastPathComponent("/usr/bin/foo"), "foo");
   EXPECT_EQ(LastPathComponent("foo"), "foo");
   EXPECT_EQ(LastPathComponent("/usr/bin/"), "");
   EXPECT_EQ(LastPathComponent(""), "");
}

TEST(PidofMatch, NamesMatchWholeOrByLastComponentEitherWay) {
   EXPECT_TRUE(NameMatches("/usr/bin/foo", "foo"));
   EXPECT_TRUE(NameMatches("/usr/bin/foo", "/usr/bin/foo"));
   EXPECT_TRUE(NameMatches("foo", "/opt/foo"));
   EXPECT_FALSE(NameMatches("/usr/bin/foo", "/opt/foo"));
   EXPECT_FALSE(NameMatches("/usr/bin/foobar", "foo"));
   EXPECT_FALSE(NameMatches("foo", "fo"));
}

TEST(PidofMatch, ProgramWordEndsAtTheFirstBlank) {
   EXPECT_TRUE(CommandLineNames("/usr/bin/foo --bar baz", "foo", false));
   EXPECT_FALSE(CommandLineNames("/usr/bin/foo --bar baz", "--bar", false));
   EXPECT_TRUE(CommandLineNames("foo", "foo", false));
   EXPECT_FALSE(CommandLineNames(" foo", "foo", false));
}

TEST(PidofMatch, ScriptsOnlyThroughTheThreeShells) {
   EXPECT_FALSE(CommandLineNames("/bin/sh /tmp/job.sh arg", "job.sh", false));
   EXPECT_TRUE(CommandLineNames("/bin/sh /tmp/job.sh arg", "job.sh", true));
   EXPECT_TRUE(CommandLineNames("/bin/sh /tmp/job.sh arg", "sh", false));
   EXPECT_TRUE(CommandLineNames("/bin/ash /tmp/job.sh", "/tmp/job.sh", true));
   EXPECT_TRUE(CommandLineNames("/bin/bash job.sh", "job.sh", true));
   EXPECT_FALSE(CommandLineNames("/bin/dash /tmp/job.sh", "job.sh", true));
   EXPECT_FALSE(CommandLineNames("/bin/sh /tmp/job.sh arg", "arg", true));
   // A one-word command line is never a script.
   EXPECT_FALSE(CommandLineNames("/bin/sh", "job.sh", true));
}

TEST(PkillSignal, NamesAreCaseSensitiveWithoutPrefix) {
   EXPECT_EQ(world::SignalFromArgument("-KILL"), 9);
   EXPECT_EQ(world::SignalFromArgument("-IOT"), 6);
   EXPECT_EQ(world::SignalFromArgument("-CHLD"), 17);
   EXPECT_EQ(world::SignalFromArgument("-SYS"), 31);
   EXPECT_EQ(world::SignalFromArgument("-kill"), 0);
   EXPECT_EQ(world::SignalFromArgument("-SIGKILL"), 0);
   EXPECT_EQ(world::SignalFromArgument("KILL"), 0);
}

TEST(PkillSignal, NumbersIgnoreTrailingText) {
   EXPECT_EQ(world::SignalFromArgument("-9"), 9);
   EXPECT_EQ(world::SignalFromArgument("-63"), 63);
   EXPECT_EQ(world::SignalFromArgument("-64"), 64);
   EXPECT_EQ(world::SignalFromArgument("-12abc"), 12);
   EXPECT_EQ(world::SignalFromArgument("-0"), 0);
   EXPECT_EQ(world::SignalFromArgument("-"), 0);
   EXPECT_EQ(world::SignalFromArgument("-f"), 0);
   EXPECT_EQ(world::SignalFromArgument("--9"), 0);
}

TEST(PkillSignal, TableHasEveryNameOnce) {
   for (std::size_t i = 0; i < world::kSignalNames.size(); ++i) {
      for (std::size_t j = i + 1; j < world::kSignalNames.size(); ++j) {
         EXPECT_STRNE(world::kSignalNames[i].name, world::kSignalNames[j].name);
      }
      const std::string argument = std::string("-") + world::kSignalNames[i].name;
      EXPECT_EQ(world::SignalFromArgument(argument.c_str()), world::kSignalNames[i].number) << argument;
   }
}

TEST(LsofArgument, PartsOfHelpAskForUsage) {
   for (const char *argument : {"-h", "--help", "help", "-", "", "--he", "lp"}) {
      EXPECT_TRUE(world::ParseLsofArgument(argument).usage) << argument;
   }
   EXPECT_FALSE(world::ParseLsofArgument("--helpme").usage);
   EXPECT_FALSE(world::ParseLsofArgument(nullptr).usage);
}

TEST(LsofArgument, FilterFollowsTheFirstFileOption) {
   EXPECT_EQ(world::ParseLsofArgument("--file=lib").filter, "lib");
   EXPECT_EQ(world::ParseLsofArgument("x--file=lib").filter, "lib");
   EXPECT_EQ(world::ParseLsofArgument("--file=a--file=b").filter, "a--file=b");
   EXPECT_FALSE(world::ParseLsofArgument("--file=").filter.has_value());
   EXPECT_FALSE(world::ParseLsofArgument("--file").filter.has_value());
   EXPECT_FALSE(world::ParseLsofArgument("lib").filter.has_value());
}

}  // namespace
