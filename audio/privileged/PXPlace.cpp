#include "audio/privileged/PXPlace.h"

#include <fcntl.h>

#include <cerrno>
#include <cstddef>
#include <utility>

namespace {

bool isStep(const std::string &name)
{
    return !name.empty() && name != "." && name != ".." && name.find('/') == std::string::npos;
}

std::string stepBehind(const std::string &path, std::size_t slash)
{
    return path.substr(slash + 1, path.find('/', slash + 1) - slash - 1);
}

PXFileDescriptor openStep(int folder, const char *name)
{
    // Only a place to start from: no right to read it is needed, and nothing is opened for real.
    return PXFileDescriptor(::openat(folder, name, O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
}

} // namespace

PXPlace::PXPlace(PXFileDescriptor folder, std::string name, std::string path)
    : _folder(std::move(folder)), _name(std::move(name)), _path(std::move(path))
{
}

bool PXPlace::isPlain(const std::string &path)
{
    // A call would take a NUL for the end.
    if (path.empty() || path.front() != '/' || path.find('\0') != std::string::npos)
        return false;
    for (std::size_t slash = 0; slash != std::string::npos; slash = path.find('/', slash + 1)) {
        if (!isStep(stepBehind(path, slash)))
            return false;
    }
    return true;
}

bool PXPlace::isRootsAlone(const struct stat &folder)
{
    // Debian gives /usr/local to this group, and with it every program that root finds there.
    constexpr gid_t kStaff = 50;
    const mode_t others = folder.st_gid == kStaff ? S_IWOTH : S_IWGRP | S_IWOTH;
    return folder.st_uid == 0 && (folder.st_mode & others) == 0;
}

PXFileResult<PXPlace> PXPlace::atPath(const std::string &path)
{
    return atPath(path, path, {});
}

PXFileResult<PXPlace> PXPlace::atPath(const std::string &path, const std::string &base,
                                      const FolderCheck &isGood)
{
    if (!isPlain(path))
        return tl::unexpected(PXFileFailure{EINVAL, path});
    PXFileDescriptor folder = openStep(AT_FDCWD, "/");
    for (std::size_t slash = 0;;) {
        struct stat status = {};
        if (!folder || ::fstat(folder.get(), &status) != 0)
            return tl::unexpected(PXFileFailure{errno, path});
        if (slash >= base.size() && !isGood(status))
            return tl::unexpected(PXFileFailure{EPERM, path.substr(0, slash + 1)});
        const std::size_t next = path.find('/', slash + 1);
        if (next == std::string::npos)
            return PXPlace(std::move(folder), path.substr(slash + 1), path);
        folder = openStep(folder.get(), stepBehind(path, slash).c_str());
        slash = next;
    }
}

tl::unexpected<PXFileFailure> PXPlace::failure() const
{
    return failure(errno);
}

tl::unexpected<PXFileFailure> PXPlace::failure(int number) const
{
    return tl::unexpected(PXFileFailure{number, _path});
}

PXFileResult<std::optional<struct stat>> PXPlace::status() const
{
    struct stat status = {};
    if (::fstatat(folder(), name(), &status, AT_SYMLINK_NOFOLLOW) == 0)
        return std::optional(status);
    if (errno == ENOENT)
        return std::optional<struct stat>();
    return failure();
}

PXFileResult<PXFileDescriptor> PXPlace::open(int flags) const
{
    PXFileDescriptor file(
        ::openat(folder(), name(), flags | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    if (!file)
        return failure();
    return file;
}

PXFileResult<PXPlace> PXPlace::sibling(const std::string &name) const
{
    const std::string path = _path.substr(0, _path.size() - _name.size()) + name;
    PXFileDescriptor copy(::fcntl(folder(), F_DUPFD_CLOEXEC, 0));
    if (!isStep(name))
        return failure(EINVAL);
    if (!copy)
        return failure();
    return PXPlace(std::move(copy), name, path);
}

PXFileResult<PXPlace> PXPlace::child(const std::string &name) const
{
    if (!isStep(name))
        return failure(EINVAL);
    PXFileDescriptor here = openStep(folder(), this->name());
    if (!here)
        return failure();
    return PXPlace(std::move(here), name, _path + '/' + name);
}
