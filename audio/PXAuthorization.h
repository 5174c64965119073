#pragma once

#include <QByteArray>
#include <QList>
#include <QProcess>
#include <QString>
#include <QStringList>

#include <tl/expected.hpp>

#include <memory>

/// An administrator's leave to do the tasks of `PXPrivilegedCommands` as root: a helper process
/// that was let in and waits for them. It ends by itself 60 seconds after the last.
///
/// Main thread. While the user is asked, and while a task is done, an event loop runs inside of the
/// call: windows stay alive, and another call may begin meanwhile. It ends with the helper's answer
/// or with the helper, whichever comes first.
class PXAuthorization final {
public:
    /// What starts the helper: its own path where we are root already, else pkexec with it. The
    /// helper lies beside the program (a build tree) or in "../libexec". Empty, with a log line,
    /// where it is in neither.
    static QStringList defaultLauncher();

    /// Starts the helper, which asks the user, and waits for it to be let in. Fails with the status
    /// of `PXPrivilegedProtocol.h` that tells why not; it has been logged, save for a dismissed
    /// question.
    static tl::expected<std::unique_ptr<PXAuthorization>, int>
    withLauncher(const QStringList &launcher);
    /// Sends the helper away.
    ~PXAuthorization();
    PXAuthorization(const PXAuthorization &) = delete;
    PXAuthorization &operator=(const PXAuthorization &) = delete;

    /// Answers the task's status: 0, or one of `PXPrivilegedProtocol.h`, with a log line that says
    /// what failed. Arguments are passed on as they are.
    int executeTask(const QString &path, const QStringList &arguments);

    /// Gives it up without sending the helper away, which leaves in its own time.
    static void leaveAlone(std::unique_ptr<PXAuthorization> authorization);

    /// Whether the helper has not ended.
    [[nodiscard]] bool isAlive() const;

private:
    PXAuthorization();
    static void _letEnd(std::unique_ptr<QProcess> process);
    /// Runs the event loop until there are `count` answers in all; whether there are.
    bool _waitForAnswers(qsizetype count);
    void _readAnswers();
    void _readErrors();
    [[nodiscard]] int _statusOfRefusal();

    std::unique_ptr<QProcess> _process;
    QByteArray _unreadOutput;
    QByteArray _errors; ///< What it said there, the beginning.
    QList<QByteArray> _answers; ///< The greeting, then one for each task.
    qsizetype _numberOfTasks = 0;
    bool _isNoHelper = false;
};
