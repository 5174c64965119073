#include "app/cli/BRPlayCommand.h"

#include "app/cli/BRCapturePath.h"
#include "app/cli/BRExitStatus.h"
#include "app/cli/BRSignals.h"
#include "app/cli/BRTerminal.h"
#include "rawmovie/view/BRRawMoviePlayer.h"

#include <QApplication>
#include <QFileInfo>
#include <QScreen>

using namespace Qt::StringLiterals;

namespace {

constexpr double kMostOfTheScreen = 0.8;

/// The movie's own size, and less where the screen is small.
QSize windowSizeFor(const QWidget &window, const BRRawMoviePlayer &player)
{
    const QSize room = window.screen()->availableSize() * kMostOfTheScreen;
    const QSize wanted = player.sizeHint();
    if (wanted.width() <= room.width() && wanted.height() <= room.height())
        return wanted;
    return wanted.scaled(room, Qt::KeepAspectRatio);
}

} // namespace

int BRRunPlayCommand(const QString &path, const BRBackEnds &backEnds)
{
    const auto capture = BRCapturePath::withPath(path);
    if (!capture) {
        BRTerminal::printError(capture.error());
        return BRExitStatusOfError(capture.error(), BRAccess::Reading);
    }
    auto movie = BRRawMovie::withFilePath(capture->videoDataPath);
    if (!movie) {
        BRTerminal::printError(movie.error());
        return BRExitStatusOfError(movie.error(), BRAccess::Reading);
    }
    auto platform = backEnds.openScreen();
    if (!platform) {
        BRTerminal::printError(platform.error());
        return BRExitStatusOfError(platform.error(), BRAccess::Writing);
    }
    const BRSignals signalsThatClose([] { QCoreApplication::quit(); });
    BRRawMoviePlayer player([&] { return (*platform)->makeDisplayLink(); });
    player.setDidFail([](const PXError &error) { BRTerminal::printError(error); });
    player.setMovie(*std::move(movie));
    const QString name = capture->info.value(u"name"_s).toString();
    player.setWindowTitle(name.isEmpty() ? QFileInfo(path).fileName() : name);
    player.resize(windowSizeFor(player, player));
    player.show();
    player.togglePlaying();
    return QApplication::exec() == 0 ? BRExitDone : BRExitFailed;
}
