#pragma once

#include <QString>
#include <QVariantMap>

#include <tl/expected.hpp>

/// What went wrong, in the words that a user gets to see.
struct PXError {
    QString domain; ///< Whose code it is: one of the domains below.
    int code = 0;
    QString description; ///< What failed, naming the file or value.
    QString suggestion; ///< What the user can do; may be empty.
    /// "trueErrorCode": a library's own status, "underlyingError": the line of the error behind
    /// this one; where there is one.
    QVariantMap userInfo;
};

/// A value, or why there is none.
template <typename T> using PXExpected = tl::expected<T, PXError>;

/// The system's `errno` values.
extern const QString kPXPOSIXErrorDomain;
/// Files that may not be read, written or replaced.
extern const QString kPXCocoaErrorDomain;
/// Its `NSFileReadCorruptFileError`: the file is there but is not what it should be.
inline constexpr int kPXFileReadCorruptFileError = 259;
/// Our own: 1 export start-up, 2 driver install or uninstall, 3 recording stopped by an audio
/// error.
extern const QString kBRErrorDomain;
/// The display server: code is a `PXDisplayErrorCode`.
extern const QString kPXDisplayErrorDomain;

enum PXDisplayErrorCode {
    PXDisplayCannotOpen = 1, ///< No server there, or it refuses us.
    PXDisplayLost = 2, ///< It was there and has gone.
    PXDisplayNotSupported = 3, ///< A server that lacks what recording needs, or a Wayland session.
    PXDisplayRequestRefused = 4, ///< One request failed; the connection lives.
};

/// The sound server: code is a `PXSoundErrorCode`.
extern const QString kPXSoundErrorDomain;

enum PXSoundErrorCode {
    PXSoundCannotReach = 1, ///< No server there, or it refuses us.
    PXSoundLost = 2, ///< It was there and has gone, or does not answer any more.
    PXSoundNoDevice = 3, ///< No such device, or it has gone.
    PXSoundRequestRefused = 4, ///< One request failed; the connection lives.
};

/// The display server has gone, and nothing that is asked of it will work again.
inline bool PXIsDisplayLost(const PXError &error)
{
    return error.code == PXDisplayLost && error.domain == kPXDisplayErrorDomain;
}

/// An error of the system: code and text of `errorNumber`, after what we were doing.
/// "Could not open file /a/b: No such file or directory".
PXError PXPOSIXError(int errorNumber, const QString &whatFailed, const QString &suggestion = {});

/// The whole error in one line: description, then, where there are any, the suggestion and, in
/// brackets, the error behind it.
QString PXErrorLine(const PXError &error);

/// Short form of `return tl::unexpected(...)`.
inline tl::unexpected<PXError> PXFail(PXError error)
{
    return tl::unexpected<PXError>(std::move(error));
}
