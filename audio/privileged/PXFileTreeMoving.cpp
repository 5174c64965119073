#include "audio/privileged/PXFileTree.h"

#include <fcntl.h>
#include <sys/random.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <memory>

namespace {

using Done = PXFileResult<void>;

constexpr mode_t kPrivateMode = 0600;
constexpr mode_t kPermissions = 0777; ///< Without the set-id bits.
constexpr std::size_t kBlock = 262'144;

/// A name that nobody knows beforehand, hidden from whoever lists the folder meanwhile.
std::string temporaryName()
{
    std::array<unsigned char, 8> random = {};
    if (::getrandom(random.data(), random.size(), 0) < 0)
        random.fill(0);
    std::string name = ".tolvane-";
    for (const unsigned char byte : random) {
        std::array<char, 3> digits = {};
        std::snprintf(digits.data(), digits.size(), "%02x", byte);
        name += digits.data();
    }
    return name;
}

using Status = std::optional<struct stat>; ///< None where nothing is.

bool isAllowed(const struct stat &status, const PXFileTree::Movable &movable)
{
    return (!movable.owner || status.st_uid == *movable.owner)
        && (!movable.onlyFilesAndFolders || S_ISREG(status.st_mode) || S_ISDIR(status.st_mode));
}

bool isSame(const struct stat &one, const struct stat &other)
{
    return one.st_dev == other.st_dev && one.st_ino == other.st_ino;
}

bool isStill(const PXPlace &place, const struct stat &status)
{
    const auto now = place.status();
    return now && *now && isSame(**now, status);
}

/// What is at `destination`, and may be replaced.
PXFileResult<Status> checkExisting(const PXPlace &destination, PXFileTree::Existing existing,
                                   const PXFileTree::Movable &movable)
{
    auto status = destination.status();
    if (!status || !*status)
        return status;
    if (existing == PXFileTree::Existing::Refused || !S_ISREG((*status)->st_mode))
        return destination.failure(EEXIST);
    if (!isAllowed(**status, movable))
        return destination.failure(EPERM);
    return status;
}

/// Renames what has the status `moved` over what has the status `replaced`. Both were looked at by
/// name, and who may write in one of the folders can have changed what a name means: the kernel
/// moves whatever has it, so that is looked at again, and changed back.
Done rename(const PXPlace &source, const struct stat &moved, const PXPlace &destination,
            const Status &replaced)
{
    const auto call = [](const PXPlace &from, const PXPlace &to, unsigned flags) {
        return ::renameat2(from.folder(), from.name(), to.folder(), to.name(), flags) == 0;
    };
    const unsigned flags = replaced ? RENAME_EXCHANGE : RENAME_NOREPLACE;
    if (replaced && isSame(moved, *replaced))
        return {}; // As rename() has it: another name of the same file, or the same name.
    if (replaced && !S_ISREG(moved.st_mode))
        return destination.failure(ENOTDIR);
    if (!call(source, destination, flags)) {
        // Some file systems know no flags; then the look before has to do.
        if (errno != EINVAL || !call(source, destination, 0))
            return destination.failure();
        return {};
    }
    if (!isStill(destination, moved) || (replaced && !isStill(source, *replaced))) {
        const bool isUndone = call(destination, source, flags);
        if (!isUndone || (replaced && !isStill(destination, *replaced)))
            ::unlinkat(destination.folder(), destination.name(), 0);
        return source.failure(EBUSY);
    }
    if (replaced && ::unlinkat(source.folder(), source.name(), 0) != 0)
        return source.failure();
    return {};
}

Done copyContents(const PXFileDescriptor &from, const PXPlace &source, const PXFileDescriptor &to,
                  const PXPlace &destination)
{
    const auto block = std::make_unique<char[]>(kBlock);
    for (;;) {
        const ssize_t read = ::read(from.get(), block.get(), kBlock);
        if (read < 0 && errno == EINTR)
            continue;
        if (read < 0)
            return source.failure();
        if (read == 0)
            break;
        const std::string_view bytes(block.get(), static_cast<std::size_t>(read));
        if (auto written = PXFileTree::append(to, bytes, destination); !written)
            return written;
    }
    if (::fsync(to.get()) != 0)
        return destination.failure();
    return {};
}

/// What `original` says besides contents, as far as the file system knows such things.
Done copyAttributes(const struct stat &original, const PXFileDescriptor &to,
                    const PXPlace &destination)
{
    const std::array<timespec, 2> times = {original.st_atim, original.st_mtim};
    if (::fchown(to.get(), original.st_uid, original.st_gid) != 0 && errno != EPERM)
        return destination.failure();
    if (::fchmod(to.get(), original.st_mode & kPermissions) != 0 && errno != EPERM)
        return destination.failure();
    ::futimens(to.get(), times.data());
    return {};
}

} // namespace

namespace PXFileTree {

Done copyFile(const PXPlace &source, const PXPlace &destination, Existing existing,
              const Movable &movable)
{
    const auto from = source.open(O_RDONLY);
    if (!from)
        return tl::unexpected(from.error());
    struct stat status = {};
    if (::fstat(from->get(), &status) != 0)
        return source.failure();
    if (!S_ISREG(status.st_mode))
        return source.failure(EINVAL);
    if (!isAllowed(status, movable))
        return source.failure(EPERM);
    const auto replaced = checkExisting(destination, existing, movable);
    if (!replaced)
        return tl::unexpected(replaced.error());

    const auto temporary = destination.sibling(temporaryName());
    if (!temporary)
        return tl::unexpected(temporary.error());
    const PXFileDescriptor to(::openat(temporary->folder(), temporary->name(),
                                       O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC,
                                       kPrivateMode));
    struct stat copy = {};
    if (!to || ::fstat(to.get(), &copy) != 0)
        return destination.failure();
    auto done = copyContents(*from, source, to, destination)
                    .and_then([&] { return copyAttributes(status, to, destination); })
                    .and_then([&] { return rename(*temporary, copy, destination, *replaced); });
    if (!done)
        ::unlinkat(temporary->folder(), temporary->name(), 0);
    return done;
}

Done move(const PXPlace &source, const PXPlace &destination, Existing existing,
          const Movable &movable)
{
    const auto status = source.status();
    if (!status)
        return tl::unexpected(status.error());
    if (!*status)
        return source.failure(ENOENT);
    if (!isAllowed(**status, movable))
        return source.failure(EPERM);
    const auto replaced = checkExisting(destination, existing, movable);
    if (!replaced)
        return tl::unexpected(replaced.error());
    auto renamed = rename(source, **status, destination, *replaced);
    if (renamed || renamed.error().number != EXDEV || !S_ISREG((*status)->st_mode))
        return renamed;
    return copyFile(source, destination, existing, movable).and_then([&]() -> Done {
        if (::unlinkat(source.folder(), source.name(), 0) != 0)
            return source.failure();
        return {};
    });
}

} // namespace PXFileTree
