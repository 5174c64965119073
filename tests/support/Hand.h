#pragma once

#include "tests/support/TestConnection.h"

#include <QPoint>
#include <QString>

#include <initializer_list>

/// A user's hand on mouse and keyboard: input that no program can tell from a device's. Keys are
/// evdev's numbers plus 8, as X has them on a virtual display.
class Hand final {
public:
    enum Key {
        Escape = 9,
        BackSpace = 22,
        Tab = 23,
        Return = 36,
        Control = 37,
        A = 38,
        Shift = 50,
        Alt = 64,
        Space = 65,
        KeypadEnter = 104,
        Up = 111,
        Left = 113,
        Right = 114,
        Down = 116,
    };
    enum Button { LeftButton = 1, RightButton = 3 };

    explicit Hand(const QString &displayName) : _connection(displayName) { }

    /// Each call returns when the server has done it.
    void moveTo(QPoint place) const;
    void press(Button button) const;
    void release(Button button) const;
    void click(QPoint place) const;
    /// Down at the first place, through all others, up at the last.
    void drag(std::initializer_list<QPoint> places) const;
    void keyDown(int key) const;
    void keyUp(int key) const;
    void type(int key) const;
    /// Digits only.
    void typeDigits(const QString &digits) const;

private:
    void _send(int type, int detail, QPoint place = {}) const;

    TestConnection _connection;
};
