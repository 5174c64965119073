#pragma once

#include <QString>

#include <tl/expected.hpp>

/// What is wrong with the words of the command line. No `PXError`: it has neither a code nor an
/// owner, and never leaves this folder.
struct BRUsageError {
    QString description; ///< What cannot be, naming the word.
    QString suggestion; ///< What to write instead; may be empty.
};

/// A value that was read from the command line, or why it is none.
template <typename T> using BRUsageExpected = tl::expected<T, BRUsageError>;

/// Prints it in one line; answers `BRExitWrongUsage`.
int BRFailUsage(const BRUsageError &error);

/// Short form of `return tl::unexpected(...)`.
inline tl::unexpected<BRUsageError> BRWrongUsage(const QString &description,
                                                 const QString &suggestion)
{
    return tl::unexpected(BRUsageError{description, suggestion});
}
