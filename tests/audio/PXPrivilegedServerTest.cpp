#include "audio/privileged/PXPrivilegedProtocol.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QTemporaryDir>

#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>

using namespace Qt::StringLiterals;

namespace {

constexpr int kPatienceMs = 60'000;
const QByteArray kGreetingLine
    = QByteArray::fromStdString(std::string(PXPrivilegedProtocol::kGreeting) + '\n');

QByteArray request(const std::vector<std::string> &words)
{
    return QByteArray::fromStdString(PXPrivilegedProtocol::request(words));
}

/// What the scratch helper says to `input` before it leaves by itself.
QByteArray answersTo(const QByteArray &input, int idleMs, bool closes)
{
    const QTemporaryDir machine;
    QProcess helper;
    helper.start(QStringLiteral(SCRATCH_HELPER), {machine.path(), u"0"_s, QString::number(idleMs)});
    helper.write(input);
    if (closes)
        helper.closeWriteChannel();
    EXPECT_TRUE(helper.waitForFinished(kPatienceMs));
    EXPECT_EQ(helper.exitStatus(), QProcess::NormalExit);
    EXPECT_EQ(helper.exitCode(), 0);
    return helper.readAllStandardOutput();
}

TEST(PXPrivilegedServer, LeavesAtAnythingThatIsNoRequest)
{
    const QByteArray valid = request({"/bin/false"});
    const QByteArray refusal = "-60031 refused: /bin/false\n";
    const struct {
        const char *name;
        QByteArray input;
        QByteArray answers;
    } cases[] = {
        {"nothing", "", ""},
        {"requests", valid + valid, refusal + refusal},
        {"words", "/bin/rm -rf /\n" + valid, ""},
        {"noLength", "\n" + valid, ""},
        {"negative", "-1\n" + valid, ""},
        {"tooLong", "32769\n" + QByteArray(32769, 'x'), ""},
        {"endlessLength", QByteArray(100'000, '1'), ""},
        {"cutShort", valid + valid.chopped(1), refusal},
        {"lengthOnly", valid + "7", refusal},
        {"noNUL", "3\nabc" + valid, "-60031 the request has no end\n"},
        {"empty", "0\n" + valid, "-60031 refused:\n" + refusal},
        {"lineEnds", request({"/bin/x\n0 done\n", "\x1b[2J"}),
         "-60031 refused: /bin/x?0 done? ?[2J\n"},
        {"longest", "32768\n" + QByteArray(32767, 'x') + '\0' + valid,
         "-60031 refused: " + QByteArray(32767, 'x') + '\n' + refusal},
    };
    for (const auto &c : cases)
        EXPECT_EQ(answersTo(c.input, kPatienceMs, true), kGreetingLine + c.answers) << c.name;
}

TEST(PXPrivilegedServer, LeavesWhenNothingComes)
{
    const QByteArray valid = request({"/bin/false"});
    EXPECT_EQ(answersTo({}, 20, false), kGreetingLine);
    // Half a request keeps it no longer than none.
    EXPECT_EQ(answersTo(valid.chopped(2), 20, false), kGreetingLine);
}

TEST(PXPrivilegedHelper, HasNothingOfItsCaller)
{
    const QTemporaryDir folder;
    QProcess helper;
    helper.setWorkingDirectory(folder.path());
    helper.setChildProcessModifier([] {
        ::umask(0);
        ::dup2(STDIN_FILENO, 77);
    });
    helper.start(QStringLiteral(PRIVILEGED_HELPER), QStringList());
    ASSERT_TRUE(helper.waitForReadyRead(kPatienceMs));
    EXPECT_EQ(helper.readAllStandardOutput(), kGreetingLine);
    const QString process = u"/proc/%1/"_s.arg(helper.processId());
    EXPECT_EQ(QFileInfo(process + u"cwd"_s).symLinkTarget(), u"/"_s);
    EXPECT_EQ(QDir(process + u"fd"_s).entryList(QDir::Files | QDir::System),
              (QStringList{u"0"_s, u"1"_s, u"2"_s}));
    QFile status(process + u"status"_s);
    ASSERT_TRUE(status.open(QIODevice::ReadOnly));
    EXPECT_TRUE(status.readAll().contains("Umask:\t0022"));
    ::kill(static_cast<pid_t>(helper.processId()), SIGINT); // Ctrl+C in the program's terminal.
    helper.write(request({"/bin/false"}));
    ASSERT_TRUE(helper.bytesAvailable() > 0 || helper.waitForReadyRead(kPatienceMs));
    EXPECT_TRUE(helper.readAllStandardOutput().startsWith("-60031 "));
    helper.closeWriteChannel();
    EXPECT_TRUE(helper.waitForFinished(kPatienceMs));
    EXPECT_EQ(helper.exitCode(), 0);

    QProcess withArguments;
    withArguments.start(QStringLiteral(PRIVILEGED_HELPER), {u"/tmp"_s});
    EXPECT_TRUE(withArguments.waitForFinished(kPatienceMs));
    EXPECT_EQ(withArguments.exitCode(), EXIT_FAILURE);
}

} // namespace
