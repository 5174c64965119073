#pragma once

#include "foundation/PXObservation.h"

#include <QDateTime>
#include <QImage>
#include <QSize>
#include <QString>
#include <QWidget>

class BROverlayWindow;

/// All of it the picture or the colour that the settings name, as they are at each drawing: the
/// picture where "hideDesktopWith" is false and "desktopHidingImage" can be read, stretched;
/// else "desktopHidingColor". Follows the settings while it is shown.
class BRDesktopHidingView final : public QWidget {
public:
    /// To be the content of that window.
    explicit BRDesktopHidingView(const BROverlayWindow &window);

protected:
    void paintEvent(QPaintEvent *event) override;
    void showEvent(QShowEvent *event) override;
    void hideEvent(QHideEvent *event) override;

private:
    /// Stretched over that many pixels; null where there is none. Read and stretched again only
    /// when the file, the size or the name is another.
    const QImage &_image(const QString &path, const QSize &size);

    const BROverlayWindow &_window;
    QString _imagePath;
    QDateTime _imageTime;
    QSize _imageSize;
    QImage _scaledImage;
    PXObservation _settings; // Last: its function uses the rest.
};
