#pragma once

#include <QString>

/// What the engine only warns of in the log, kept for who looks at the terminal instead of the
/// journal. Errors are left to the command, which gets them. Main thread, save where the log is
/// written.
namespace BRLoggedWarnings {

/// From now on, until `print()`.
void collect();
/// Forgets `message`: it has been told in better words.
void drop(const QString &message);
/// Each once, unless the command has printed it itself.
void print();

} // namespace BRLoggedWarnings
