#pragma once

#include "audio/privileged/PXPlace.h"

#include <sys/types.h>

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// What is done to files and folders as root, and whatever else must not be led astray by a link.
/// Nothing here follows one.
namespace PXFileTree {

/// The whole of a regular file, EFBIG above `longest` bytes.
PXFileResult<std::string> contents(const PXPlace &place, std::size_t longest);
/// A new file with these contents, mode 0644; EEXIST where something is there.
PXFileResult<void> writeNewFile(const PXPlace &place, std::string_view contents);
/// Writes to an open file; `place` is for messages.
PXFileResult<void> append(const PXFileDescriptor &file, std::string_view bytes,
                          const PXPlace &place);
/// Mode 0755; EEXIST where something is there.
PXFileResult<void> makeFolder(const PXPlace &place);
/// Makes each folder on the way to `path` below `base` that is not there, and that of `path` too.
/// Those on the way must be root's alone, from `base` on; else EPERM.
PXFileResult<void> makeFolders(const std::string &base, const std::string &path);

/// What becomes of a regular file that is in the way; anything else that is there is EEXIST.
enum class Existing { Refused, Replaced };

/// What may be moved; the rest is EPERM.
struct Movable {
    bool onlyFilesAndFolders = false; ///< A link could be planted where others may follow it.
    std::optional<uid_t> owner; ///< Of the source, and of what is replaced.
};

// What somebody puts in place of source or destination meanwhile is neither moved nor replaced
// (EBUSY), save on file systems that cannot exchange two names.

/// Copies a regular file: contents, owner, mode (without set-id bits) and time. The copy takes its
/// place whole or not at all.
PXFileResult<void> copyFile(const PXPlace &source, const PXPlace &destination, Existing existing,
                            const Movable &movable = {});
/// Renames; to another file system it copies a regular file and refuses the rest (EXDEV).
PXFileResult<void> move(const PXPlace &source, const PXPlace &destination, Existing existing,
                        const Movable &movable = {});

/// The names in a folder but "." and "..".
PXFileResult<std::vector<std::string>> namesIn(const PXPlace &folder);
/// Depth first; stops at the first failure. A folder that is not empty is ENOTEMPTY without
/// `isRecursive`.
PXFileResult<void> remove(const PXPlace &place, bool isRecursive);
/// Gives it and all that is in it to a user and a group. EMLINK where a file has another name, by
/// which it may be somebody else's.
PXFileResult<void> changeOwner(const PXPlace &place, uid_t user, gid_t group);

} // namespace PXFileTree
