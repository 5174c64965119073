#include "foundation/BRLog.h"

#include "foundation/PXMutex.h"

#include <QByteArray>
#include <QTime>

#include <sys/stat.h>
#include <systemd/sd-journal.h>
#include <unistd.h>

#include <atomic>
#include <cstdarg>
#include <cstdlib>

using namespace Qt::StringLiterals;

namespace {

std::atomic<int> theThreshold = BRLogWarning;
std::atomic<bool> logsToStandardError = true;
std::atomic<BRLogListener> theListener = nullptr;

QStringView nameOfLevel(int level)
{
    switch (level) {
    case BRLogError:
        return u"Error";
    case BRLogWarning:
        return u"Warn ";
    case BRLogInfo:
        return u"Info ";
    case BRLogDebug:
        return u"Debug";
    default:
        return u"     ";
    }
}

int journalPriority(int level)
{
    // syslog(3): 3 error, 4 warning, 6 informational, 7 debug.
    switch (level) {
    case BRLogError:
        return 3;
    case BRLogWarning:
        return 4;
    case BRLogInfo:
        return 6;
    default:
        return 7;
    }
}

/// Whether what goes to standard error is in the journal already. systemd names the stream that it
/// gave a service as "device:inode"; a program started from there inherits the variable, not
/// necessarily the stream.
bool isStandardErrorTheJournal()
{
    const char *stream = std::getenv("JOURNAL_STREAM");
    struct stat status = {};
    return stream != nullptr && fstat(STDERR_FILENO, &status) == 0
        && QByteArray::number(quint64{status.st_dev}) + ':'
            + QByteArray::number(quint64{status.st_ino})
        == stream;
}

/// One thread at a time: the C library looks at the time zone anew for each question, and
/// ThreadSanitizer does not see the lock that it has for that.
QTime currentTime()
{
    static PXMutex lock;
    const PXLock held(lock);
    return QTime::currentTime();
}

void write(int level, const QString &message)
{
    const QTime now = currentTime();
    // Not toString(): without memory for its calendars Qt crashes the second time it is asked.
    const QString timeOfDay = QString::asprintf("%02d:%02d:%02d.%03d", now.hour(), now.minute(),
                                                now.second(), now.msec());
    const QByteArray line = (BRLogLine(level, timeOfDay, message) + u'\n').toUtf8();
    // One message must not stand in the journal twice.
    const bool standardErrorIsJournal = isStandardErrorTheJournal();
    if (logsToStandardError || standardErrorIsJournal) {
        // In one piece, so that lines of several threads do not mix. Nothing is left to try when
        // even standard error cannot be written.
        [[maybe_unused]] const ssize_t written
            = ::write(STDERR_FILENO, line.constData(), static_cast<std::size_t>(line.size()));
    }
    if (!standardErrorIsJournal) {
        sd_journal_send("MESSAGE=%s", message.toUtf8().constData(), "PRIORITY=%i",
                        journalPriority(level), "SYSLOG_IDENTIFIER=tolvane", nullptr);
    }
    if (const BRLogListener listener = theListener)
        listener(level, message);
}

} // namespace

QString BRLogLine(int level, const QString &timeOfDay, const QString &message)
{
    return u"[%1] %2: %3"_s.arg(nameOfLevel(level), timeOfDay, message);
}

void BRLog(int level, const char *format, ...)
{
    if (level > theThreshold)
        return;
    va_list arguments;
    va_start(arguments, format);
    const QString message = QString::vasprintf(format, arguments);
    va_end(arguments);
    write(level, message);
}

void BRLog(int level, const QString &message)
{
    if (level <= theThreshold)
        write(level, message);
}

void BRSetLogLevel(int level)
{
    theThreshold = level;
}
int BRCurrentLogLevel()
{
    return theThreshold;
}
void BRSetLogsToStandardError(bool does)
{
    logsToStandardError = does;
}
void BRSetLogListener(BRLogListener listener)
{
    theListener = listener;
}
