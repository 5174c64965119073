#include "app/BRDesktopHidingView.h"

#include "foundation/BRLog.h"
#include "foundation/PXDefaults.h"
#include "foundation/PXMainThread.h"
#include "widgets/BROverlayWindow.h"
#include "widgets/PXPixelPainter.h"

#include <QFileInfo>
#include <QImageReader>
#include <QPaintEvent>

using namespace Qt::StringLiterals;

namespace {

constexpr int kLargestPictureMiB = 800;

const QString kWithColorKey = u"hideDesktopWith"_s;
const QString kColorKey = u"desktopHidingColor"_s;
const QString kImageKey = u"desktopHidingImage"_s;

} // namespace

BRDesktopHidingView::BRDesktopHidingView(const BROverlayWindow &window) : _window(window)
{
    // No need to clear what is painted all over.
    setAttribute(Qt::WA_OpaquePaintEvent);
}

void BRDesktopHidingView::showEvent(QShowEvent *)
{
    _settings = PXDefaults::standardUserDefaults().addObserver([this](const QString &key) {
        if (key == kWithColorKey || key == kColorKey || key == kImageKey)
            PXMainThread::post(this, [this] { update(); });
    });
}

void BRDesktopHidingView::hideEvent(QHideEvent *)
{
    _settings.end();
    _imagePath.clear();
    _scaledImage = {};
}

const QImage &BRDesktopHidingView::_image(const QString &path, const QSize &size)
{
    const QDateTime time = QFileInfo(path).lastModified();
    if (path == _imagePath && time == _imageTime && size == _imageSize)
        return _scaledImage;
    _imagePath = path;
    _imageTime = time;
    _imageSize = size;
    // A photograph of 200 megapixels is one, too; the usual limit stops at 32.
    QImageReader::setAllocationLimit(kLargestPictureMiB);
    QImageReader reader(path);
    reader.setAutoTransform(true);
    _scaledImage = reader.read();
    if (_scaledImage.isNull())
        BRLog(BRLogWarning,
              u"The desktop picture \"%1\" cannot be read: %2"_s.arg(path, reader.errorString()));
    else
        _scaledImage = _scaledImage.scaled(size, Qt::IgnoreAspectRatio, Qt::SmoothTransformation)
                           .convertToFormat(QImage::Format_ARGB32_Premultiplied);
    return _scaledImage;
}

void BRDesktopHidingView::paintEvent(QPaintEvent *)
{
    PXDefaults &defaults = PXDefaults::standardUserDefaults();
    const QString path = defaults.stringValue(kImageKey);
    const QRect pixels(0, 0, _window.frame().width, _window.frame().height);
    PXPixelPainter painter(this);
    // Also what is translucent takes the place of what was there.
    painter.setCompositionMode(QPainter::CompositionMode_Source);
    if (!defaults.boolValue(kWithColorKey) && !path.isEmpty()) {
        if (const QImage &image = _image(path, pixels.size()); !image.isNull()) {
            painter.drawImage(0, 0, image);
            return;
        }
    }
    const PXColor white = PXColor::calibratedWhite(1, 1);
    painter.fillRect(pixels, PXColorForPainting(defaults.colorValue(kColorKey).value_or(white)));
}
