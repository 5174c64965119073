#include "app/PXTranslations.h"
#include "app/cli/BRCommandLine.h"
#include "app/cli/BRExitStatus.h"
#include "foundation/BRLog.h"
#include "foundation/PXClock.h"
#include "platform/canberra/CanberraSoundPlayer.h"
#include "platform/ffmpeg/FFmpegMediaPlatform.h"
#include "platform/pulse/PulseSoundPlatform.h"
#include "platform/x11/X11ScreenPlatform.h"

#include <QApplication>

#include <fcntl.h>
#include <unistd.h>

#include <clocale>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <memory>
#include <new>

using namespace Qt::StringLiterals;

namespace {

/// What Qt says is about its own affairs, and standard error is read by scripts: it goes the way of
/// the log, one level below its own opinion. But when the display has gone Qt ends the program with
/// the next line, wherever that is: what was recorded is in its files, to be rescued.
void logMessageOfQt(QtMsgType type, const QMessageLogContext &, const QString &message)
{
    if (message.startsWith("The X11 connection broke"_L1)) {
        (void)std::fputs("tolvane: the display has gone\n", stderr);
        std::_Exit(BRExitNoDisplay);
    }
    const bool isGrave = type == QtCriticalMsg || type == QtFatalMsg;
    BRLog(isGrave ? BRLogWarning : BRLogInfo, u"Qt: %1"_s.arg(message));
}

/// What is opened next takes the lowest free number: without these three, data meant for standard
/// output would be written into a connection.
void makeStandardFilesExist()
{
    int fd = ::open("/dev/null", O_RDWR);
    while (fd >= 0 && fd <= STDERR_FILENO)
        fd = ::open("/dev/null", O_RDWR);
    ::close(fd);
}

/// Qt ends the program where a window cannot be shown: then the command shall say why. The others
/// do without what windows need.
std::unique_ptr<QCoreApplication> makeApplication(int argc, char **argv)
{
    // It would take options like "--geometry" for its own.
    static int programOnly = 1;
    // What we ask of windows we ask of the X server, by the numbers that they have there.
    qputenv("QT_QPA_PLATFORM", "xcb");
    if (BRCommandLineShowsWindow(argc, argv) && X11ScreenPlatform::open())
        return std::make_unique<QApplication>(programOnly, argv);
    return std::make_unique<QCoreApplication>(programOnly, argv);
}

} // namespace

/// Picks the back ends and hands them down; nothing else names one.
int main(int argc, char **argv)
{
    // The reference-date clock begins here, whatever is first timed.
    PXTimeIntervalSinceReferenceDate();
    makeStandardFilesExist();
    qInstallMessageHandler(logMessageOfQt);
    try {
        const auto application = makeApplication(argc, argv);
        // It took over the user's language, in which strtod() may expect a comma. Numbers on the
        // command line are the same everywhere.
        std::setlocale(LC_NUMERIC, "C");
        // A file that may not grow any more is a failure to tell of, like a full disk.
        std::signal(SIGXFSZ, SIG_IGN);
        QCoreApplication::setApplicationName(QStringLiteral("Tolvane"));
        FFmpegMediaPlatform media;
        PulseSoundPlatform sound;
        const PXTranslations translations;
        const BRBackEnds backEnds{[] { return X11ScreenPlatform::open(); }, media, sound,
                                  [] { return std::make_unique<CanberraSoundPlayer>(); }};
        return BRRunCommandLine(argc, argv, backEnds);
    } catch (const std::bad_alloc &) {
        (void)std::fputs("tolvane: there is not enough memory\n", stderr);
        return 1;
    } catch (const std::exception &bug) {
        std::fprintf(stderr, "tolvane: this is a bug: %s\n", bug.what());
        return 1;
    }
}
