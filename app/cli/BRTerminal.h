#pragma once

#include "foundation/PXError.h"

#include <QString>
#include <QStringList>

/// Standard output carries only data; everything for a person goes to standard error.
namespace BRTerminal {

/// One line of data. What cannot be written is told by `finishOutput()`.
void print(const QString &line);
/// Whether all of the data was written.
[[nodiscard]] PXExpected<void> finishOutput();
/// Whether one of the next three has said `text`, alone, among other words, or the gist of it.
bool hasPrinted(const QString &text);
/// "tolvane: message", and "tolvane: warning: message".
void printError(const QString &message);
void printError(const PXError &error);
void printWarning(const QString &message);
/// Without a line's end: the answer is typed behind it.
void ask(const QString &question);
/// Rings the bell, if standard error is a terminal.
void ringBell();

/// Whether a line may be drawn over and over: standard error is a terminal that can.
bool showsProgress();
/// Draws `lines` in place of those before; as many as the terminal has room for.
void showProgress(const QStringList &lines);
/// Takes them away.
void endProgress();

/// "[#####.....]" of `width` characters between the brackets; `done` from 0 to 1.
QString progressBar(double done, int width);

} // namespace BRTerminal
