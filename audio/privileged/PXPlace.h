#pragma once

#include "audio/privileged/PXFileDescriptor.h"

#include <tl/expected.hpp>

#include <sys/stat.h>

#include <functional>
#include <optional>
#include <string>

/// A call that failed: its `errno` and the path that it was about.
struct PXFileFailure {
    int number = 0;
    std::string path;
};
template <typename T> using PXFileResult = tl::expected<T, PXFileFailure>;

/// A name in a folder that was walked to step by step, following no link on the way: whatever is
/// renamed or linked meanwhile, what is done here is done in that folder. The last step, the name,
/// may be anything or nothing.
class PXPlace final {
public:
    /// Whether a path is absolute, has no empty step, no "." and no "..", and no NUL.
    static bool isPlain(const std::string &path);
    /// Of a plain path; else EINVAL. ELOOP or ENOTDIR where a link is on the way.
    static PXFileResult<PXPlace> atPath(const std::string &path);
    using FolderCheck = std::function<bool(const struct stat &folder)>;
    /// The same where each folder on the way is good, from `base` on, which is empty or one of
    /// them. EPERM, with its path, where one is not.
    static PXFileResult<PXPlace> atPath(const std::string &path, const std::string &base,
                                        const FolderCheck &isGood);
    /// A check: whether nobody but root can change what is in that folder.
    static bool isRootsAlone(const struct stat &folder);
    /// Of a name in a folder that is open already; `path` is for messages.
    PXPlace(PXFileDescriptor folder, std::string name, std::string path);

    [[nodiscard]] int folder() const { return _folder.get(); }
    [[nodiscard]] const char *name() const { return _name.c_str(); }
    [[nodiscard]] const std::string &path() const { return _path; }
    /// Of the last call, with `errno`.
    [[nodiscard]] tl::unexpected<PXFileFailure> failure() const;
    [[nodiscard]] tl::unexpected<PXFileFailure> failure(int number) const;

    /// What is there, a link itself; none where nothing is.
    [[nodiscard]] PXFileResult<std::optional<struct stat>> status() const;
    /// Opens what is there unless it is a link, and never waits for a pipe's other end.
    [[nodiscard]] PXFileResult<PXFileDescriptor> open(int flags) const;
    /// A name beside this one.
    [[nodiscard]] PXFileResult<PXPlace> sibling(const std::string &name) const;
    /// A name in the folder that is here.
    [[nodiscard]] PXFileResult<PXPlace> child(const std::string &name) const;

private:
    PXFileDescriptor _folder;
    std::string _name;
    std::string _path;
};
