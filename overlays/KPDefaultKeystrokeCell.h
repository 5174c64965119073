#pragma once

#include "foundation/PXGeometry.h"
#include "overlays/KPKeystroke.h"
#include "overlays/KPKeystrokeStyle.h"

#include <QImage>
#include <QList>
#include <QRect>
#include <QTextLayout>

#include <cstddef>
#include <optional>

class QPainter;

/// A text of which parts look different.
struct KPAttributedString {
    QString string;
    QList<QTextLayout::FormatRange> attributes;
};

/// Draws one line of keystrokes. A line that is too long is cut in front, where it is oldest, to
/// whole keys behind an ellipsis; a single key that is too long gets a smaller text. Letters that
/// are read from right to left stand so, and the whole line when it begins with such. Counters of
/// held keys are smaller and fainter than what they count.
/// All lengths are pixels. Main thread.
class KPDefaultKeystrokeCell final {
public:
    explicit KPDefaultKeystrokeCell(const KPKeystroke &keystroke);

    void setKeystroke(const KPKeystroke &keystroke);

    /// What it takes, in that style; drawn so from now on.
    [[nodiscard]] PXSize sizeWithStyle(const KPKeystrokeStyle &style);
    /// Whether its text begins at the right.
    [[nodiscard]] bool isRightToLeft() const { return _isRightToLeft; }

    /// Its place in the stack of lines, y up; the lowest line stands on 0.
    [[nodiscard]] const PXRect &cachedCellFrame() const { return mCachedCellFrame; }
    void setCachedCellFrame(const PXRect &frame) { mCachedCellFrame = frame; }
    [[nodiscard]] double alphaValue() const { return mAlphaValue; }
    void setAlphaValue(double alpha) { mAlphaValue = alpha; }

    /// The keystroke's pieces from `first` on, an ellipsis for those before.
    static KPAttributedString attributedStringForKeystroke(const KPKeystroke &keystroke,
                                                           const KPKeystrokeStyle &style,
                                                           std::size_t first = 0);
    /// Its upper beginning is `frame`'s, in the painter's pixels, y down; what is beyond the frame
    /// is cut off.
    void drawWithFrame(const QRect &frame, QPainter &painter);

private:
    void _layOut();
    [[nodiscard]] QImage _image() const;

    PXRect mCachedCellFrame;
    QImage mCachedImage; ///< None until it is drawn.
    double mAlphaValue = 1;
    KPKeystroke _keystroke;
    std::optional<KPKeystrokeStyle> _style; ///< None until it is measured.
    PXSize _size;
    std::size_t _first = 0; ///< The first of the keystroke's pieces that is shown.
    int _textSize = 0;
    bool _isRightToLeft = false;
};
