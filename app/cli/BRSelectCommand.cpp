#include "app/cli/BRSelectCommand.h"

#include "app/cli/BRExitStatus.h"
#include "app/cli/BRSignals.h"
#include "app/cli/BRTerminal.h"
#include "foundation/PXMainThread.h"
#include "overlays/BRScreenSelectionController.h"

#include <QCoreApplication>
#include <QJsonDocument>
#include <QJsonObject>

using namespace Qt::StringLiterals;

namespace {

class Chooser final : private BRScreenSelectionDelegate {
public:
    Chooser(PXScreenPlatform &platform, PXWindowServer &windowServer)
        : _controller(platform, windowServer)
    {
    }

    std::optional<PXRect> choose(const QString &okButtonTitle)
    {
        const BRSignals signalsThatCancel([this] {
            if (_controller.isDisplayed())
                _controller.cancelButton();
            else
                QCoreApplication::quit();
        });
        // From inside the event loop, so that a signal during the fade ends it all.
        PXMainThread::post(&_context,
                           [&] { _controller.displayWindowWithDelegate(*this, okButtonTitle); });
        QCoreApplication::exec();
        return _action == 1 ? std::optional(_controller.selectionRect()) : std::nullopt;
    }

private:
    void screenSelectionDidEnd(int action) override
    {
        _action = action;
        // The window goes with the events that are still there.
        PXMainThread::post(&_context, [] { QCoreApplication::quit(); });
    }

    QObject _context;
    BRScreenSelectionController _controller;
    int _action = 0;
};

void printRect(const PXPixelRect &pixels, const PXRect &rect, bool asJSON)
{
    const QString geometry
        = QString::asprintf("%dx%d+%d+%d", pixels.width, pixels.height, pixels.x, pixels.y);
    if (!asJSON)
        return BRTerminal::print(geometry);
    const QJsonObject object
        = {{u"geometry"_s, geometry},    {u"x"_s, pixels.x},
           {u"y"_s, pixels.y},           {u"width"_s, pixels.width},
           {u"height"_s, pixels.height}, {u"screenSelectionRect"_s, PXStringFromRect(rect)}};
    BRTerminal::print(QString::fromUtf8(QJsonDocument(object).toJson(QJsonDocument::Compact)));
}

} // namespace

std::optional<PXRect> BRSelectScreenPortion(PXScreenPlatform &platform,
                                            PXWindowServer &windowServer,
                                            const QString &okButtonTitle)
{
    return Chooser(platform, windowServer).choose(okButtonTitle);
}

int BRRunSelectCommand(bool asJSON, const BRBackEnds &backEnds)
{
    const auto fail = [](const PXError &error) {
        BRTerminal::printError(error);
        return int{BRExitStatusOfError(error, BRAccess::Reading)};
    };
    const auto platform = backEnds.openScreen();
    if (!platform)
        return fail(platform.error());
    const auto windowServer = (*platform)->makeWindowServer();
    if (!windowServer)
        return fail(windowServer.error());
    const auto rect
        = BRSelectScreenPortion(**platform, **windowServer, qtTrId("BRSelectButtonCaption"));
    if (!rect)
        return BRExitFailed;
    const PXPixelRect display = (*platform)->mainDisplay().bounds();
    printRect(PXPixelsFromRect(*rect, display), *rect, asJSON);
    return BRExitDone;
}
