#pragma once

#include "foundation/PXMutex.h"

#include <QStringList>

#include <condition_variable>
#include <thread>

/// Brings what a recording has written to the disk about every two seconds, on a thread of its
/// own, so that a power cut loses no more than that and no grab waits for a disk. Sleeps without
/// a wake-up while nothing is written. Destroying it syncs once more.
class BRDiskSyncer final {
public:
    /// `filePaths` in the order in which they are synced: frames before the index over them.
    explicit BRDiskSyncer(QStringList filePaths);
    ~BRDiskSyncer();
    BRDiskSyncer(const BRDiskSyncer &) = delete;
    BRDiskSyncer &operator=(const BRDiskSyncer &) = delete;

    /// Something was written. Any thread; costs a lock and no system call in the usual case.
    void noteThatFilesWereWritten();

private:
    void _run(const std::stop_token &stop);
    void _sync() const;

    const QStringList _filePaths;
    PXMutex _lock;
    std::condition_variable_any _written;
    bool _mustBeSynced PX_GUARDED_BY(_lock) = false;
    std::jthread _thread;
};
