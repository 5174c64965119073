#include "foundation/PXFileLock.h"

#include <gtest/gtest.h>

#include <QFile>
#include <QTemporaryDir>

#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <thread>

using namespace Qt::StringLiterals;
using enum PXFileLock::Mode;

namespace {

class FileLock : public testing::Test {
protected:
    /// None where others hold it.
    std::unique_ptr<PXFileLock> take(PXFileLock::Mode mode)
    {
        auto lock = PXFileLock::take(path, mode, PXFileLock::IfHeld::GiveUp);
        EXPECT_TRUE(lock);
        return lock ? *std::move(lock) : nullptr;
    }

    QTemporaryDir folder;
    QString path = folder.filePath(u"lock"_s);
};

TEST_F(FileLock, ManyShareItAndOneHasItAlone)
{
    auto first = take(Shared);
    auto second = take(Shared);
    EXPECT_TRUE(first && second);
    EXPECT_FALSE(take(Exclusive));
    first.reset();
    EXPECT_FALSE(take(Exclusive));
    second.reset();
    const auto alone = take(Exclusive);
    EXPECT_TRUE(alone);
    EXPECT_FALSE(take(Shared));
}

TEST_F(FileLock, EndsWithItsHolder)
{
    int told[2];
    ASSERT_EQ(::pipe(told), 0);
    const pid_t holder = ::fork();
    if (holder == 0) {
        const auto lock = PXFileLock::take(path, Exclusive, PXFileLock::IfHeld::Wait);
        [[maybe_unused]] const auto written = ::write(told[1], "x", 1);
        ::pause();
    }
    char byte = 0;
    ASSERT_EQ(::read(told[0], &byte, 1), 1);
    EXPECT_FALSE(take(Shared));
    ::kill(holder, SIGKILL);
    ::waitpid(holder, nullptr, 0);
    EXPECT_TRUE(take(Shared));
    ::close(told[0]);
    ::close(told[1]);
}

TEST_F(FileLock, WhoWaitedForAFileThatWasRemovedLocksTheNewOne)
{
    auto first = take(Exclusive);
    ASSERT_TRUE(first);
    std::unique_ptr<PXFileLock> second;
    std::jthread waiting([&] {
        if (auto taken = PXFileLock::take(path, Exclusive, PXFileLock::IfHeld::Wait))
            second = *std::move(taken);
    });
    first->removeFile();
    first.reset();
    waiting.join();
    EXPECT_TRUE(second);
    EXPECT_TRUE(QFile::exists(path));
    EXPECT_FALSE(take(Shared));
}

TEST_F(FileLock, FollowsNoLinkAndTakesNobodyElsesFile)
{
    ASSERT_TRUE(QFile::link(folder.filePath(u"elsewhere"_s), path));
    EXPECT_FALSE(PXFileLock::take(path, Shared, PXFileLock::IfHeld::Wait));
    EXPECT_FALSE(QFile::exists(folder.filePath(u"elsewhere"_s)));
    QFile::remove(path);
    if (::geteuid() != 0)
        GTEST_SKIP() << "only root can give files to others";
    EXPECT_TRUE(take(Shared));
    ASSERT_EQ(::chown(QFile::encodeName(path).constData(), 1000, 1000), 0);
    EXPECT_FALSE(PXFileLock::take(path, Shared, PXFileLock::IfHeld::Wait));
    EXPECT_FALSE(PXFileLock::take(folder.path(), Shared, PXFileLock::IfHeld::Wait)) << "a folder";
}

} // namespace
