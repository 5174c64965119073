#include "tests/support/Hand.h"

#include <xcb/xtest.h>

void Hand::_send(int type, int detail, QPoint place) const
{
    xcb_test_fake_input(_connection.get(), static_cast<std::uint8_t>(type),
                        static_cast<std::uint8_t>(detail), XCB_CURRENT_TIME, _connection.root(),
                        static_cast<std::int16_t>(place.x()), static_cast<std::int16_t>(place.y()),
                        0);
    _connection.sync();
}

void Hand::moveTo(QPoint place) const
{
    _send(XCB_MOTION_NOTIFY, 0, place);
}

void Hand::press(Button button) const
{
    _send(XCB_BUTTON_PRESS, button);
}

void Hand::release(Button button) const
{
    _send(XCB_BUTTON_RELEASE, button);
}

void Hand::click(QPoint place) const
{
    drag({place});
}

void Hand::drag(std::initializer_list<QPoint> places) const
{
    moveTo(*places.begin());
    press(LeftButton);
    for (const QPoint place : places)
        moveTo(place);
    release(LeftButton);
}

void Hand::keyDown(int key) const
{
    _send(XCB_KEY_PRESS, key);
}

void Hand::keyUp(int key) const
{
    _send(XCB_KEY_RELEASE, key);
}

void Hand::type(int key) const
{
    keyDown(key);
    keyUp(key);
}

void Hand::typeDigits(const QString &digits) const
{
    constexpr int kOne = 10;
    for (const QChar digit : digits)
        type(kOne + (digit.digitValue() + 9) % 10);
}
