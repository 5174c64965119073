#pragma once

#include "audio/privileged/PXFileTree.h"

#include <string>

/// The audio driver on this machine, as root puts it there: its folder, and the links in the
/// folders from which the sound servers of all users load what they find when they start.
///
/// What those servers load, they run. So its bytes come from this program and not from the folder
/// that is to be copied: that one, which any user may have written, is only compared with them. It
/// may lie anywhere then, in a source tree as well as beside an installed program. For the same
/// reason nothing is done where somebody other than root could change a folder on the way to the
/// driver or to the links (EPERM); only links are taken away there all the same.
class PXExtensionFolder final {
public:
    static constexpr char kTolvane[] = "TolvaneAudio.kext";
    static constexpr char kBrimmet[] = "BrimmetAudio.kext"; ///< The predecessor's.

    /// `root` is in front of all paths: empty for the machine's own.
    explicit PXExtensionFolder(std::string root) : _root(std::move(root)) { }

    /// Where the driver of this name has its place.
    [[nodiscard]] std::string path(const std::string &name) const;

    /// Puts the driver in its place, at once and whole, whatever was there. EBADMSG where the
    /// folder at `source` holds another.
    [[nodiscard]] PXFileResult<void> install(const std::string &source) const;
    /// Gives the folder and what is in it to root.
    [[nodiscard]] PXFileResult<void> giveToRoot(const std::string &name) const;
    /// Links the driver's files into the servers' folders. EPERM where somebody other than root
    /// may write in the driver, EBADMSG where another lies in its place, EEXIST where another file
    /// has the link's name.
    [[nodiscard]] PXFileResult<void> load() const;
    /// Takes those links away, if there are any.
    [[nodiscard]] PXFileResult<void> unload(const std::string &name) const;
    [[nodiscard]] PXFileResult<void> remove(const std::string &name) const;

private:
    [[nodiscard]] PXFileResult<void> _checkSource(const std::string &source) const;
    [[nodiscard]] PXFileResult<void> _writeFolder(const std::string &path) const;
    [[nodiscard]] PXFileResult<void> _checkInstalled(const std::string &path) const;
    [[nodiscard]] PXFileResult<void> _removeAllOf(const std::string &path) const;
    [[nodiscard]] PXFileResult<PXPlace> _place(const std::string &path) const;

    std::string _root;
};
