#include "audio/privileged/PXFileTree.h"

#include <dirent.h>
#include <fcntl.h>

#include <cerrno>
#include <cstring>
#include <functional>
#include <memory>

namespace {

using Done = PXFileResult<void>;

constexpr mode_t kFileMode = 0644;
constexpr mode_t kFolderMode = 0755;
/// Folders in folders: each level holds a descriptor.
constexpr int kDeepest = 200;

struct FolderCloser {
    void operator()(DIR *folder) const { ::closedir(folder); }
};

/// Calls `task` for all that is in a folder.
Done forEachEntry(const PXPlace &folder, const std::function<Done(const PXPlace &)> &task)
{
    const auto names = PXFileTree::namesIn(folder);
    if (!names)
        return tl::unexpected(names.error());
    for (const std::string &name : *names) {
        auto done = folder.child(name).and_then(task);
        if (!done)
            return done;
    }
    return {};
}

Done removeUpTo(const PXPlace &place, bool isRecursive, int depth)
{
    const auto status = place.status();
    if (!status)
        return tl::unexpected(status.error());
    if (!*status)
        return place.failure(ENOENT);
    const bool isFolder = S_ISDIR((*status)->st_mode);
    if (isFolder && isRecursive) {
        if (depth == 0)
            return place.failure(ELOOP);
        auto emptied = forEachEntry(
            place, [depth](const PXPlace &entry) { return removeUpTo(entry, true, depth - 1); });
        if (!emptied)
            return emptied;
    }
    if (::unlinkat(place.folder(), place.name(), isFolder ? AT_REMOVEDIR : 0) != 0)
        return place.failure();
    return {};
}

Done changeOwnerUpTo(const PXPlace &place, uid_t user, gid_t group, int depth)
{
    const auto opened = place.open(O_PATH);
    if (!opened)
        return tl::unexpected(opened.error());
    struct stat status = {};
    if (::fstat(opened->get(), &status) != 0)
        return place.failure();
    const bool isFolder = S_ISDIR(status.st_mode);
    if (!isFolder && status.st_nlink > 1)
        return place.failure(EMLINK);
    if (::fchownat(opened->get(), "", user, group, AT_EMPTY_PATH) != 0)
        return place.failure();
    if (!isFolder)
        return {};
    if (depth == 0)
        return place.failure(ELOOP);
    return forEachEntry(place, [=](const PXPlace &entry) {
        return changeOwnerUpTo(entry, user, group, depth - 1);
    });
}

} // namespace

namespace PXFileTree {

PXFileResult<std::string> contents(const PXPlace &place, std::size_t longest)
{
    const auto file = place.open(O_RDONLY);
    if (!file)
        return tl::unexpected(file.error());
    struct stat status = {};
    if (::fstat(file->get(), &status) != 0)
        return place.failure();
    if (!S_ISREG(status.st_mode))
        return place.failure(EINVAL);
    // One byte more than it may have tells one that is longer, whatever its size says.
    std::string bytes(longest + 1, '\0');
    std::size_t length = 0;
    while (length < bytes.size()) {
        const ssize_t read = ::read(file->get(), bytes.data() + length, bytes.size() - length);
        if (read < 0 && errno == EINTR)
            continue;
        if (read < 0)
            return place.failure();
        if (read == 0)
            break;
        length += static_cast<std::size_t>(read);
    }
    if (length > longest)
        return place.failure(EFBIG);
    bytes.resize(length);
    return bytes;
}

Done writeNewFile(const PXPlace &place, std::string_view contents)
{
    const PXFileDescriptor file(::openat(place.folder(), place.name(),
                                         O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC,
                                         kFileMode));
    if (!file)
        return place.failure();
    return append(file, contents, place);
}

Done append(const PXFileDescriptor &file, std::string_view bytes, const PXPlace &place)
{
    while (!bytes.empty()) {
        const ssize_t written = ::write(file.get(), bytes.data(), bytes.size());
        if (written < 0 && errno == EINTR)
            continue;
        if (written < 0)
            return place.failure();
        bytes.remove_prefix(static_cast<std::size_t>(written));
    }
    return {};
}

Done makeFolder(const PXPlace &place)
{
    if (::mkdirat(place.folder(), place.name(), kFolderMode) != 0)
        return place.failure();
    return {};
}

Done makeFolders(const std::string &base, const std::string &path)
{
    for (std::size_t end = base.size(); end != std::string::npos;) {
        end = path.find('/', end + 1);
        auto made = PXPlace::atPath(path.substr(0, end), base, PXPlace::isRootsAlone)
                        .and_then(makeFolder);
        if (!made && made.error().number != EEXIST)
            return made;
    }
    return {};
}

PXFileResult<std::vector<std::string>> namesIn(const PXPlace &folder)
{
    auto opened = folder.open(O_RDONLY | O_DIRECTORY);
    if (!opened)
        return tl::unexpected(opened.error());
    const std::unique_ptr<DIR, FolderCloser> list(::fdopendir(opened->get()));
    if (!list)
        return folder.failure();
    (void)opened->release();
    std::vector<std::string> names;
    errno = 0;
    while (const dirent *entry = ::readdir(list.get())) {
        if (std::strcmp(entry->d_name, ".") != 0 && std::strcmp(entry->d_name, "..") != 0)
            names.emplace_back(entry->d_name);
        errno = 0;
    }
    if (errno != 0)
        return folder.failure();
    return names;
}

Done remove(const PXPlace &place, bool isRecursive)
{
    return removeUpTo(place, isRecursive, kDeepest);
}

Done changeOwner(const PXPlace &place, uid_t user, gid_t group)
{
    return changeOwnerUpTo(place, user, group, kDeepest);
}

} // namespace PXFileTree
