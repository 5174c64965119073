#include "audio/privileged/PXExtensionFolder.h"

#include "audio/privileged/PXDriverFiles.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <optional>

namespace {

using Done = PXFileResult<void>;

constexpr char kExtensions[] = "/usr/local/lib/tolvane/Extensions/";

/// A folder that a sound server reads, and the driver's folder for it.
struct DropIn {
    const char *serverFolder;
    const char *driverFolder;
    const char *name;
};
constexpr DropIn kDropIns[] = {
    {"/etc/pulse/default.pa.d", "/default.pa.d/", "tolvane-audio.pa"},
    {"/etc/pipewire/pipewire-pulse.conf.d", "/pipewire-pulse.conf.d/", "tolvane-audio.conf"},
};

Done isOnlyRoots(const PXPlace &place)
{
    const auto status = place.status();
    if (!status)
        return tl::unexpected(status.error());
    if (!*status)
        return place.failure(ENOENT);
    if ((*status)->st_uid != 0 || ((*status)->st_mode & (S_IWGRP | S_IWOTH)) != 0)
        return place.failure(EPERM);
    return {};
}

/// Where a link leads; none where there is no link.
std::optional<std::string> targetOfLink(const PXPlace &place)
{
    std::array<char, PATH_MAX> target = {};
    const ssize_t length = ::readlinkat(place.folder(), place.name(), target.data(), target.size());
    if (length < 0)
        return std::nullopt;
    return std::string(target.data(), static_cast<std::size_t>(length));
}

Done link(const std::string &target, const PXPlace &place)
{
    const auto status = place.status();
    if (!status)
        return tl::unexpected(status.error());
    if (*status && !S_ISLNK((*status)->st_mode))
        return place.failure(EEXIST);
    if (*status && ::unlinkat(place.folder(), place.name(), 0) != 0)
        return place.failure();
    if (::symlinkat(target.c_str(), place.folder(), place.name()) != 0)
        return place.failure();
    return {};
}

Done holds(const PXPlace &place, const PXDriverFile &file)
{
    const auto contents = PXFileTree::contents(place, file.contents.size());
    if (!contents)
        return tl::unexpected(contents.error());
    if (*contents != file.contents)
        return place.failure(EBADMSG);
    return {};
}

} // namespace

std::string PXExtensionFolder::path(const std::string &name) const
{
    return _root + kExtensions + name;
}

Done PXExtensionFolder::_checkSource(const std::string &source) const
{
    for (const PXDriverFile &file : kPXDriverFiles) {
        auto checked = PXPlace::atPath(source + '/' + std::string(file.path))
                           .and_then([&](const PXPlace &place) { return holds(place, file); });
        if (!checked)
            return checked;
    }
    return {};
}

PXFileResult<PXPlace> PXExtensionFolder::_place(const std::string &path) const
{
    return PXPlace::atPath(path, _root, PXPlace::isRootsAlone);
}

Done PXExtensionFolder::_removeAllOf(const std::string &path) const
{
    auto removed = _place(path).and_then(
        [](const PXPlace &place) { return PXFileTree::remove(place, true); });
    if (!removed && removed.error().number != ENOENT)
        return removed;
    return {};
}

Done PXExtensionFolder::_writeFolder(const std::string &path) const
{
    auto done = _place(path).and_then(PXFileTree::makeFolder);
    for (const PXDriverFile &file : kPXDriverFiles) {
        const std::string filePath = path + '/' + std::string(file.path);
        if (done)
            done = PXFileTree::makeFolders(_root, filePath.substr(0, filePath.rfind('/')));
        if (done)
            done = _place(filePath).and_then([&](const PXPlace &place) {
                return PXFileTree::writeNewFile(place, file.contents);
            });
    }
    return done;
}

Done PXExtensionFolder::install(const std::string &source) const
{
    const std::string fresh = path(std::string(".") + kTolvane + ".new");
    const std::string installed = path(kTolvane);
    auto done = _checkSource(source);
    if (done)
        done = PXFileTree::makeFolders(_root, fresh.substr(0, fresh.rfind('/')));
    if (done)
        done = _removeAllOf(fresh); // What a crash may have left.
    if (done)
        done = _writeFolder(fresh);
    if (!done)
        return done;
    const auto from = _place(fresh);
    const auto to = _place(installed);
    if (!from || !to)
        return tl::unexpected(from ? to.error() : from.error());
    const auto old = to->status();
    if (!old)
        return tl::unexpected(old.error());
    // A server that starts just now finds the one or the other.
    int renamed = ::renameat2(from->folder(), from->name(), to->folder(), to->name(),
                              *old ? RENAME_EXCHANGE : RENAME_NOREPLACE);
    if (renamed != 0 && errno == EINVAL) { // Some file systems know no such renaming.
        done = _removeAllOf(installed);
        if (!done)
            return done;
        renamed = ::renameat(from->folder(), from->name(), to->folder(), to->name());
    }
    if (renamed == 0)
        return _removeAllOf(fresh);
    done = to->failure();
    (void)_removeAllOf(fresh);
    return done;
}

Done PXExtensionFolder::giveToRoot(const std::string &name) const
{
    return _place(path(name)).and_then([](const PXPlace &place) {
        return PXFileTree::changeOwner(place, 0, 0);
    });
}

// Whoever changed it, or put it there: root may have made it his own since.
Done PXExtensionFolder::_checkInstalled(const std::string &path) const
{
    for (const PXDriverFile &file : kPXDriverFiles) {
        const auto place = _place(path + '/' + std::string(file.path));
        if (!place)
            return tl::unexpected(place.error());
        auto checked = isOnlyRoots(*place).and_then([&] { return holds(*place, file); });
        if (!checked)
            return checked;
    }
    return {};
}

Done PXExtensionFolder::load() const
{
    const std::string driver = path(kTolvane);
    auto done = _checkInstalled(driver);
    for (const DropIn &dropIn : kDropIns) {
        const std::string folder = _root + dropIn.serverFolder;
        if (done)
            done = PXFileTree::makeFolders(_root, folder);
        if (done)
            done = _place(folder + '/' + dropIn.name).and_then([&](const PXPlace &place) {
                return link(driver + dropIn.driverFolder + dropIn.name, place);
            });
    }
    return done;
}

Done PXExtensionFolder::unload(const std::string &name) const
{
    for (const DropIn &dropIn : kDropIns) {
        const auto folder = PXPlace::atPath(_root + dropIn.serverFolder);
        const auto names = folder.and_then(PXFileTree::namesIn);
        if (!names && names.error().number == ENOENT)
            continue; // That server is not installed.
        if (!names)
            return tl::unexpected(names.error());
        for (const std::string &entry : *names) {
            const auto place = folder->child(entry);
            if (!place)
                return tl::unexpected(place.error());
            const auto target = targetOfLink(*place);
            if (!target || target->rfind(path(name) + '/', 0) != 0)
                continue;
            if (::unlinkat(place->folder(), place->name(), 0) != 0)
                return place->failure();
        }
    }
    return {};
}

Done PXExtensionFolder::remove(const std::string &name) const
{
    return _place(path(name)).and_then([](const PXPlace &place) {
        return PXFileTree::remove(place, true);
    });
}
