#pragma once

#include "input/PXShortcut.h"

/// An object that can have the keyboard and takes shortcuts before anybody else does. Main thread.
class BRShortcutResponder {
public:
    /// Whether it would take it now.
    [[nodiscard]] virtual bool respondsToShortcut(const PXShortcut &shortcut) const = 0;
    /// Whether it took it: else the key goes its usual way.
    virtual bool triggerShortcut(const PXShortcut &shortcut) = 0;

protected:
    ~BRShortcutResponder() = default;
};

/// One that picks shortcuts: while it has the keyboard every key is its own, whatever the key
/// would do otherwise. Main thread.
class BRKeyPicker {
public:
    virtual void keyDown(const PXKeyEvent &event) = 0;

protected:
    ~BRKeyPicker() = default;
};
