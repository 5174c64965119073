#include "audio/PXAuthentication.h"
#include "audio/PXFileManagerWithAuthorization.h"
#include "audio/privileged/PXPrivilegedProtocol.h"
#include "foundation/BRLog.h"
#include "tests/audio/ScratchMachine.h"
#include "tests/support/WaitUntil.h"

#include <QCoreApplication>
#include <QTimer>

#include <chrono>
#include <csignal>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

QStringList theLog;

class Authentication : public ScratchMachine {
protected:
    void SetUp() override
    {
        ScratchMachine::SetUp();
        theLog.clear();
        BRSetLogListener([](int, const QString &message) { theLog << message; });
    }
    ~Authentication() override { BRSetLogListener(nullptr); }

    /// A program in place of pkexec.
    [[nodiscard]] QStringList script(const QByteArray &lines) const
    {
        makeFile(u"/launcher"_s, 0, lines);
        return {u"/bin/sh"_s, at(u"/launcher"_s)};
    }
    /// The helper of this machine; "/launches" says when it began and ended.
    [[nodiscard]] QStringList helper() const
    {
        const QByteArray launches = at(u"/launches"_s).toUtf8();
        return script("echo began >>" + launches + "; " SCRATCH_HELPER " " + root().toUtf8()
                      + " 1000 60000; echo ended >>" + launches);
    }
    [[nodiscard]] QByteArray launches() const
    {
        return exists(u"/launches"_s) ? contentsOf(u"/launches"_s).replace('\n', ' ')
                                      : QByteArray();
    }
};

TEST_F(Authentication, OneQuestionServesUntilItsTimeIsOver)
{
    PXAuthentication authentication(helper(), 300s);
    EXPECT_EQ(authentication.executeTask(u"/bin/mkdir"_s, {at(u"/srv/a"_s)}), 0);
    EXPECT_EQ(authentication.executeTask(u"/bin/mkdir"_s, {at(u"/srv/b"_s)}), 0);
    EXPECT_EQ(launches(), "began ");
    EXPECT_EQ(authentication.executeTask(u"/bin/mkdir"_s, {at(u"/srv/c"_s)}, 1),
              PXPrivilegedInvalidFlags);

    PXAuthentication hurried(helper(), 1ms);
    EXPECT_EQ(hurried.executeTask(u"/bin/mkdir"_s, {at(u"/srv/d"_s)}), 0);
    EXPECT_TRUE(waitUntil([&] { return launches() == "began began ended "; }));
    EXPECT_EQ(hurried.executeTask(u"/bin/mkdir"_s, {at(u"/srv/e"_s)}), 0);
    EXPECT_TRUE(waitUntil([&] { return launches() == "began began ended began ended "; }));
    EXPECT_EQ(QDir(at(u"/srv"_s)).entryList(QDir::Dirs | QDir::NoDotAndDotDot).size(), 4);
}

TEST_F(Authentication, TheUserIsAskedAgainWhenTheHelperHasLeft)
{
    PXAuthentication authentication(
        script("echo 'tolvane-privileged-helper 1'; read length; echo '0 '; exit"), 300s);
    const auto held = authentication.authorization();
    ASSERT_TRUE(held);
    EXPECT_EQ(authentication.executeTask(u"/bin/mkdir"_s, {u"/a"_s}), 0);
    EXPECT_TRUE(waitUntil([&] { return !(*held)->isAlive(); }));
    EXPECT_EQ(authentication.executeTask(u"/bin/mkdir"_s, {u"/b"_s}), 0);
}

TEST_F(Authentication, OneThatSaysMoreThanItWasAskedIsNotAskedAgain)
{
    PXAuthentication authentication(
        script(
            "echo began >>" + at(u"/launches"_s).toUtf8()
            + "; echo 'tolvane-privileged-helper 1'; read x; printf '0 \\n0 \\n'; read y; read z"),
        300s);
    EXPECT_EQ(authentication.executeTask(u"/bin/mkdir"_s, {u"/a"_s}), 0);
    EXPECT_EQ(authentication.executeTask(u"/bin/mkdir"_s, {u"/b"_s}), 0);
    EXPECT_EQ(launches(), "began began ");
}

TEST_F(Authentication, TheUserIsNotAskedTwiceAtATime)
{
    PXAuthentication authentication(
        script("echo began >>" + at(u"/launches"_s).toUtf8()
               + "; sleep 0.3; echo 'tolvane-privileged-helper 1'; read x; echo '0 '; read y"),
        300s);
    int second = 0;
    QObject context;
    QTimer::singleShot(0, &context,
                       [&] { second = authentication.executeTask(u"/bin/mkdir"_s, {u"/b"_s}); });
    EXPECT_EQ(authentication.executeTask(u"/bin/mkdir"_s, {u"/a"_s}), 0);
    EXPECT_EQ(second, PXPrivilegedCancelled);
    EXPECT_EQ(launches(), "began ");
}

TEST_F(Authentication, RefusalsHaveTheirStatus)
{
    const QByteArray greeting = "echo 'tolvane-privileged-helper 1'; ";
    const struct {
        const char *name;
        QByteArray script;
        int status;
        qsizetype logLines;
    } cases[] = {
        {"dismissed", "echo 'Error executing command: Request dismissed' >&2; exit 126",
         PXPrivilegedCancelled, 0},
        {"notAuthorized", "echo 'Error executing command: Not authorized' >&2; exit 127",
         PXPrivilegedDenied, 1},
        {"noAgent", "echo 'Error: No authentication agent found.' >&2; exit 127",
         PXPrivilegedNoInteraction, 1},
        {"noBus", "echo 'Error getting authority: could not connect' >&2; exit 127",
         PXPrivilegedNoInteraction, 1},
        {"says nothing", "exit 0", PXPrivilegedNoAnswer, 1},
        {"crashes", "kill -SEGV $$", PXPrivilegedNoAnswer, 1},
        {"anotherProgram", "echo hello; read x", PXPrivilegedNoAnswer, 1},
        {"endless", "while :; do printf xxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxx; done",
         PXPrivilegedNoAnswer, 1},
        {"endlessErrors", "head -c 1000000 /dev/zero | tr '\\0' x >&2; exit 127",
         PXPrivilegedDenied, 1},
        {"leavesBeforeTheAnswer", greeting + "read length; exit", PXPrivilegedNoAnswer, 1},
        {"noNumber", greeting + "read length; echo done; read x", PXPrivilegedNoAnswer, 1},
        {"fails", greeting + "read length; echo '-60008 why'; read x", PXPrivilegedFailed, 1},
    };
    for (const auto &c : cases) {
        theLog.clear();
        PXAuthentication authentication(script(c.script));
        EXPECT_EQ(authentication.executeTask(u"/bin/mkdir"_s, {u"/x"_s}), c.status) << c.name;
        EXPECT_EQ(theLog.size(), c.logLines) << c.name << theLog.join(u'\n').toStdString();
        EXPECT_FALSE(authentication.createFolderAtPath(at(u"/srv/x"_s))) << c.name;
    }
    EXPECT_EQ(PXAuthentication(QStringList(u"/no/pkexec"_s)).executeTask(u"/bin/rm"_s, {}),
              PXPrivilegedCannotExecute);
    EXPECT_EQ(PXAuthentication(QStringList()).executeTask(u"/bin/rm"_s, {}),
              PXPrivilegedCannotExecute);
    PXAuthentication real(helper());
    EXPECT_EQ(real.executeTask(u"/bin/rm"_s, {u"-f"_s, QString(u"/a"_s) + QChar::Null}),
              PXPrivilegedInvalidParameter);
}

TEST_F(Authentication, WindowsLiveWhileTheUserIsAsked)
{
    // Answers come in the order of the questions; the first only when the loop has run.
    const QByteArray gate = at(u"/gate"_s).toUtf8();
    PXAuthentication authentication(script("mkfifo " + gate
                                           + "; echo 'tolvane-privileged-helper 1'; read x <" + gate
                                           + "; echo '0 '; echo '-60008 second'; read y; read z"));
    ASSERT_TRUE(authentication.authorization());
    int inner = 1;
    QTimer::singleShot(0, qApp, [&] {
        QTimer::singleShot(0, qApp, [&] {
            QFile opened(QString::fromUtf8(gate));
            ASSERT_TRUE(opened.open(QIODevice::WriteOnly));
            opened.write("\n");
        });
        inner = authentication.executeTask(u"/bin/mkdir"_s, {u"/inner"_s});
    });
    EXPECT_EQ(authentication.executeTask(u"/bin/mkdir"_s, {u"/outer"_s}), 0);
    EXPECT_EQ(inner, PXPrivilegedFailed);
}

TEST_F(Authentication, MakesFoldersAndMovesFiles)
{
    PXAuthentication authentication(helper());
    EXPECT_TRUE(authentication.createFoldersInPath({}));
    EXPECT_TRUE(authentication.createFoldersInPath(u"/"_s));
    EXPECT_TRUE(authentication.createFolderAtPath(root()));
    EXPECT_EQ(launches(), "");
    EXPECT_TRUE(authentication.createFoldersInPath(at(u"/srv/Filme/für \"dich\"/"_s)));
    EXPECT_TRUE(exists(u"/srv/Filme/für \"dich\""_s));
    // The links on the way are taken with the user's rights, the helper follows none.
    makeLink(at(u"/srv/Filme"_s), u"/home/user/Films"_s);
    EXPECT_TRUE(authentication.movePath(at(u"/home/user/../user/a.mov"_s),
                                        at(u"/home/user/Films/a.mov"_s)));
    EXPECT_EQ(contentsOf(u"/srv/Filme/a.mov"_s), "mine");

    const auto refused = authentication.movePath(at(u"/srv/Filme/a.mov"_s), at(u"/etc/a.mov"_s));
    ASSERT_TRUE(!refused && refused.error());
    EXPECT_EQ(refused.error()->domain, u"NSOSStatusErrorDomain"_s);
    EXPECT_EQ(refused.error()->code, PXPrivilegedCannotExecute);
    EXPECT_EQ(refused.error()->description, u"Could not move the file."_s);
    EXPECT_EQ(refused.error()->suggestion, u"cannot execute privileged tool"_s);
    EXPECT_FALSE(authentication.createFoldersInPath(at(u"/etc/a/b"_s)));
    EXPECT_TRUE(theLog.contains(u"Could not create folder. cannot execute privileged tool"_s));

    PXAuthentication dismissed(script("exit 126"));
    theLog.clear();
    const auto cancelled = dismissed.movePath(at(u"/srv/Filme/a.mov"_s), at(u"/home/user/a.mov"_s));
    EXPECT_TRUE(!cancelled && !cancelled.error());
    EXPECT_FALSE(dismissed.createFolderAtPath(at(u"/srv/x"_s)));
    EXPECT_TRUE(theLog.isEmpty());
}

TEST_F(Authentication, TheFileManagerTakesTheSharedFolderOver)
{
    using Manager = PXFileManagerWithAuthorization;
    using PXFileManager::PXReplace;
    Manager manager(helper());
    const QString brimmet = u"/usr/local/share/Brimmet"_s;
    const QString tolvane = u"/usr/local/share/Tolvane"_s;
    makeFile(brimmet + u"/sounds/new"_s);
    makeFile(brimmet + u"/.hidden"_s);
    makeFile(brimmet + u"/list"_s, 0, "new");
    makeFile(brimmet + u"/other"_s, 0, "new");
    makeFile(tolvane + u"/sounds/old"_s);
    makeFile(tolvane + u"/list"_s, 0, "old");

    std::unique_ptr<PXAuthorization> authorization;
    EXPECT_EQ(manager.obtainAuthorization(authorization, Manager::ExtendRights),
              PXPrivilegedNoInteraction);
    ASSERT_EQ(manager.obtainAuthorization(authorization,
                                          Manager::InteractionAllowed | Manager::ExtendRights),
              0);
    EXPECT_EQ(Manager::moveContentsOfDirectoryAtPath(at(brimmet), at(tolvane), PXReplace::No,
                                                     *authorization),
              0);
    EXPECT_EQ(contentsOf(tolvane + u"/list"_s), "old");
    EXPECT_EQ(contentsOf(tolvane + u"/other"_s), "new");
    EXPECT_EQ(Manager::moveContentsOfDirectoryAtPath(at(brimmet), at(tolvane), PXReplace::Yes,
                                                     *authorization),
              0);
    EXPECT_EQ(contentsOf(tolvane + u"/list"_s), "new");
    EXPECT_TRUE(exists(tolvane + u"/sounds/new"_s));
    EXPECT_FALSE(exists(tolvane + u"/sounds/old"_s));
    EXPECT_TRUE(exists(brimmet + u"/.hidden"_s));
    Manager::freeAuthorization(std::move(authorization));
    EXPECT_EQ(launches(), "began ended ");

    EXPECT_EQ(manager.authorizedCopyPath(at(tolvane + u"/list"_s), at(tolvane + u"/copy"_s),
                                         PXReplace::No),
              0);
    EXPECT_EQ(contentsOf(tolvane + u"/copy"_s), "new");
    EXPECT_EQ(manager.authorizedRemoveFileAtPath(at(brimmet), Manager::PXFolders::Yes,
                                                 Manager::PXRecursive::Yes),
              0);
    EXPECT_FALSE(exists(brimmet));
    EXPECT_EQ(launches().count("ended"), 3);
}

TEST_F(Authentication, AFailureLeavesTheHelperToItself)
{
    using Manager = PXFileManagerWithAuthorization;
    Manager manager(script("echo $$ >" + at(u"/id"_s).toUtf8() + "; exec " SCRATCH_HELPER " "
                           + root().toUtf8() + " 1000 60000"));
    EXPECT_EQ(manager.authorizedRemoveFileAtPath(at(u"/etc"_s), Manager::PXFolders::Yes,
                                                 Manager::PXRecursive::Yes),
              PXPrivilegedCannotExecute);
    const int helper = contentsOf(u"/id"_s).trimmed().toInt();
    ASSERT_EQ(::kill(helper, SIGTERM), 0); // It was there, though nobody held it.
    EXPECT_TRUE(waitUntil([&] { return ::kill(helper, 0) != 0; }));
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
}

} // namespace
