#pragma once

#include "platform/PXSoundPlayer.h"

#include "foundation/PXHandle.h"
#include "foundation/WHThreadSafeQueue.h"

#include <optional>
#include <thread>

extern "C" {
struct ca_context;
int ca_context_destroy(struct ca_context *context);
}

/// Sounds over libcanberra and the sound server that `PULSE_SERVER` names, else the user's, as
/// event sounds: they have a volume of their own there, and mix with all else.
///
/// libcanberra waits for the server (30 s where that hangs), so its calls are made on a thread.
/// Destroying the player ends what it plays. One at a time in a program: libltdl, through which it
/// loads its back end, counts without a lock.
class CanberraSoundPlayer final : public PXSoundPlayer {
public:
    CanberraSoundPlayer();
    ~CanberraSoundPlayer() override;

    void prepare() override;
    void play(const QString &name) override;
    void setOutputDevice(const QString &uid) override;

private:
    struct Order {
        QString name; ///< Empty only makes the connection.
        QString outputDevice;
    };

    void _work(const std::stop_token &stop);
    /// libcanberra's status.
    int _carryOut(const Order &order);
    int _open();
    int _playFile(const QString &path, const QString &outputDevice);
    void _log(const QString &name, int status);

    QString _outputDevice;
    WHThreadSafeQueue<Order> _orders;
    // The thread's.
    /// What was logged last, so that a countdown without a server is one line.
    int _loggedStatus;
    PXHandle<ca_context, ca_context_destroy> _context;
    std::jthread _thread;
};
