#include "audio/privileged/PXPrivilegedCommands.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

namespace {

constexpr char kSharedSupport[] = "/usr/local/share/Tolvane";
constexpr char kSharedSupportOfBrimmet[] = "/usr/local/share/Brimmet";
constexpr char kHomes[] = "/home";
constexpr const char *kMovies[] = {kHomes, "/media", "/mnt", "/run/media", "/srv"};

constexpr char kIdentifier[] = "com.pexarworks.driver.tolvaneaudio";
constexpr char kIdentifierOfBrimmet[] = "com.pexarworks.driver.brimmetaudio";

bool isBelow(const std::string &path, const std::string &folder)
{
    return path.size() > folder.size() + 1 && path.compare(0, folder.size(), folder) == 0
        && path[folder.size()] == '/';
}

/// Takes `option` off the front, if it is there.
bool takeOption(std::vector<std::string> &arguments, const char *option)
{
    if (arguments.empty() || arguments.front() != option)
        return false;
    arguments.erase(arguments.begin());
    return true;
}

/// One line, whatever is in it.
std::string lineOf(std::string text)
{
    std::replace_if(
        text.begin(), text.end(),
        [](unsigned char character) { return character < ' ' || character == 0x7f; }, '?');
    return text;
}

} // namespace

PXPrivilegedCommands::PXPrivilegedCommands(std::string root, uid_t caller)
    : _root(std::move(root)), _caller(caller), _extension(_root)
{
}

PXPrivilegedAnswer PXPrivilegedCommands::run(const Words &words) const
{
    const struct {
        const char *program;
        Done (PXPrivilegedCommands::*run)(const Words &arguments) const;
    } programs[] = {
        {"/bin/cp", &PXPrivilegedCommands::_copy},
        {"/usr/sbin/chown", &PXPrivilegedCommands::_changeOwner},
        {"/bin/chown", &PXPrivilegedCommands::_changeOwner},
        {"/sbin/kextload", &PXPrivilegedCommands::_load},
        {"/sbin/kextunload", &PXPrivilegedCommands::_unload},
        {"/bin/rm", &PXPrivilegedCommands::_remove},
        {"/bin/mkdir", &PXPrivilegedCommands::_makeFolder},
        {"/bin/mv", &PXPrivilegedCommands::_move},
    };
    for (const auto &entry : programs) {
        if (words.empty() || words.front() != entry.program)
            continue;
        const Done done = (this->*entry.run)(Words(words.begin() + 1, words.end()));
        if (done && *done)
            return {};
        if (done) {
            const PXFileFailure &failure = done->error();
            return {
                PXPrivilegedFailed,
                lineOf(words.front() + ": " + failure.path + ": " + std::strerror(failure.number))};
        }
    }
    std::string refused = "refused:";
    for (const std::string &word : words)
        refused += ' ' + word;
    return {PXPrivilegedCannotExecute, lineOf(std::move(refused))};
}

PXPrivilegedCommands::Area PXPrivilegedCommands::_areaOfPath(const std::string &path) const
{
    if (!PXPlace::isPlain(path))
        return Area::None;
    for (const char *shared : {kSharedSupport, kSharedSupportOfBrimmet}) {
        if (path == _root + shared || isBelow(path, _root + shared))
            return Area::Shared;
    }
    if (path.find("/.", _root.size()) != std::string::npos)
        return Area::None;
    // A home is made with its user.
    if (path.find('/', _root.size() + 1) == path.rfind('/') && isBelow(path, _root + kHomes))
        return Area::None;
    const bool isMovie
        = std::any_of(std::begin(kMovies), std::end(kMovies),
                      [&](const char *folder) { return isBelow(path, _root + folder); });
    return isMovie ? Area::Movies : Area::None;
}

PXFileResult<PXPlace> PXPrivilegedCommands::_placeAtPath(const std::string &path) const
{
    // Another's folder is his to fill: in his home a file can be a program that he runs without
    // knowing.
    return PXPlace::atPath(path, _root, [owner = _ownerIn(_areaOfPath(path))](const auto &folder) {
        return !owner || folder.st_uid == 0 || folder.st_uid == *owner;
    });
}

/// The driver's name.
std::optional<std::string> PXPrivilegedCommands::_driverAtPath(const std::string &path) const
{
    for (const char *name : {PXExtensionFolder::kTolvane, PXExtensionFolder::kBrimmet}) {
        if (path == _extension.path(name))
            return name;
    }
    return std::nullopt;
}

/// Whose files may be moved there; anybody's with none.
std::optional<uid_t> PXPrivilegedCommands::_ownerIn(Area area) const
{
    return area == Area::Movies && _caller != 0 ? std::optional(_caller) : std::nullopt;
}

PXPrivilegedCommands::Done PXPrivilegedCommands::_copy(const Words &arguments) const
{
    Words paths = arguments;
    if (takeOption(paths, "-R")) {
        if (paths.size() != 2 || !PXPlace::isPlain(paths[0])
            || _driverAtPath(paths[1]) != PXExtensionFolder::kTolvane)
            return std::nullopt;
        return _extension.install(paths[0]);
    }
    const auto existing
        = takeOption(paths, "-f") ? PXFileTree::Existing::Replaced : PXFileTree::Existing::Refused;
    if (paths.size() != 2 || _areaOfPath(paths[0]) != Area::Shared
        || _areaOfPath(paths[1]) != Area::Shared)
        return std::nullopt;
    const auto source = _placeAtPath(paths[0]);
    const auto destination = _placeAtPath(paths[1]);
    if (!source || !destination)
        return tl::unexpected(source ? destination.error() : source.error());
    return PXFileTree::copyFile(*source, *destination, existing);
}

PXPrivilegedCommands::Done PXPrivilegedCommands::_changeOwner(const Words &arguments) const
{
    if (arguments.size() != 3 || arguments[0] != "-R"
        || (arguments[1] != "root:wheel" && arguments[1] != "root:root"))
        return std::nullopt;
    const auto driver = _driverAtPath(arguments[2]);
    if (!driver)
        return std::nullopt;
    return _extension.giveToRoot(*driver);
}

PXPrivilegedCommands::Done PXPrivilegedCommands::_load(const Words &arguments) const
{
    if (arguments.size() != 1 || _driverAtPath(arguments[0]) != PXExtensionFolder::kTolvane)
        return std::nullopt;
    return _extension.load();
}

PXPrivilegedCommands::Done PXPrivilegedCommands::_unload(const Words &arguments) const
{
    if (arguments.size() != 2 || arguments[0] != "-b")
        return std::nullopt;
    if (arguments[1] == kIdentifier)
        return _extension.unload(PXExtensionFolder::kTolvane);
    if (arguments[1] == kIdentifierOfBrimmet)
        return _extension.unload(PXExtensionFolder::kBrimmet);
    return std::nullopt;
}

PXPrivilegedCommands::Done PXPrivilegedCommands::_remove(const Words &arguments) const
{
    Words paths = arguments;
    if (takeOption(paths, "-r")) {
        const auto driver = paths.size() == 1 ? _driverAtPath(paths[0]) : std::nullopt;
        if (!driver)
            return std::nullopt;
        return _extension.remove(*driver);
    }
    const bool isRecursive = takeOption(paths, "-R");
    const bool removesFolders = takeOption(paths, "-d") || isRecursive;
    // Our own shared folder stays; what is in it, and all of the predecessor's, may go.
    if (!takeOption(paths, "-f") || paths.size() != 1 || _areaOfPath(paths[0]) != Area::Shared
        || paths[0] == _root + kSharedSupport)
        return std::nullopt;
    const auto place = _placeAtPath(paths[0]);
    const auto status = place.and_then([](const PXPlace &found) { return found.status(); });
    if (status ? !*status : status.error().number == ENOENT)
        return PXFileResult<void>();
    if (!status)
        return tl::unexpected(status.error());
    if (S_ISDIR((*status)->st_mode) && !removesFolders)
        return place->failure(EISDIR);
    return PXFileTree::remove(*place, isRecursive);
}

PXPrivilegedCommands::Done PXPrivilegedCommands::_makeFolder(const Words &arguments) const
{
    if (arguments.size() != 1 || _areaOfPath(arguments[0]) == Area::None)
        return std::nullopt;
    return _placeAtPath(arguments[0]).and_then(PXFileTree::makeFolder);
}

PXPrivilegedCommands::Done PXPrivilegedCommands::_move(const Words &arguments) const
{
    Words paths = arguments;
    const auto existing
        = takeOption(paths, "-f") ? PXFileTree::Existing::Replaced : PXFileTree::Existing::Refused;
    // Not from one area to the other: what all users trust never comes from one of them.
    if (paths.size() != 2 || _areaOfPath(paths[0]) == Area::None
        || _areaOfPath(paths[0]) != _areaOfPath(paths[1]))
        return std::nullopt;
    const auto source = _placeAtPath(paths[0]);
    const auto destination = _placeAtPath(paths[1]);
    if (!source || !destination)
        return tl::unexpected(source ? destination.error() : source.error());
    return PXFileTree::move(
        *source, *destination, existing,
        {.onlyFilesAndFolders = true, .owner = _ownerIn(_areaOfPath(paths[0]))});
}
