#pragma once

#include <QString>

enum BRLogLevel {
    BRLogError = 1, ///< Something failed, and whoever asked for it hears of that.
    BRLogWarning = 2, ///< The program goes on, but not quite as it should; nobody else tells.
    BRLogInfo = 3,
    BRLogDebug = 4,
};

/// Writes one message to standard error and, where there is one, to the system journal, when its
/// level is at or below the threshold: "[Error] 14:03:27.250: message". printf formats. Any thread.
void BRLog(int level, const char *format, ...) __attribute__((format(printf, 2, 3)));
void BRLog(int level, const QString &message);

/// The threshold; 2 at start, so that errors and warnings are written.
void BRSetLogLevel(int level);
int BRCurrentLogLevel();

/// Whether messages also go to standard error (they do at start). A program that draws a live
/// line there turns this off for as long as it draws.
void BRSetLogsToStandardError(bool does);

/// Gets each message that is written, too, on the thread that logs; it must not log itself.
using BRLogListener = void (*)(int level, const QString &message);
/// One at a time; none with nullptr.
void BRSetLogListener(BRLogListener listener);

/// The line as it is written, without its line end: name padded to five characters (five blanks
/// for any other level), time of day to the millisecond.
QString BRLogLine(int level, const QString &timeOfDay, const QString &message);

/// Called where a message was thought of and decided against.
inline void BRIgnoreLog() { }
