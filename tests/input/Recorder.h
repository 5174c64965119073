#pragma once

#include "input/BRApplication.h"

#include <QStringList>

#include <utility>
#include <vector>

/// A window and its recorder, as far as hot keys know them: writes down what is asked of it.
struct Recorder final : BRApplicationDelegate, BRMouseEventReceiver, PXAlert {
    [[nodiscard]] bool isRecording() const override { return records; }
    void stopRecording() override { calls << QStringLiteral("stop"); }
    void toggleCameraMode() override { calls << QStringLiteral("toggle"); }
    void activateIgnoringOtherApps() override { calls << QStringLiteral("activate"); }
    [[nodiscard]] bool isWindowVisible() const override { return isVisible; }
    void switchToPaneWithIdentifier(const QString &pane) override { calls << pane; }
    void displayWindow() override { calls << QStringLiteral("display"); }
    void mouseEventAtPoint(BRMouseEventType type, PXPoint point) override
    {
        mouse.emplace_back(type, point);
    }
    void beep(const QString &message) override { beeps << message; }

    bool records = false;
    bool isVisible = false;
    QStringList calls;
    QStringList beeps;
    std::vector<std::pair<BRMouseEventType, PXPoint>> mouse;
};
