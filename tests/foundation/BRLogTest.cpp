#include "foundation/BRLog.h"

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <string>

using namespace Qt::StringLiterals;

namespace {

std::string logged(int threshold)
{
    testing::internal::CaptureStderr();
    const int before = BRCurrentLogLevel();
    BRSetLogLevel(threshold);
    BRLog(BRLogError, "message %d", 1);
    BRLog(BRLogWarning, u"message 2"_s);
    BRLog(BRLogInfo, u"message 3"_s);
    BRSetLogLevel(before);
    return testing::internal::GetCapturedStderr();
}

TEST(BRLog, TheThresholdIsTheLastLevelWritten)
{
    EXPECT_EQ(logged(0), "");
    const std::string two = logged(BRLogWarning);
    EXPECT_TRUE(two.starts_with("[Error] ") && two.ends_with(": message 2\n")) << two;
    EXPECT_NE(two.find(": message 1\n[Warn ] "), std::string::npos) << two;
    EXPECT_NE(logged(BRLogInfo).find("message 3"), std::string::npos);
}

TEST(BRLog, StandardErrorIsLeftAloneUnlessItIsTheJournal)
{
    BRSetLogsToStandardError(false);
    setenv("JOURNAL_STREAM", "1:2", 1);
    const std::string ofAnotherStream = logged(BRLogWarning);

    testing::internal::CaptureStderr();
    struct stat status = {};
    fstat(STDERR_FILENO, &status);
    const std::string name = std::to_string(status.st_dev) + ":" + std::to_string(status.st_ino);
    setenv("JOURNAL_STREAM", name.c_str(), 1);
    BRLog(BRLogError, "of the journal");
    const std::string ofTheJournal = testing::internal::GetCapturedStderr();
    unsetenv("JOURNAL_STREAM");
    BRSetLogsToStandardError(true);

    EXPECT_EQ(ofAnotherStream, "");
    EXPECT_NE(ofTheJournal.find("of the journal"), std::string::npos);
}

} // namespace
