// Panic and Warning: printf formatting into a 1024-byte buffer, written to
// standard error unchanged; Panic ends the process with status 1.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "ziftools.h"

namespace {

TEST(MessagesDeathTest, PanicWritesTheTextUnchangedAndExitsWithOne) {
   EXPECT_EXIT(Panic("NOT_IMPLEMENTED %s:%d\n", "apps/zlcziftools/ziftools", 180), testing::ExitedWithCode(1),
               "^NOT_IMPLEMENTED apps/zlcziftools/ziftools:180\n$");
}

TEST(MessagesDeathTest, PanicCutsLongTextsTo1023Characters) {
   const std::string longText(2000, 'x');
   EXPECT_EXIT(Panic("%s", longText.c_str()), testing::ExitedWithCode(1), "^x{1023}$");
}

TEST(MessagesDeathTest, WarningReturns) {
   EXPECT_EXIT(
         {
            Warning("careful: %d", 42);
            Warning("%s", std::string(1500, 'y').c_str());
            std::exit(7);
         },
         testing::ExitedWithCode(7), "^careful: 42y{1023}$");
}

}  // namespace
