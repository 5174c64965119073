#pragma once

#include "foundation/PXError.h"
#include "foundation/PXMutex.h"

#include <QStringList>

#include <condition_variable>
#include <functional>
#include <optional>
#include <thread>

/// Brings what a recording has written to the disk about every two seconds, on a thread of its
/// own, so that a power cut loses no more than that and no grab waits for a disk. Sleeps without
/// a wake-up while nothing is written. Destroying it syncs once more.
class BRDiskSyncer final {
public:
    /// `filePaths` in the order in which they are synced: frames before the index over them.
    /// `failed` is called with the first error, on the syncing thread and with no lock held: a
    /// disk may be full, or break, only after it has taken what was written.
    BRDiskSyncer(QStringList filePaths, std::function<void(const PXError &)> failed);
    ~BRDiskSyncer();
    BRDiskSyncer(const BRDiskSyncer &) = delete;
    BRDiskSyncer &operator=(const BRDiskSyncer &) = delete;

    /// Something was written. Any thread; costs a lock and no system call in the usual case.
    void noteThatFilesWereWritten();
    /// Syncs once more, ends the thread and returns the first error of all. One thread.
    [[nodiscard]] PXExpected<void> finish();

private:
    void _run(const std::stop_token &stop);
    void _sync();
    void _fail(const PXError &error);

    const QStringList _filePaths;
    const std::function<void(const PXError &)> _failed;
    std::optional<PXError> _firstError; ///< The thread's, until it has ended.
    PXMutex _lock;
    std::condition_variable_any _written;
    bool _mustBeSynced PX_GUARDED_BY(_lock) = false;
    std::jthread _thread;
};
