#include "overlays/KPDefaultKeystrokeCell.h"

#include <QFontMetricsF>
#include <QGlyphRun>
#include <QPainter>
#include <QPainterPath>
#include <QRawFont>

#include <algorithm>
#include <cmath>

using namespace Qt::StringLiterals;

namespace {

constexpr double kCounterSize = 0.62; ///< Of the text's.
constexpr float kCounterOpacity = 0.75F;
constexpr double kLongLine = 1e6; ///< Longer than any.

/// One line, laid out; it begins at 0, 0.
class Line final {
public:
    Line(const KPAttributedString &text, const KPKeystrokeStyle &style, bool isRightToLeft)
        : _layout(text.string, style.font())
    {
        QTextOption option(Qt::AlignLeft | Qt::AlignAbsolute);
        option.setTextDirection(isRightToLeft ? Qt::RightToLeft : Qt::LeftToRight);
        option.setWrapMode(QTextOption::NoWrap);
        _layout.setTextOption(option);
        _layout.setFormats(text.attributes);
        _layout.beginLayout();
        _line = _layout.createLine();
        _line.setLineWidth(kLongLine);
        _layout.endLayout();
    }

    [[nodiscard]] QSizeF size() const { return {_line.naturalTextWidth(), _line.height()}; }
    void draw(QPainter &painter, const QPointF &place) const { _layout.draw(&painter, place); }
    [[nodiscard]] QPainterPath path() const
    {
        QPainterPath path;
        for (const QGlyphRun &run : _layout.glyphRuns()) {
            const QList<quint32> glyphs = run.glyphIndexes();
            const QList<QPointF> places = run.positions();
            for (qsizetype i = 0; i < glyphs.size(); ++i)
                path.addPath(run.rawFont().pathForGlyph(glyphs[i]).translated(places[i]));
        }
        path.setFillRule(Qt::WindingFill);
        return path;
    }

private:
    QTextLayout _layout;
    QTextLine _line;
};

/// A shortcut or a name among others would read on into them: "⌘S" and Return, or "a", F1, "b".
bool isWord(const KPKeystrokePiece &piece)
{
    return piece.type != KPKeystrokeType::Character && piece.text.size() > 1;
}

/// What is seen between two neighbours.
QString gap(const KPKeystrokePiece &one, const KPKeystrokePiece &next)
{
    return isWord(one) || isWord(next) ? u" "_s : KPKeystroke::separator(one, next);
}

/// About how much of the line the piece takes; what stands beside it changes that.
double widthOf(const KPKeystrokePiece &piece, const QFontMetricsF &metrics)
{
    return metrics.horizontalAdvance(piece.text)
        + metrics.horizontalAdvance(piece.counter()) * kCounterSize;
}

} // namespace

KPDefaultKeystrokeCell::KPDefaultKeystrokeCell(const KPKeystroke &keystroke) : _keystroke(keystroke)
{
}

void KPDefaultKeystrokeCell::setKeystroke(const KPKeystroke &keystroke)
{
    _keystroke = keystroke;
    _style.reset();
}

PXSize KPDefaultKeystrokeCell::sizeWithStyle(const KPKeystrokeStyle &style)
{
    if (_style != style) {
        _style = style;
        _layOut();
        mCachedImage = {};
    }
    return _size;
}

KPAttributedString KPDefaultKeystrokeCell::attributedStringForKeystroke(
    const KPKeystroke &keystroke, const KPKeystrokeStyle &style, std::size_t first)
{
    QColor faint = style.textColor;
    faint.setAlphaF(faint.alphaF() * kCounterOpacity);
    QTextCharFormat counterFormat;
    counterFormat.setForeground(faint);
    QFont counterFont = style.font();
    counterFont.setPixelSize(std::max(static_cast<int>(style.textSize * kCounterSize), 1));
    counterFormat.setFont(counterFont);

    KPAttributedString result;
    if (first > 0)
        result.string = u"\u2026"_s;
    const auto &pieces = keystroke.pieces();
    for (std::size_t i = first; i < pieces.size(); ++i) {
        if (i > first)
            result.string += gap(pieces[i - 1], pieces[i]);
        result.string += pieces[i].text;
        const QString counter = pieces[i].counter();
        if (!counter.isEmpty())
            result.attributes.append({static_cast<int>(result.string.size()),
                                      static_cast<int>(counter.size()), counterFormat});
        result.string += counter;
    }
    return result;
}

void KPDefaultKeystrokeCell::_layOut()
{
    KPKeystrokeStyle style = *_style;
    const auto &pieces = _keystroke.pieces();
    const int room = std::max(style.maximumWidth - 2 * style.padding(), 1);
    _isRightToLeft = _keystroke.displayString().isRightToLeft();
    const auto sizeFrom = [&](std::size_t first) {
        return Line(attributedStringForKeystroke(_keystroke, style, first), style, _isRightToLeft)
            .size();
    };

    const QFontMetricsF metrics(style.font());
    _first = pieces.size() - 1;
    double width = widthOf(pieces.back(), metrics);
    while (_first > 0) {
        width += widthOf(pieces[_first - 1], metrics)
            + metrics.horizontalAdvance(gap(pieces[_first - 1], pieces[_first]));
        if (width > room)
            break;
        --_first;
    }
    QSizeF line = sizeFrom(_first);
    while (line.width() > room && _first + 1 < pieces.size())
        line = sizeFrom(++_first);
    if (line.width() > room) {
        // Its beginning tells the modifiers and its end the key: neither can go.
        style.textSize = std::max(static_cast<int>(style.textSize * room / line.width()), 1);
        line = sizeFrom(_first);
    }
    _textSize = style.textSize;
    const double height = std::ceil(std::max(metrics.height(), line.height()));
    // No narrower than high, so that a single letter stands in something like a key.
    _size = {static_cast<float>(
                 std::min<double>(std::max(std::ceil(line.width()) + 2 * style.padding(), height),
                                  std::max(_style->maximumWidth, 1))),
             static_cast<float>(height)};
}

QImage KPDefaultKeystrokeCell::_image() const
{
    KPKeystrokeStyle style = *_style;
    style.textSize = _textSize;
    const Line line(attributedStringForKeystroke(_keystroke, style, _first), style, _isRightToLeft);
    QImage image(static_cast<int>(_size.width), static_cast<int>(_size.height),
                 QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    QPainter painter(&image);
    painter.setRenderHint(QPainter::Antialiasing);
    const QSizeF size = line.size();
    const QPointF place(std::floor((image.width() - size.width()) / 2),
                        std::floor((image.height() - size.height()) / 2));
    if (style.outlineColor) {
        const QPen pen(*style.outlineColor, 2 * style.outlineWidth(), Qt::SolidLine, Qt::RoundCap,
                       Qt::RoundJoin);
        painter.strokePath(line.path().translated(place), pen);
    }
    painter.setPen(style.textColor);
    line.draw(painter, place);
    return image;
}

void KPDefaultKeystrokeCell::drawWithFrame(const QRect &frame, QPainter &painter)
{
    if (!_style || mAlphaValue <= 0)
        return;
    if (mCachedImage.isNull())
        mCachedImage = _image();
    const int beyond = _isRightToLeft ? mCachedImage.width() - frame.width() : 0;
    const QRect part(std::max(beyond, 0), 0, frame.width(), mCachedImage.height());
    painter.setOpacity(mAlphaValue);
    painter.drawImage(frame.topLeft() + QPoint(std::max(-beyond, 0), 0), mCachedImage,
                      part & mCachedImage.rect());
    painter.setOpacity(1);
}
