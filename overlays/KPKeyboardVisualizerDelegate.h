#pragma once

#include "foundation/PXGeometry.h"
#include "input/PXShortcut.h"

#include <vector>

/// What a visualizer asks its owner, which outlives it.
class KPKeyboardVisualizerDelegate {
public:
    /// What is recorded, in global coordinates. Any thread.
    [[nodiscard]] virtual PXRect currentScreenSelectionRect() const = 0;
    /// Key combinations that are never shown. Main thread; the answer holds until the next call.
    virtual const std::vector<PXShortcut> &keyboardShortcutExceptions() = 0;

protected:
    ~KPKeyboardVisualizerDelegate() = default;
};
