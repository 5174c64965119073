#pragma once

#include "foundation/PXAlert.h"
#include "foundation/PXError.h"

#include <QString>

#include <cstdint>
#include <functional>
#include <optional>

/// More that can be done with files, with the user's own rights. Links are never followed into
/// folders: they are moved, copied and removed as links. Any thread.
namespace PXFileManager {

/// A folder of the system's, by the four-character code that stands for its kind.
enum PXSystemFolder : std::uint32_t {
    PXApplicationSupportFolder = 0x61737570, ///< 'asup'
    PXDesktopFolder = 0x6465736b, ///< 'desk'
    PXDocumentsFolder = 0x646f6373, ///< 'docs'
    PXMoviesFolder = 0x6d646f63, ///< 'mdoc'
    PXPicturesFolder = 0x70646f63, ///< 'pdoc'
};
enum class PXFolderDomain { User, Local }; ///< The user's own, or this machine's.

/// Its path, whether it is there or not; none for one that the domain does not have.
std::optional<QString> findSystemFolderType(PXSystemFolder type, PXFolderDomain domain);

/// What /usr/bin/file says about the contents, in words; none when it fails or says nothing.
std::optional<QString> fileTypeForFileAtPath(const QString &path);

/// Bytes of all files in a folder and in its folders; of a file its own. What may not be read
/// counts nothing. None where nothing is.
std::optional<std::uint64_t> sizeOfFolderAtPath(const QString &path);

/// The absolute path with the links on the way to its last step taken, as far as the user may see
/// where they lead.
QString pathBehindLinks(const QString &path);

/// The first free one of "name copy.ext", "name copy 1.ext", "name copy 2.ext", …
QString pathForDuplicateOfFileAtPath(const QString &path);

/// Told of each file that could not be copied; answers whether to go on with the others.
using PXCopyErrorHandler = std::function<bool(const PXError &error)>;
/// Copies a file or a whole folder to that path, which is the answer. Without a handler, or where
/// it says no, the first failure ends it; what was copied stays.
PXExpected<QString> duplicateFileAtPath(const QString &path,
                                        const PXCopyErrorHandler &handler = {});

enum class PXReplace { No, Yes };
/// Moves what is in a folder into another, save for names that begin with ".". What is in the way
/// is removed first with `PXReplace::Yes`, else left with what should have taken its place. The
/// first failure ends it, with a beep of `alert` (none with null) and a log line.
PXExpected<void> moveContentsOfDirectoryAtPath(const QString &source, const QString &destination,
                                               PXReplace replace, PXAlert *alert);

/// A folder with all that is in it, depth first; the first failure ends it. A link to a folder is
/// none (ENOTDIR).
PXExpected<void> removeDirectoryAtPath(const QString &path);

} // namespace PXFileManager
