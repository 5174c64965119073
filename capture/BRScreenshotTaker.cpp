#include "capture/BRScreenshotTaker.h"

#include "capture/BRFrameReader.h"

#include <QGuiApplication>
#include <QPixmap>
#include <QScreen>

namespace {

QRect rectOf(const PXPixelRect &rect)
{
    return {rect.x, rect.y, rect.width, rect.height};
}

/// The toolkit's name for the display, if it has one that covers the same pixels.
QScreen *screenOf(const QRect &display)
{
    const QList<QScreen *> screens = QGuiApplication::screens();
    for (QScreen *screen : screens) {
        const QSizeF size = QSizeF(screen->geometry().size()) * screen->devicePixelRatio();
        if (QRect(screen->geometry().topLeft(), size.toSize()) == display)
            return screen;
    }
    return nullptr;
}

} // namespace

PXExpected<QImage> BRScreenshotTaker::screenshot(PXScreenPlatform &platform)
{
    if (auto image = screenshotUsingScreencapture(platform))
        return *std::move(image);
    return screenshotUsingOpenGL(platform);
}

std::optional<QImage> BRScreenshotTaker::screenshotUsingScreencapture(PXScreenPlatform &platform)
{
    if (qobject_cast<QGuiApplication *>(QCoreApplication::instance()) == nullptr)
        return std::nullopt;
    const QRect display = rectOf(platform.mainDisplay().bounds());
    QScreen *screen = screenOf(display);
    if (screen == nullptr)
        return std::nullopt;
    QImage image = screen->grabWindow().toImage();
    image.setDevicePixelRatio(1);
    if (image.size() != display.size())
        return std::nullopt;
    return image.convertToFormat(QImage::Format_RGB32);
}

PXExpected<QImage> BRScreenshotTaker::screenshotUsingOpenGL(PXScreenPlatform &platform)
{
    return BRFrameReader::grabScreenshot(platform);
}
