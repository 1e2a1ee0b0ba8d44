// rpcfg's wait for an empty group: how often it counts, when it stops, and
// that a failed count never passes for an empty group.
#include "memfs/groupwait.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

namespace {

// A group whose child counts (or failures) come from a script, one per check.
struct ScriptedGroup {
   struct Answer {
      ZLC_ReturnStatus status;
      std::uint32_t count;
   };
   std::vector<Answer> answers;
   int checks = 0;
   std::int64_t slept = 0;

   bool Wait(std::int64_t waitMicros) {
      return memfs::WaitForEmptyGroup(
            waitMicros,
            [this](std::uint32_t &count) {
               const Answer answer = answers[static_cast<std::size_t>(checks++) % answers.size()];
               if (answer.status == 0) {
                  count = answer.count;
               }
               return answer.status;
            },
            [this](std::int64_t micros) { slept += micros; });
   }
};

TEST(WaitForEmptyGroup, ANonPositiveWaitTimesOutWithoutChecking) {
   for (std::int64_t wait : {0, -1, -1000000}) {
      ScriptedGroup group{{{0, 0}}};
      EXPECT_FALSE(group.Wait(wait));
      EXPECT_EQ(group.checks, 0);
   }
}

TEST(WaitForEmptyGroup, ChecksEveryTenthOfASecondUntilTheTimeIsUp) {
   ScriptedGroup group{{{0, 3}}};
   EXPECT_FALSE(group.Wait(1000000));
   EXPECT_EQ(group.checks, 10);
   EXPECT_EQ(group.slept, 1000000);

   ScriptedGroup partial{{{0, 1}}};
   EXPECT_FALSE(partial.Wait(150000));
   EXPECT_EQ(partial.checks, 2);
}

TEST(WaitForEmptyGroup, StopsAtTheFirstEmptyCountAndFailuresCountAsNotEmpty) {
   ScriptedGroup group{{{ZLC_FAILURE, 0}, {0, 2}, {ZLC_NOT_FOUND, 0}, {0, 0}}};
   EXPECT_TRUE(group.Wait(1000000));
   EXPECT_EQ(group.checks, 4);
   EXPECT_EQ(group.slept, 300000);
}

}  // namespace
