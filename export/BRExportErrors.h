#pragma once

#include "foundation/PXError.h"

#include <QString>

#include <cstdint>

struct BRCompressionOptions;

/// Why a movie was not made, in the words that the user gets to see. Ours have the domain
/// `kBRErrorDomain`, code 1, and in "trueErrorCode" what a library said; where one said more than
/// a number, its line is in "underlyingError".
namespace BRExportErrors {

/// The file at `outputPath` is in the way and stays there.
PXError cannotReplace(const QString &outputPath);
/// Codec, width, height or options are missing.
PXError wrongSessionParameters(const BRCompressionOptions &options);
/// Logs the failure too, as do the next two.
PXError noSession(const PXError &reason);
/// `call` is the step that failed while the movie's file was made.
PXError cannotBeginMovie(const char *call, const PXError &reason);
/// The same for a file that cannot be created; one that is in use is told apart.
PXError cannotCreateMovie(const QString &path, const PXError &reason);
PXError cannotMoveMovie(const QString &outputPath);
PXError nothingEncoded(std::uint32_t frames);

} // namespace BRExportErrors
