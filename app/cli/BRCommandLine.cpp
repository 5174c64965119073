#include "app/cli/BRCommandLine.h"

#include "app/BRFactoryDefaults.h"
#include "app/cli/BRAudioDriverCommand.h"
#include "app/cli/BRDefaultsCommand.h"
#include "app/cli/BRDevicesCommand.h"
#include "app/cli/BRExitStatus.h"
#include "app/cli/BRExportCommand.h"
#include "app/cli/BRFramesCommand.h"
#include "app/cli/BRInfoCommand.h"
#include "app/cli/BRLoggedWarnings.h"
#include "app/cli/BRMovieCommands.h"
#include "app/cli/BRPlayCommand.h"
#include "app/cli/BRRecordCommand.h"
#include "app/cli/BRSelectCommand.h"
#include "app/cli/BRTerminal.h"
#include "foundation/BRLog.h"
#include "foundation/PXAllocation.h"
#include "foundation/PXDefaults.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <initializer_list>
#include <sstream>
#include <vector>

using namespace Qt::StringLiterals;

namespace {

/// The parser speaks std::string, the engine QString.
std::optional<QString> textOf(const std::optional<std::string> &text)
{
    return text ? std::optional(QString::fromLocal8Bit(text->c_str())) : std::nullopt;
}

/// A command's options and, once parsed, how to run it.
struct Command {
    CLI::App *app;
    std::function<int()> run;
};

Command addRecord(CLI::App &app, const BRBackEnds &backEnds)
{
    struct Values {
        std::optional<std::string> geometry, follow, codec, moviesFolder, microphone;
        BRRecordArguments arguments;
    };
    auto *record = app.add_subcommand(
        "record", "Record the screen until Ctrl+C (or --duration); prints the movie's folder");
    const auto values = std::make_shared<Values>();
    auto *geometry = record->add_option("--geometry", values->geometry,
                                        "Area to record, WxH+X+Y from the upper left corner");
    auto *follow = record->add_option("--follow", values->follow,
                                      "Size WxH of an area that follows the pointer");
    follow->excludes(geometry);
    record->add_option("--rate", values->arguments.rate, "Frames per second");
    record->add_option("--codec", values->codec, "How the capture is stored: lzo or rle")
        ->check(CLI::IsMember({"lzo", "rle"}));
    record
        ->add_option("--lossy", values->arguments.lossyLevel,
                     "With rle: bits of each colour that may be lost, 0 to 4")
        ->check(CLI::Range(0, 4));
    record->add_flag("--no-cursor", values->arguments.hidesCursor, "Leave the cursor out");
    auto *microphone
        = record
              ->add_option("--microphone", values->microphone,
                           "Record a microphone: the chosen one, or that with the given UID "
                           "(--microphone=UID; tolvane devices lists them)")
              ->expected(0, 1);
    record->add_flag("--system-audio", values->arguments.recordsSystemAudio,
                     "Record what the computer plays");
    record
        ->add_flag("--select", values->arguments.selects,
                   "Choose the area on a frozen picture of the screen first")
        ->excludes(geometry)
        ->excludes(follow);
    record->add_flag("--countdown", values->arguments.countsDown, "Count down before it begins");
    record->add_flag("--hide-desktop", values->arguments.hidesDesktop,
                     "Cover the desktop meanwhile, as the settings say");
    record->add_flag("--bounds", values->arguments.showsBounds,
                     "Show a dashed frame around the area, outside of it");
    record->add_flag("--show-clicks", values->arguments.showsClicks,
                     "Mark on the screen where the mouse is clicked");
    record->add_flag("--show-keys", values->arguments.showsKeys,
                     "Show on the screen which keys are pressed, as the settings say");
    record->add_flag("--highlight", values->arguments.highlightsCursor,
                     "Put a red square under the cursor, over what is there");
    record->add_option("--duration", values->arguments.duration, "Stop after so many seconds");
    record->add_option("--movies-folder", values->moviesFolder,
                       "Folder that gets the movie's own folder");
    record->footer("Sound is recorded where it is asked for. What else is not given comes from the "
                   "settings (tolvane defaults read); without "
                   "an area it is the last selection, else the whole main display.");
    return {record, [values, microphone, &backEnds] {
                BRRecordArguments &arguments = values->arguments;
                if (microphone->count() > 0)
                    arguments.microphone = textOf(values->microphone).value_or(QString());
                arguments.geometry = textOf(values->geometry);
                arguments.follow = textOf(values->follow);
                arguments.codec = textOf(values->codec);
                arguments.moviesFolder = textOf(values->moviesFolder);
                return BRRunRecordCommand(arguments, backEnds);
            }};
}

Command addInfo(CLI::App &app)
{
    struct Values {
        std::string path;
        bool asJSON = false;
    };
    auto *info = app.add_subcommand("info", "Show what a capture holds");
    const auto values = std::make_shared<Values>();
    info->add_option("path", values->path,
                     "Movie: UUID, its beginning, name, folder, or raw frame file")
        ->required();
    info->add_flag("--json", values->asJSON, "As JSON");
    return {info, [values] {
                return BRRunInfoCommand(QString::fromLocal8Bit(values->path.c_str()),
                                        values->asJSON);
            }};
}

Command addFrames(CLI::App &app)
{
    struct Values {
        std::string path, folder, format = "png";
    };
    auto *frames = app.add_subcommand("frames", "Write every frame of a capture as a picture");
    const auto values = std::make_shared<Values>();
    frames
        ->add_option("path", values->path,
                     "Movie: UUID, its beginning, name, folder, or raw frame file")
        ->required();
    frames->add_option("--out", values->folder, "Folder for the pictures and frames.json")
        ->required();
    frames->add_option("--format", values->format, "png, or bgra (raw pixels, top row first)")
        ->check(CLI::IsMember({"png", "bgra"}));
    return {frames, [values] {
                return BRRunFramesCommand(QString::fromLocal8Bit(values->path.c_str()),
                                          QString::fromLocal8Bit(values->folder.c_str()),
                                          values->format == "png" ? BRPictureFormat::PNG
                                                                  : BRPictureFormat::BGRA);
            }};
}

Command addExport(CLI::App &app, const BRBackEnds &backEnds)
{
    struct Values {
        std::vector<std::string> paths;
        std::optional<std::string> output, codec, size, audioCodec;
        BRExportArguments arguments;
    };
    auto *command = app.add_subcommand("export", "Make .mov files that other programs play");
    const auto values = std::make_shared<Values>();
    command
        ->add_option("path", values->paths,
                     "Movies: UUID, its beginning, name, folder, or raw frame file")
        ->required();
    command->add_option("-o,--output", values->output,
                        "The movie's path, or a folder that gets it under its own name (the "
                        "current one)");
    command->add_option("--video-codec", values->codec,
                        "Four-character code, avc1 when nothing is saved");
    command->add_option("--quality", values->arguments.quality, "0 to 100")
        ->check(CLI::Range(0, 100));
    auto *size = command->add_option("--size", values->size, "WxH in pixels");
    command->add_option("--scale", values->arguments.scale, "Percent of the captured size")
        ->excludes(size);
    command->add_flag("--full-chroma", values->arguments.hasFullChroma,
                      "Keep all colour detail (4:4:4), which few players can show");
    auto *noAudio
        = command->add_flag("--no-audio", values->arguments.hasNoAudio, "Leave the sound out");
    command
        ->add_option("--audio-codec", values->audioCodec,
                     "aac, alac, pcm, ima4 or ulaw; aac when nothing is saved")
        ->check(CLI::IsMember({"aac", "alac", "pcm", "ima4", "ulaw"}))
        ->excludes(noAudio);
    command
        ->add_option("--audio-bitrate", values->arguments.audioBitRate,
                     "Of the sound, in 1000 bits a second")
        ->check(CLI::Range(8, 1000))
        ->excludes(noAudio);
    return {command, [values, &backEnds] {
                BRExportArguments &arguments = values->arguments;
                for (const std::string &path : values->paths)
                    arguments.paths << QString::fromLocal8Bit(path.c_str());
                arguments.outputPath = textOf(values->output).value_or(QString());
                arguments.videoCodec = textOf(values->codec);
                arguments.size = textOf(values->size);
                arguments.audioCodec = textOf(values->audioCodec);
                return BRRunExportCommand(arguments, backEnds);
            }};
}

/// Those on whole movies of the library.
std::vector<Command> addMovies(CLI::App &app, const BRBackEnds &backEnds)
{
    struct Values {
        std::optional<std::string> moviesFolder;
        std::string movie, name;
        bool asJSON = false;
        bool isSure = false;
    };
    const auto values = std::make_shared<Values>();
    const auto movie = [values] { return QString::fromLocal8Bit(values->movie.c_str()); };
    const char *const meaning = "UUID, the beginning of one, name, or folder";
    auto *list = app.add_subcommand("list", "List the recorded movies; rescues interrupted ones");
    list->add_option("--movies-folder", values->moviesFolder, "Folder that holds them");
    list->add_flag("--json", values->asJSON, "As JSON");
    auto *rename = app.add_subcommand("rename", "Give a movie a name");
    rename->add_option("movie", values->movie, meaning)->required();
    rename->add_option("name", values->name, "Its new name")->required();
    auto *remove = app.add_subcommand("delete", "Move a movie to the trash");
    remove->add_option("movie", values->movie, meaning)->required();
    remove->add_flag("--yes", values->isSure, "Unasked, and for good");
    auto *repair = app.add_subcommand("repair", "Rescue a movie whose recording was interrupted");
    repair->add_option("movie", values->movie, meaning)->required();
    return {{list,
             [values, &backEnds] {
                 return BRRunListCommand(textOf(values->moviesFolder), values->asJSON, backEnds);
             }},
            {rename,
             [values, movie, &backEnds] {
                 return BRRunRenameCommand(movie(), QString::fromLocal8Bit(values->name.c_str()),
                                           backEnds);
             }},
            {remove, [values, movie] { return BRRunDeleteCommand(movie(), values->isSure); }},
            {repair, [movie, &backEnds] { return BRRunRepairCommand(movie(), backEnds); }}};
}

Command addPlay(CLI::App &app, const BRBackEnds &backEnds)
{
    auto *play = app.add_subcommand("play", "Show a capture in a window");
    const auto path = std::make_shared<std::string>();
    play->add_option("path", *path, "Movie: UUID, its beginning, name, folder, or raw frame file")
        ->required();
    play->footer("Space plays and pauses; left and right go a second, with Shift a frame.");
    return {play, [path, &backEnds] {
                return BRRunPlayCommand(QString::fromLocal8Bit(path->c_str()), backEnds);
            }};
}

Command addSelect(CLI::App &app, const BRBackEnds &backEnds)
{
    auto *select = app.add_subcommand(
        "select", "Choose an area on a frozen picture of the screen; prints WxH+X+Y");
    const auto asJSON = std::make_shared<bool>(false);
    select->add_flag("--json", *asJSON, "As JSON");
    select->footer(
        "Drag to select; Alt-click takes a window; Return or OK chooses, Escape cancels.");
    return {select, [asJSON, &backEnds] { return BRRunSelectCommand(*asJSON, backEnds); }};
}

Command addDevices(CLI::App &app, const BRBackEnds &backEnds)
{
    auto *devices = app.add_subcommand("devices", "List the sound inputs and outputs");
    const auto asJSON = std::make_shared<bool>(false);
    devices->add_flag("--json", *asJSON, "As JSON");
    return {devices, [asJSON, &backEnds] { return BRRunDevicesCommand(backEnds.sound, *asJSON); }};
}

std::vector<Command> addAudioDriver(CLI::App &app, const BRBackEnds &backEnds)
{
    auto *driver = app.add_subcommand("audio-driver",
                                      "The virtual output that records what the computer plays");
    driver->require_subcommand(1);
    auto *install
        = driver->add_subcommand("install", "Install it for all users, as an administrator");
    auto *uninstall = driver->add_subcommand("uninstall", "Remove it");
    auto *status = driver->add_subcommand("status", "Say whether it is installed and loaded");
    const auto asJSON = std::make_shared<bool>(false);
    status->add_flag("--json", *asJSON, "As JSON");
    for (CLI::App *command : {install, uninstall})
        command->add_flag("--json")->description("Changes nothing here");
    return {
        {install, [&backEnds] { return BRRunAudioDriverInstall(backEnds.sound); }},
        {uninstall, [&backEnds] { return BRRunAudioDriverUninstall(backEnds.sound); }},
        {status, [asJSON, &backEnds] { return BRRunAudioDriverStatus(backEnds.sound, *asJSON); }}};
}

std::vector<Command> addDefaults(CLI::App &app)
{
    struct Values {
        std::optional<std::string> key;
        std::string value;
        bool asJSON = false;
    };
    auto *defaults = app.add_subcommand("defaults", "Read and change the settings");
    defaults->require_subcommand(1);
    const auto values = std::make_shared<Values>();
    auto *read = defaults->add_subcommand("read", "Print one setting, or all");
    read->add_option("key", values->key, "The setting's key");
    read->add_flag("--json", values->asJSON, "As JSON");
    auto *write = defaults->add_subcommand("write", "Change a setting");
    write->add_option("key", values->key, "The setting's key")->required();
    write->add_option("value", values->value, "Its value")->required();
    write->add_flag("--json", values->asJSON, "The value is JSON");
    auto *remove = defaults->add_subcommand("delete", "Go back to the factory value");
    remove->add_option("key", values->key, "The setting's key")->required();
    remove->add_flag("--json")->description("Changes nothing here");
    return {{read, [values] { return BRRunDefaultsRead(textOf(values->key), values->asJSON); }},
            {write,
             [values] {
                 return BRRunDefaultsWrite(*textOf(values->key),
                                           QString::fromLocal8Bit(values->value.c_str()),
                                           values->asJSON);
             }},
            {remove, [values] { return BRRunDefaultsDelete(*textOf(values->key)); }}};
}

int reportWrongUsage(const CLI::App &app, const CLI::ParseError &error)
{
    BRTerminal::printError(QString::fromLocal8Bit(error.what()).replace(u'\n', u' '));
    std::string path = "tolvane";
    for (const CLI::App *command = &app; !command->get_subcommands().empty();) {
        command = command->get_subcommands().front();
        path += " " + command->get_name();
    }
    BRTerminal::printError(u"see \"%1 --help\""_s.arg(QString::fromLocal8Bit(path.c_str())));
    return BRExitWrongUsage;
}

/// The help or the version.
int printAnswer(const CLI::App &app, const CLI::Success &success)
{
    std::ostringstream text;
    const int status = app.exit(success, text, text);
    BRTerminal::print(QString::fromLocal8Bit(text.str().c_str()).chopped(1));
    return status;
}

/// The log goes to the journal, unless asked for.
void setUpLog(int level, bool isAskedFor)
{
    BRSetLogLevel(level);
    BRSetLogsToStandardError(isAskedFor);
    if (!isAskedFor)
        BRLoggedWarnings::collect();
    PXSetAllocationWarningsToStandardOutput(false);
}

/// `status`, unless what a script waits for could not be written.
int finish(int status)
{
    BRLoggedWarnings::print();
    const auto written = BRTerminal::finishOutput();
    if (written)
        return status;
    BRTerminal::printError(written.error());
    return status == BRExitDone ? BRExitNotWritable : status;
}

} // namespace

bool BRCommandLineShowsWindow(int argc, char **argv)
{
    // Only options of the program itself stand before the command.
    int command = 1;
    while (command < argc && argv[command][0] == '-')
        command += qstrcmp(argv[command], "--log-level") == 0 ? 2 : 1;
    if (command >= argc)
        return false;
    const auto isOneOf = [](const char *word, std::initializer_list<QByteArrayView> words) {
        const QByteArray name = QByteArray(word).split('=').front(); // "--countdown=true"
        return std::find(words.begin(), words.end(), name) != words.end();
    };
    if (isOneOf(argv[command], {"play", "select"}))
        return true;
    if (!isOneOf(argv[command], {"record"}))
        return false;
    if (PXDefaults::standardUserDefaults().boolValue(QStringLiteral("showCursorHighlight")))
        return true;
    return std::any_of(argv + command + 1, argv + argc, [&](const char *word) {
        return isOneOf(word,
                       {"--select", "--countdown", "--hide-desktop", "--show-clicks", "--show-keys",
                        "--highlight"});
    });
}

int BRRunCommandLine(int argc, char **argv, const BRBackEnds &backEnds)
{
    CLI::App app("Tolvane records the screen and exports what it recorded as movies.", "tolvane");
    app.set_version_flag("--version", "tolvane " TOLVANE_VERSION);
    int logLevel = BRLogWarning;
    app.add_option("--log-level", logLevel, "1 errors, 2 and warnings, 3 and notes, 4 everything")
        ->check(CLI::Range(0, 4));
    app.require_subcommand(1);
    std::vector<Command> commands
        = {addRecord(app, backEnds), addInfo(app),           addFrames(app),
           addExport(app, backEnds), addPlay(app, backEnds), addSelect(app, backEnds),
           addDevices(app, backEnds)};
    for (Command &command : addAudioDriver(app, backEnds))
        commands.push_back(std::move(command));
    for (Command &command : addMovies(app, backEnds))
        commands.push_back(std::move(command));
    for (Command &command : addDefaults(app))
        commands.push_back(std::move(command));
    try {
        app.parse(argc, argv);
    } catch (const CLI::Success &success) {
        return finish(printAnswer(app, success));
    } catch (const CLI::ParseError &error) {
        return reportWrongUsage(app, error);
    }
    setUpLog(logLevel, app.count("--log-level") > 0);
    BRFactoryDefaults::registerFactoryDefaults(PXDefaults::standardUserDefaults());
    const auto command = std::find_if(commands.begin(), commands.end(),
                                      [](const Command &entry) { return entry.app->parsed(); });
    return finish(command->run());
}
