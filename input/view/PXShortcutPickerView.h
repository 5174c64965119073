#pragma once

#include "input/BRShortcutResponder.h"
#include "input/PXShortcut.h"
#include "platform/PXKeyboard.h"

#include <QLineEdit>

#include <functional>
#include <optional>

/// A field that shows a shortcut and picks another one: the next combination that is pressed once
/// it has the focus. Escape leaves it as it was, Delete clears it, Tab goes on. Keys that somebody
/// types or edits with are picked with Command, Option or Control only. Its keys come from
/// `BRApplication`. Main thread.
class PXShortcutPickerView final : public QLineEdit,
                                   public BRKeyPicker,
                                   public BRShortcutResponder {
public:
    /// `keyboard` may be null and outlives it otherwise: tells what can never become a shortcut.
    explicit PXShortcutPickerView(const PXKeyboard *keyboard, QWidget *parent = nullptr);

    [[nodiscard]] const std::optional<PXShortcut> &shortcut() const { return _shortcut; }
    /// Tells nobody.
    void setShortcut(const std::optional<PXShortcut> &shortcut);
    /// Called when the user has picked or cleared one.
    void setShortcutDidChange(std::function<void()> didChange)
    {
        _didChange = std::move(didChange);
    }

    void keyDown(const PXKeyEvent &event) override;
    /// While it waits for a combination, every one is its own.
    [[nodiscard]] bool respondsToShortcut(const PXShortcut &) const override { return _isPicking; }
    bool triggerShortcut(const PXShortcut &shortcut) override;

    [[nodiscard]] QSize sizeHint() const override;

protected:
    void focusInEvent(QFocusEvent *event) override;
    void focusOutEvent(QFocusEvent *event) override;
    void mousePressEvent(QMouseEvent *event) override;

private:
    bool _isCommandOfItsOwn(const PXShortcut &shortcut);
    void _change(const std::optional<PXShortcut> &shortcut);
    void _refuse(const QString &reason);
    void _setPicking(bool isPicking);
    void _show();

    const PXKeyboard *const _keyboard;
    QAction *_clearAction; ///< The field's.
    std::optional<PXShortcut> _shortcut;
    std::function<void()> _didChange;
    bool _isPicking = false;
};
