#pragma once

#include <QObject>

#include <functional>

/// Turns SIGINT, SIGTERM and SIGHUP into calls on the main thread while it lives. Afterwards they
/// are ignored: the program is ending, and what it still brings to the disk is to get there. The
/// kernel may deliver a signal at any instruction of any thread; here it only writes a byte to a
/// pipe.
class BRSignals final {
public:
    explicit BRSignals(std::function<void()> stop);
    ~BRSignals();
    BRSignals(const BRSignals &) = delete;
    BRSignals &operator=(const BRSignals &) = delete;

private:
    QObject _context;
};
