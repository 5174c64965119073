#pragma once

#include "platform/PXInputMonitor.h"
#include "tests/support/Hand.h"
#include "tests/support/TestConnection.h"
#include "tests/support/VirtualDisplay.h"

#include <QProcess>
#include <QStringList>

#include <linux/input-event-codes.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <stdexcept>
#include <utility>
#include <vector>

/// Runs one of the small programs that users set up keyboard and mouse with.
inline void runOn(const VirtualDisplay &display, const QString &program, QStringList arguments)
{
    arguments.prepend(display.name());
    arguments.prepend(QStringLiteral("-display"));
    QProcess process;
    process.start(program, arguments);
    if (!process.waitForFinished(60'000) || process.exitCode() != 0)
        throw std::runtime_error(program.toStdString()
                                 + " failed: " + process.readAllStandardError().toStdString());
}

/// "de"; "us,ru"; with options after it: "us -option compose:ralt".
inline void setKeymap(const VirtualDisplay &display, const QString &layout)
{
    runOn(display, QStringLiteral("setxkbmap"),
          QStringList{QStringLiteral("-option"), QString()} + QStringList{QStringLiteral("-layout")}
              + layout.split(u' '));
}

/// Presses `keys` (Linux's numbers) together and lets them go in the other order.
inline void chord(const Hand &hand, std::vector<int> keys)
{
    constexpr int offset = 8;
    for (const int key : keys)
        hand.keyDown(key + offset);
    std::reverse(keys.begin(), keys.end());
    for (const int key : keys)
        hand.keyUp(key + offset);
}

/// Keeps what a monitor tells.
class Listener final : public PXInputMonitorDelegate {
public:
    void inputMonitorKeyEvent(const PXKeyEvent &event) override
    {
        const std::lock_guard lock(_mutex);
        _keys.push_back(event);
        _changed.notify_all();
    }
    void inputMonitorMouseEvent(const PXMouseEvent &event) override
    {
        const std::lock_guard lock(_mutex);
        _mouse.push_back(event);
        _changed.notify_all();
    }

    using Keys = std::vector<PXKeyEvent>;
    using Mouse = std::vector<PXMouseEvent>;
    /// What has come so far once `isEnough` of it; throws after a minute. Forgets it.
    Keys takeKeys(const std::function<bool(const Keys &)> &isEnough)
    {
        return _take(_keys, isEnough);
    }
    Mouse takeMouse(const std::function<bool(const Mouse &)> &isEnough)
    {
        return _take(_mouse, isEnough);
    }
    /// All keys up to the release of this one, which it leaves out.
    Keys takeKeysUntil(std::uint16_t keyCode)
    {
        Keys keys = takeKeys([=](const Keys &all) {
            return !all.empty() && all.back().keyCode == keyCode
                && all.back().type == PXKeyEventType::KeyUp;
        });
        std::erase_if(keys, [=](const PXKeyEvent &event) { return event.keyCode == keyCode; });
        return keys;
    }

private:
    template <typename Events, typename IsEnough>
    Events _take(Events &events, const IsEnough &isEnough)
    {
        std::unique_lock lock(_mutex);
        if (!_changed.wait_for(lock, std::chrono::minutes(1), [&] { return isEnough(events); }))
            throw std::runtime_error("waited in vain for input");
        return std::exchange(events, {});
    }

    std::mutex _mutex;
    std::condition_variable _changed;
    Keys _keys;
    Mouse _mouse;
};
