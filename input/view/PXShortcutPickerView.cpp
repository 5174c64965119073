#include "input/view/PXShortcutPickerView.h"

#include <QAction>
#include <QApplication>
#include <QMouseEvent>
#include <QStyle>
#include <QToolTip>

namespace {

// Virtual key codes.
constexpr std::uint32_t kTab = 48;
constexpr std::uint32_t kDelete = 51;
constexpr std::uint32_t kEscape = 53;
constexpr std::uint32_t kForwardDelete = 117;

constexpr int kWidthInGlyphs = 16;

} // namespace

PXShortcutPickerView::PXShortcutPickerView(const PXKeyboard *keyboard, QWidget *parent)
    : QLineEdit(parent), _keyboard(keyboard)
{
    setReadOnly(true);
    setAlignment(Qt::AlignCenter);
    setContextMenuPolicy(Qt::NoContextMenu);
    setCursor(Qt::ArrowCursor);
    _clearAction = addAction(style()->standardIcon(QStyle::SP_LineEditClearButton, nullptr, this),
                             QLineEdit::TrailingPosition);
    _clearAction->setText(qtTrId("BRShortcutPickerClear"));
    connect(_clearAction, &QAction::triggered, this, [this] { _change(std::nullopt); });
    _show();
}

QSize PXShortcutPickerView::sizeHint() const
{
    return {fontMetrics().averageCharWidth() * kWidthInGlyphs, QLineEdit::sizeHint().height()};
}

void PXShortcutPickerView::setShortcut(const std::optional<PXShortcut> &shortcut)
{
    _shortcut = shortcut;
    _setPicking(false);
}

void PXShortcutPickerView::keyDown(const PXKeyEvent &event)
{
    if (event.type != PXKeyEventType::KeyDown || event.isARepeat)
        return;
    const PXShortcut shortcut = PXShortcut::shortcutFromEvent(event);
    if (!_isCommandOfItsOwn(shortcut))
        triggerShortcut(shortcut);
}

/// What moves around or edits has no modifier but Shift.
bool PXShortcutPickerView::_isCommandOfItsOwn(const PXShortcut &shortcut)
{
    const bool isBackwards = shortcut.modifiers() == PXModifierShift;
    if (shortcut.modifiers() != 0 && !(isBackwards && shortcut.keyCode() == kTab))
        return false;
    switch (shortcut.keyCode()) {
    case kTab:
        focusNextPrevChild(!isBackwards);
        return true;
    case kEscape:
        clearFocus();
        return true;
    case kDelete:
    case kForwardDelete:
        _change(std::nullopt);
        return true;
    default:
        return false;
    }
}

bool PXShortcutPickerView::triggerShortcut(const PXShortcut &shortcut)
{
    const bool isPlain = (shortcut.modifiers() & ~std::uint32_t{PXModifierShift}) == 0;
    const auto keyCode = static_cast<std::uint16_t>(shortcut.keyCode());
    if (isPlain && !PXShortcut::isFunctionKey(shortcut.keyCode(), shortcut.characters()))
        _refuse(qtTrId("BRShortcutPickerNeedsModifier"));
    else if (_keyboard != nullptr && _keyboard->isReserved(keyCode, shortcut.modifiers()))
        _refuse(qtTrId("BRShortcutPickerReserved").arg(shortcut.displayString()));
    else if (shortcut.characters().isEmpty())
        _refuse(qtTrId("BRShortcutPickerNameless"));
    else
        _change(shortcut);
    return true;
}

void PXShortcutPickerView::_change(const std::optional<PXShortcut> &shortcut)
{
    QToolTip::hideText();
    setShortcut(shortcut);
    if (_didChange)
        _didChange();
}

void PXShortcutPickerView::_refuse(const QString &reason)
{
    QApplication::beep();
    QToolTip::showText(mapToGlobal(rect().bottomLeft()), reason, this);
}

void PXShortcutPickerView::focusInEvent(QFocusEvent *event)
{
    QLineEdit::focusInEvent(event);
    _setPicking(true);
}

void PXShortcutPickerView::focusOutEvent(QFocusEvent *event)
{
    QLineEdit::focusOutEvent(event);
    _setPicking(false);
}

void PXShortcutPickerView::mousePressEvent(QMouseEvent *event)
{
    // A text's own selection has no meaning here.
    setFocus(Qt::MouseFocusReason);
    _setPicking(true);
    event->accept();
}

void PXShortcutPickerView::_setPicking(bool isPicking)
{
    _isPicking = isPicking;
    _show();
}

void PXShortcutPickerView::_show()
{
    setText(_shortcut && !_isPicking ? _shortcut->displayString() : QString());
    setPlaceholderText(_isPicking ? qtTrId("BRShortcutPickerPrompt")
                                  : qtTrId("BRShortcutPickerEmpty"));
    _clearAction->setVisible(_shortcut.has_value());
}
