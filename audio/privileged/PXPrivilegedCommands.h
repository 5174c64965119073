#pragma once

#include "audio/privileged/PXExtensionFolder.h"
#include "audio/privileged/PXPrivilegedProtocol.h"

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

struct PXPrivilegedAnswer {
    int status = PXPrivilegedDone; ///< A `PXPrivilegedStatus`.
    std::string text; ///< What failed; empty when done.
};

/// All that the root helper does, in just these forms; everything else is refused with
/// `PXPrivilegedCannotExecute`. The names are those of system programs, none of which is run.
///
///     /bin/cp -R SOURCE DRIVER           installs the driver; see PXExtensionFolder
///     /usr/sbin/chown -R root:wheel DRIVER   also /bin/chown, and root:root, which it means here
///     /sbin/kextload DRIVER              links it into the sound servers' folders
///     /sbin/kextunload -b IDENTIFIER     takes the links away
///     /bin/rm -r DRIVER
///     /bin/rm [-R] [-d] -f SHARED        nothing there is as good as removed
///     /bin/cp [-f] SHARED SHARED         a file
///     /bin/mv [-f] SHARED SHARED         a file or folder; -f replaces a file
///     /bin/mv [-f] MOVIE MOVIE           likewise, but only what belongs to the caller
///     /bin/mkdir SHARED | MOVIE          belongs to root
///
/// DRIVER is the place of our driver or (to unload and remove) of the predecessor's. SHARED is in
/// the support folders that all users share, ours and the predecessor's. MOVIE is a place where
/// people keep movies: below /home, /media, /mnt, /run/media or /srv and on no hidden path, so that
/// nobody's ".ssh" or ".bashrc" is one, and only by folders of root's and the caller's. No path may
/// have "." or ".." in it or lead over a link. Who was let in may then put his own files where he
/// has no right to write, and nothing else: what others' programs run or trust lies elsewhere.
class PXPrivilegedCommands final {
public:
    /// `root` is in front of all these places: empty for the machine's own. `caller` is the user
    /// who was let in; root may move anybody's files.
    PXPrivilegedCommands(std::string root, uid_t caller);

    [[nodiscard]] PXPrivilegedAnswer run(const std::vector<std::string> &words) const;

private:
    enum class Area { None, Shared, Movies };
    using Words = std::vector<std::string>;
    using Done = std::optional<PXFileResult<void>>; ///< None: not a form that is done.

    [[nodiscard]] Area _areaOfPath(const std::string &path) const;
    [[nodiscard]] std::optional<std::string> _driverAtPath(const std::string &path) const;
    [[nodiscard]] std::optional<uid_t> _ownerIn(Area area) const;
    [[nodiscard]] PXFileResult<PXPlace> _placeAtPath(const std::string &path) const;

    [[nodiscard]] Done _copy(const Words &arguments) const;
    [[nodiscard]] Done _changeOwner(const Words &arguments) const;
    [[nodiscard]] Done _load(const Words &arguments) const;
    [[nodiscard]] Done _unload(const Words &arguments) const;
    [[nodiscard]] Done _remove(const Words &arguments) const;
    [[nodiscard]] Done _makeFolder(const Words &arguments) const;
    [[nodiscard]] Done _move(const Words &arguments) const;

    std::string _root;
    uid_t _caller;
    PXExtensionFolder _extension;
};
